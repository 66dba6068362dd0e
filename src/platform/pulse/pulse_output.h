#pragma once

#include "audio/audio_output.h"
#include "platform/pulse/pulse_connection.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tappix {

/// The mixer's output as one PulseAudio playback stream: 48 kHz float stereo with a
/// 60 ms buffer (65 ms in 5.3 ms cycles on PipeWire), no prebuffering and never corked, so the
/// sink never suspends under Tappix and a key after a long silence starts at once. The stream
/// follows the default sink unless a device is named; it is recreated when the server restarts. The
/// loop thread, "tappix-pulse", runs the render callback.
///
/// A named sink that is missing (unplugged, not loaded yet, gone after a server
/// restart) is waited for on the default sink: the stream moves to it by itself as
/// soon as the server announces a sink of that name.
///
/// A new sound does not wait behind the buffer: `wake` re-sends the part of the
/// buffer the server has not played yet, from just past its read position, with the
/// new sound mixed into a copy of what was written there (kept in a mirror). Sounds
/// already playing go on sample for sample, so there is no seam, and the buffer can
/// be deep enough to ride out a busy machine without making keys wait for it.
///
/// PulseAudio's read position moves smoothly and is extrapolated from its timing
/// reports. PipeWire's PulseAudio layer takes a whole graph cycle (its quantum) at the
/// start of each cycle and asks for as much right after, so there the read position is
/// counted in cycles from the last few requests instead.
///
/// After two seconds of silence the stream refills a large buffer a few times a
/// second instead of a small one every few milliseconds; `wake` switches back and
/// starts the new sound at the read position, so the first key after a silence is
/// as quick as any other.
///
/// `wake` only signals the loop thread, which does that work at its own (real-time)
/// priority: the thread asking for a sound never holds the loop's lock, so a busy
/// machine preempting it cannot hold up the stream. When the stream goes away, what
/// was queued or ringing for it is dropped, so nothing sounds late when it is back.
class PulseOutput final : public AudioOutput {
public:
    /// The buffer the stream asks a server that moves its read position smoothly
    /// (PulseAudio) for while sounds play. New sounds are re-sent into it, so its depth
    /// is slack against a busy machine, not latency; each refill is a wake-up of the
    /// loop thread, so a deeper buffer costs less while typing (measured at ten keys a
    /// second with release sounds: 118 wake-ups a second with 60 ms, 92 with 90 ms). But
    /// a sound that misses its re-send (a busy machine) is rendered by the next refill, and
    /// refills 45 ms apart left it 5 ms before the mixer drops it as late (one of twelve
    /// sounds dropped, once in three sanitizer CI runs); 30 ms apart leave 20 ms. A sound
    /// that comes before the stream knows where the server reads (right after it starts or
    /// wakes) asks for a timing report and is re-sent on the answer.
    static constexpr int kTargetLatencyMs = 60;
    /// How often that server asks for more while sounds play: half the buffer, so it
    /// keeps its own hardware buffer at the minimum (it splits a stream's latency
    /// between the two).
    static constexpr int kRefillMs = kTargetLatencyMs / 2;
    /// How often a server that plays in graph cycles (PipeWire) asks for more while sounds
    /// play: its PulseAudio layer asks whenever this much is missing, so this, not the
    /// cycle, sets how often the loop thread wakes (measured: refills of 5 ms came at every
    /// 5.3 ms cycle, and typing cost the process 0.94 % of a core against 0.59 % with these).
    static constexpr int kCycleRefillMs = 30;
    /// The graph cycle asked of that server, in frames: a re-sent sound starts at the next
    /// cycle, so a short one lets it start soon. Its layer makes the cycle (tlength - 2
    /// minreq) / 2 and keeps the rest of tlength as the stream's buffer.
    static constexpr std::uint32_t kCycleFrames = 256;
    /// After this much silence the stream switches to its idle buffer.
    static constexpr int kIdleAfterMs = 2000;
    /// The idle buffer: a few wake-ups a second while nothing plays.
    static constexpr int kIdleBufferMs = 250;
    /// How far past the server's estimated read position, beyond the sink's configured
    /// latency and the recent transport time, a re-sent sound starts.
    static constexpr int kResendMarginUs = 1000;
    /// On a server that plays in cycles, a re-sent sound goes one cycle later when the
    /// next cycle starts within this (plus the recent transport time): the server may
    /// take the cycle before the write arrives.
    static constexpr int kCycleGuardUs = 1000;
    /// On a server that plays in cycles, how far past its read position the first sound
    /// after a silence goes (plus the recent transport time).
    static constexpr int kWakeMarginUs = 2000;
    /// A re-send asks the server where it reads at most this often. Its answer keeps the
    /// extrapolated read position fresh and says whether that re-send came in time. Each
    /// answer wakes the loop thread: after every re-send that was 20 a second while typing
    /// with release sounds, now about 4.
    static constexpr int kTimingRefreshMs = 200;
    /// How many of the server's latest requests for data are kept to count its cycles.
    static constexpr std::size_t kCycleMarks = 16;
    /// How much of what was written the mirror keeps, in frames: more than PulseAudio's
    /// idle buffer, which is still queued for a moment after waking (on PipeWire, which
    /// grants 375 ms for it, the buffer is made small before the wake-up's write).
    static constexpr std::size_t kMirrorFrames = 16384;
    /// How long `start` waits for the stream before returning (it keeps trying after).
    static constexpr int kStartWaitMs = 1000;
    /// A stream the server has asked nothing of for this long has stalled (the idle
    /// buffer is refilled every 125-190 ms): new sounds wait rather than being written
    /// for whenever it resumes, when the mixer drops them as late.
    static constexpr int kStalledAfterMs = 500;

