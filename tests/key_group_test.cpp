#include "input/key_group.h"

#include "input/key_codes.h"

#include <gtest/gtest.h>

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
