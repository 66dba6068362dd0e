#include "platform/pulse/pulse_microphone.h"

#include "core/log.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tappix {

namespace {

struct SourceFacts {
    bool done = false;
    bool found = false;
    bool monitor = false;
    std::string name;
    std::string description;
};

} // namespace

PulseMicrophone::PulseMicrophone()
    : connection_("Tappix recorder", "tappix-record",
                  {nullptr, [this] { fail("the sound server went away while recording"); }}) {}

PulseMicrophone::~PulseMicrophone() {
    if (stream_)
        stop();
    connection_.stop();
}

std::string PulseMicrophone::failure() const {
    std::lock_guard lock(failureMutex_);
    return failure_;
}

void PulseMicrophone::fail(const std::string& why) {
    {
        std::lock_guard lock(failureMutex_);
        if (failure_.empty())
            failure_ = why;
    }
    qCWarning(lcAudio, "recording stopped: %s", why.c_str());
    connection_.signal();
}

bool PulseMicrophone::start(std::string& error) {
    if (!connection_.start()) {
        error = "cannot start the sound client";
        return false;
    }
    connection_.lock();
    const auto refuse = [&](std::string why) {
        dropStream();
        connection_.unlock();
        error = std::move(why);
        return false;
    };
    pa_context* context = connection_.waitReady(kStartWaitMs);
    if (!context)
        return refuse("there is no sound server to record from (is PulseAudio or PipeWire "
                      "running?)");

    // The default source, unless it is only an output's monitor.
    struct Server {
        PulseMicrophone* self;
        bool done = false;
        std::string defaultSource;
    } server{this, false, {}};
    pa_operation* op = pa_context_get_server_info(
        context,
        [](pa_context*, const pa_server_info* info, void* data) {
            auto* s = static_cast<Server*>(data);
            if (info && info->default_source_name)
                s->defaultSource = info->default_source_name;
            s->done = true;
            s->self->connection_.signal();
        },
        &server);
    if (op) {
        connection_.waitFor([&] { return server.done; }, kStartWaitMs);
        pa_operation_unref(op);
    }
    struct Source {
        PulseMicrophone* self;
        SourceFacts facts;
    } source{this, {}};
    if (!server.defaultSource.empty()) {
        op = pa_context_get_source_info_by_name(
            context, server.defaultSource.c_str(),
            [](pa_context*, const pa_source_info* info, int eol, void* data) {
                auto* s = static_cast<Source*>(data);
                if (info && !eol) {
                    s->facts.found = true;
                    s->facts.monitor = info->monitor_of_sink != PA_INVALID_INDEX;
                    s->facts.name = info->name ? info->name : "";
                    s->facts.description = info->description ? info->description : s->facts.name;
                }
                if (eol) {
                    s->facts.done = true;
                    s->self->connection_.signal();
                }
            },
            &source);
        if (op) {
            connection_.waitFor([&] { return source.facts.done; }, kStartWaitMs);
            pa_operation_unref(op);
        }
    }
    if (!source.facts.found)
        return refuse("there is no microphone: the sound server has no input device (plug one "
                      "in, or choose one in the system's sound settings)");
    if (source.facts.monitor)
        return refuse("there is no microphone: the default input, \"" + source.facts.description +
                      "\", only repeats what an output plays; choose a microphone in the "
                      "system's sound settings");
    name_ = source.facts.description;

    {
        std::lock_guard lock(failureMutex_);
        failure_.clear();
    }
    samples_.clear();
    samples_.reserve(static_cast<std::size_t>(kSampleRate) * 120);
    starts_.clear();
    const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, kSampleRate, 1};
    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_MEDIA_ROLE, "production");
    stream_ =
        pa_stream_new_with_proplist(context, "Recording your keyboard", &format, nullptr, props);
    pa_proplist_free(props);
    if (!stream_)
        return refuse(std::string("cannot record: ") + pa_strerror(pa_context_errno(context)));
    pa_stream_set_state_callback(stream_, &PulseMicrophone::onStreamState, this);
    pa_stream_set_read_callback(stream_, &PulseMicrophone::onRead, this);
    pa_buffer_attr attr{};
    attr.maxlength = static_cast<std::uint32_t>(-1);
    attr.fragsize =
        static_cast<std::uint32_t>(pa_usec_to_bytes(kFragmentMs * PA_USEC_PER_MSEC, &format));
    // Never moved to another source: a microphone that vanishes ends the take.
    const auto flags =
        static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE |
                                       PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_DONT_MOVE);
    if (pa_stream_connect_record(stream_, source.facts.name.c_str(), &attr, flags) < 0)
        return refuse(std::string("cannot record from \"") + name_ +
                      "\": " + pa_strerror(pa_context_errno(context)));
    connection_.waitFor(
        [&] {
            const pa_stream_state_t state = pa_stream_get_state(stream_);
            return state == PA_STREAM_READY || state == PA_STREAM_FAILED ||
                   state == PA_STREAM_TERMINATED;
        },
        kStartWaitMs);
    if (pa_stream_get_state(stream_) != PA_STREAM_READY)
        return refuse(std::string("cannot record from \"") + name_ +
                      "\": " + pa_strerror(pa_context_errno(context)));
    connection_.unlock();
    qCInfo(lcAudio, "recording from %s", source.facts.name.c_str());
    return true;
}

