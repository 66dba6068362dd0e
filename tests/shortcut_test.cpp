#include "input/key_codes.h"
#include "input/shortcut.h"
#include "input/shortcut_matcher.h"

#include <gtest/gtest.h>

#include <vector>

using namespace tappix;

TEST(Shortcut, ParsesReadableCombinationsAndRefusesTheRest) {
    struct Case {
        const char* text;
        bool valid;
        std::uint8_t modifiers;
        KeyCode key;
        const char* written;
    };
    const Case cases[] = {
        {"Ctrl+Super+K", true, Shortcut::ctrl | Shortcut::super, keys::k, "Ctrl+Super+K"},
        {"super+ctrl+k", true, Shortcut::ctrl | Shortcut::super, keys::k, "Ctrl+Super+K"},
        {" Control + Meta + K ", true, Shortcut::ctrl | Shortcut::super, keys::k, "Ctrl+Super+K"},
        {"Alt+Shift+F5", true, Shortcut::alt | Shortcut::shift, keys::f5, "Alt+Shift+F5"},
        {"Ctrl+Alt+Space", true, Shortcut::ctrl | Shortcut::alt, keys::space, "Ctrl+Alt+Space"},
        {"Ctrl+Return", true, Shortcut::ctrl, keys::returnKey, "Ctrl+Return"},
        {"Super+/", true, Shortcut::super, keys::slash, "Super+/"},
        {"F13", true, 0, keys::f13, "F13"},
        {"F20", true, 0, keys::f20, "F20"}, // the last function key, alone
        {"Ctrl+", false, 0, 0, ""},
        {"Hyper+Q", false, 0, 0, ""},
        {"", false, 0, 0, ""},
        {"K", false, 0, 0, ""}, // a bare typing key would fire while writing
        {"Ctrl+Ctrl+K", false, 0, 0, ""},
        {"Ctrl+K+L", false, 0, 0, ""},
        {"Ctrl+Shift", false, 0, 0, ""},
        {"Ctrl+Banana", false, 0, 0, ""},
    };
    for (const Case& c : cases) {
        const auto parsed = Shortcut::parse(QString::fromUtf8(c.text));
        ASSERT_EQ(parsed.has_value(), c.valid) << c.text;
        if (!parsed)
            continue;
        EXPECT_EQ(parsed->modifiers, c.modifiers) << c.text;
        EXPECT_EQ(parsed->key, c.key) << c.text;
        EXPECT_EQ(parsed->toString(), QString::fromUtf8(c.written)) << c.text;
        EXPECT_EQ(Shortcut::parse(parsed->toString()), parsed) << c.text;
    }
}

TEST(ShortcutMatcher, FiresOnTheKeyWithExactlyItsModifiersEitherSide) {
    struct Event {
        KeyCode code;
        bool down;
        bool fires;
    };
    struct Case {
        const char* name;
        std::vector<Event> events;
    };
    const Case cases[] = {
        {"left modifiers",
         {{keys::control, true, false},
          {keys::command, true, false},
          {keys::k, true, true},
          {keys::k, false, false},
          {keys::k, true, true}, // held modifiers, pressed again: toggles again
          {keys::command, false, false},
          {keys::control, false, false}}},
        {"right modifiers",
         {{keys::rightControl, true, false},
          {keys::rightCommand, true, false},
          {keys::k, true, true}}},
        {"one of each side",
         {{keys::rightControl, true, false}, {keys::command, true, false}, {keys::k, true, true}}},
        {"an extra modifier",
         {{keys::control, true, false},
          {keys::command, true, false},
          {keys::shift, true, false},
          {keys::k, true, false}}},
        {"a modifier missing", {{keys::control, true, false}, {keys::k, true, false}}},
        {"released before the key",
         {{keys::control, true, false},
          {keys::command, true, false},
          {keys::command, false, false},
          {keys::k, true, false}}},
        {"one side released, the other still held",
         {{keys::control, true, false},
          {keys::rightControl, true, false},
          {keys::command, true, false},
          {keys::control, false, false},
          {keys::k, true, true}}},
        {"a doubled key-up of a modifier never held",
         {{keys::shift, false, false},
          {keys::control, true, false},
          {keys::command, true, false},
          {keys::k, true, true}}},
        {"only on key-down",
         {{keys::control, true, false}, {keys::command, true, false}, {keys::k, false, false}}},
        {"another key",
         {{keys::control, true, false}, {keys::command, true, false}, {keys::j, true, false}}},
    };
    const auto shortcut = Shortcut::parse(QStringLiteral("Ctrl+Super+K"));
    for (const Case& c : cases) {
        ShortcutMatcher matcher;
        matcher.setShortcut(shortcut);
        for (std::size_t i = 0; i < c.events.size(); ++i) {
            const Event& e = c.events[i];
            EXPECT_EQ(matcher.feed(e.code, e.down), e.fires) << c.name << ", event " << i;
        }
    }
}

TEST(ShortcutMatcher, OffWhenUnsetAndForgetsModifiersOnReset) {
    ShortcutMatcher matcher;
    EXPECT_FALSE(matcher.feed(keys::control, true));
    EXPECT_FALSE(matcher.feed(keys::command, true));
    EXPECT_FALSE(matcher.feed(keys::k, true));

    matcher.setShortcut(Shortcut::parse(QStringLiteral("Ctrl+Super+K")));
    EXPECT_TRUE(matcher.feed(keys::k, true));
    // Capture restarted while both were held: their key-ups never come, and a plain K
    // must not turn the sounds off.
    matcher.reset();
    EXPECT_FALSE(matcher.feed(keys::k, true));
}
