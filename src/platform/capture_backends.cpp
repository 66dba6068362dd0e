#include "platform/capture_backends.h"

#include "core/log.h"
#include "platform/dbus/realtime_thread.h"
#include "platform/null/null_capture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#ifdef TAPPIX_WITH_EVDEV
#include "platform/evdev/evdev_capture.h"
#include "platform/evdev/keyboard_nodes.h"
#endif
#ifdef TAPPIX_WITH_X11
#include "platform/x11/x11_capture.h"
#endif

namespace tappix {

CaptureBackends makeCaptureBackends() {
    CaptureBackends backends;
    // Every hop a key takes before its sound is queued runs at real-time priority: the
    // readers below raise their own threads, this raises the key queue's.
    backends.onKeyQueueThread = [] {
        RealtimeThread::makeCallingThreadRealtime("tappix-keys", lcEvents());
    };
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
/// Whether some keyboard may be read. Polled every 2 s: the kernel's account of each
/// node answers without opening it.
bool readableKeyboard() {
    const auto nodes = evdev::keyboardNodes();
    return std::any_of(nodes.begin(), nodes.end(),
                       [](const evdev::KeyboardNode& node) { return node.readable; });
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

KeyboardAccess keyboardAccess() {
#ifdef TAPPIX_WITH_EVDEV
    return evdev::keyboardAccess();
#else
    return {};
#endif
}

std::vector<std::string> describeAccess(const KeyboardAccess& access) {
    const std::string group = "\"" + access.group + "\"";
    switch (access.state) {
    case KeyboardAccess::State::readable:
        return {"access: readable — you may read the keyboards" +
                (access.group.empty() ? std::string() : " (group " + group + ")")};
    case KeyboardAccess::State::notMember:
        return {"access: not a member — the keyboards belong to the group " + group +
                    ", and you are not in it",
                "fix: Tappix's first-run window adds you (\"Allow Keyboard Access…\" asks for",
                "     your password), or run",
                "       sudo usermod -aG " + access.group + " $USER",
                "     then log out and back in. Membership lets every program you run read",
                "     the keyboards."};
    case KeyboardAccess::State::memberNotInSession:
        return {"access: a member, but this session started before it — you are in " + group +
                    ", but",
                "     programs started before you joined get the group only at your next login.",
                "     Tappix starts itself again with it (sg " + access.group +
                    ") and hears keys at once;",
                "     log out and back in for everything else."};
    case KeyboardAccess::State::unavailable:
        break;
    }
    if (access.group.empty())
        return {"access: no keyboard that a group change would let you read"};
    return {"access: you hold the group " + group +
            " and still cannot read the keyboards (their mode, an ACL or a security module "
            "refuses)"};
}

std::vector<std::string> describeCapture() {
    std::vector<std::string> lines;
    bool evdevKeyboard = false;
#ifdef TAPPIX_WITH_EVDEV
    const auto devices = evdev::scanDevices();
    if (devices.empty())
        lines.push_back("evdev: no devices under /dev/input");
    for (const auto& device : devices) {
        if (device.error != 0) {
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
    const auto access = describeAccess(keyboardAccess());
    lines.insert(lines.end(), access.begin(), access.end());
    return lines;
}

} // namespace tappix
