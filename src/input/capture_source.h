#pragma once

#include "input/key_group.h"

#include <chrono>
#include <cstdint>
#include <string_view>

namespace tappix {

/// A mouse button as capture reports it.
enum class MouseButton : std::uint8_t {
    left,
    right,
    other,
};

/// The name used in logs and the doctor's output: "left", "right" or "other".
std::string_view mouseButtonName(MouseButton button);

/// When a key moved, on the steady clock (CLOCK_MONOTONIC): the time the kernel or the
/// X server gave the event, not when a reader got round to it.
using KeyTime = std::chrono::steady_clock::time_point;

/// Where capture backends report what they see, already translated to key codes, each
/// key with the time it moved. Called on the backends' own threads; implementations must
/// return quickly.
class CaptureSink {
public:
    virtual ~CaptureSink() = default;

    /// A key went down at `at`; `isRepeat` marks auto-repeat, which is dropped.
    virtual void keyDown(KeyCode code, bool isRepeat, KeyTime at) = 0;
    /// A key went up at `at`.
    virtual void keyUp(KeyCode code, KeyTime at) = 0;
    /// A modifier changed at `at`, for producers that report only "flags changed" with no
    /// direction: each event for a code toggles it between down and up.
    virtual void flagsChanged(KeyCode code, KeyTime at) = 0;
    /// A media key in the system-defined encoding (subtype 8; key type in data1 bits 16-31,
    /// state 0x0A00 down or 0x0B00 up in bits 8-15, bit 0 the repeat flag), at `at`.
    virtual void systemDefined(std::int64_t subtype, std::int64_t data1, KeyTime at) = 0;
    /// A mouse button went down or up.
    virtual void mouse(MouseButton button, bool down) = 0;
};

/// One way of capturing input system-wide (a set of evdev devices, an X11 connection).
/// Sources never grab or alter input. Started and stopped from one controlling thread.
class CaptureSource {
public:
    virtual ~CaptureSource() = default;

    /// Starts reporting into `sink` on the source's own thread. Returns false, with
    /// nothing left running, when this way of capturing is not available.
    virtual bool start(CaptureSink& sink) = 0;

    /// Stops reporting and joins the source's thread; does nothing when not started.
    virtual void stop() = 0;
};

} // namespace tappix
