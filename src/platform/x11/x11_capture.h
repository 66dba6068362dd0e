#pragma once

#include "input/capture_source.h"

#include <cstdint>
#include <string>
#include <thread>

struct xcb_connection_t;

namespace tappix::x11 {

/// Whether the session is a Wayland one (XDG_SESSION_TYPE or WAYLAND_DISPLAY say so),
/// where X11 sees only the clients of XWayland.
bool isWaylandSession();

/// Whether this is an X11 session (not Wayland) whose server has XInput2 2.0 or later.
/// Connects briefly to the display; cheap enough to call every few seconds.
bool rawEventsAvailable();

/// Keyboard or mouse-button capture through XInput2 raw events on the root window of
/// the default display, on its own thread. Raw events reach every client, so keys
/// typed into any X11 application arrive, each at the time the server gave it; the
/// wheel (buttons 4 to 7) never clicks.
class X11Capture final : public CaptureSource {
public:
    /// What to capture.
    enum class Kind { keys, buttons };

    /// Captures `kind` on a thread named `threadName`.
    X11Capture(Kind kind, std::string threadName);
    ~X11Capture() override;

    /// Connects to the display and selects raw events; false without a usable X server.
    /// Controlling thread.
    bool start(CaptureSink& sink) override;

    /// Stops and joins the thread and closes the connection. Controlling thread.
    void stop() override;

private:
    void run(CaptureSink* sink);

    Kind kind_;
    std::string threadName_;
    xcb_connection_t* connection_ = nullptr;
    std::uint8_t xiOpcode_ = 0;
    int stopFd_ = -1;
    std::thread thread_;
};

} // namespace tappix::x11
