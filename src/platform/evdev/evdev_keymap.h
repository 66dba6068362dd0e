#pragma once

#include "input/capture_source.h"

#include <cstdint>
#include <optional>

namespace tappix::evdev {

/// The virtual key code for a Linux input key code (as in <linux/input-event-codes.h>),
/// or none for keys Tappix does not deliver. X11 keycodes are these plus 8.
std::optional<KeyCode> virtualKeyCode(std::uint16_t linuxCode);

/// The mouse button for a Linux button code: BTN_LEFT, BTN_RIGHT, and the other
/// buttons of a mouse (middle, side, extra, forward, back, task) as `other`.
std::optional<MouseButton> mouseButton(std::uint16_t linuxCode);

/// Whether a virtual key code is a media key (1000 and up).
inline bool isMediaCode(KeyCode code) {
    return code >= 1000;
}

} // namespace tappix::evdev
