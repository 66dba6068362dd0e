#include "platform/evdev/evdev_capture.h"

#include "core/log.h"
#include "platform/dbus/realtime_thread.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace tappix::evdev {
namespace {

constexpr unsigned int kMediaKeys[] = {KEY_VOLUMEUP,       KEY_VOLUMEDOWN, KEY_MUTE,
                                       KEY_PLAYPAUSE,      KEY_NEXTSONG,   KEY_PREVIOUSSONG,
                                       KEY_FASTFORWARD,    KEY_REWIND,     KEY_BRIGHTNESSUP,
                                       KEY_BRIGHTNESSDOWN, KEY_KBDILLUMUP, KEY_KBDILLUMDOWN};

const char* roleName(DeviceRole role) {
    switch (role) {
    case DeviceRole::keyboard:
        return "keyboard";
    case DeviceRole::media:
        return "media-key device";
    case DeviceRole::pointer:
        return "pointer";
    }
    return "device";
}

bool isEventNode(const char* name) {
    return std::strncmp(name, "event", 5) == 0;
}

bool hasRole(const DeviceReport& report, DeviceRole role) {
    switch (role) {
    case DeviceRole::keyboard:
        return report.keyboard;
    case DeviceRole::media:
        return report.media;
    case DeviceRole::pointer:
        return report.pointer;
    }
    return false;
}

std::vector<std::string> eventNodes(const std::string& directory) {
    std::vector<std::string> nodes;
    if (DIR* dir = ::opendir(directory.c_str())) {
        while (const dirent* entry = ::readdir(dir)) {
            if (isEventNode(entry->d_name))
                nodes.push_back(directory + "/" + entry->d_name);
        }
        ::closedir(dir);
    }
    std::sort(nodes.begin(), nodes.end());
    return nodes;
}

} // namespace

bool describeDevice(int fd, DeviceReport& report) {
    libevdev* device = nullptr;
    if (libevdev_new_from_fd(fd, &device) < 0)
        return false;
    report.name = libevdev_get_name(device) ? libevdev_get_name(device) : "";
    auto has = [device](unsigned int code) {
        return libevdev_has_event_code(device, EV_KEY, code) == 1;
    };
    report.keyboard = has(KEY_Q) && has(KEY_A) && has(KEY_Z) && has(KEY_SPACE);
    report.media = std::any_of(std::begin(kMediaKeys), std::end(kMediaKeys), has);
    report.pointer = has(BTN_LEFT);
    libevdev_free(device); // leaves the descriptor open
    return true;
}

DeviceReport probeDevice(const std::string& path) {
    DeviceReport report;
    report.path = path;
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        report.error = errno;
    } else {
        describeDevice(fd, report);
        ::close(fd);
    }
    return report;
}

std::vector<DeviceReport> scanDevices(const std::string& directory) {
    std::vector<DeviceReport> reports;
    for (const std::string& path : eventNodes(directory))
        reports.push_back(probeDevice(path));
    return reports;
}

EvdevCapture::EvdevCapture(DeviceRole role, std::string threadName, std::string directory,
                           Describe describe)
    : role_(role), threadName_(std::move(threadName)), directory_(std::move(directory)),
      describe_(std::move(describe)) {}

EvdevCapture::~EvdevCapture() {
    stop();
}

std::unique_ptr<EvdevDevice> EvdevCapture::open(const std::string& path, bool logFailure) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        // One line per device, not one per attempt.
        if (logFailure && reportedFailures_.insert(path).second)
            qCInfo(lcEvents, "cannot read %s: %s", path.c_str(), std::strerror(errno));
        return nullptr;
    }
    DeviceReport report;
    if (!describe_(fd, report) || !hasRole(report, role_)) {
        ::close(fd);
        return nullptr;
    }
    reportedFailures_.erase(path);
    qCInfo(lcEvents, "reading %s \"%s\" at %s", roleName(role_), report.name.c_str(), path.c_str());
    return std::make_unique<EvdevDevice>(fd, role_, report.name, path);
}

bool EvdevCapture::start(CaptureSink& sink) {
    stop();
    std::vector<std::unique_ptr<EvdevDevice>> devices;
    for (const std::string& path : eventNodes(directory_)) {
        if (auto device = open(path, true))
            devices.push_back(std::move(device));
    }
    // Keyboards and pointers fall back to X11 without a device; media keys have no
    // fallback, so their reader waits for a device to be plugged in.
    if (devices.empty() && role_ != DeviceRole::media)
        return false;
    return launch(sink, std::move(devices), true);
}

bool EvdevCapture::startWithDevices(CaptureSink& sink,
                                    std::vector<std::unique_ptr<EvdevDevice>> devices) {
    stop();
    return launch(sink, std::move(devices), false);
}

