#include "platform/pulse/pulse_output.h"

#include "audio/mixer.h"
#include "core/log.h"
#include "platform/dbus/realtime_thread.h"

#include <algorithm>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace tappix {
namespace {
constexpr std::size_t kFrameBytes = 2 * sizeof(float);
// After a connect or a restart at the read position, how long an empty buffer is
// expected rather than a fault.
constexpr pa_usec_t kExpectedGapUs = 50 * PA_USEC_PER_MSEC;
constexpr int kMeterIntervalMs = 500;
// Requests older than this say nothing about the cycles now.
constexpr pa_usec_t kCycleMarkLifeUs = PA_USEC_PER_SEC;
// Servers round a buffer to units of their own (PulseAudio makes 10 ms 10.5 ms); beyond
// this the server granted more than was asked.
constexpr double kRoundingMs = 1.0;
} // namespace

PulseOutput::PulseOutput(int idleAfterMs)
    : idleAfterFrames_(static_cast<std::size_t>(idleAfterMs) * Mixer::kSampleRate / 1000),
      connection_(
          "Tappix", "tappix-pulse",
          {[this](pa_context* context) { onContextReady(context); }, [this] { dropStream(); }}),
      wakeFd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)), mirror_(2 * kMirrorFrames),
      resend_(2 * kMirrorFrames) {}

PulseOutput::~PulseOutput() {
    stop();
    if (wakeFd_ >= 0)
        close(wakeFd_);
}

bool PulseOutput::start(Mixer& mixer) {
    mixer_ = &mixer;
    if (wakeFd_ < 0 || !connection_.start())
        return false;
    connection_.lock();
    // New sounds are started by the loop thread itself, woken through this: whoever asks
    // for a sound never takes the loop's lock, so the loop never waits behind them.
    wakeEvent_ = connection_.api()->io_new(connection_.api(), wakeFd_, PA_IO_EVENT_INPUT,
                                           &PulseOutput::onWakeEvent, this);
    // Give the first connection a moment so sound is ready when start returns; the
    // loop keeps trying in the background either way.
    connection_.waitFor([this] { return playing_.load(); }, kStartWaitMs);
    const bool ready = stream_ && pa_stream_get_state(stream_) == PA_STREAM_READY;
    connection_.unlock();
    // The loop sends every sound: at real-time priority a busy machine cannot hold it
    // back (measured: with two busy loops, 7 of 20 runs of the re-send test on
    // PulseAudio and 3 of 20 on PipeWire lost a sound's start at normal priority, 1 of 40
    // at real-time priority).
    if (const pid_t tid = loopThread_.load()) {
        const std::string why = RealtimeThread::makeRealtime(tid);
        realtime_ = why.empty();
        if (realtime_)
            qCInfo(lcAudio, "the output thread runs at real-time priority");
        else
            qCInfo(lcAudio, "the output thread runs at normal priority (%s)", why.c_str());
    }
    return ready;
}

void PulseOutput::stop() {
    connection_.lock();
    if (wakeEvent_) {
        connection_.api()->io_free(wakeEvent_);
        wakeEvent_ = nullptr;
    }
    dropStream();
    connection_.unlock();
    connection_.stop();
}

void PulseOutput::setDevice(const std::optional<std::string>& deviceName) {
    connection_.lock();
    device_ = deviceName;
    deviceMissing_ = false;
    if (pa_context* context = connection_.readyContext()) {
        dropStream();
        createStream(context);
    }
    connection_.unlock();
}

std::string PulseOutput::currentDevice() {
    connection_.lock();
    const char* name = stream_ && pa_stream_get_state(stream_) == PA_STREAM_READY
                           ? pa_stream_get_device_name(stream_)
                           : nullptr;
    std::string device = name ? name : "";
    connection_.unlock();
    return device;
}

void PulseOutput::onContextReady(pa_context* context) {
    loopThread_ = gettid();
    // A new connection (first start, or the server came back): try the chosen sink
    // again, and hear about sinks that appear later.
    deviceMissing_ = false;
    pa_context_set_subscribe_callback(context, &PulseOutput::onSinkEvent, this);
    if (pa_operation* op =
            pa_context_subscribe(context, PA_SUBSCRIPTION_MASK_SINK, nullptr, nullptr))
        pa_operation_unref(op);
    // The stream's buffer depends on how the server plays: ask which it is first.
    if (pa_operation* op = pa_context_get_server_info(context, &PulseOutput::onServerInfo, this))
        pa_operation_unref(op);
    else
        createStream(context);
}

void PulseOutput::onServerInfo(pa_context* context, const pa_server_info* info, void* self) {
    auto* output = static_cast<PulseOutput*>(self);
    // The server went away before answering: the connection starts anew when it is back.
    if (pa_context_get_state(context) != PA_CONTEXT_READY)
        return;
    const std::string name = info && info->server_name ? info->server_name : "";
    output->playsInCycles_ = name.find("PipeWire") != std::string::npos;
    qCInfo(lcAudio, "sound server: %s", name.empty() ? "unknown" : name.c_str());
    output->createStream(context);
}

