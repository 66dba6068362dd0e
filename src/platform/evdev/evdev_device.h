#pragma once

#include "input/capture_source.h"

#include <bitset>
#include <cstddef>
#include <linux/input.h>
#include <string>

namespace tappix::evdev {

/// What a device is read for. A keyboard with volume keys is opened twice, once per
/// role, so the keyboard and media threads never share a descriptor.
enum class DeviceRole { keyboard, media, pointer };

/// One open input device (or any descriptor carrying `struct input_event` records):
/// reads what is available, drops repeats, follows SYN_DROPPED, and reports the
/// events of its role, translated to key codes, each key at the time the kernel gave
/// it. Used on one reader thread.
class EvdevDevice {
public:
    /// Takes ownership of `fd`, which should be non-blocking, and has the kernel stamp its
    /// events on the steady clock (a stream that is no device keeps the times its writer
    /// gave).
    EvdevDevice(int fd, DeviceRole role, std::string name, std::string path = {});
    /// Closes the descriptor.
    ~EvdevDevice();

    EvdevDevice(const EvdevDevice&) = delete;
    EvdevDevice& operator=(const EvdevDevice&) = delete;

    /// Whether the device is still there after a read.
    enum class ReadResult { open, gone };

    /// Reads and reports everything available now. `gone` when the device vanished
    /// (ENODEV, end of stream, a read error); the caller then drops it.
    ReadResult readAvailable(CaptureSink& sink);

    /// Reports a key-up at `at` for every key this device still holds (used when it
    /// vanishes, so no key stays "held" and silent forever).
    void releaseHeld(CaptureSink& sink, KeyTime at);

    /// The descriptor.
    int fd() const { return fd_; }
    /// The device's name as the kernel reports it.
    const std::string& name() const { return name_; }
    /// The device node, e.g. /dev/input/event3 (empty for streams in tests).
    const std::string& path() const { return path_; }

private:
    void handle(const input_event& event, CaptureSink& sink);
    void resync(CaptureSink& sink, KeyTime at);
    void report(std::uint16_t code, int value, CaptureSink& sink, KeyTime at);

    int fd_;
    DeviceRole role_;
    std::string name_;
    std::string path_;
    bool dropping_ = false;
    std::bitset<KEY_CNT> held_;
    // A record split across reads (possible on pipes, never on real devices).
    unsigned char partial_[sizeof(input_event)]{};
    std::size_t partialSize_ = 0;
};

} // namespace tappix::evdev
