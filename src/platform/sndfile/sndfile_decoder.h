#pragma once

#include "core/sample_decoder.h"

#include <string>
#include <vector>

namespace tappix {

/// Decodes WAV, FLAC, Ogg Vorbis, Opus and MP3 with libsndfile, averages channels to
/// mono and resamples to 48000 Hz with libsoxr (very high quality). MP3's decoder
/// delay is trimmed so every format starts on time.
class SndfileDecoder final : public SampleDecoder {
public:
    /// Longest file accepted, in seconds: a kit sample is short; this keeps a stray
    /// hour-long recording from eating memory.
    static constexpr double kMaxSeconds = 60.0;

    /// Most audio `decodeSpans` keeps, in seconds of all stretches together; the file
    /// itself may be of any length.
    static constexpr double kMaxSpanSeconds = 60.0;

    std::optional<SampleBuffer> decode(const QString& path, std::string& error) override;

    /// Reads the file as a stream, block by block, keeping only what falls in `spans`,
    /// and stops after the last of them: memory follows the stretches, never the file.
    std::optional<Spans> decodeSpans(const QString& path, const std::vector<Span>& spans,
                                     std::string& error) override;
};

/// Writes mono 48000 Hz samples as a 16-bit PCM WAV file (clipped to -1 … 1).
/// Returns false with a plain-words reason on failure.
bool writeWav(const std::vector<float>& samples, const std::string& path, std::string& error);

} // namespace tappix