void PulseOutput::onSinkEvent(pa_context* context, pa_subscription_event_type_t type,
                              std::uint32_t index, void* self) {
    if ((type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) != PA_SUBSCRIPTION_EVENT_SINK ||
        (type & PA_SUBSCRIPTION_EVENT_TYPE_MASK) != PA_SUBSCRIPTION_EVENT_NEW)
        return;
    static_cast<PulseOutput*>(self)->seekChosenDevice(context, index);
}

void PulseOutput::seekChosenDevice(pa_context* context, std::optional<std::uint32_t> sinkIndex) {
    // Only while a chosen sink is wanted and the stream is elsewhere (or nowhere).
    if (!device_)
        return;
    if (stream_ && pa_stream_get_state(stream_) == PA_STREAM_READY) {
        const char* current = pa_stream_get_device_name(stream_);
        if (current && *device_ == current)
            return;
    }
    pa_operation* op = sinkIndex ? pa_context_get_sink_info_by_index(context, *sinkIndex,
                                                                     &PulseOutput::onSinkInfo, this)
                                 : pa_context_get_sink_info_by_name(context, device_->c_str(),
                                                                    &PulseOutput::onSinkInfo, this);
    if (op)
        pa_operation_unref(op);
}

void PulseOutput::onSinkInfo(pa_context* context, const pa_sink_info* info, int eol, void* self) {
    auto* output = static_cast<PulseOutput*>(self);
    if (eol != 0 || !info || !info->name || !output->device_ || *output->device_ != info->name)
        return;
    // The chosen sink is here: go to it without any user action.
    output->deviceMissing_ = false;
    if (!output->stream_) {
        output->createStream(context);
        return;
    }
    if (pa_stream_get_state(output->stream_) != PA_STREAM_READY)
        return; // the stream checks again once it is ready
    const char* current = pa_stream_get_device_name(output->stream_);
    if (current && *output->device_ == current)
        return;
    qCInfo(lcAudio, "output device %s appeared; moving to it", info->name);
    if (pa_operation* op = pa_context_move_sink_input_by_name(
            context, pa_stream_get_index(output->stream_), info->name, nullptr, nullptr))
        pa_operation_unref(op);
}

void PulseOutput::createStream(pa_context* context) {
    if (!mixer_ || stream_)
        return;
    const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, Mixer::kSampleRate, 2};
    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_MEDIA_ROLE, "event");
    stream_ = pa_stream_new_with_proplist(context, "Keyboard sounds", &format, nullptr, props);
    pa_proplist_free(props);
    if (!stream_) {
        qCWarning(lcAudio, "audio engine failed to start: %s",
                  pa_strerror(pa_context_errno(context)));
        return;
    }
    pa_stream_set_state_callback(stream_, &PulseOutput::onStreamState, this);
    pa_stream_set_write_callback(stream_, &PulseOutput::onWrite, this);
    pa_stream_set_moved_callback(stream_, &PulseOutput::onMoved, this);
    pa_stream_set_underflow_callback(stream_, &PulseOutput::onUnderflow, this);
    pa_stream_set_buffer_attr_callback(stream_, &PulseOutput::onBufferChanged, this);
    pa_stream_set_latency_update_callback(stream_, &PulseOutput::onTimingUpdate, this);
    bufferChangesPending_ = 0;
    loggedBuffer_ = 0;
    // The stream starts empty: the server may find it so before the first write lands.
    gapsExpectedUntil_ = pa_rtclock_now() + kExpectedGapUs;
    mirrorEnd_ = -1;
    cycleMarks_.fill({});
    unplaced_ = 0;
    pathDelayUs_ = 0;
    resentFrom_ = -1;
    positionAsked_ = false;

    const pa_buffer_attr attr = bufferAttributes();
    requestedBuffer_ =
        static_cast<double>(pa_bytes_to_usec(attr.tlength, &format)) / PA_USEC_PER_SEC;
    const auto flags = static_cast<pa_stream_flags_t>(
        PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_INTERPOLATE_TIMING);
    const char* device = device_ && !deviceMissing_ ? device_->c_str() : nullptr;
    if (pa_stream_connect_playback(stream_, device, &attr, flags, nullptr, nullptr) < 0) {
        qCWarning(lcAudio, "audio engine failed to start: %s",
                  pa_strerror(pa_context_errno(context)));
        dropStream();
    }
}

