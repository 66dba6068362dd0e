#include "platform/sndfile/sndfile_decoder.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <sndfile.h>
#include <soxr.h>

namespace tappix {
namespace {

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

// The MPEG decoder starts with about 25 ms of silence (decoder delay plus padding).
constexpr double kMp3LeadSeconds = 0.025;

} // namespace

std::optional<SampleBuffer> SndfileDecoder::decode(const QString& path, std::string& error) {
    SF_INFO info{};
    SndfileHandle file(sf_open(path.toLocal8Bit().constData(), SFM_READ, &info));
    if (!file) {
        error = sf_strerror(nullptr);
        return std::nullopt;
    }
    if (info.channels < 1 || info.samplerate < 1000 || info.samplerate > 768000) {
        error = "unsupported channel count or sample rate";
        return std::nullopt;
    }
    if (info.frames <= 0) {
        error = "the file holds no audio";
        return std::nullopt;
    }
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
    std::vector<float> mono(static_cast<std::size_t>(read));
    for (sf_count_t frame = 0; frame < read; ++frame) {
        float sum = 0.0f;
        for (int channel = 0; channel < info.channels; ++channel)
            sum += interleaved[static_cast<std::size_t>(frame * info.channels + channel)];
        mono[static_cast<std::size_t>(frame)] = sum / static_cast<float>(info.channels);
    }
    if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) {
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
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
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
