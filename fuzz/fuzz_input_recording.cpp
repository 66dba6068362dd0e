// An evemu-record or libinput record file, parsed and replayed through capture.
#include "fuzz_support.h"
#include "platform/evdev/input_recording.h"
#include "platform/evdev/recording_replay.h"

namespace {

struct NullSink final : tappix::CaptureSink {
    void keyDown(tappix::KeyCode, bool, tappix::KeyTime) override {}
    void keyUp(tappix::KeyCode, tappix::KeyTime) override {}
    void flagsChanged(tappix::KeyCode, tappix::KeyTime) override {}
    void systemDefined(std::int64_t, std::int64_t, tappix::KeyTime) override {}
    void mouse(tappix::MouseButton, bool) override {}
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string error;
    auto recording = tappix::evdev::InputRecording::parse(tappix::fuzz::bytes(data, size), error);
    if (recording && recording->events.size() < 4096) {
        NullSink sink;
        tappix::evdev::replayRecording(*recording, sink);
    }
    return 0;
}
