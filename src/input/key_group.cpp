#include "input/key_group.h"

#include "input/key_codes.h"

#include <algorithm>
#include <cstdint>

namespace tappix {
namespace {

using namespace keys;

constexpr KeyCode kFirstMediaCode = keys::mediaBase;
constexpr KeyCode kLastMediaCode = keys::mediaLast;
constexpr std::size_t kMediaCount = kLastMediaCode - kFirstMediaCode + 1;

constexpr std::array<KeyCode, 12> kFunctionRow{f1, f2, f3, f4, f5, f6, f7, f8, f9, f10, f11, f12};
constexpr std::array<KeyCode, 13> kNumberRow{grave,  digit1, digit2, digit3, digit4, digit5, digit6,
                                             digit7, digit8, digit9, digit0, minus,  equal};
constexpr std::array<KeyCode, 23> kNonTyping{
    escape, tab, keypadClear, f5,        f6,         f7,        f3,     f8,
    f9,     f11, f10,         f12,       f4,         f2,        f1,     home,
    pageUp, end, pageDown,    leftArrow, rightArrow, downArrow, upArrow};

struct NamedKey {
    KeyCode code;
    std::string_view name;
};

// Both Command keys are "command" and both Return keys "enter"; right Control (62)
// is "ctrlLeft" like left Control, and two pairs of media keys share "f7" and "f9".
// clang-format off
constexpr NamedKey kNames[] = {
    {a, "a"}, {s, "s"}, {d, "d"}, {f, "f"},
    {h, "h"}, {g, "g"}, {z, "z"}, {x, "x"},
    {c, "c"}, {v, "v"}, {b, "b"}, {q, "q"},
    {w, "w"}, {e, "e"}, {r, "r"}, {y, "y"},
    {t, "t"}, {digit1, "1"}, {digit2, "2"}, {digit3, "3"},
    {digit4, "4"}, {digit6, "6"}, {digit5, "5"}, {equal, "="},
    {digit9, "9"}, {digit7, "7"}, {minus, "-"}, {digit8, "8"},
    {digit0, "0"}, {rightBracket, "]"}, {o, "o"}, {u, "u"},
    {leftBracket, "["}, {i, "i"}, {p, "p"}, {returnKey, "enter"},
    {l, "l"}, {j, "j"}, {quote, "'"}, {k, "k"},
    {semicolon, ";"}, {backslash, "\\"}, {comma, ","}, {slash, "/"},
    {n, "n"}, {m, "m"}, {period, "."}, {tab, "tab"},
    {space, "space"}, {grave, "`"}, {backspace, "backspace"}, {escape, "esc"},
    {rightCommand, "command"}, {command, "command"}, {shift, "shiftLeft"}, {capsLock, "capsLock"},
    {option, "optionLeft"}, {control, "ctrlLeft"}, {rightShift, "shiftRight"}, {rightOption, "optionRight"},
    {rightControl, "ctrlLeft"}, {function, "fn"}, {keypadClear, "clear"}, {keypadEnter, "enter"},
    {f1, "f1"}, {f2, "f2"}, {f3, "f3"}, {f4, "f4"},
    {f5, "f5"}, {f6, "f6"}, {f7, "f7"}, {f8, "f8"},
    {f9, "f9"}, {f10, "f10"}, {f11, "f11"}, {f12, "f12"},
    {home, "home"}, {pageUp, "pgUp"}, {forwardDelete, "del"}, {end, "end"},
    {pageDown, "pgDn"}, {leftArrow, "arrLeft"}, {rightArrow, "arrRight"}, {downArrow, "arrDown"},
    {upArrow, "arrUp"}, {brightnessDown, "f1"}, {brightnessUp, "f2"}, {illuminationUp, "f5"},
    {illuminationDown, "f6"}, {previous, "f7"}, {rewind, "f7"}, {play, "f8"},
    {next, "f9"}, {fastForward, "f9"}, {mute, "f10"}, {volumeDown, "f11"},
    {volumeUp, "f12"},
};
// clang-format on
static_assert(std::size(kNames) == 97);

// Columns 0 (far left) to 13 (far right), one row of codes each.
constexpr std::array<std::initializer_list<KeyCode>, 14> kColumns{{
    {grave, tab, capsLock, shift, escape},
    {digit1, q, a, z, control, function, f1, brightnessDown},
    {digit2, w, s, x, option, f2, brightnessUp},
    {digit3, e, d, c, command, f3},
    {digit4, r, f, v, f4},
    {digit5, t, g, b, f5, illuminationUp},
    {digit6, y, h, n, space, f6, illuminationDown},
    {digit7, u, j, m, f7, previous, rewind},
    {digit8, i, k, comma, rightOption, f8, play},
    {digit9, o, l, period, rightCommand, f9, next, fastForward},
    {digit0, p, semicolon, slash, rightControl, f10, mute},
    {minus, leftBracket, quote, leftArrow, f11, volumeDown},
    {equal, rightBracket, returnKey, rightShift, downArrow, upArrow, f12, volumeUp},
    {backspace, backslash, rightArrow, forwardDelete, keypadEnter},
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
    if (code >= mediaBase || contains(kFunctionRow, code))
        return functionRow;
    if (contains(kNumberRow, code))
        return numberRow;
    if (code >= leftArrow && code <= upArrow)
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
    if (code == returnKey || code == keypadEnter)
        return KeyGroup::enter;
    if (code == space)
        return KeyGroup::space;
    if (code == backspace || code == forwardDelete)
        return KeyGroup::backspace;
    if (isModifier(code))
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
    if (code >= mediaBase)
        return false;
    if (code == returnKey || code == space || code == keypadEnter)
        return true;
    if (code == backspace || code == forwardDelete || isModifier(code))
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
