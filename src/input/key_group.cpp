#include "input/key_group.h"

#include <algorithm>
#include <cstdint>

namespace tappix {
namespace {

constexpr KeyCode kFirstMediaCode = 1000;
constexpr KeyCode kLastMediaCode = 1022;
constexpr std::size_t kMediaCount = kLastMediaCode - kFirstMediaCode + 1;

constexpr std::array<KeyCode, 12> kFunctionRow{122, 120, 99,  118, 96,  97,
                                               98,  100, 101, 109, 103, 111};
constexpr std::array<KeyCode, 13> kNumberRow{50, 18, 19, 20, 21, 23, 22, 26, 28, 25, 29, 27, 24};
constexpr std::array<KeyCode, 23> kNonTyping{53,  48,  71,  96,  97,  98,  99,  100,
                                             101, 103, 109, 111, 118, 120, 122, 115,
                                             116, 119, 121, 123, 124, 125, 126};

struct NamedKey {
    KeyCode code;
    std::string_view name;
};

// Both Command keys are "command" and both Return keys "enter"; right Control (62)
// is "ctrlLeft" like left Control, and two pairs of media keys share "f7" and "f9".
constexpr NamedKey kNames[] = {
    {0, "a"},           {1, "s"},         {2, "d"},           {3, "f"},
    {4, "h"},           {5, "g"},         {6, "z"},           {7, "x"},
    {8, "c"},           {9, "v"},         {11, "b"},          {12, "q"},
    {13, "w"},          {14, "e"},        {15, "r"},          {16, "y"},
    {17, "t"},          {18, "1"},        {19, "2"},          {20, "3"},
    {21, "4"},          {22, "6"},        {23, "5"},          {24, "="},
    {25, "9"},          {26, "7"},        {27, "-"},          {28, "8"},
    {29, "0"},          {30, "]"},        {31, "o"},          {32, "u"},
    {33, "["},          {34, "i"},        {35, "p"},          {36, "enter"},
    {37, "l"},          {38, "j"},        {39, "'"},          {40, "k"},
    {41, ";"},          {42, "\\"},       {43, ","},          {44, "/"},
    {45, "n"},          {46, "m"},        {47, "."},          {48, "tab"},
    {49, "space"},      {50, "`"},        {51, "backspace"},  {53, "esc"},
    {54, "command"},    {55, "command"},  {56, "shiftLeft"},  {57, "capsLock"},
    {58, "optionLeft"}, {59, "ctrlLeft"}, {60, "shiftRight"}, {61, "optionRight"},
    {62, "ctrlLeft"},   {63, "fn"},       {71, "clear"},      {76, "enter"},
    {122, "f1"},        {120, "f2"},      {99, "f3"},         {118, "f4"},
    {96, "f5"},         {97, "f6"},       {98, "f7"},         {100, "f8"},
    {101, "f9"},        {109, "f10"},     {103, "f11"},       {111, "f12"},
    {115, "home"},      {116, "pgUp"},    {117, "del"},       {119, "end"},
    {121, "pgDn"},      {123, "arrLeft"}, {124, "arrRight"},  {125, "arrDown"},
    {126, "arrUp"},     {1003, "f1"},     {1002, "f2"},       {1021, "f5"},
    {1022, "f6"},       {1018, "f7"},     {1020, "f7"},       {1016, "f8"},
    {1017, "f9"},       {1019, "f9"},     {1007, "f10"},      {1001, "f11"},
    {1000, "f12"},
};
static_assert(std::size(kNames) == 97);

// Columns 0 (far left) to 13 (far right), one row of codes each.
constexpr std::array<std::initializer_list<KeyCode>, 14> kColumns{{
    {50, 48, 57, 56, 53},
    {18, 12, 0, 6, 59, 63, 122, 1003},
    {19, 13, 1, 7, 58, 120, 1002},
    {20, 14, 2, 8, 55, 99},
    {21, 15, 3, 9, 118},
    {23, 17, 5, 11, 96, 1021},
    {22, 16, 4, 45, 49, 97, 1022},
    {26, 32, 38, 46, 98, 1018, 1020},
    {28, 34, 40, 43, 61, 100, 1016},
    {25, 31, 37, 47, 54, 101, 1017, 1019},
    {29, 35, 41, 44, 62, 109, 1007},
    {27, 33, 39, 123, 103, 1001},
    {24, 30, 36, 60, 125, 126, 111, 1000},
    {51, 42, 124, 117, 76},
}};

/// Dense per-code tables, built once at compile time from the lists above.
struct Tables {
    std::array<std::string_view, 128> names{};
    std::array<std::string_view, kMediaCount> mediaNames{};
    std::array<std::int8_t, 128> columns{};
    std::array<std::int8_t, kMediaCount> mediaColumns{};

