#pragma once

#include "input/capture_source.h"
#include "platform/evdev/input_recording.h"

#include <functional>

namespace tappix::evdev {

/// Feeds a recording through the same device readers capture uses, one for each
/// role (keyboard, media keys, pointer buttons) per recorded device, so repeats,
/// SYN_DROPPED, unknown codes and roles are handled exactly as on a live device;
/// what they report goes to `sink`. `beforeEvent` runs before each event is fed,
/// with its time, and `afterEvent` once the readers have reported it. Calling thread.
void replayRecording(const InputRecording& recording, CaptureSink& sink,
                     const std::function<void(double time)>& beforeEvent = {},
                     const std::function<void()>& afterEvent = {});

} // namespace tappix::evdev
