#include "platform/capture_backends.h"

#include "platform/null/null_capture.h"

#include <cstdlib>
#include <cstring>

#ifdef TAPPIX_WITH_EVDEV
#include "platform/evdev/evdev_capture.h"
#endif
#ifdef TAPPIX_WITH_X11
#include "platform/x11/x11_capture.h"
#endif

namespace tappix {

CaptureBackends makeCaptureBackends() {
    CaptureBackends backends;
#ifdef TAPPIX_WITH_EVDEV
    backends.keyboard =
        std::make_unique<evdev::EvdevCapture>(evdev::DeviceRole::keyboard, "tappix-evtap");
    backends.media =
        std::make_unique<evdev::EvdevCapture>(evdev::DeviceRole::media, "tappix-media");
    backends.mice.push_back(
        std::make_unique<evdev::EvdevCapture>(evdev::DeviceRole::pointer, "tappix-mouse"));
#else
    backends.keyboard = std::make_unique<NullCapture>();
#endif
#ifdef TAPPIX_WITH_X11
    backends.fallback =
        std::make_unique<x11::X11Capture>(x11::X11Capture::Kind::keys, "tappix-x11keys");
    backends.mice.push_back(
        std::make_unique<x11::X11Capture>(x11::X11Capture::Kind::buttons, "tappix-x11mouse"));
#endif
    return backends;
}

namespace {

#ifdef TAPPIX_WITH_EVDEV
bool readableKeyboard() {
    for (const auto& device : evdev::scanDevices()) {
        if (device.error == 0 && device.keyboard)
            return true;
    }
    return false;
}
#endif

std::string sessionType() {
    const char* type = std::getenv("XDG_SESSION_TYPE");
    if (type && *type)
        return type;
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    if (wayland && *wayland)
        return "wayland";
    const char* display = std::getenv("DISPLAY");
    return display && *display ? "x11" : "none (no DISPLAY or WAYLAND_DISPLAY)";
}

} // namespace

bool captureIsPossible() {
#ifdef TAPPIX_WITH_EVDEV
    if (readableKeyboard())
        return true;
#endif
#ifdef TAPPIX_WITH_X11
    if (x11::rawEventsAvailable())
        return true;
#endif
    return false;
}

std::vector<std::string> describeCapture() {
    std::vector<std::string> lines;
    bool evdevKeyboard = false;
    bool permissionDenied = false;
#ifdef TAPPIX_WITH_EVDEV
    const auto devices = evdev::scanDevices();
    if (devices.empty())
        lines.push_back("evdev: no devices under /dev/input");
    for (const auto& device : devices) {
        if (device.error != 0) {
            permissionDenied |= device.error == EACCES || device.error == EPERM;
            lines.push_back("evdev: " + device.path + ": cannot read (" +
                            std::strerror(device.error) + ")");
            continue;
        }
        std::string roles;
        for (auto [has, name] : {std::pair{device.keyboard, "keyboard"},
                                 {device.media, "media keys"},
                                 {device.pointer, "pointer"}}) {
            if (has)
                roles += roles.empty() ? name : std::string(", ") + name;
        }
        evdevKeyboard |= device.keyboard;
        lines.push_back("evdev: " + device.path + ": \"" + device.name + "\"" +
                        (roles.empty() ? " (not used)" : " (" + roles + ")"));
    }
#else
    lines.push_back("evdev: not in this build");
#endif
    bool x11 = false;
#ifdef TAPPIX_WITH_X11
    x11 = x11::rawEventsAvailable();
#endif
    lines.push_back("session: " + sessionType() +
                    (x11 ? "; X11 raw events available" : "; X11 raw events not available"));
    if (evdevKeyboard) {
        lines.push_back("backend: evdev (a keyboard is readable)");
    } else if (x11) {
        lines.push_back("backend: X11 raw events (no readable evdev keyboard)");
    } else {
        lines.push_back("backend: none — Tappix cannot hear keys");
    }
    if (!evdevKeyboard && permissionDenied) {
        lines.push_back("fix: keyboards exist but are not readable by you. Run");
        lines.push_back("       sudo usermod -aG input $USER");
        lines.push_back("     then log out and back in.");
    }
    return lines;
}

} // namespace tappix
