#include "input/shortcut_matcher.h"

#include "input/key_codes.h"

namespace tappix {

int ShortcutMatcher::slot(KeyCode code) {
    switch (code) {
    case keys::control:
        return 0;
    case keys::rightControl:
        return 1;
    case keys::option:
        return 2;
    case keys::rightOption:
        return 3;
    case keys::shift:
        return 4;
    case keys::rightShift:
        return 5;
    case keys::command:
        return 6;
    case keys::rightCommand:
        return 7;
    default:
        return -1;
    }
}

std::uint8_t ShortcutMatcher::heldModifiers() const {
    static constexpr KeyCode kSlotKeys[] = {keys::control,     keys::rightControl, keys::option,
                                            keys::rightOption, keys::shift,        keys::rightShift,
                                            keys::command,     keys::rightCommand};
    std::uint8_t out = 0;
    for (std::size_t index = 0; index < held_.size(); ++index)
        if (held_[index])
            out |= Shortcut::modifierOf(kSlotKeys[index]);
    return out;
}

bool ShortcutMatcher::feed(KeyCode code, bool down) {
    if (const int index = slot(code); index >= 0) {
        held_[static_cast<std::size_t>(index)] = down;
        return false;
    }
    return down && shortcut_ && code == shortcut_->key && heldModifiers() == shortcut_->modifiers;
}

} // namespace tappix
