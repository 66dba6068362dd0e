#include "platform/x11/x11_capture.h"

#include "core/log.h"
#include "platform/dbus/realtime_thread.h"
#include "platform/evdev/evdev_keymap.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>
#include <xcb/xcb.h>
#include <xcb/xinput.h>

namespace tappix::x11 {
namespace {

/// X keycodes are Linux input codes plus 8.
constexpr int kKeycodeOffset = 8;

/// The XInput extension's opcode when the server has XInput2 2.0 or later (asking the
/// version is also how a client announces that it speaks XInput2).
std::optional<std::uint8_t> xinput2Opcode(xcb_connection_t* connection) {
    const xcb_query_extension_reply_t* extension =
        xcb_get_extension_data(connection, &xcb_input_id);
    if (!extension || !extension->present)
        return std::nullopt;
    xcb_input_xi_query_version_reply_t* version = xcb_input_xi_query_version_reply(
        connection, xcb_input_xi_query_version(connection, 2, 0), nullptr);
    const bool ok = version && version->major_version >= 2;
    std::free(version);
    if (!ok)
        return std::nullopt;
    return extension->major_opcode;
}

/// When the server says an event happened, on the steady clock, given `now` on it.
/// Xorg and Xvfb stamp events with CLOCK_MONOTONIC in milliseconds, cut to 32 bits
/// (wrapping every 49.7 days): the event lies at the last moment up to `now` with those
/// low bits. A time that cannot be one (ahead of `now`, or far behind it: a server with
/// another clock, on another machine) is taken as `now`.
KeyTime serverTime(std::uint32_t time, KeyTime now) {
    using std::chrono::milliseconds;
    constexpr std::uint32_t kFarBehindMs = 10'000;
    const auto nowMs = std::chrono::duration_cast<milliseconds>(now.time_since_epoch()).count();
    const std::uint32_t behind = static_cast<std::uint32_t>(nowMs) - time;
    if (behind > kFarBehindMs)
        return now;
    return KeyTime(milliseconds(nowMs - behind));
}

/// Hands one event from the connection to `sink` if it is a raw event of the XInput
/// extension with `opcode`.
void deliver(const xcb_generic_event_t& event, std::uint8_t opcode, CaptureSink& sink) {
    if ((event.response_type & ~0x80) != XCB_GE_GENERIC)
        return;
    const auto& generic = reinterpret_cast<const xcb_ge_generic_event_t&>(event);
    if (generic.extension != opcode)
        return;
    // Key and button raw events share one layout; `detail` is the keycode or the button.
    const auto& raw = reinterpret_cast<const xcb_input_raw_key_press_event_t&>(event);
    switch (generic.event_type) {
    case XCB_INPUT_RAW_KEY_PRESS:
    case XCB_INPUT_RAW_KEY_RELEASE:
        if (raw.detail >= kKeycodeOffset) {
            if (auto code = evdev::virtualKeyCode(
                    static_cast<std::uint16_t>(raw.detail - kKeycodeOffset))) {
                const KeyTime at = serverTime(raw.time, std::chrono::steady_clock::now());
                if (generic.event_type == XCB_INPUT_RAW_KEY_PRESS)
                    sink.keyDown(*code, false, at);
                else
                    sink.keyUp(*code, at);
            }
        }
        break;
    case XCB_INPUT_RAW_BUTTON_PRESS:
    case XCB_INPUT_RAW_BUTTON_RELEASE: {
        // 1 left, 2 middle, 3 right, 4-7 the wheel, 8 and up side buttons.
        const std::uint32_t button = raw.detail;
        if (button >= 4 && button <= 7)
            break;
        const MouseButton which = button == 1   ? MouseButton::left
                                  : button == 3 ? MouseButton::right
                                                : MouseButton::other;
        sink.mouse(which, generic.event_type == XCB_INPUT_RAW_BUTTON_PRESS);
        break;
    }
    default:
        break;
    }
}

} // namespace

bool isWaylandSession() {
    const char* type = std::getenv("XDG_SESSION_TYPE");
    if (type && std::strcmp(type, "wayland") == 0)
        return true;
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    return wayland && *wayland;
}

bool rawEventsAvailable() {
    if (isWaylandSession())
        return false;
    // A display that had XInput2 keeps it: answer polls without reconnecting.
    static std::string lastGood;
    const char* name = std::getenv("DISPLAY");
    if (name && *name && lastGood == name)
        return true;
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    const bool ok = !xcb_connection_has_error(connection) && xinput2Opcode(connection);
    xcb_disconnect(connection);
    if (ok && name)
        lastGood = name;
    return ok;
}

X11Capture::X11Capture(Kind kind, std::string threadName)
    : kind_(kind), threadName_(std::move(threadName)) {}

X11Capture::~X11Capture() {
    stop();
}

bool X11Capture::start(CaptureSink& sink) {
    stop();
    if (isWaylandSession())
        return false; // XWayland sees only X clients' input: not a global capture
    int screenNumber = 0;
    connection_ = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(connection_)) {
        const char* name = std::getenv("DISPLAY");
        qCWarning(lcEvents, "cannot open the X display %s",
                  name && *name ? name : "(DISPLAY is not set)");
        stop();
        return false;
    }
    const auto opcode = xinput2Opcode(connection_);
    if (!opcode) {
        qCWarning(lcEvents, "the X server has no XInput2 2.0");
        stop();
        return false;
    }
    xiOpcode_ = *opcode;
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (int i = 0; i < screenNumber && screens.rem > 1; ++i)
        xcb_screen_next(&screens);
    // Master devices only: selecting every device would deliver each key twice.
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t bits;
    } mask{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
           kind_ == Kind::keys ? std::uint32_t{XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS |
                                               XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE}
                               : std::uint32_t{XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS |
                                               XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_RELEASE}};
    xcb_generic_error_t* error = xcb_request_check(
        connection_,
        xcb_input_xi_select_events_checked(connection_, screens.data->root, 1, &mask.head));
    if (error) {
        qCWarning(lcEvents, "the X server refused raw input events (error %d)",
                  int(error->error_code));
        std::free(error);
        stop();
        return false;
    }

    stopFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (stopFd_ < 0) {
        qCWarning(lcEvents, "cannot start X11 capture: %s", std::strerror(errno));
        stop();
        return false;
    }
    thread_ = std::thread(&X11Capture::run, this, &sink);
    return true;
}

