#include "platform/sndfile/sndfile_decoder.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <sndfile.h>
#include <soxr.h>
#include <type_traits>

namespace tappix {
namespace {

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

// The MPEG decoder starts with about 25 ms of silence (decoder delay plus padding).
constexpr double kMp3LeadSeconds = 0.025;
/// Frames read at a time when streaming.
constexpr sf_count_t kBlockFrames = 16384;

struct ResamplerDeleter {
    void operator()(soxr_t resampler) const { soxr_delete(resampler); }
};
using Resampler = std::unique_ptr<std::remove_pointer_t<soxr_t>, ResamplerDeleter>;

/// Opens `path` for reading audio Tappix can use; null with a reason otherwise.
SndfileHandle openAudio(const QString& path, SF_INFO& info, std::string& error) {
    SndfileHandle file(sf_open(path.toLocal8Bit().constData(), SFM_READ, &info));
    if (!file) {
        error = sf_strerror(nullptr);
        return nullptr;
    }
    if (info.channels < 1 || info.samplerate < 1000 || info.samplerate > 768000) {
        error = "unsupported channel count or sample rate";
        return nullptr;
    }
    if (info.frames <= 0) {
        error = "the file holds no audio";
        return nullptr;
    }
    return file;
}

bool isMp3(const SF_INFO& info) {
    return (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
}

/// Averages interleaved frames to mono.
void downmix(const std::vector<float>& interleaved, sf_count_t frames, int channels,
             std::vector<float>& mono) {
    mono.resize(static_cast<std::size_t>(frames));
    for (sf_count_t frame = 0; frame < frames; ++frame) {
        float sum = 0.0f;
        for (int channel = 0; channel < channels; ++channel)
            sum += interleaved[static_cast<std::size_t>(frame * channels + channel)];
        mono[static_cast<std::size_t>(frame)] = sum / static_cast<float>(channels);
    }
}

soxr_quality_spec_t resamplingQuality() {
    return soxr_quality_spec(SOXR_VHQ, 0);
}

} // namespace

std::optional<SampleBuffer> SndfileDecoder::decode(const QString& path, std::string& error) {
    SF_INFO info{};
    SndfileHandle file = openAudio(path, info, error);
    if (!file)
        return std::nullopt;
    if (static_cast<double>(info.frames) / info.samplerate > kMaxSeconds) {
        error = "longer than " + std::to_string(static_cast<int>(kMaxSeconds)) + " s";
        return std::nullopt;
    }

    std::vector<float> interleaved(static_cast<std::size_t>(info.frames) * info.channels);
    const sf_count_t read = sf_readf_float(file.get(), interleaved.data(), info.frames);
    if (read <= 0) {
        error = sf_strerror(file.get());
        return std::nullopt;
    }
    std::vector<float> mono;
    downmix(interleaved, read, info.channels, mono);
    if (isMp3(info)) {
        const auto lead =
            std::min(mono.size(), static_cast<std::size_t>(kMp3LeadSeconds * info.samplerate));
        mono.erase(mono.begin(), mono.begin() + static_cast<std::ptrdiff_t>(lead));
    }

    SampleBuffer buffer;
    if (info.samplerate == SampleBuffer::kSampleRate) {
        buffer.samples = std::move(mono);
        return buffer;
    }
    const double ratio = static_cast<double>(SampleBuffer::kSampleRate) / info.samplerate;
    buffer.samples.resize(static_cast<std::size_t>(std::ceil(mono.size() * ratio)) + 16);
    std::size_t produced = 0;
    const soxr_quality_spec_t quality = resamplingQuality();
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    if (soxr_error_t failure = soxr_oneshot(
            info.samplerate, SampleBuffer::kSampleRate, 1, mono.data(), mono.size(), nullptr,
            buffer.samples.data(), buffer.samples.size(), &produced, &io, &quality, nullptr)) {
        error = std::string("could not convert to 48000 Hz: ") + failure;
        return std::nullopt;
    }
    buffer.samples.resize(produced);
    return buffer;
}

std::optional<SampleDecoder::Spans> SndfileDecoder::decodeSpans(const QString& path,
                                                                const std::vector<Span>& spans,
                                                                std::string& error) {
    std::size_t kept = 0, end = 0;
    for (const Span& span : spans) {
        kept += span.last > span.first ? span.last - span.first : 0;
        end = std::max(end, span.last);
    }
    if (static_cast<double>(kept) > kMaxSpanSeconds * SampleBuffer::kSampleRate) {
        error = "the stretches asked for add up to more than " +
                std::to_string(static_cast<int>(kMaxSpanSeconds)) + " s";
        return std::nullopt;
    }
    SF_INFO info{};
    SndfileHandle file = openAudio(path, info, error);
    if (!file)
        return std::nullopt;
    const double ratio = static_cast<double>(SampleBuffer::kSampleRate) / info.samplerate;
    Resampler resampler;
    if (info.samplerate != SampleBuffer::kSampleRate) {
        soxr_error_t failure = nullptr;
        const soxr_quality_spec_t quality = resamplingQuality();
        const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
        resampler.reset(soxr_create(info.samplerate, SampleBuffer::kSampleRate, 1, &failure, &io,
                                    &quality, nullptr));
        if (failure || !resampler) {
            error = std::string("could not convert to 48000 Hz: ") +
                    (failure ? failure : "no resampler");
            return std::nullopt;
        }
    }

    Spans result;
    result.parts.resize(spans.size());
    std::size_t produced = 0; // output frames so far
    const auto keep = [&](const float* samples, std::size_t count) {
        for (std::size_t i = 0; i < spans.size(); ++i) {
            const std::size_t from = std::max(spans[i].first, produced);
            const std::size_t to = std::min(spans[i].last, produced + count);
            if (from < to)
                result.parts[i].samples.insert(result.parts[i].samples.end(),
                                               samples + (from - produced),
                                               samples + (to - produced));
        }
        produced += count;
    };
    std::vector<float> interleaved(static_cast<std::size_t>(kBlockFrames * info.channels));
    std::vector<float> mono;
    std::vector<float> out(static_cast<std::size_t>(std::ceil(kBlockFrames * ratio)) + 64);
    auto lead = isMp3(info) ? static_cast<sf_count_t>(kMp3LeadSeconds * info.samplerate) : 0;
    bool ended = false, first = true;
    while (produced < end) {
        const sf_count_t read = sf_readf_float(file.get(), interleaved.data(), kBlockFrames);
        if (read < 0 || (read == 0 && first)) {
            error = sf_strerror(file.get());
            return std::nullopt;
        }
        first = false;
        ended = read == 0;
        downmix(interleaved, read, info.channels, mono);
        const auto skip = static_cast<std::size_t>(std::min(lead, read));
        lead -= static_cast<sf_count_t>(skip);
        const float* input = mono.data() + skip;
        std::size_t left = mono.size() - skip;
        if (!resampler) {
            keep(input, left);
        } else {
            // Every input block is taken whole; at the end, the resampler's tail is drained.
            do {
                std::size_t used = 0, made = 0;
                if (soxr_error_t failure =
                        soxr_process(resampler.get(), ended ? nullptr : input, left, &used,
                                     out.data(), out.size(), &made)) {
                    error = std::string("could not convert to 48000 Hz: ") + failure;
                    return std::nullopt;
                }
                keep(out.data(), made);
                input += used;
                left -= used;
                if (made == 0 && (ended || used == 0))
                    break;
            } while (left > 0 || ended);
        }
        if (ended)
            break;
    }
    if (ended) {
        result.frames = produced;
    } else {
        const double skipped = isMp3(info) ? kMp3LeadSeconds * info.samplerate : 0.0;
        result.frames =
            std::max(produced, static_cast<std::size_t>(std::ceil(
                                   (static_cast<double>(info.frames) - skipped) * ratio)));
    }
    return result;
}

bool writeWav(const std::vector<float>& samples, const std::string& path, std::string& error) {
    SF_INFO info{};
    info.samplerate = SampleBuffer::kSampleRate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SndfileHandle file(sf_open(path.c_str(), SFM_WRITE, &info));
    if (!file) {
        error = sf_strerror(nullptr);
        return false;
    }
    // Clip instead of wrapping when a sample reaches full scale.
    sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    const auto count = static_cast<sf_count_t>(samples.size());
    if (count > 0 && sf_writef_float(file.get(), samples.data(), count) != count) {
        error = sf_strerror(file.get());
        return false;
    }
    return true;
}

} // namespace tappix
