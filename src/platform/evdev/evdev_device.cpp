#include "platform/evdev/evdev_device.h"

#include "core/log.h"
#include "platform/evdev/evdev_keymap.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tappix::evdev {

namespace {

/// Past any monotonic or wall-clock reading for decades (2096 on the wall clock), and far
/// short of what the steady clock's nanoseconds can hold.
constexpr long long kLatestEventSeconds = 4'000'000'000;

/// When the kernel says `event` happened, on the steady clock once EVIOCSCLOCKID has
/// put the device on CLOCK_MONOTONIC. A stamp no clock gives (a damaged stream or
/// recording) counts as now, as the key is read.
KeyTime eventTime(const input_event& event) {
    const auto seconds = static_cast<long long>(event.input_event_sec);
    const auto micros = static_cast<long long>(event.input_event_usec);
    if (seconds < 0 || seconds > kLatestEventSeconds || micros < 0 || micros >= 1'000'000)
        return std::chrono::steady_clock::now();
    return KeyTime(std::chrono::seconds(seconds) + std::chrono::microseconds(micros));
}

} // namespace

EvdevDevice::EvdevDevice(int fd, DeviceRole role, std::string name, std::string path)
    : fd_(fd), role_(role), name_(std::move(name)), path_(std::move(path)) {
    // Events come stamped on the wall clock unless asked otherwise; the steady clock is
    // the one the rest of Tappix (and a recording's microphone) runs on. Streams that are
    // no device refuse, and carry the times written into them.
    int clock = CLOCK_MONOTONIC;
    ::ioctl(fd_, EVIOCSCLOCKID, &clock);
}

EvdevDevice::~EvdevDevice() {
    if (fd_ >= 0)
        ::close(fd_);
}

EvdevDevice::ReadResult EvdevDevice::readAvailable(CaptureSink& sink) {
    constexpr std::size_t kBatch = 64;
    input_event events[kBatch];
    auto* bytes = reinterpret_cast<unsigned char*>(events);
    for (;;) {
        std::memcpy(bytes, partial_, partialSize_);
        const ssize_t n = ::read(fd_, bytes + partialSize_, sizeof events - partialSize_);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            if (errno == EAGAIN)
                return ReadResult::open;
            if (errno != ENODEV)
                qCWarning(lcEvents, "reading %s failed: %s; dropping it", name_.c_str(),
                          std::strerror(errno));
            return ReadResult::gone;
        }
        if (n == 0)
            return ReadResult::gone;
        const std::size_t total = partialSize_ + static_cast<std::size_t>(n);
        const std::size_t whole = total / sizeof(input_event);
        for (std::size_t i = 0; i < whole; ++i)
            handle(events[i], sink);
        partialSize_ = total % sizeof(input_event);
        std::memcpy(partial_, bytes + whole * sizeof(input_event), partialSize_);
    }
}

void EvdevDevice::handle(const input_event& event, CaptureSink& sink) {
    if (event.type == EV_SYN) {
        if (event.code == SYN_DROPPED) {
            // The kernel's buffer overflowed: ignore everything up to the next report,
            // then ask the device which keys are really down.
            dropping_ = true;
        } else if (event.code == SYN_REPORT && dropping_) {
            dropping_ = false;
            resync(sink, eventTime(event));
        }
        return;
    }
    if (dropping_ || event.type != EV_KEY || event.code >= KEY_CNT)
        return;
    report(event.code, event.value, sink, eventTime(event));
}

void EvdevDevice::report(std::uint16_t code, int value, CaptureSink& sink, KeyTime at) {
    // Value 2 is auto-repeat; it never sounds.
    if (value == 2)
        return;
    const bool down = value == 1;
    if (role_ == DeviceRole::pointer) {
        if (auto button = mouseButton(code))
            sink.mouse(*button, down);
        return;
    }
    const auto virtualCode = virtualKeyCode(code);
    if (!virtualCode || isMediaCode(*virtualCode) != (role_ == DeviceRole::media))
        return;
    held_.set(code, down);
    if (down)
        sink.keyDown(*virtualCode, false, at);
    else
        sink.keyUp(*virtualCode, at);
}

void EvdevDevice::resync(CaptureSink& sink, KeyTime at) {
    unsigned char state[KEY_CNT / 8 + 1]{};
    if (::ioctl(fd_, EVIOCGKEY(sizeof state), state) < 0)
        return; // not a real device (a stream in tests): keep what we believe
    for (std::size_t code = 0; code < KEY_CNT; ++code) {
        const bool down = (state[code / 8] >> (code % 8)) & 1;
        if (held_.test(code) && !down)
            report(static_cast<std::uint16_t>(code), 0, sink, at);
    }
}

void EvdevDevice::releaseHeld(CaptureSink& sink, KeyTime at) {
    for (std::size_t code = 0; code < KEY_CNT; ++code) {
        if (held_.test(code))
            report(static_cast<std::uint16_t>(code), 0, sink, at);
    }
}

} // namespace tappix::evdev
