#pragma once

#include "audio/microphone.h"
#include "platform/pulse/pulse_connection.h"

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace tappix {

/// The default PulseAudio source (never a monitor of an output) as a mono 48 kHz
/// float record stream with a small fragment, on its own loop thread
/// "tappix-record". The stream may not move: when its source goes away the
/// recording ends with a message rather than carrying on from another device.
///
/// Timing: on each fragment the stream's latency (the source's own plus what waits
/// in the server) says when the fragment's first sample was captured; the start of
/// the recording is the median over fragments of that time less the samples before
/// it, on the monotonic clock.
class PulseMicrophone final : public Microphone {
public:
    /// The fragment the stream asks for.
    static constexpr int kFragmentMs = 10;
    /// How long `start` waits for the server and the stream.
    static constexpr int kStartWaitMs = 3000;
    /// Longest recording kept; later samples are dropped.
    static constexpr int kMaxSeconds = 600;

    PulseMicrophone();
    ~PulseMicrophone() override;

    bool start(std::string& error) override;
    Recording stop() override;
    Recording snapshot() override;
    std::vector<float> tail(std::size_t count) override;
    std::string name() const override { return name_; }
    float takePeak() override { return peak_.exchange(0.0f); }
    std::string failure() const override;

private:
    static void onStreamState(pa_stream* stream, void* self);
    static void onRead(pa_stream* stream, std::size_t bytes, void* self);
    void fail(const std::string& why);
    void dropStream();
    /// The recording so far (under the lock).
    Recording collect() const;

    PulseConnection connection_;
    pa_stream* stream_ = nullptr;
    std::string name_;
    // Loop thread (or under the lock) while recording.
    std::vector<float> samples_;
    std::vector<double> starts_;
    std::atomic<float> peak_{0.0f};
    mutable std::mutex failureMutex_;
    std::string failure_;
};

} // namespace tappix