void X11Capture::run(CaptureSink* sink) {
    pthread_setname_np(pthread_self(), threadName_.c_str());
    // The first hop of every key: it runs as soon as the key arrives, as the key queue does.
    RealtimeThread::makeCallingThreadRealtime(threadName_.c_str(), lcEvents());
    pollfd fds[2] = {{xcb_get_file_descriptor(connection_), POLLIN, 0}, {stopFd_, POLLIN, 0}};
    for (;;) {
        // Each wake-up reads the connection once (the first call), then handles only what
        // that read queued: asking the socket again after every event finds it empty.
        for (xcb_generic_event_t* event = xcb_poll_for_event(connection_); event;
             event = xcb_poll_for_queued_event(connection_)) {
            deliver(*event, xiOpcode_, *sink);
            std::free(event);
        }
        if (xcb_connection_has_error(connection_)) {
            qCWarning(lcEvents, "lost the X11 connection; X11 capture stopped");
            return;
        }
        if (::poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (fds[1].revents & POLLIN)
            return;
    }
}

void X11Capture::stop() {
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(stopFd_, &one, sizeof one);
        thread_.join();
    }
    if (stopFd_ >= 0)
        ::close(stopFd_);
    stopFd_ = -1;
    if (connection_)
        xcb_disconnect(connection_);
    connection_ = nullptr;
}

} // namespace tappix::x11