pa_buffer_attr PulseOutput::bufferAttributes() const {
    const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, Mixer::kSampleRate, 2};
    const auto bytes = [&](int ms) {
        return static_cast<std::uint32_t>(pa_usec_to_bytes(ms * PA_USEC_PER_MSEC, &format));
    };
    pa_buffer_attr attr{};
    attr.maxlength = static_cast<std::uint32_t>(-1);
    // No prebuffering: playback starts at once and an underrun never pauses the stream.
    attr.prebuf = 0;
    attr.fragsize = static_cast<std::uint32_t>(-1);
    if (playsInCycles_) {
        // PipeWire's layer makes the graph cycle (tlength - 2 minreq) / 2 and asks for data
        // whenever minreq is missing: a short cycle with refills of several cycles.
        attr.minreq = bytes(kCycleRefillMs);
        attr.tlength = 2 * attr.minreq + 2 * kCycleFrames * static_cast<std::uint32_t>(kFrameBytes);
        return attr;
    }
    // PulseAudio gives the sink (tlength - 2 minreq) / 2 of the latency asked for: with
    // refills of half the buffer that is nothing, so the sink stays at its minimum and a
    // re-sent sound is not held behind it.
    attr.tlength = bytes(kTargetLatencyMs);
    attr.minreq = bytes(kRefillMs);
    return attr;
}

pa_buffer_attr PulseOutput::idleBufferAttributes() const {
    const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, Mixer::kSampleRate, 2};
    pa_buffer_attr attr = bufferAttributes();
    attr.tlength =
        static_cast<std::uint32_t>(pa_usec_to_bytes(kIdleBufferMs * PA_USEC_PER_MSEC, &format));
    attr.minreq = attr.tlength / 2;
    return attr;
}

void PulseOutput::onMoved(pa_stream* stream, void* self) {
    // A move (the sink went away, or the user moved us) resets the buffer to the
    // server's large default: ask for the small one again and start over at the read
    // position on the new sink.
    static_cast<PulseOutput*>(self)->restartAtRead(stream);
    qCInfo(lcAudio, "now playing on %s", pa_stream_get_device_name(stream));
}

void PulseOutput::dropStream() {
    playing_ = false;
    // Whatever was queued or ringing for this stream would sound late on the next one;
    // and once nothing reads them, the player may free replaced samples at once.
    if (mixer_)
        mixer_->stopAll();
    if (retry_) {
        connection_.api()->time_free(retry_);
        retry_ = nullptr;
    }
    if (meter_) {
        connection_.api()->time_free(meter_);
        meter_ = nullptr;
    }
    if (!stream_)
        return;
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_write_callback(stream_, nullptr, nullptr);
    pa_stream_set_moved_callback(stream_, nullptr, nullptr);
    pa_stream_set_underflow_callback(stream_, nullptr, nullptr);
    pa_stream_set_buffer_attr_callback(stream_, nullptr, nullptr);
    pa_stream_set_latency_update_callback(stream_, nullptr, nullptr);
    if (pa_stream_get_state(stream_) == PA_STREAM_READY ||
        pa_stream_get_state(stream_) == PA_STREAM_CREATING)
        pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
    stream_ = nullptr;
}

void PulseOutput::onStreamState(pa_stream* stream, void* self) {
    auto* output = static_cast<PulseOutput*>(self);
    switch (pa_stream_get_state(stream)) {
    case PA_STREAM_READY: {
        output->lastRequestAt_ = pa_rtclock_now();
        output->playing_ = true;
        output->idle_ = false;
        output->quietFrames_ = 0;
        output->streamFailureLogged_ = false;
        output->noteGrantedBuffer(stream);
        qCInfo(lcAudio, "playing on %s (buffer %.1f ms)", pa_stream_get_device_name(stream),
               output->buffer_.load() * 1000);
        output->scheduleMeter();
        // On the default while the chosen sink is away: it may have appeared meanwhile.
        output->seekChosenDevice(pa_stream_get_context(stream), std::nullopt);
        output->connection_.signal();
        break;
    }
    case PA_STREAM_FAILED: {
        pa_context* context = pa_stream_get_context(stream);
        output->dropStream();
        if (pa_context_get_state(context) != PA_CONTEXT_READY)
            break; // the server went away: the connection reconnects and starts anew
        if (output->device_ && !output->deviceMissing_) {
            // The chosen sink is not there (unplugged, or not back after a restart):
            // play on the default at once, and move back when the sink appears.
            qCInfo(lcAudio, "output device %s is not present (%s); using the default output",
                   output->device_->c_str(), pa_strerror(pa_context_errno(context)));
            output->deviceMissing_ = true;
            output->createStream(context);
        } else {
            // No sink at all will take the stream: retry on a timer, not in a loop.
            if (!output->streamFailureLogged_)
                qCWarning(lcAudio, "output stream failed (%s); retrying",
                          pa_strerror(pa_context_errno(context)));
            output->streamFailureLogged_ = true;
            output->scheduleStreamRetry();
        }
        output->connection_.signal();
        break;
    }
    default:
        break;
    }
}

