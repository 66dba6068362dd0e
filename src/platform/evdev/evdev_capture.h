#pragma once

#include "input/capture_source.h"
#include "platform/evdev/evdev_device.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace tappix::evdev {

/// What a scan found at one device node.
struct DeviceReport {
    /// The node, e.g. /dev/input/event3.
    std::string path;
    /// The kernel's name for the device, when it could be opened.
    std::string name;
    /// 0 when readable, else the errno of the failed open.
    int error = 0;
    /// What the device reports.
    bool keyboard = false, media = false, pointer = false;
};

/// Asks the device open at `fd` what it reports (its name, which keys it has) and fills
/// `report`; false when it is not an input device at all. Leaves `fd` open.
bool describeDevice(int fd, DeviceReport& report);

/// Opens one device node read-only just long enough to ask what it reports.
DeviceReport probeDevice(const std::string& path);

/// Lists every event device in `directory`, opening each read-only just long enough
/// to ask what it reports. Any thread.
std::vector<DeviceReport> scanDevices(const std::string& directory = "/dev/input");

/// Captures one role (keyboards, media keys or pointer buttons) from every readable
/// evdev device, on one thread that blocks in epoll and uses no CPU while nothing
/// moves. Devices plugged in later join through inotify; devices that vanish are
/// dropped with their held keys released; nothing is ever grabbed.
class EvdevCapture final : public CaptureSource {
public:
    /// How a newly opened device is asked what it reports (`describeDevice`).
    using Describe = std::function<bool(int fd, DeviceReport& report)>;

    /// Reads `role` devices from `directory` on a thread named `threadName`; `describe`
    /// stands in for asking the kernel where the nodes are not real devices (tests).
    EvdevCapture(DeviceRole role, std::string threadName, std::string directory = "/dev/input",
                 Describe describe = describeDevice);
    ~EvdevCapture() override;

    /// Opens the role's devices and starts the thread. Keyboards and pointers have a
    /// fallback, so without a device of theirs this is false; media keys have none, so
    /// their reader starts with no device and waits for one to be plugged in, and is
    /// false only when the directory cannot be watched. Controlling thread.
    bool start(CaptureSink& sink) override;

    /// Starts on the given devices instead of scanning, without hot-plug (tests and
    /// benchmarks feed streams this way). Controlling thread.
    bool startWithDevices(CaptureSink& sink, std::vector<std::unique_ptr<EvdevDevice>> devices);

    /// Stops and joins the thread, closing every device. Controlling thread.
    void stop() override;

private:
    bool launch(CaptureSink& sink, std::vector<std::unique_ptr<EvdevDevice>> devices, bool watch);
    void run(CaptureSink* sink);
    std::unique_ptr<EvdevDevice> open(const std::string& path, bool logFailure);
    void addDevice(std::unique_ptr<EvdevDevice> device);
    void removeDevice(int fd, CaptureSink& sink, bool released);
    void handleDirectoryChanges(CaptureSink& sink);

    DeviceRole role_;
    std::string threadName_;
    std::string directory_;
    Describe describe_;
    std::thread thread_;
    int epollFd_ = -1;
    int stopFd_ = -1;
    int inotifyFd_ = -1;
    // Reader-thread state once running.
    std::vector<std::unique_ptr<EvdevDevice>> devices_;
    std::set<std::string> reportedFailures_;
};

} // namespace tappix::evdev
