#pragma once

#include "input/shortcut.h"

#include <array>
#include <cstdint>
#include <optional>

namespace tappix {

/// Watches the captured key stream for one shortcut. It only listens: every key still
/// goes on to make its usual sound. The shortcut fires when its key goes down while
/// exactly its modifiers are held (either side of each); an extra modifier, or none
/// of the right ones, does not fire. Runs on the key queue; not thread-safe.
class ShortcutMatcher {
public:
    /// Sets the combination to watch for; none disables matching. Key queue.
    void setShortcut(std::optional<Shortcut> shortcut) { shortcut_ = shortcut; }

    /// Feeds one key event; true when this event completes the shortcut. Key queue.
    bool feed(KeyCode code, bool down);

    /// Forgets every held modifier (capture restarted). Key queue.
    void reset() { held_.fill(false); }

private:
    std::optional<Shortcut> shortcut_;
    // Held state per modifier key, indexed by `slot`: both sides of the four kinds.
    std::array<bool, 8> held_{};
    static int slot(KeyCode code);
    std::uint8_t heldModifiers() const;
};

} // namespace tappix
