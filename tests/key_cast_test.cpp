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

/// A key going down or up (or the overlay turned off and on: `kOff`), then time passing.
struct Step {
    KeyCode code;
    bool down;
    std::chrono::milliseconds after = 0ms;
};
constexpr KeyCode kOff = -1;

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

/// Holds `modifiers` (pressed in that order), taps `code`, releases them.
std::vector<Step> chord(std::initializer_list<KeyCode> modifiers, KeyCode code) {
    std::vector<Step> steps;
    for (KeyCode m : modifiers)
        steps.push_back({m, true});
    steps.push_back({code, true});
    steps.push_back({code, false});
    for (KeyCode m : modifiers)
        steps.push_back({m, false});
    return steps;
}

struct Case {
    const char* name;
    std::vector<Step> steps;
    /// Oldest first; a chip marked as a shortcut ends in "*".
    std::vector<std::string> chips;
    bool shortcutsOnly = false;
};

std::vector<Step> operator+(std::vector<Step> a, const std::vector<Step>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

} // namespace

TEST(KeyCast, ChipsFromKeyEvents) {
    using namespace keys;
    const std::vector<Step> shiftTwiceThenA{{control, false}, {shift, true},  {shift, true},
                                            {a, true},        {shift, false}, {b, true}};
    const Case cases[] = {
        {"eight letters leave the last six",
         typed({a, b, c, d, e, f, g, h}),
         {"C", "D", "E", "F", "G", "H"}},
        {"labels of keys without letters; a key without a label shows nothing",
         typed({space, returnKey, backspace, leftArrow, keypad5}),
         {"␣", "⏎", "⌫", "←"}},
        {"a chip goes 1.4 s after it appeared while typing goes on",
         {{a, true, 1000ms}, {b, true, 399ms}},
         {"A", "B"}},
        {"... and not a moment later", {{a, true, 1000ms}, {b, true, 400ms}}, {"B"}},
        {"every chip gone after 1.4 s of quiet", typed({a, b, c}) + typed({d}, 1400ms), {}},
        {"held modifiers do not keep a chip", {{control, true, 1400ms}}, {}},
        {"every modifier in the fixed order; the seventh chip pushes out the first",
         chord({capsLock, function, rightCommand, rightShift, rightOption, rightControl}, z),
         {"fn", "⌘", "⇧", "⌥", "⌃", "⌃⌥⇧⌘fn⇪Z*"}},
        {"one combination per key while held",
         {{control, true}, {c, true}, {c, false}, {v, true}, {v, false}, {control, false}},
         {"⌃", "⌃C*", "⌃V*"}},
        {"a release never pressed, then a modifier pressed twice and released once",
         shiftTwiceThenA,
         {"⇧", "⇧", "⇧A*", "B"}},
        {"shortcuts only: modifiers alone and plain keys add nothing",
         typed({h, command}) + chord({shift}, a) + chord({option, control}, c),
         {"⇧A*", "⌃⌥C*"},
         true},
        {"turned off: chips and held modifiers forgotten",
         {{control, true}, {c, true}, {kOff, true}, {a, true}},
         {"A"}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        test::FakeTime time;
        KeyCast cast{time, time};
        cast.setShortcutsOnly(test.shortcutsOnly);
        for (const Step& step : test.steps) {
            if (step.code == kOff)
                cast.clear();
            else
                cast.key(step.code, step.down);
            time.advance(step.after);
        }
        std::vector<std::string> chips;
        for (const KeyCastChip& chip : cast.chips())
            chips.push_back(chip.text().toStdString() + (chip.isShortcut ? "*" : ""));
        EXPECT_EQ(chips, test.chips);
    }
}
