#include "input/key_group.h"

#include "input/key_codes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tappix;

namespace {

std::vector<std::string> candidates(KeyCode code) {
    std::vector<std::string> out;
    for (auto name : soundCandidates(code))
        out.emplace_back(name);
    return out;
}

std::string str(std::optional<std::string_view> value) {
    return value ? std::string(*value) : std::string("<none>");
}

} // namespace

TEST(KeyGroup, RegionRulesInPriorityOrder) {
    struct Case {
        KeyCode code;
        KeyGroup group;
    };
    const Case cases[] = {
        {0, KeyGroup::letters},        {10, KeyGroup::letters},
        {48, KeyGroup::letters},       {53, KeyGroup::letters},
        {71, KeyGroup::letters},       {115, KeyGroup::letters},
        {127, KeyGroup::letters},      {500, KeyGroup::letters},
        {999, KeyGroup::letters},      {-1, KeyGroup::letters},
        {49, KeyGroup::space},         {36, KeyGroup::enter},
        {76, KeyGroup::enter},         {51, KeyGroup::backspace},
        {117, KeyGroup::backspace},    {54, KeyGroup::modifier},
        {63, KeyGroup::modifier},      {123, KeyGroup::arrows},
        {126, KeyGroup::arrows},       {122, KeyGroup::functionRow},
        {111, KeyGroup::functionRow},  {1000, KeyGroup::functionRow},
        {1005, KeyGroup::functionRow}, {INT64_MAX, KeyGroup::functionRow},
        {50, KeyGroup::numberRow},     {24, KeyGroup::numberRow},
    };
    for (const auto& c : cases)
        EXPECT_EQ(KeyGroup::of(c.code), c.group) << "code " << c.code;
}

TEST(KeyGroup, CoarseGroupIgnoresRowsArrowsAndMedia) {
    const std::pair<KeyCode, KeyGroup> cases[] = {
        {1000, KeyGroup::letters}, {122, KeyGroup::letters}, {123, KeyGroup::letters},
        {18, KeyGroup::letters},   {76, KeyGroup::enter},    {117, KeyGroup::backspace},
        {62, KeyGroup::modifier}};
    for (const auto& [code, group] : cases)
        EXPECT_EQ(coarseGroup(code), group) << code;
}

TEST(KeyTables, NamesIncludingDeliberateSharing) {
    const std::pair<KeyCode, const char*> names[] = {
        {62, "ctrlLeft"}, {59, "ctrlLeft"}, {54, "command"}, {55, "command"}, {76, "enter"},
        {42, "\\"},       {1018, "f7"},     {1020, "f7"},    {1000, "f12"},   {10, "<none>"},
        {52, "<none>"},   {1005, "<none>"}, {128, "<none>"}, {-5, "<none>"}};
    for (const auto& [code, name] : names)
        EXPECT_EQ(str(keyName(code)), name) << code;
}

TEST(KeyTables, CandidatesEndWithDefaultThenAlpha) {
    using V = std::vector<std::string>;
    EXPECT_EQ(candidates(36), (V{"enter", "enter", "default", "alpha"}));
    EXPECT_EQ(candidates(60), (V{"shiftRight", "modifier", "default", "alpha"}));
    EXPECT_EQ(candidates(96), (V{"f5", "alpha", "default", "alpha"}));
    EXPECT_EQ(candidates(10), (V{"alpha", "default", "alpha"}));
    EXPECT_EQ(candidates(0), (V{"a", "alpha", "default", "alpha"}));
    EXPECT_EQ(candidates(117), (V{"del", "backspace", "default", "alpha"}));
    EXPECT_EQ(candidates(1000), (V{"f12", "alpha", "default", "alpha"}));
}

// Keys from both ends of the layout, each side's modifiers and the media keys above the
// columns, in their columns; keys of no column sit in the centre.
TEST(KeyTables, KeysPanByTheirColumn) {
    using namespace keys;
    const std::vector<std::vector<KeyCode>> columns = {{grave, escape, capsLock},
                                                       {digit1, function, brightnessDown},
                                                       {option},
                                                       {command},
                                                       {f4},
                                                       {illuminationUp},
                                                       {space},
                                                       {keys::rewind},
                                                       {rightOption, play},
                                                       {rightCommand, fastForward},
                                                       {rightControl, mute},
                                                       {leftArrow, volumeDown},
                                                       {returnKey, upArrow, volumeUp},
                                                       {backspace, keypadEnter, forwardDelete}};
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
        EXPECT_EQ(str(keyLabel(code)), label) << code;
}
