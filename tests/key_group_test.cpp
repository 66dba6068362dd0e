#include "input/key_group.h"

#include "input/key_codes.h"
#include "input/shortcut.h"
#include "input/shortcut_matcher.h"

#include <gtest/gtest.h>

#include <QStringList>
#include <map>
#include <string>
#include <vector>

using namespace tappix;

TEST(KeyGroup, RegionRulesInPriorityOrder) {
    using G = KeyGroup;
    const std::pair<KeyCode, KeyGroup> cases[] = {
        {0, G::letters},        {10, G::letters},       {48, G::letters},
        {53, G::letters},       {71, G::letters},       {115, G::letters},
        {127, G::letters},      {500, G::letters},      {999, G::letters},
        {-1, G::letters},       {49, G::space},         {36, G::enter},
        {76, G::enter},         {51, G::backspace},     {117, G::backspace},
        {54, G::modifier},      {63, G::modifier},      {123, G::arrows},
        {126, G::arrows},       {122, G::functionRow},  {111, G::functionRow},
        {1000, G::functionRow}, {1005, G::functionRow}, {INT64_MAX, G::functionRow},
        {50, G::numberRow},     {24, G::numberRow},
    };
    for (const auto& [code, group] : cases)
        EXPECT_EQ(KeyGroup::of(code), group) << "code " << code;
}

// The names a kit is searched for, in order: the key's own (shared where deliberate), its
// coarse group (rows, arrows and media are letters), then "default" and "alpha".
TEST(KeyTables, SoundCandidatesByNameAndCoarseGroup) {
    // clang-format off
    const std::pair<KeyCode, const char*> cases[] = {
        {0, "a alpha"}, {10, "alpha"}, {52, "alpha"}, {128, "alpha"}, {-5, "alpha"},
        {1005, "alpha"}, {18, "1 alpha"}, {42, "\\ alpha"}, {96, "f5 alpha"}, {122, "f1 alpha"},
        {123, "arrLeft alpha"}, {1000, "f12 alpha"}, {1018, "f7 alpha"}, {1020, "f7 alpha"},
        {36, "enter enter"}, {76, "enter enter"}, {117, "del backspace"},
        {60, "shiftRight modifier"}, {62, "ctrlLeft modifier"}, {59, "ctrlLeft modifier"},
        {54, "command modifier"}, {55, "command modifier"}};
    // clang-format on
    for (const auto& [code, names] : cases) {
        std::string found;
        for (auto name : soundCandidates(code))
            found += (found.empty() ? "" : " ") + std::string(name);
        EXPECT_EQ(found, names + std::string(" default alpha")) << code;
    }
}

// Keys from both ends of the layout, each side's modifiers and the media keys above the
// columns, in their columns; keys of no column sit in the centre.
TEST(KeyTables, KeysPanByTheirColumn) {
    using namespace keys;
    // clang-format off
    const std::vector<std::vector<KeyCode>> columns = {{grave, escape, capsLock},
        {digit1, function, brightnessDown}, {option}, {command}, {f4}, {illuminationUp}, {space},
        {keys::rewind}, {rightOption, play}, {rightCommand, fastForward}, {rightControl, mute},
        {leftArrow, volumeDown}, {returnKey, upArrow, volumeUp},
        {backspace, keypadEnter, forwardDelete}};
    // clang-format on
    for (int column = 0; column < 14; ++column)
        for (KeyCode code : columns[std::size_t(column)]) {
            EXPECT_EQ(keyColumn(code), column) << "code " << code;
            EXPECT_EQ(panPosition(code), (column / 13.0f * 2.0f - 1.0f) * 0.35f) << code;
        }
    for (KeyCode code : {keypad5, KeyCode(1005), KeyCode(128), KeyCode(-1)}) {
        EXPECT_FALSE(keyColumn(code)) << "code " << code;
        EXPECT_EQ(panPosition(code), 0.0f) << "code " << code;
    }
    EXPECT_EQ(panPosition(keypadEnter), 0.35f);
}

TEST(KeyTables, TypingKeysAndLabels) {
    for (KeyCode code : {0, 36, 49, 76, 10})
        EXPECT_TRUE(isTypingKey(code)) << code;
    for (KeyCode code : {51, 117, 56, 71, 53, 123, 1000, 1005})
        EXPECT_FALSE(isTypingKey(code)) << code;

    const std::pair<KeyCode, const char*> labels[] = {
        {62, "⌃"},  {117, "⌦"},     {71, "⌧"},       {49, "␣"},    {53, "esc"},
        {63, "fn"}, {0, "A"},       {96, "F5"},      {109, "F10"}, {1000, "F12"},
        {30, "]"},  {10, "<none>"}, {1005, "<none>"}};
    for (const auto& [code, label] : labels)
        EXPECT_EQ(keyLabel(code).value_or("<none>"), label) << code;
}

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
