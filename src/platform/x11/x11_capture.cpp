#include "platform/x11/x11_capture.h"

#include "core/log.h"
#include "platform/dbus/realtime_thread.h"
#include "platform/evdev/evdev_keymap.h"

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tappix::x11 {
namespace {

/// X keycodes are Linux input codes plus 8.
constexpr int kKeycodeOffset = 8;

bool hasXInput2(Display* display, int* opcode) {
    int event = 0, error = 0;
    if (!XQueryExtension(display, "XInputExtension", opcode, &event, &error))
        return false;
    int major = 2, minor = 0;
    return XIQueryVersion(display, &major, &minor) == Success && major >= 2;
}

/// When the server says an event happened, on the steady clock, given `now` on it.
/// Xorg and Xvfb stamp events with CLOCK_MONOTONIC in milliseconds, cut to 32 bits
/// (wrapping every 49.7 days): the event lies at the last moment up to `now` with those
/// low bits. A time that cannot be one (ahead of `now`, or far behind it: a server with
/// another clock, on another machine) is taken as `now`.
KeyTime serverTime(Time time, KeyTime now) {
    using std::chrono::milliseconds;
    constexpr std::uint32_t kFarBehindMs = 10'000;
    const auto nowMs = std::chrono::duration_cast<milliseconds>(now.time_since_epoch()).count();
    const std::uint32_t behind =
        static_cast<std::uint32_t>(nowMs) - static_cast<std::uint32_t>(time);
    if (behind > kFarBehindMs)
        return now;
    return KeyTime(milliseconds(nowMs - behind));
}

/// Xlib's default reaction to a lost connection is to exit the process; Tappix
/// instead ends the capture thread and carries on.
void onConnectionLost(Display*, void* flag) {
    static_cast<std::atomic<bool>*>(flag)->store(true);
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
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return false;
    int opcode = 0;
    const bool ok = hasXInput2(display, &opcode);
    XCloseDisplay(display);
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
    display_ = XOpenDisplay(nullptr);
    if (!display_) {
        const char* name = std::getenv("DISPLAY");
        qCWarning(lcEvents, "cannot open the X display %s",
                  name && *name ? name : "(DISPLAY is not set)");
        return false;
    }
    connectionLost_ = false;
    XSetIOErrorExitHandler(display_, onConnectionLost, &connectionLost_);
    if (!hasXInput2(display_, &xiOpcode_)) {
        qCWarning(lcEvents, "the X server has no XInput2 2.0");
        stop();
        return false;
    }
    unsigned char bits[XIMaskLen(XI_LASTEVENT)]{};
    if (kind_ == Kind::keys) {
        XISetMask(bits, XI_RawKeyPress);
        XISetMask(bits, XI_RawKeyRelease);
    } else {
        XISetMask(bits, XI_RawButtonPress);
        XISetMask(bits, XI_RawButtonRelease);
    }
    // Master devices only: selecting every device would deliver each key twice.
    XIEventMask mask{XIAllMasterDevices, static_cast<int>(sizeof bits), bits};
    XISelectEvents(display_, DefaultRootWindow(display_), &mask, 1);
    XSync(display_, False);

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
    pollfd fds[2] = {{ConnectionNumber(display_), POLLIN, 0}, {stopFd_, POLLIN, 0}};
    // Each key reads the connection once: after the poll, and then only what that read
    // queued is handled (asking `XPending` after every event read the socket again, four
    // times in five for nothing).
    int queued = XEventsQueued(display_, QueuedAfterFlush);
    for (;;) {
        for (; !connectionLost_ && queued > 0; queued = XEventsQueued(display_, QueuedAlready)) {
            XEvent event;
            XNextEvent(display_, &event);
            XGenericEventCookie* cookie = &event.xcookie;
            if (cookie->type != GenericEvent || cookie->extension != xiOpcode_ ||
                !XGetEventData(display_, cookie))
                continue;
            const auto* raw = static_cast<const XIRawEvent*>(cookie->data);
            switch (cookie->evtype) {
            case XI_RawKeyPress:
            case XI_RawKeyRelease:
                if (raw->detail >= kKeycodeOffset) {
                    if (auto code = evdev::virtualKeyCode(
                            static_cast<std::uint16_t>(raw->detail - kKeycodeOffset))) {
                        const KeyTime at = serverTime(raw->time, std::chrono::steady_clock::now());
                        if (cookie->evtype == XI_RawKeyPress)
                            sink->keyDown(*code, false, at);
                        else
                            sink->keyUp(*code, at);
                    }
                }
                break;
            case XI_RawButtonPress:
            case XI_RawButtonRelease: {
                // 1 left, 2 middle, 3 right, 4-7 the wheel, 8 and up side buttons.
                const int button = raw->detail;
                if (button >= 4 && button <= 7)
                    break;
                const MouseButton which = button == 1   ? MouseButton::left
                                          : button == 3 ? MouseButton::right
                                                        : MouseButton::other;
                sink->mouse(which, cookie->evtype == XI_RawButtonPress);
                break;
            }
            default:
                break;
            }
            XFreeEventData(display_, cookie);
        }
        if (connectionLost_) {
            qCWarning(lcEvents, "lost the X11 connection; X11 capture stopped");
            return;
        }
        if (::poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (fds[1].revents & POLLIN)
            return;
        if (fds[0].revents & (POLLHUP | POLLERR)) {
            qCWarning(lcEvents, "lost the X11 connection; X11 capture stopped");
            return;
        }
        queued = XEventsQueued(display_, QueuedAfterReading);
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
    if (display_)
        XCloseDisplay(display_);
    display_ = nullptr;
}

} // namespace tappix::x11