void PulseOutput::onWrite(pa_stream* stream, std::size_t bytes, void* self) {
    auto* output = static_cast<PulseOutput*>(self);
    output->lastRequestAt_ = pa_rtclock_now();
    if (output->playsInCycles_ && !output->idle_.load())
        output->markCycle(stream, bytes);
    // Everything the server asks for, always: what is left unwritten it still counts as
    // on its way, so the real buffer would run short of what it believes and dry up.
    // A deep buffer costs no latency, since new sounds are re-sent from the read side.
    while (bytes >= kFrameBytes) {
        const std::size_t frames = output->writeRendered(stream, bytes);
        if (frames == 0)
            return;
        bytes -= frames * kFrameBytes;

        output->quietFrames_ = output->mixer_->isQuiet() ? output->quietFrames_ + frames : 0;
        if (!output->idle_.load() && output->quietFrames_ >= output->idleAfterFrames_)
            output->setIdle(stream, true);
    }
}

std::size_t PulseOutput::writeRendered(pa_stream* stream, std::size_t bytes) {
    void* data = nullptr;
    std::size_t size = bytes;
    if (pa_stream_begin_write(stream, &data, &size) < 0 || !data || size < kFrameBytes)
        return 0;
    const std::size_t frames = size / kFrameBytes;
    // Where this lands in the stream; the library keeps the count as we write.
    const pa_timing_info* timing = pa_stream_get_timing_info(stream);
    const std::int64_t at = timing && !timing->write_index_corrupt
                                ? timing->write_index / static_cast<std::int64_t>(kFrameBytes)
                                : -1;
    // A sound asked for just before the server's request still has its wake-up to come,
    // which starts it at the read position. Rendered here it would start where this write
    // lands, a buffer later (measured: about one key in a hundred came 30 ms late; idle, the
    // wake-up's restart then cut its start off), so it is left to the wake-up.
    mixer_->render(static_cast<float*>(data), frames,
                   wakePending_.load() ? Mixer::NewSounds::hold : Mixer::NewSounds::start);
    remember(at, static_cast<const float*>(data), frames);
    pa_stream_write(stream, data, frames * kFrameBytes, nullptr, 0, PA_SEEK_RELATIVE);
    return frames;
}

void PulseOutput::markCycle(pa_stream* stream, std::size_t bytes) noexcept {
    // Render callback: reads the clock (vDSO) and the library's counters only.
    // PipeWire's layer asks for data right after a cycle took its share, for as much as
    // fills the buffer again: the read position then is the write position plus what
    // it asks for, less the buffer (measured: a write there plays whole, one 32 frames
    // before it loses those 32).
    const pa_timing_info* timing = pa_stream_get_timing_info(stream);
    const pa_buffer_attr* attr = pa_stream_get_buffer_attr(stream);
    if (!timing || timing->write_index_corrupt || !attr)
        return;
    const std::int64_t read =
        (timing->write_index + static_cast<std::int64_t>(bytes) - attr->tlength) /
        static_cast<std::int64_t>(kFrameBytes);
    cycleMarks_[nextCycleMark_] = {pa_rtclock_now(), read};
    nextCycleMark_ = (nextCycleMark_ + 1) % kCycleMarks;
}

std::int64_t PulseOutput::cycleReadPosition(const pa_timing_info& timing) const {
    // pipewire-pulse (0.3.65) reports its cycle, the quantum, as the sink's configured
    // latency (5333 us for 256 frames at 48 kHz).
    const auto cycleFrames = static_cast<std::int64_t>(
        (timing.configured_sink_usec * Mixer::kSampleRate + PA_USEC_PER_SEC / 2) / PA_USEC_PER_SEC);
    if (cycleFrames <= 0)
        return -1;
    const double cycleUs = static_cast<double>(cycleFrames) * 1e6 / Mixer::kSampleRate;
    // A request that reached us late makes its cycle look later than it was, so each
    // request counts the cycles since itself and the furthest count wins. Near a cycle's
    // end the next one is counted too: the server may take it before the write lands.
    const pa_usec_t now = pa_rtclock_now();
    const double guardUs = kCycleGuardUs + pathDelayUs_;
    std::int64_t read = -1;
    for (const CycleMark& mark : cycleMarks_) {
        if (mark.read < 0 || mark.at > now || now - mark.at > kCycleMarkLifeUs)
            continue;
        const auto cycles =
            static_cast<std::int64_t>((static_cast<double>(now - mark.at) + guardUs) / cycleUs);
        read = std::max(read, mark.read + cycles * cycleFrames);
    }
    return read;
}

void PulseOutput::onUnderflow(pa_stream*, void* self) {
    // The server found the stream empty: an audible gap. Right after connecting or a
    // restart at the read position that may happen by design (in silence): not counted.
    auto* output = static_cast<PulseOutput*>(self);
    if (pa_rtclock_now() < output->gapsExpectedUntil_) {
        qCDebug(lcAudio, "output underrun while starting (expected)");
        return;
    }
    const std::uint64_t count = output->underruns_.fetch_add(1, std::memory_order_relaxed) + 1;
    qCDebug(lcAudio, "output underrun (%llu since start)", static_cast<unsigned long long>(count));
}

