#pragma once

#include "input/key_group.h"

#include <QString>
#include <cstdint>
#include <optional>

namespace tappix {

/// A key combination such as "Ctrl+Super+K": a set of modifiers, left and right
/// alike, and one key. Stored in the preferences as that readable text.
class Shortcut {
public:
    /// Modifier kinds, as bits of `modifiers`.
    enum Modifier : std::uint8_t {
        ctrl = 1 << 0,
        alt = 1 << 1,
        shift = 1 << 2,
        super = 1 << 3,
    };

    /// The default combination that turns the sounds on and off.
    static constexpr const char* kDefaultToggle = "Ctrl+Super+K";

    /// The modifier bits held.
    std::uint8_t modifiers = 0;
    /// The key that completes the combination.
    KeyCode key = 0;

    /// Reads "Ctrl+Alt+Shift+Super+KEY" in any order and case, modifiers written as
    /// Ctrl/Control, Alt, Shift, Super/Meta; KEY is a letter, a digit, F1-F20, or a
    /// named key ("Space", "Return", "Tab", "Escape", "Backspace", "Delete", "Home",
    /// "End", "PageUp", "PageDown", "Left", "Right", "Up", "Down", "Insert",
    /// punctuation). None for text that is not exactly such a combination, or that
    /// has no modifier and a key that types (it would fire while writing).
    static std::optional<Shortcut> parse(const QString& text);

    /// The readable form, modifiers in the order Ctrl, Alt, Shift, Super: "Ctrl+Super+K".
    QString toString() const;

    /// The modifier bit a key code holds, or 0 when it is not Ctrl, Alt, Shift or Super.
    static std::uint8_t modifierOf(KeyCode code);

    friend bool operator==(const Shortcut&, const Shortcut&) = default;
};

} // namespace tappix