    /// An output that idles after `idleAfterMs` of silence.
    explicit PulseOutput(int idleAfterMs = kIdleAfterMs);
    ~PulseOutput() override;

    bool start(Mixer& mixer) override;
    void stop() override;
    void setDevice(const std::optional<std::string>& deviceName) override;
    void wake() override;
    /// Whether the stream is in its idle buffer now. Any thread.
    bool isIdle() const { return idle_.load(); }
    bool isPlaying() const override { return playing_.load(); }
    /// The sink's configured latency plus what a re-sent sound is placed beyond it (the
    /// margin on PulseAudio, the guard before a cycle on PipeWire, whose configured latency
    /// is the cycle), as the server granted them, while awake. The buffer is not part of it: new
    /// sounds never wait behind it. Any thread.
    double latencySeconds() const override { return latency_.load(); }
    /// The buffer asked for while sounds play, by the kind of server; 0 until it answers.
    /// Any thread.
    double requestedBufferSeconds() const override { return requestedBuffer_.load(); }
    double bufferSeconds() const override { return buffer_.load(); }
    std::uint64_t underruns() const override { return underruns_.load(); }
    /// How many times new sounds went out by re-sending the unplayed buffer (rather
    /// than waiting behind it). Any thread.
    std::uint64_t resends() const { return resends_.load(); }
    /// Of the re-sends checked (at most one every `kTimingRefreshMs`), those the server had
    /// read past the start of when it took them in (the first milliseconds of a new sound
    /// lost: the server was held up longer than the margin allows). Each widens the margin
    /// by what was missed. Any thread.
    std::uint64_t lateResends() const { return lateResends_.load(); }

    /// Whether the loop thread got real-time priority when the output started. Any thread.
    bool isRealtime() const { return realtime_.load(); }

    /// The sink the stream plays on now, or empty while there is no stream. Any thread
    /// but the loop's own.
    std::string currentDevice();

private:
    void onContextReady(pa_context* context);
    void createStream(pa_context* context);
    void dropStream();
    void seekChosenDevice(pa_context* context, std::optional<std::uint32_t> sinkIndex);
    static void onStreamState(pa_stream* stream, void* self);
    static void onMoved(pa_stream* stream, void* self);
    static void onUnderflow(pa_stream* stream, void* self);
    static void onBufferChanged(pa_stream* stream, void* self);
    static void onTimingUpdate(pa_stream* stream, void* self);
    static void onResendTimed(pa_stream* stream, int success, void* self);
    static void onPositionKnown(pa_stream* stream, int success, void* self);
    void anchorMirror(std::int64_t writeEnd) noexcept;
    static void onBufferSet(pa_stream* stream, int success, void* self);
    void notePathDelay(double transportUs);
    void noteGrantedBuffer(pa_stream* stream);
    static void onSinkEvent(pa_context* context, pa_subscription_event_type_t type,
                            std::uint32_t index, void* self);
    static void onSinkInfo(pa_context* context, const pa_sink_info* info, int eol, void* self);
    static void onServerInfo(pa_context* context, const pa_server_info* info, void* self);
    pa_buffer_attr bufferAttributes() const;
    pa_buffer_attr idleBufferAttributes() const;
    void markCycle(pa_stream* stream, std::size_t bytes) noexcept;
    std::int64_t cycleReadPosition(const pa_timing_info& timing) const;
    void setIdle(pa_stream* stream, bool idle);
    static void onWrite(pa_stream* stream, std::size_t bytes, void* self);
    std::size_t writeRendered(pa_stream* stream, std::size_t bytes);
    void remember(std::int64_t frame, const float* data, std::size_t frames) noexcept;
    void copyIntoMirror(std::int64_t frame, const float* data, std::size_t frames) noexcept;
    void copyFromMirror(std::int64_t frame, float* out, std::size_t frames) const noexcept;
    void forgetWritten();
    void restartAtRead(pa_stream* stream);
    bool resendWithNewSounds(bool mayAsk = true);
    static void onWakeEvent(pa_mainloop_api*, pa_io_event*, int fd, pa_io_event_flags_t,
                            void* self);
    static void onMeter(pa_mainloop_api*, pa_time_event*, const struct timeval*, void* self);
    void scheduleMeter();
    void scheduleStreamRetry();