void PulseOutput::onBufferChanged(pa_stream* stream, void* self) {
    // The server changed the buffer by itself (a sink's latency changed).
    auto* output = static_cast<PulseOutput*>(self);
    if (!output->idle_.load() && output->bufferChangesPending_ == 0)
        output->noteGrantedBuffer(stream);
}

void PulseOutput::onTimingUpdate(pa_stream* stream, void* self) {
    // The first report after a write at the read position says where what was written
    // since then lies; the first report at all brings the sink's configured latency.
    auto* output = static_cast<PulseOutput*>(self);
    const pa_timing_info* timing = pa_stream_get_timing_info(stream);
    if (timing)
        output->notePathDelay(static_cast<double>(timing->transport_usec));
    if (timing && !timing->write_index_corrupt && output->mirrorEnd_ < 0)
        output->anchorMirror(timing->write_index / static_cast<std::int64_t>(kFrameBytes));
    onBufferChanged(stream, self);
}

void PulseOutput::onPositionKnown(pa_stream* stream, int success, void* self) {
    // The answer to a sound that came before the write position was known: the timing
    // update before this has placed the mirror, so the sound goes out now (or, failing
    // that, with the next refill; never another question for the same sound).
    auto* output = static_cast<PulseOutput*>(self);
    output->positionAsked_ = false;
    if (success && stream == output->stream_ && pa_stream_get_state(stream) == PA_STREAM_READY &&
        !output->idle_.load())
        output->resendWithNewSounds(false);
}

void PulseOutput::onResendTimed(pa_stream* stream, int success, void* self) {
    // The answer to the report asked for right after a re-send. Reports are answered in
    // order after the writes before them: a read position already past where the re-send
    // started means the server took it in too late, and the start of its new sound was
    // lost. A busier machine than the margin was made for: widen it by what was missed.
    auto* output = static_cast<PulseOutput*>(self);
    const std::int64_t from = std::exchange(output->resentFrom_, -1);
    const pa_timing_info* timing = pa_stream_get_timing_info(stream);
    if (!success || !timing || timing->read_index_corrupt || from < 0)
        return;
    const std::int64_t missed = timing->read_index / static_cast<std::int64_t>(kFrameBytes) - from;
    if (missed > 0) {
        output->lateResends_.fetch_add(1, std::memory_order_relaxed);
        output->pathDelayUs_ += static_cast<double>(missed) * 1e6 / Mixer::kSampleRate;
    }
}

void PulseOutput::notePathDelay(double transportUs) {
    // The transport time of a timing request counts from when it was made: it holds this
    // loop's own delay in sending as well as the server's in answering, which is what a
    // re-sent sound also waits through. A busy machine stretches both by milliseconds
    // (measured: with a parallel build, re-sent sounds on both servers lost their first
    // milliseconds with a fixed 1 ms margin), so the margin follows the recent worst,
    // easing off by a tenth each report.
    pathDelayUs_ = std::max(transportUs, pathDelayUs_ * (1.0 - kPathDelayEasing));
}

void PulseOutput::onBufferSet(pa_stream* stream, int success, void* self) {
    // Only the answer to the last change asked for says what the stream has now.
    auto* output = static_cast<PulseOutput*>(self);
    --output->bufferChangesPending_;
    if (success && !output->idle_.load() && output->bufferChangesPending_ == 0)
        output->noteGrantedBuffer(stream);
}

void PulseOutput::noteGrantedBuffer(pa_stream* stream) {
    // Loop thread, outside the render callback. A server may refuse a small buffer
    // (a sink of fixed latency on PulseAudio: that latency plus two minreqs; pipewire-pulse
    // with a larger pulse.min.req: three of them) and grants a larger one: the stream
    // plays with what it gets. Its refills then come less often, and new sounds are still
    // re-sent past the sink's configured latency rather than queued behind the buffer.
    const pa_buffer_attr* attr = pa_stream_get_buffer_attr(stream);
    const pa_sample_spec* format = pa_stream_get_sample_spec(stream);
    if (!attr || !format)
        return;
    // Until the server's first timing report the sink's part is not known.
    pa_usec_t sinkLatency = 0;
    if (const pa_timing_info* timing = pa_stream_get_timing_info(stream))
        sinkLatency = timing->configured_sink_usec;
    const double bufferMs = static_cast<double>(pa_bytes_to_usec(attr->tlength, format)) / 1000;
    buffer_ = bufferMs / 1000;
    const double aheadMs = (playsInCycles_ ? kCycleGuardUs : kResendMarginUs) / 1000.0;
    latency_ = (aheadMs + static_cast<double>(sinkLatency) / 1000) / 1000;
    const double askedMs = requestedBuffer_.load() * 1000;
    if (bufferMs > askedMs + kRoundingMs && attr->tlength != loggedBuffer_) {
        loggedBuffer_ = attr->tlength;
        qCInfo(lcAudio,
               "the server gave the stream a %.1f ms buffer instead of the %.0f ms asked "
               "for; playing with that",
               bufferMs, askedMs);
    }
}

