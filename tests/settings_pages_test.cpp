// What the settings pages do beyond binding settings: the shortcut recorder's reading of
// pressed keys, the login start, and the palettes the Look page offers.

#include "support/stand_in_app.h"
#include "ui/behaviour_view_model.h"

#include <gtest/gtest.h>

#include <QVariantMap>

using namespace tappix;
using test::Harness;

using test::windowed;

TEST(BehaviourViewModel, TheRecorderTakesOnlyCombinationsThatCannotFireWhileTyping) {
    Harness run(windowed());
    SettingsStore& settings = run.delegate->settings();
    BehaviourViewModel& model = run.delegate->shell()->behaviour();
    struct Case {
        int key;
        int modifiers;
        const char* text; // stored, or null
        bool problem;     // refused with a hint
    };
    const Case cases[] = {
        {Qt::Key_Control, Qt::ControlModifier, nullptr, false}, // still pressing
        {Qt::Key_K, Qt::NoModifier, nullptr, true},
        {Qt::Key_K, Qt::ShiftModifier, nullptr, true},
        {Qt::Key_K, Qt::ControlModifier | Qt::MetaModifier, "Ctrl+Super+K", false},
        {Qt::Key_F5, Qt::AltModifier | Qt::ShiftModifier, "Alt+Shift+F5", false},
        {Qt::Key_PageDown, Qt::ControlModifier, "Ctrl+PageDown", false},
        {Qt::Key_Space, Qt::MetaModifier, "Super+Space", false},
        {Qt::Key_MediaPlay, Qt::ControlModifier, nullptr, true},
    };
    for (const Case& c : cases) {
        settings.setToggleSoundsShortcut("Ctrl+Alt+T");
        const QVariantMap result = model.recordShortcut(c.key, c.modifiers);
        const QString expected = c.text ? QString(c.text) : QStringLiteral("Ctrl+Alt+T");
        EXPECT_EQ(settings.toggleSoundsShortcut(), expected) << c.key;
        EXPECT_EQ(result.contains("problem"), c.problem) << c.key;
        EXPECT_EQ(result.value("text").toString(), c.text ? QString(c.text) : QString()) << c.key;
    }
}

TEST(BehaviourViewModel, ALoginStartTheDesktopRefusesIsSaidOnThePage) {
    // The stand-in platform has no autostart folder to write.
    Harness run(windowed());
    BehaviourViewModel& model = run.delegate->shell()->behaviour();
    model.setLaunchAtLogin(true);
    EXPECT_FALSE(model.launchAtLogin());
    EXPECT_FALSE(model.launchAtLoginProblem().isEmpty());
}
