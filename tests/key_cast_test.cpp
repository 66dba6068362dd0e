// The key-cast chips as a function of key events and the clock: tables of presses in,
// chip texts out, on the hand-driven clock.

#include "input/key_codes.h"
#include "monitors/key_cast.h"
#include "support/fake_time.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tappix;
using namespace std::chrono_literals;

namespace {

/// A key going down or up, then time passing.
struct Step {
    KeyCode code;
    bool down;
    std::chrono::milliseconds after = 0ms;
};

/// Presses and releases each key, `gap` apart.
std::vector<Step> typed(std::initializer_list<KeyCode> codes,
                        std::chrono::milliseconds gap = 100ms) {
    std::vector<Step> steps;
    for (KeyCode code : codes) {
        steps.push_back({code, true});
        steps.push_back({code, false, gap});
    }
    return steps;
}

struct Case {
    const char* name;
    std::vector<Step> steps;
    std::vector<std::string> chips;
    bool shortcutsOnly = false;
};

std::vector<std::string> texts(const KeyCast& cast) {
    std::vector<std::string> out;
    for (const KeyCastChip& chip : cast.chips())
        out.push_back(chip.text().toStdString());
    return out;
}

class Cast {
public:
    test::FakeTime time;
    KeyCast cast{time, time};
    int changes = 0;

    Cast() {
        cast.setOnChange([this] { ++changes; });
    }
    void play(const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            cast.key(step.code, step.down);
            time.advance(step.after);
        }
    }
};

std::vector<Step> operator+(std::vector<Step> a, const std::vector<Step>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

} // namespace

TEST(KeyCast, ChipsFromKeyEvents) {
    using namespace keys;
    const Case cases[] = {
        {"eight letters leave the last six",
         typed({a, b, c, d, e, f, g, h}),
         {"C", "D", "E", "F", "G", "H"}},
        {"labels of keys without letters",
         typed({space, returnKey, backspace, leftArrow}),
         {"␣", "⏎", "⌫", "←"}},
        {"ctrl held with C", {{control, true}, {c, true}, {c, false}, {control, false}}, {"⌃C"}},
        {"right-hand modifiers count too",
         {{rightControl, true}, {rightShift, true}, {z, true}, {z, false}},
         {"⌃⇧Z"}},
        {"super and alt in their order",
         {{command, true}, {option, true}, {tab, true}, {tab, false}},
         {"⌥⌘⇥"}},
        {"one combination per key while held",
         {{control, true}, {c, true}, {c, false}, {v, true}, {v, false}, {control, false}},
         {"⌃C", "⌃V"}},
        {"shift pressed alone", {{shift, true, 50ms}, {shift, false}}, {"⇧"}},
        {"two modifiers pressed alone, released one by one",
         {{control, true}, {shift, true}, {shift, false}, {control, false}},
         {"⌃⇧"}},
        {"held modifiers show before the key", {{control, true}, {option, true}}, {"⌃⌥"}},
        {"a modifier used in a combination leaves nothing on release",
         typed({a}) + std::vector<Step>{{control, true}, {c, true}, {c, false}, {control, false}},
         {"A", "⌃C"}},
        {"a chip goes 1.4 s after its key", {{a, true, 1000ms}, {b, true, 399ms}}, {"A", "B"}},
        {"... and not a moment later", {{a, true, 1000ms}, {b, true, 400ms}}, {"B"}},
        {"every chip gone after 1.4 s of quiet", typed({a, b, c}) + typed({d}, 1400ms), {}},
        {"modifiers held past the lifetime stay", {{control, true, 5000ms}}, {"⌃"}},
        {"modifiers alone live 1.4 s from their release",
         {{control, true, 5000ms}, {control, false, 1399ms}},
         {"⌃"}},
        {"a repeated down of a held modifier is one press",
         {{shift, true}, {shift, true}, {a, true}, {shift, false}},
         {"⇧A"}},
        {"shortcuts only: plain and shifted typing show nothing",
         typed({h, i}) + std::vector<Step>{{shift, true}, {a, true}, {shift, false}},
         {},
         true},
        {"shortcuts only: combinations show",
         typed({h}) + std::vector<Step>{{control, true}, {s, true}, {control, false}} + typed({i}) +
             std::vector<Step>{{command, true}, {shift, true}, {z, true}},
         {"⌃S", "⇧⌘Z"},
         true},
        {"shortcuts only: ctrl held shows, shift held does not",
         {{shift, true}, {shift, false}, {control, true}},
         {"⌃"},
         true},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        Cast run;
        run.cast.setShortcutsOnly(test.shortcutsOnly);
        run.play(test.steps);
        EXPECT_EQ(texts(run.cast), test.chips);
    }
}

TEST(KeyCast, AFloodNeverShowsMoreThanSixAndEndsQuiet) {
    using namespace keys;
    const KeyCode letters[] = {q, w, e, r, t, y, u, i, o, p, space, backspace, returnKey};
    Cast run;
    std::size_t most = 0;
    run.cast.setOnChange([&] { most = std::max(most, run.cast.chips().size()); });
    for (int n = 0; n < 200; ++n) {
        const KeyCode code = letters[n % std::size(letters)];
        run.cast.key(shift, n % 7 == 0);
        run.cast.key(code, true);
        run.cast.key(code, false);
        run.time.advance(3ms);
        ASSERT_LE(run.time.pending(), 1u);
    }
    run.cast.key(shift, false);
    EXPECT_EQ(most, KeyCast::kMaxChips);
    run.time.advance(1400ms);
    EXPECT_TRUE(run.cast.chips().empty());
    EXPECT_EQ(run.time.pending(), 0u);
}

TEST(KeyCast, ChipsKeepTheirIdsAndClearForgetsHeldModifiers) {
    using namespace keys;
    Cast run;
    run.play({{control, true}});
    const auto waiting = run.cast.chips().at(0).id;
    EXPECT_TRUE(run.cast.chips().at(0).held);
    run.play({{c, true}});
    // The combination replaces the waiting modifiers in place, for the view to morph.
    ASSERT_EQ(run.cast.chips().size(), 1u);
    EXPECT_EQ(run.cast.chips()[0].id, waiting);
    EXPECT_EQ(run.cast.chips()[0].modifiers, QStringLiteral("⌃"));
    EXPECT_EQ(run.cast.chips()[0].key, QStringLiteral("C"));

    run.cast.clear();
    EXPECT_TRUE(run.cast.chips().empty());
    EXPECT_EQ(run.time.pending(), 0u);
    // Ctrl's release was never seen: a later key is plain.
    run.play({{a, true}});
    EXPECT_EQ(texts(run.cast), std::vector<std::string>{"A"});
    EXPECT_NE(run.cast.chips()[0].id, waiting);
}
