#include "platform/evdev/recording_replay.h"

#include "platform/evdev/evdev_device.h"

#include <array>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace tappix::evdev {
namespace {

/// One reader of one role over a pipe that stands in for the device node.
struct Reader {
    std::unique_ptr<EvdevDevice> device;
    int writeFd = -1;

    Reader(DeviceRole role, const std::string& name) {
        int fds[2];
        if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0)
            return;
        device = std::make_unique<EvdevDevice>(fds[0], role, name);
        writeFd = fds[1];
    }
    ~Reader() {
        if (writeFd >= 0)
            ::close(writeFd);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
};

} // namespace

void replayRecording(const InputRecording& recording, CaptureSink& sink,
                     const std::function<void(double)>& beforeEvent,
                     const std::function<void()>& afterEvent) {
    constexpr std::array kRoles{DeviceRole::keyboard, DeviceRole::media, DeviceRole::pointer};
    std::vector<std::array<std::unique_ptr<Reader>, kRoles.size()>> readers(
        recording.devices.size());
    for (std::size_t d = 0; d < readers.size(); ++d)
        for (std::size_t r = 0; r < kRoles.size(); ++r)
            readers[d][r] = std::make_unique<Reader>(kRoles[r], recording.devices[d]);

    for (const InputRecording::Event& event : recording.events) {
        if (beforeEvent)
            beforeEvent(event.time);
        input_event raw{};
        raw.time.tv_sec = static_cast<time_t>(event.time);
        raw.time.tv_usec = static_cast<suseconds_t>((event.time - double(raw.time.tv_sec)) * 1e6);
        raw.type = event.type;
        raw.code = event.code;
        raw.value = event.value;
        for (auto& reader : readers[event.device]) {
            // One event at a time, read at once: the pipe never fills.
            if (!reader->device || ::write(reader->writeFd, &raw, sizeof raw) != sizeof raw)
                continue;
            reader->device->readAvailable(sink);
        }
        if (afterEvent)
            afterEvent();
    }
}

} // namespace tappix::evdev
