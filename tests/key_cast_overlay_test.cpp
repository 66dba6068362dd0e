// The key-cast overlay wired to the delegate on the offscreen platform (its QML is loaded in
// DesktopShell's warning check).

#include "input/key_codes.h"
#include "support/stand_in_app.h"
#include "ui/desktop_shell.h"

#include <gtest/gtest.h>

#include <QQuickWindow>

using namespace tappix;
using test::Harness;

namespace {

void settle(Harness& run) {
    for (int i = 0; i < 5; ++i)
        run.settle();
}

} // namespace

TEST(KeyCastOverlay, OnlyWhileOnTheWindowShowsInItsCornerWhileThereAreChips) {
    using namespace keys;
    struct Case {
        const char *size, *position;
        int chipHeight;
        bool top, left, right;
    };
    // Unknown values mean medium, bottom centre.
    const Case cases[] = {{"small", "topRight", 34, true, false, true},
                          {"large", "bottomLeft", 58, false, true, false},
                          {"medium", "middle", 44, false, false, false},
                          {"huge", "bottomRight", 44, false, false, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.size) + " " + c.position);
        Harness run(test::windowed({{"visualizerEnabled", false},
                                    {"visualizerSize", c.size},
                                    {"visualizerShortcutsOnly", true},
                                    {"visualizerPosition", c.position}}));
        KeyCastOverlay& overlay = *run.delegate->shell()->keyCastOverlay();
        run.press(command, true);
        run.type({k});
        run.press(command, false);
        EXPECT_EQ(overlay.chips().rowCount(), 0);
        EXPECT_EQ(overlay.window(), nullptr) << "nothing made while off";
        run.delegate->settings().setVisualizerEnabled(true);
        settle(run);
        run.type({t, y, p, e});
        EXPECT_EQ(overlay.window(), nullptr) << "plain typing shows nothing";

        run.press(command, true);
        run.type({k});
        QQuickWindow* window = overlay.window();
        ASSERT_NE(window, nullptr);
        EXPECT_TRUE(window->isVisible());
        EXPECT_EQ(overlay.chips().texts(), QStringList({"⌘K"}));
        // In its corner of the screen, inside the margin, as tall as a chip.
        EXPECT_EQ(overlay.chipHeight(), c.chipHeight);
        EXPECT_GT(window->height(), c.chipHeight);
        EXPECT_LT(window->height(), c.chipHeight + 8);
        const QRect area = overlay.area();
        const int margin = KeyCastOverlay::kMargin;
        if (c.top)
            EXPECT_EQ(window->y(), area.y() + margin);
        else
            EXPECT_EQ(window->y() + window->height(), area.bottom() + 1 - margin);
        if (c.left)
            EXPECT_EQ(window->x(), area.x() + margin);
        else if (c.right)
            EXPECT_EQ(window->x() + window->width(), area.right() + 1 - margin);
        else
            EXPECT_NEAR(window->x() + window->width() / 2.0, area.x() + area.width() / 2.0, 1.0);
        run.press(command, false);

        // The last chip gone, the window follows once it has faded.
        run.time.advance(KeyCast::kLifetime);
        settle(run);
        EXPECT_EQ(overlay.chips().rowCount(), 0);
        EXPECT_TRUE(overlay.isVisible());
        run.time.advance(KeyCastOverlay::kLinger);
        settle(run);
        EXPECT_FALSE(overlay.isVisible());

        // Turned off, the chips go at once and later keys add none.
        run.press(command, true);
        run.type({k});
        EXPECT_EQ(overlay.chips().rowCount(), 1);
        run.delegate->settings().setVisualizerEnabled(false);
        settle(run);
        EXPECT_EQ(overlay.chips().rowCount(), 0);
        run.type({k});
        EXPECT_EQ(overlay.chips().rowCount(), 0);
        run.press(command, false);
    }
}