void PulseOutput::setIdle(pa_stream* stream, bool idle) {
    // Idle: a large buffer refilled a few times a second instead of every 30 ms; the
    // stream stays connected and running, so the sink never suspends.
    const pa_buffer_attr attr = idle ? idleBufferAttributes() : bufferAttributes();
    if (idle && playsInCycles_) {
        // PipeWire lengthens its cycle with the buffer, and a cycle longer than what is
        // queued runs dry before the refill for the larger buffer arrives (measured: an
        // underrun at each switch). Queue half the larger buffer (silence) first.
        std::size_t bytes = attr.minreq;
        while (bytes >= kFrameBytes) {
            const std::size_t frames = writeRendered(stream, bytes);
            if (frames == 0)
                break;
            bytes -= frames * kFrameBytes;
        }
    }
    if (pa_operation* op =
            pa_stream_set_buffer_attr(stream, &attr, &PulseOutput::onBufferSet, this)) {
        ++bufferChangesPending_;
        pa_operation_unref(op);
    }
    idle_ = idle;
    quietFrames_ = 0;
    // The cycle follows the buffer: what was counted before says nothing now.
    cycleMarks_.fill({});
    if (!idle)
        scheduleMeter();
    qCDebug(lcAudio, "output %s", idle ? "idle: large buffer" : "awake: small buffer");
}

void PulseOutput::wake() {
    // A system call, not a lock: the loop thread does the rest at its own priority.
    if (wakeFd_ >= 0) {
        wakePending_ = true;
        eventfd_write(wakeFd_, 1);
    }
}

void PulseOutput::onWakeEvent(pa_mainloop_api*, pa_io_event*, int fd, pa_io_event_flags_t,
                              void* self) {
    // Loop thread: one pass starts every sound queued since the last.
    auto* output = static_cast<PulseOutput*>(self);
    output->wakePending_ = false;
    eventfd_t count = 0;
    eventfd_read(fd, &count);
    pa_stream* stream = output->stream_;
    if (!stream || pa_stream_get_state(stream) != PA_STREAM_READY)
        return;
    if (pa_rtclock_now() - output->lastRequestAt_ > kStalledAfterMs * PA_USEC_PER_MSEC)
        return; // stalled: the sound waits for the stream to resume
    if (!output->idle_.load()) {
        // Re-send the unplayed buffer with the new sound in it. When the sound already
        // went out with a regular write, or the mirror is not in step, nothing happens
        // and it plays at the end of the buffer.
        output->resendWithNewSounds();
        return;
    }
    // Put the new sound at the read position, over the queued silence, so it starts
    // as soon as after any other key.
    output->restartAtRead(stream);
}

void PulseOutput::restartAtRead(pa_stream* stream) {
    idle_ = false;
    // A write placed at the read position, not a flush: the server then asks at once
    // for what it dropped (a flush leaves it waiting for data it believes is on its
    // way), and only then is the buffer made small, so the stream never runs dry. What
    // lies beyond the new write position is silence or old sound that the next writes
    // replace. The write is the small buffer asked for even where the server granted a
    // larger one: with a 128 ms buffer refilled 42.7 ms at a time (pipewire-pulse) and a
    // 50 ms one on a 40 ms fixed-latency sink (PulseAudio) the first sound after a silence
    // still plays whole, sample for sample (the refusing-server test).
    // PipeWire's layer asks at once for the whole idle buffer after such a write (375 ms,
    // more than the mirror holds), so there the buffer is made small first: the write
    // then fills it, and the server asks only for what each cycle takes.
    if (playsInCycles_)
        setIdle(stream, false);
    void* data = nullptr;
    std::size_t size = bufferAttributes().tlength;
    mirrorEnd_ = -1;
    unplaced_ = 0;
    if (pa_stream_begin_write(stream, &data, &size) >= 0 && data) {
        const std::size_t frames = size / kFrameBytes;
        mixer_->render(static_cast<float*>(data), frames);
        remember(-1, static_cast<const float*>(data), frames);
        // pipewire-pulse places this at the read index of its main thread, which trails
        // the cycles its data thread has taken: on a busy machine the first millisecond of
        // the sound was lost there (2 runs in 25 of the re-send test beside a fuzzer). So
        // there it goes a little past, over the idle silence.
        const std::int64_t offset = playsInCycles_
                                        ? static_cast<std::int64_t>((kWakeMarginUs + pathDelayUs_) *
                                                                    Mixer::kSampleRate / 1e6) *
                                              static_cast<std::int64_t>(kFrameBytes)
                                        : 0;
        pa_stream_write(stream, data, frames * kFrameBytes, nullptr, offset,
                        PA_SEEK_RELATIVE_ON_READ);
    }
    gapsExpectedUntil_ = pa_rtclock_now() + kExpectedGapUs;
    if (!playsInCycles_)
        setIdle(stream, false);
    forgetWritten();
}

