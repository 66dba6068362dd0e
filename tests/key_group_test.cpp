#include "input/key_group.h"

#include "input/key_codes.h"

#include <gtest/gtest.h>

#include <set>
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

    int named = 0;
    for (KeyCode code = -10; code < 1100; ++code)
        named += keyName(code).has_value();
    EXPECT_EQ(named, 97);
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

TEST(KeyTables, EveryKeySitsInItsColumnAndPansFromThere) {
    // The whole layout, left to right: a key one column off pans to the wrong place.
    const std::vector<std::vector<KeyCode>> columns = {
        {keys::grave, keys::tab, keys::capsLock, keys::shift, keys::escape},
        {keys::digit1, keys::q, keys::a, keys::z, keys::control, keys::function, keys::f1,
         keys::brightnessDown},
        {keys::digit2, keys::w, keys::s, keys::x, keys::option, keys::f2, keys::brightnessUp},
        {keys::digit3, keys::e, keys::d, keys::c, keys::command, keys::f3},
        {keys::digit4, keys::r, keys::f, keys::v, keys::f4},
        {keys::digit5, keys::t, keys::g, keys::b, keys::f5, keys::illuminationUp},
        {keys::digit6, keys::y, keys::h, keys::n, keys::space, keys::f6, keys::illuminationDown},
        {keys::digit7, keys::u, keys::j, keys::m, keys::f7, keys::previous, keys::rewind},
        {keys::digit8, keys::i, keys::k, keys::comma, keys::rightOption, keys::f8, keys::play},
        {keys::digit9, keys::o, keys::l, keys::period, keys::rightCommand, keys::f9, keys::next,
         keys::fastForward},
        {keys::digit0, keys::p, keys::semicolon, keys::slash, keys::rightControl, keys::f10,
         keys::mute},
        {keys::minus, keys::leftBracket, keys::quote, keys::leftArrow, keys::f11, keys::volumeDown},
        {keys::equal, keys::rightBracket, keys::returnKey, keys::rightShift, keys::downArrow,
         keys::upArrow, keys::f12, keys::volumeUp},
        {keys::backspace, keys::backslash, keys::rightArrow, keys::forwardDelete,
         keys::keypadEnter},
    };
    std::set<KeyCode> placed;
    for (int column = 0; column < static_cast<int>(columns.size()); ++column) {
        const float pan = (static_cast<float>(column) / 13.0f * 2.0f - 1.0f) * 0.35f;
        for (KeyCode code : columns[static_cast<std::size_t>(column)]) {
            EXPECT_EQ(keyColumn(code), column) << "code " << code;
            EXPECT_EQ(panPosition(code), pan) << "code " << code;
            EXPECT_TRUE(placed.insert(code).second) << "code " << code << " listed twice";
        }
    }
    EXPECT_EQ(placed.size(), 92u);
    // Every other code has no column and sits in the centre.
    for (KeyCode code = -10; code < 1100; ++code) {
        if (placed.count(code) == 0) {
            EXPECT_FALSE(keyColumn(code)) << "code " << code;
            EXPECT_EQ(panPosition(code), 0.0f) << "code " << code;
        }
    }
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