void PulseMicrophone::onStreamState(pa_stream* stream, void* self) {
    auto* microphone = static_cast<PulseMicrophone*>(self);
    const pa_stream_state_t state = pa_stream_get_state(stream);
    if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED)
        microphone->fail("the microphone \"" + microphone->name_ + "\" went away while recording");
    microphone->connection_.signal();
}

void PulseMicrophone::onRead(pa_stream* stream, std::size_t, void* self) {
    auto* microphone = static_cast<PulseMicrophone*>(self);
    const void* data = nullptr;
    std::size_t bytes = 0;
    while (pa_stream_readable_size(stream) > 0) {
        if (pa_stream_peek(stream, &data, &bytes) < 0 || bytes == 0)
            return;
        // When this fragment's first sample was captured: now, less what still lay
        // between the source and us.
        pa_usec_t latency = 0;
        int negative = 0;
        const std::size_t before = microphone->samples_.size();
        if (pa_stream_get_latency(stream, &latency, &negative) == 0) {
            const double captured =
                static_cast<double>(pa_rtclock_now()) / PA_USEC_PER_SEC -
                (negative ? -1.0 : 1.0) * static_cast<double>(latency) / PA_USEC_PER_SEC;
            microphone->starts_.push_back(captured - static_cast<double>(before) / kSampleRate);
        }
        const std::size_t frames = bytes / sizeof(float);
        if (before + frames <= static_cast<std::size_t>(kSampleRate) * kMaxSeconds) {
            if (data) {
                const auto* in = static_cast<const float*>(data);
                microphone->samples_.insert(microphone->samples_.end(), in, in + frames);
                float peak = 0;
                for (std::size_t i = 0; i < frames; ++i)
                    peak = std::max(peak, std::fabs(in[i]));
                float seen = microphone->peak_.load();
                while (peak > seen && !microphone->peak_.compare_exchange_weak(seen, peak)) {
                }
            } else {
                microphone->samples_.resize(before + frames, 0.0f); // a hole: silence
            }
        }
        pa_stream_drop(stream);
    }
}

void PulseMicrophone::dropStream() {
    if (!stream_)
        return;
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_read_callback(stream_, nullptr, nullptr);
    pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
    stream_ = nullptr;
}

Microphone::Recording PulseMicrophone::collect() const {
    Recording recording;
    recording.samples = samples_;
    std::vector<double> starts = starts_;
    if (!starts.empty()) {
        const auto middle = starts.begin() + static_cast<std::ptrdiff_t>(starts.size() / 2);
        std::nth_element(starts.begin(), middle, starts.end());
        recording.startSeconds = *middle;
    }
    recording.error = failure();
    return recording;
}

Microphone::Recording PulseMicrophone::snapshot() {
    connection_.lock();
    Recording recording = collect();
    connection_.unlock();
    return recording;
}

std::vector<float> PulseMicrophone::tail(std::size_t count) {
    connection_.lock();
    const std::size_t from = samples_.size() - std::min(count, samples_.size());
    std::vector<float> last(samples_.begin() + static_cast<std::ptrdiff_t>(from), samples_.end());
    connection_.unlock();
    return last;
}

Microphone::Recording PulseMicrophone::stop() {
    connection_.lock();
    dropStream();
    Recording recording = collect();
    samples_.clear();
    starts_.clear();
    connection_.unlock();
    connection_.stop();
    return recording;
}

} // namespace tappix
