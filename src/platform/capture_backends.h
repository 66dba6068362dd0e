#pragma once

#include "input/key_event_service.h"

#include <string>
#include <vector>

namespace tappix {

/// The capture backends this build has: evdev keyboards ("tappix-evtap"), evdev media
/// keys ("tappix-media"), the X11 raw-event fallback, and mice (evdev, then X11).
CaptureBackends makeCaptureBackends();

/// Whether key capture can work right now: an evdev keyboard can be opened for
/// reading, or this is an X11 session with XInput2. Cheap enough to poll every 2 s.
bool captureIsPossible();

/// A person-readable account of which capture backend would be used and why, one
/// line per entry, for `tappix-doctor`.
std::vector<std::string> describeCapture();

} // namespace tappix