bool EvdevCapture::launch(CaptureSink& sink, std::vector<std::unique_ptr<EvdevDevice>> devices,
                          bool watch) {
    epollFd_ = ::epoll_create1(EPOLL_CLOEXEC);
    stopFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (epollFd_ < 0 || stopFd_ < 0) {
        qCWarning(lcEvents, "cannot start the %s reader: %s", roleName(role_),
                  std::strerror(errno));
        stop();
        return false;
    }
    epoll_event stopEvent{};
    stopEvent.events = EPOLLIN;
    stopEvent.data.fd = stopFd_;
    ::epoll_ctl(epollFd_, EPOLL_CTL_ADD, stopFd_, &stopEvent);

    if (watch) {
        inotifyFd_ = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        if (inotifyFd_ >= 0 &&
            ::inotify_add_watch(inotifyFd_, directory_.c_str(), IN_CREATE | IN_ATTRIB) >= 0) {
            epoll_event watchEvent{};
            watchEvent.events = EPOLLIN;
            watchEvent.data.fd = inotifyFd_;
            ::epoll_ctl(epollFd_, EPOLL_CTL_ADD, inotifyFd_, &watchEvent);
        } else {
            qCInfo(lcEvents, "cannot watch %s for new devices: %s", directory_.c_str(),
                   std::strerror(errno));
            if (devices.empty()) {
                stop();
                return false;
            }
        }
        if (devices.empty())
            qCInfo(lcEvents, "no %s yet; one plugged in joins", roleName(role_));
    }
    for (auto& device : devices)
        addDevice(std::move(device));
    thread_ = std::thread(&EvdevCapture::run, this, &sink);
    return true;
}

void EvdevCapture::addDevice(std::unique_ptr<EvdevDevice> device) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = device->fd();
    if (::epoll_ctl(epollFd_, EPOLL_CTL_ADD, device->fd(), &event) < 0) {
        qCWarning(lcEvents, "cannot watch %s: %s", device->name().c_str(), std::strerror(errno));
        return;
    }
    devices_.push_back(std::move(device));
}

void EvdevCapture::removeDevice(int fd, CaptureSink& sink, bool released) {
    auto it = std::find_if(devices_.begin(), devices_.end(),
                           [fd](const auto& d) { return d->fd() == fd; });
    if (it == devices_.end())
        return;
    ::epoll_ctl(epollFd_, EPOLL_CTL_DEL, fd, nullptr);
    if (released)
        (*it)->releaseHeld(sink, std::chrono::steady_clock::now());
    qCInfo(lcEvents, "%s \"%s\" went away", roleName(role_), (*it)->name().c_str());
    devices_.erase(it);
}

void EvdevCapture::handleDirectoryChanges(CaptureSink&) {
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(inotifyFd_, buffer, sizeof buffer);
        if (n <= 0)
            return;
        for (ssize_t offset = 0; offset < n;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (event->len == 0 || !isEventNode(event->name))
                continue;
            const std::string path = directory_ + "/" + event->name;
            const bool known = std::any_of(devices_.begin(), devices_.end(),
                                           [&](const auto& d) { return d->path() == path; });
            // A new node is often unreadable until udev sets its permissions (IN_ATTRIB).
            if (!known) {
                if (auto device = open(path, (event->mask & IN_ATTRIB) != 0))
                    addDevice(std::move(device));
            }
        }
    }
}

void EvdevCapture::run(CaptureSink* sink) {
    pthread_setname_np(pthread_self(), threadName_.c_str());
    // The first hop of every key: it runs as soon as the key arrives, as the key queue does.
    RealtimeThread::makeCallingThreadRealtime(threadName_.c_str(), lcEvents());
    epoll_event events[16];
    for (;;) {
        const int ready = ::epoll_wait(epollFd_, events, 16, -1);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            qCWarning(lcEvents, "%s reader stopped: %s", roleName(role_), std::strerror(errno));
            return;
        }
        for (int i = 0; i < ready; ++i) {
            const int fd = events[i].data.fd;
            if (fd == stopFd_)
                return;
            if (fd == inotifyFd_) {
                handleDirectoryChanges(*sink);
                continue;
            }
            auto it = std::find_if(devices_.begin(), devices_.end(),
                                   [fd](const auto& d) { return d->fd() == fd; });
            if (it == devices_.end())
                continue;
            if ((*it)->readAvailable(*sink) == EvdevDevice::ReadResult::gone)
                removeDevice(fd, *sink, true);
        }
    }
}

void EvdevCapture::stop() {
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(stopFd_, &one, sizeof one);
        thread_.join();
    }
    devices_.clear();
    for (int* fd : {&inotifyFd_, &stopFd_, &epollFd_}) {
        if (*fd >= 0)
            ::close(*fd);
        *fd = -1;
    }
}

} // namespace tappix::evdev
