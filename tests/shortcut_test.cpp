#include "input/key_codes.h"
#include "input/shortcut.h"
#include "input/shortcut_matcher.h"

#include <gtest/gtest.h>

#include <QStringList>
#include <map>

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

// Each step is a key (c/C left/right Ctrl, w/W left/right Super, s Shift, k, j) going
// down (+) or up (-), or "r", a reset; "!" marks a step where Ctrl+Super+K fires.
TEST(ShortcutMatcher, FiresOnTheKeyWithExactlyItsModifiersEitherSide) {
    ShortcutMatcher unset;
    EXPECT_FALSE(unset.feed(keys::control, true) || unset.feed(keys::command, true) ||
                 unset.feed(keys::k, true));
    const std::map<QChar, KeyCode> keyOf{{'c', keys::control}, {'C', keys::rightControl},
                                         {'w', keys::command}, {'W', keys::rightCommand},
                                         {'s', keys::shift},   {'k', keys::k},
                                         {'j', keys::j}};
    for (const char* script : {
             "c+ w+ k+! k- k+! w- c-", // held modifiers, pressed again: toggles again
             "C+ W+ k+!",              // right modifiers
             "C+ w+ k+!",              // one of each side
             "c+ w+ s+ k+",            // an extra modifier
             "c+ k+",                  // a modifier missing
             "c+ w+ w- k+",            // released before the key
             "c+ C+ w+ c- k+!",        // one side released, the other still held
             "s- c+ w+ k+!",           // a doubled key-up of a modifier never held
             "c+ w+ k-",               // only on key-down
             "c+ w+ j+",               // another key
             "c+ w+ k+! r k+",         // capture restarted: the held keys' ups never come
         }) {
        ShortcutMatcher matcher;
        matcher.setShortcut(Shortcut::parse(QStringLiteral("Ctrl+Super+K")));
        for (const QString& step : QString(script).split(' ')) {
            if (step == "r") {
                matcher.reset();
                continue;
            }
            EXPECT_EQ(matcher.feed(keyOf.at(step[0]), step[1] == '+'), step.endsWith('!'))
                << script << ", at " << step.toStdString();
        }
    }
}
