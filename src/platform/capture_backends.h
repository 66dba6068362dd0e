#pragma once

#include "input/key_event_service.h"
#include "input/keyboard_access.h"

#include <string>
#include <vector>

namespace tappix {

/// The capture backends this build has: evdev keyboards ("tappix-evtap"), evdev media
/// keys ("tappix-media"), the X11 raw-event fallback, and mice (evdev, then X11).
CaptureBackends makeCaptureBackends();

/// Whether key capture can work right now: an evdev keyboard can be opened for
/// reading, or this is an X11 session with XInput2. Cheap enough to poll every 2 s.
bool captureIsPossible();

/// Whether this process may read the keyboards, and which group would let it.
/// Cheap enough to poll every second. Any thread.
KeyboardAccess keyboardAccess();

/// The access lines of `tappix-doctor`: the state in words, and what to do about it.
std::vector<std::string> describeAccess(const KeyboardAccess& access);

/// A person-readable account of which capture backend would be used and why, one
/// line per entry, for `tappix-doctor`.
std::vector<std::string> describeCapture();

} // namespace tappix