void PulseOutput::forgetWritten() {
    // After a write placed at the read position the write position is known again only
    // from the server's next timing report: ask for it now, not at the next automatic
    // update (up to 1.5 s away).
    mirrorEnd_ = -1;
    if (stream_)
        if (pa_operation* op = pa_stream_update_timing_info(stream_, nullptr, nullptr))
            pa_operation_unref(op);
}

void PulseOutput::remember(std::int64_t frame, const float* data, std::size_t frames) noexcept {
    // Render callback: copies only.
    if (frame < 0) {
        // Where this lands is known only once the server reports the write position: keep
        // it in order, from slot 0 on, to be placed then.
        if (mirrorEnd_ >= 0)
            unplaced_ = 0;
        mirrorEnd_ = -1;
        copyIntoMirror(unplaced_, data, frames);
        unplaced_ += static_cast<std::int64_t>(frames);
        return;
    }
    if (mirrorEnd_ < 0)
        anchorMirror(frame);
    if (frame != mirrorEnd_)
        mirrorStart_ = frame;
    copyIntoMirror(frame, data, frames);
    mirrorEnd_ = frame + static_cast<std::int64_t>(frames);
    mirrorStart_ = std::max(mirrorStart_, mirrorEnd_ - static_cast<std::int64_t>(kMirrorFrames));
}

void PulseOutput::copyIntoMirror(std::int64_t frame, const float* data,
                                 std::size_t frames) noexcept {
    // Render callback. Of a write longer than the ring only its end is kept.
    if (frames > kMirrorFrames) {
        const std::size_t skipped = frames - kMirrorFrames;
        data += 2 * skipped;
        frame += static_cast<std::int64_t>(skipped);
        frames = kMirrorFrames;
    }
    const auto slot = static_cast<std::size_t>(frame % static_cast<std::int64_t>(kMirrorFrames));
    const std::size_t first = std::min(frames, kMirrorFrames - slot);
    std::copy_n(data, 2 * first, mirror_.data() + 2 * slot);
    std::copy_n(data + 2 * first, 2 * (frames - first), mirror_.data());
}

void PulseOutput::copyFromMirror(std::int64_t frame, float* out,
                                 std::size_t frames) const noexcept {
    // Loop thread. The ring holds `frames` (at most its size) from `frame` on in at most two
    // runs: to its end, then from its start.
    const auto slot = static_cast<std::size_t>(frame % static_cast<std::int64_t>(kMirrorFrames));
    const std::size_t first = std::min(frames, kMirrorFrames - slot);
    std::copy_n(mirror_.data() + 2 * slot, 2 * first, out);
    std::copy_n(mirror_.data(), 2 * (frames - first), out + 2 * first);
}

void PulseOutput::anchorMirror(std::int64_t writeEnd) noexcept {
    // What was written since the write position was lost ends at `writeEnd`, all of it
    // written in sequence: turn the ring so each frame sits at its place in the stream.
    // Without this, pipewire-pulse (0.3.65) left every sound for a third of a second after
    // a wake-up queued behind the idle buffer it asked to have filled right after the wake,
    // all of them starting together at its end.
    if (unplaced_ <= 0 || writeEnd < unplaced_) {
        unplaced_ = 0;
        return;
    }
    const std::int64_t first = writeEnd - unplaced_;
    const auto turn = static_cast<std::size_t>(first % static_cast<std::int64_t>(kMirrorFrames));
    if (turn != 0)
        std::rotate(mirror_.begin(), mirror_.begin() + 2 * (kMirrorFrames - turn), mirror_.end());
    mirrorStart_ = std::max(first, writeEnd - static_cast<std::int64_t>(kMirrorFrames));
    mirrorEnd_ = writeEnd;
    unplaced_ = 0;
}