    constexpr Tables() {
        columns.fill(-1);
        mediaColumns.fill(-1);
        for (const auto& [code, name] : kNames) {
            if (code >= kFirstMediaCode)
                mediaNames[code - kFirstMediaCode] = name;
            else
                names[code] = name;
        }
        for (std::size_t column = 0; column < kColumns.size(); ++column) {
            for (KeyCode code : kColumns[column]) {
                if (code >= kFirstMediaCode)
                    mediaColumns[code - kFirstMediaCode] = static_cast<std::int8_t>(column);
                else
                    columns[code] = static_cast<std::int8_t>(column);
            }
        }
    }
};

constexpr Tables kTables;

template <std::size_t N> constexpr bool contains(const std::array<KeyCode, N>& set, KeyCode code) {
    return std::find(set.begin(), set.end(), code) != set.end();
}

bool isMediaRange(KeyCode code) {
    return code >= kFirstMediaCode && code <= kLastMediaCode;
}
bool isVirtualRange(KeyCode code) {
    return code >= 0 && code < 128;
}

struct Label {
    std::string_view name;
    std::string_view label;
};

constexpr Label kLabels[] = {
    {"space", "\u2423"},
    {"enter", "\u23CE"},
    {"backspace", "\u232B"},
    {"tab", "\u21E5"},
    {"esc", "esc"},
    {"capsLock", "\u21EA"},
    {"command", "\u2318"},
    {"shiftLeft", "\u21E7"},
    {"shiftRight", "\u21E7"},
    {"optionLeft", "\u2325"},
    {"optionRight", "\u2325"},
    {"ctrlLeft", "\u2303"},
    {"fn", "fn"},
    {"arrUp", "\u2191"},
    {"arrDown", "\u2193"},
    {"arrLeft", "\u2190"},
    {"arrRight", "\u2192"},
    {"del", "\u2326"},
    {"home", "\u2196"},
    {"end", "\u2198"},
    {"pgUp", "\u21DE"},
    {"pgDn", "\u21DF"},
    {"clear", "\u2327"},
};

// Upper-case labels of the named keys that have no symbol, indexed like the names.
struct UpperLabels {
    std::array<std::array<char, 4>, 128> text{};
    std::array<std::array<char, 4>, kMediaCount> mediaText{};

    static constexpr std::array<char, 4> upper(std::string_view name) {
        std::array<char, 4> out{};
        for (std::size_t i = 0; i < name.size() && i < out.size() - 1; ++i) {
            const char c = name[i];
            out[i] = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
        }
        return out;
    }

    constexpr UpperLabels() {
        for (const auto& [code, name] : kNames) {
            if (code >= kFirstMediaCode)
                mediaText[code - kFirstMediaCode] = upper(name);
            else
                text[code] = upper(name);
        }
    }
};

constexpr UpperLabels kUpperLabels;

} // namespace

KeyGroup KeyGroup::of(KeyCode code) {
    if (code > 999 || contains(kFunctionRow, code))
        return functionRow;
    if (contains(kNumberRow, code))
        return numberRow;
    if (code >= 123 && code <= 126)
        return arrows;
    return coarseGroup(code);
}

std::optional<KeyGroup> KeyGroup::fromRawValue(std::string_view raw) {
    for (Value value : allCases) {
        if (KeyGroup(value).rawValue() == raw)
            return KeyGroup(value);
    }
    return std::nullopt;
}

std::string_view KeyGroup::rawValue() const {
    switch (value_) {
    case letters:
        return "letters";
    case space:
        return "space";
    case enter:
        return "enter";
    case backspace:
        return "backspace";
    case modifier:
        return "modifier";
    case arrows:
        return "arrows";
    case functionRow:
        return "functionRow";
    case numberRow:
        return "numberRow";
    }
    return "letters";
}

KeyGroup coarseGroup(KeyCode code) {
    if (code == 36 || code == 76)
        return KeyGroup::enter;
    if (code == 49)
        return KeyGroup::space;
    if (code == 51 || code == 117)
        return KeyGroup::backspace;
    if (code >= 54 && code <= 63)
        return KeyGroup::modifier;
    return KeyGroup::letters;
}

std::optional<std::string_view> keyName(KeyCode code) {
    std::string_view name;
    if (isVirtualRange(code))
        name = kTables.names[static_cast<std::size_t>(code)];
    else if (isMediaRange(code))
        name = kTables.mediaNames[static_cast<std::size_t>(code - kFirstMediaCode)];
    if (name.empty())
        return std::nullopt;
    return name;
}

std::optional<int> keyColumn(KeyCode code) {
    std::int8_t column = -1;
    if (isVirtualRange(code))
        column = kTables.columns[static_cast<std::size_t>(code)];
    else if (isMediaRange(code))
        column = kTables.mediaColumns[static_cast<std::size_t>(code - kFirstMediaCode)];
    if (column < 0)
        return std::nullopt;
    return column;
}

SoundCandidates soundCandidates(KeyCode code) {
    SoundCandidates out;
    if (auto name = keyName(code))
        out.names[out.count++] = *name;
    std::string_view category = "alpha";
    switch (coarseGroup(code)) {
    case KeyGroup::enter:
        category = "enter";
        break;
    case KeyGroup::space:
        category = "space";
        break;
    case KeyGroup::backspace:
        category = "backspace";
        break;
    case KeyGroup::modifier:
        category = "modifier";
        break;
    default:
        break;
    }
    out.names[out.count++] = category;
    out.names[out.count++] = "default";
    out.names[out.count++] = "alpha";
    return out;
}

float panPosition(KeyCode code) {
    const auto column = keyColumn(code);
    if (!column)
        return 0.0f;
    return (static_cast<float>(*column) / 13.0f * 2.0f - 1.0f) * 0.35f;
}

bool isTypingKey(KeyCode code) {
    if (code > 999)
        return false;
    if (code == 36 || code == 49 || code == 76)
        return true;
    if (code == 51 || code == 117 || (code >= 54 && code <= 63))
        return false;
    return !contains(kNonTyping, code);
}

std::optional<std::string_view> keyLabel(KeyCode code) {
    const auto name = keyName(code);
    if (!name)
        return std::nullopt;
    for (const auto& [labelName, label] : kLabels) {
        if (labelName == *name)
            return label;
    }
    const auto& text =
        isMediaRange(code)
            ? kUpperLabels.mediaText[static_cast<std::size_t>(code - kFirstMediaCode)]
            : kUpperLabels.text[static_cast<std::size_t>(code)];
    return std::string_view(text.data());
}

} // namespace tappix
