#include "platform/capture_backends.h"

#include "core/log.h"
#include "platform/dbus/realtime_thread.h"
#include "platform/null/null_capture.h"

#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

#ifdef TAPPIX_WITH_EVDEV
#include "platform/evdev/evdev_capture.h"
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
/// Whether some input device is a keyboard we may read. Polled every 2 s, so what a
/// readable node reports is remembered by its inode: a poll costs a stat and an
/// access check per node, and only new nodes are opened and asked.
bool readableKeyboard() {
    static std::map<std::string, std::pair<ino_t, bool>> known;
    std::map<std::string, std::pair<ino_t, bool>> seen;
    bool found = false;
    if (DIR* dir = ::opendir("/dev/input")) {
        while (const dirent* entry = ::readdir(dir)) {
            if (std::strncmp(entry->d_name, "event", 5) != 0)
                continue;
            const std::string path = std::string("/dev/input/") + entry->d_name;
            struct stat info {};
            if (::stat(path.c_str(), &info) != 0 || ::access(path.c_str(), R_OK) != 0)
                continue;
            bool keyboard = false;
            if (auto it = known.find(path); it != known.end() && it->second.first == info.st_ino)
                keyboard = it->second.second;
            else
                keyboard = evdev::probeDevice(path).keyboard;
            seen[path] = {info.st_ino, keyboard};
            found |= keyboard;
        }
        ::closedir(dir);
    }
    known = std::move(seen);
    return found;
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