bool PulseOutput::resendWithNewSounds(bool mayAsk) {
    const pa_timing_info* timing = pa_stream_get_timing_info(stream_);
    if (!timing || timing->write_index_corrupt || timing->read_index_corrupt || !timing->playing ||
        mirrorEnd_ < 0 ||
        timing->write_index / static_cast<std::int64_t>(kFrameBytes) != mirrorEnd_) {
        // Where the server reads is not known yet (a stream just made or just woken, before
        // its first timing report): ask, and re-send on the answer, a round trip later,
        // rather than leave the sound to the next refill, which may come past its deadline.
        if (mayAsk && !positionAsked_) {
            if (pa_operation* op =
                    pa_stream_update_timing_info(stream_, &PulseOutput::onPositionKnown, this)) {
                positionAsked_ = true;
                pa_operation_unref(op);
            }
        }
        return false;
    }
    // Where the server reads now. On PipeWire: counted in cycles from its requests. Its
    // reported read index is no guide there: it moves a whole cycle at a time and lags
    // the cycles actually taken (measured: writing at the reported index extrapolated by
    // its age lost up to 260 frames in 43 of 80 writes; counting cycles from the
    // requests, 0 of 300 with the guard, 1 of 300 with a third of it).
    // On PulseAudio: its last report moved on by the time since. The sink takes data up
    // to its configured latency ahead of that, so start past it (measured on a null
    // sink: writing within it costs occasional underruns).
    std::int64_t readNow = playsInCycles_ ? cycleReadPosition(*timing) : -1;
    if (readNow < 0) {
        const auto age = static_cast<std::int64_t>(pa_timeval_age(&timing->timestamp));
        const auto margin =
            static_cast<std::int64_t>(kResendMarginUs + timing->configured_sink_usec) +
            static_cast<std::int64_t>(pathDelayUs_);
        readNow = timing->read_index / static_cast<std::int64_t>(kFrameBytes) +
                  (age + margin) * Mixer::kSampleRate / 1000000;
    }
    const std::int64_t from = std::max(readNow, mirrorStart_);
    if (from >= mirrorEnd_)
        return false; // the buffer is all but played: a regular write is as soon
    const auto frames = static_cast<std::size_t>(mirrorEnd_ - from);
    copyFromMirror(from, resend_.data(), frames);
    if (!mixer_->mixNewSoundsInto(resend_.data(), frames))
        return false;
    remember(from, resend_.data(), frames);
    // Written at its place, ending where the write position is: sounds already there
    // continue sample for sample. On PulseAudio by a seek back from the write position:
    // unlike an absolute seek, that leaves the server's count of what it asked for as it
    // was, so it does not answer each re-send with a request for as much again (a wake-up
    // of this thread). pipewire-pulse takes absolute seeks in time (measured on 0.3.65:
    // the refusing-server test found two of three relative re-sends late, none absolute).
    const std::int64_t offset = playsInCycles_ ? from : from - mirrorEnd_;
    pa_stream_write(stream_, resend_.data(), frames * kFrameBytes, nullptr,
                    offset * static_cast<std::int64_t>(kFrameBytes),
                    playsInCycles_ ? PA_SEEK_ABSOLUTE : PA_SEEK_RELATIVE);
    resends_.fetch_add(1, std::memory_order_relaxed);
    // Where the server reads, now and then: it keeps the extrapolated read position fresh
    // and says whether this re-send came in time. Not after every one: each answer is a
    // wake-up of this thread of its own.
    const pa_usec_t now = pa_rtclock_now();
    if (resentFrom_ < 0 && now - timingAskedAt_ >= kTimingRefreshMs * PA_USEC_PER_MSEC) {
        if (pa_operation* op =
                pa_stream_update_timing_info(stream_, &PulseOutput::onResendTimed, this)) {
            resentFrom_ = from;
            timingAskedAt_ = now;
            pa_operation_unref(op);
        }
    }
    return true;
}

void PulseOutput::scheduleStreamRetry() {
    if (retry_)
        return;
    timeval when{};
    pa_timeval_add(pa_gettimeofday(&when), PulseConnection::kRetryMs * PA_USEC_PER_MSEC);
    retry_ = connection_.api()->time_new(
        connection_.api(), &when,
        [](pa_mainloop_api* api, pa_time_event* event, const timeval*, void* self) {
            auto* output = static_cast<PulseOutput*>(self);
            api->time_free(event);
            output->retry_ = nullptr;
            if (pa_context* context = output->connection_.readyContext())
                output->createStream(context);
        },
        this);
}

void PulseOutput::scheduleMeter() {
    // The meter only feeds a debug line: without it, no wake-ups of its own.
    if (meter_ || !lcAudio().isDebugEnabled())
        return;
    timeval when{};
    pa_timeval_add(pa_gettimeofday(&when), kMeterIntervalMs * PA_USEC_PER_MSEC);
    meter_ = connection_.api()->time_new(connection_.api(), &when, &PulseOutput::onMeter, this);
}

void PulseOutput::onMeter(pa_mainloop_api* api, pa_time_event* event, const timeval*, void* self) {
    // Runs on the loop thread outside the render callback, so it may log.
    auto* output = static_cast<PulseOutput*>(self);
    api->time_free(event);
    output->meter_ = nullptr;
    const float peak = output->mixer_->takePeak();
    if (peak > 0.01f)
        qCDebug(lcAudio, "output peak %f", static_cast<double>(peak));
    // Nothing to meter while idle; waking starts the meter again.
    if (!output->idle_.load())
        output->scheduleMeter();
}

} // namespace tappix
