#include "input/shortcut.h"

#include "input/key_codes.h"

#include <QStringList>
#include <array>
#include <string_view>

namespace tappix {
namespace {

struct KeyText {
    KeyCode code;
    std::string_view text;
};

// Written forms of the keys a shortcut may end in; the first form of a key is the one
// written back.
constexpr KeyText kKeyTexts[] = {
    {keys::a, "A"},
    {keys::b, "B"},
    {keys::c, "C"},
    {keys::d, "D"},
    {keys::e, "E"},
    {keys::f, "F"},
    {keys::g, "G"},
    {keys::h, "H"},
    {keys::i, "I"},
    {keys::j, "J"},
    {keys::k, "K"},
    {keys::l, "L"},
    {keys::m, "M"},
    {keys::n, "N"},
    {keys::o, "O"},
    {keys::p, "P"},
    {keys::q, "Q"},
    {keys::r, "R"},
    {keys::s, "S"},
    {keys::t, "T"},
    {keys::u, "U"},
    {keys::v, "V"},
    {keys::w, "W"},
    {keys::x, "X"},
    {keys::y, "Y"},
    {keys::z, "Z"},
    {keys::digit0, "0"},
    {keys::digit1, "1"},
    {keys::digit2, "2"},
    {keys::digit3, "3"},
    {keys::digit4, "4"},
    {keys::digit5, "5"},
    {keys::digit6, "6"},
    {keys::digit7, "7"},
    {keys::digit8, "8"},
    {keys::digit9, "9"},
    {keys::f1, "F1"},
    {keys::f2, "F2"},
    {keys::f3, "F3"},
    {keys::f4, "F4"},
    {keys::f5, "F5"},
    {keys::f6, "F6"},
    {keys::f7, "F7"},
    {keys::f8, "F8"},
    {keys::f9, "F9"},
    {keys::f10, "F10"},
    {keys::f11, "F11"},
    {keys::f12, "F12"},
    {keys::f13, "F13"},
    {keys::f14, "F14"},
    {keys::f15, "F15"},
    {keys::f16, "F16"},
    {keys::f17, "F17"},
    {keys::f18, "F18"},
    {keys::f19, "F19"},
    {keys::f20, "F20"},
    {keys::space, "Space"},
    {keys::returnKey, "Return"},
    {keys::returnKey, "Enter"},
    {keys::tab, "Tab"},
    {keys::escape, "Escape"},
    {keys::escape, "Esc"},
    {keys::backspace, "Backspace"},
    {keys::forwardDelete, "Delete"},
    {keys::forwardDelete, "Del"},
    {keys::help, "Insert"},
    {keys::home, "Home"},
    {keys::end, "End"},
    {keys::pageUp, "PageUp"},
    {keys::pageDown, "PageDown"},
    {keys::leftArrow, "Left"},
    {keys::rightArrow, "Right"},
    {keys::upArrow, "Up"},
    {keys::downArrow, "Down"},
    {keys::minus, "-"},
    {keys::equal, "="},
    {keys::leftBracket, "["},
    {keys::rightBracket, "]"},
    {keys::semicolon, ";"},
    {keys::quote, "'"},
    {keys::comma, ","},
    {keys::period, "."},
    {keys::slash, "/"},
    {keys::backslash, "\\"},
    {keys::grave, "`"},
};

struct ModifierText {
    Shortcut::Modifier bit;
    std::string_view text;
};

constexpr ModifierText kModifierTexts[] = {
    {Shortcut::ctrl, "Ctrl"},   {Shortcut::ctrl, "Control"}, {Shortcut::alt, "Alt"},
    {Shortcut::shift, "Shift"}, {Shortcut::super, "Super"},  {Shortcut::super, "Meta"},
};

// Written order of the modifiers.
constexpr std::array<std::pair<Shortcut::Modifier, std::string_view>, 4> kModifierOrder{{
    {Shortcut::ctrl, "Ctrl"},
    {Shortcut::alt, "Alt"},
    {Shortcut::shift, "Shift"},
    {Shortcut::super, "Super"},
}};

bool sameText(const QString& token, std::string_view text) {
    return token.compare(QLatin1String(text.data(), static_cast<qsizetype>(text.size())),
                         Qt::CaseInsensitive) == 0;
}

bool isFunctionKey(KeyCode code) {
    return KeyGroup::of(code) == KeyGroup::functionRow || code == keys::f13 || code == keys::f14 ||
           code == keys::f15 || code == keys::f16 || code == keys::f17 || code == keys::f18 ||
           code == keys::f19 || code == keys::f20;
}

} // namespace

std::optional<Shortcut> Shortcut::parse(const QString& text) {
    const QStringList tokens = text.split(QLatin1Char('+'));
    Shortcut out;
    bool haveKey = false;
    for (qsizetype index = 0; index < tokens.size(); ++index) {
        const QString token = tokens[index].trimmed();
        if (token.isEmpty())
            return std::nullopt;
        const bool last = index == tokens.size() - 1;
        if (!last) {
            std::uint8_t bit = 0;
            for (const auto& [modifier, written] : kModifierTexts)
                if (sameText(token, written))
                    bit = modifier;
            // Unknown or repeated modifiers are not a combination anyone meant.
            if (bit == 0 || (out.modifiers & bit) != 0)
                return std::nullopt;
            out.modifiers |= bit;
            continue;
        }
        for (const auto& [code, written] : kKeyTexts) {
            if (sameText(token, written)) {
                out.key = code;
                haveKey = true;
                break;
            }
        }
    }
    if (!haveKey)
        return std::nullopt;
    if (out.modifiers == 0 && !isFunctionKey(out.key))
        return std::nullopt;
    return out;
}

QString Shortcut::toString() const {
    QString out;
    for (const auto& [bit, written] : kModifierOrder) {
        if (modifiers & bit)
            out += QString::fromLatin1(written.data(), static_cast<qsizetype>(written.size())) +
                   QLatin1Char('+');
    }
    for (const auto& [code, written] : kKeyTexts) {
        if (code == key)
            return out +
                   QString::fromLatin1(written.data(), static_cast<qsizetype>(written.size()));
    }
    return out;
}

std::uint8_t Shortcut::modifierOf(KeyCode code) {
    switch (code) {
    case keys::control:
    case keys::rightControl:
        return ctrl;
    case keys::option:
    case keys::rightOption:
        return alt;
    case keys::shift:
    case keys::rightShift:
        return shift;
    case keys::command:
    case keys::rightCommand:
        return super;
    default:
        return 0;
    }
}

} // namespace tappix