    std::size_t idleAfterFrames_;
    PulseConnection connection_;
    Mixer* mixer_ = nullptr;
    pa_stream* stream_ = nullptr;
    pa_time_event* meter_ = nullptr;
    pa_time_event* retry_ = nullptr;
    // Signalled by `wake`, read by the loop.
    int wakeFd_ = -1;
    pa_io_event* wakeEvent_ = nullptr;
    // Set by `wake` before it signals, cleared by the loop as it takes the signal: sounds
    // queued meanwhile are the wake-up's to start.
    std::atomic<bool> wakePending_{false};
    bool streamFailureLogged_ = false;
    std::atomic<bool> idle_{false};
    std::size_t quietFrames_ = 0;
    // The sink the user chose (none: the default), and whether it was missing when
    // the stream last connected, so the stream runs on the default meanwhile.
    std::optional<std::string> device_;
    bool deviceMissing_ = false;
    std::atomic<bool> playing_{false};
    std::atomic<pid_t> loopThread_{0};
    std::atomic<bool> realtime_{false};
    std::atomic<double> latency_{0.0};
    std::atomic<double> buffer_{0.0};
    std::atomic<double> requestedBuffer_{0.0};
    // Buffer changes asked of the server and not answered yet; the buffer last logged.
    int bufferChangesPending_ = 0;
    std::uint32_t loggedBuffer_ = 0;
    std::atomic<std::uint64_t> underruns_{0};
    std::atomic<std::uint64_t> resends_{0};
    std::atomic<std::uint64_t> lateResends_{0};
    // Where the re-send that asked for a timing report started, until the report says
    // whether it was on time; when the last such report was asked for.
    std::int64_t resentFrom_ = -1;
    // A timing report asked for because a new sound came while the write position was
    // unknown, and not answered yet. Loop thread.
    bool positionAsked_ = false;
    pa_usec_t timingAskedAt_ = 0;
    pa_usec_t gapsExpectedUntil_ = 0;
    // When the server last asked for data (or the stream became ready). Loop thread.
    pa_usec_t lastRequestAt_ = 0;
    // Whether the server plays in graph cycles (PipeWire's PulseAudio layer); learnt
    // from the server's name before the stream is made.
    bool playsInCycles_ = false;
    // The server's latest requests for data: when each arrived and the read position
    // it implies (the start of the next cycle's data). Loop thread, or under the lock.
    struct CycleMark {
        pa_usec_t at = 0;
        std::int64_t read = -1;
    };
    std::array<CycleMark, kCycleMarks> cycleMarks_{};
    // How long a write takes to reach the server lately (a decaying peak of the timing
    // reports' transport time), in microseconds; added to the re-send margins. Loop
    // thread, or under the lock.
    static constexpr double kPathDelayEasing = 0.1;
    double pathDelayUs_ = 0;
    std::size_t nextCycleMark_ = 0;
    // What was written, by absolute stream frame: [mirrorStart_, mirrorEnd_) is held
    // in the ring `mirror_`; mirrorEnd_ < 0 while the write position is unknown (after
    // a flush, until the server's timing report arrives). Loop thread or under the lock.
    std::vector<float> mirror_;
    std::vector<float> resend_;
    std::int64_t mirrorStart_ = -1;
    std::int64_t mirrorEnd_ = -1;
    // Frames written since the write position was lost, held in the ring from slot 0 on
    // until the server's next timing report places them.
    std::int64_t unplaced_ = 0;
};

} // namespace tappix
