#pragma once

#include "core/sample_buffer.h"

#include <QString>
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace tappix {

/// Turns an audio file into a 48000 Hz mono buffer (channels averaged, resampled).
/// Implemented over the platform's decoder; a null one stands in for tests.
class SampleDecoder {
public:
    virtual ~SampleDecoder() = default;

    /// Decodes `path`; on failure returns none and puts a plain-words reason in `error`.
    /// Any thread, but one call at a time per decoder.
    virtual std::optional<SampleBuffer> decode(const QString& path, std::string& error) = 0;

    /// A stretch of a file's audio in frames at 48000 Hz: from `first` up to, not
    /// including, `last`.
    struct Span {
        std::size_t first = 0;
        std::size_t last = 0;
    };

    /// Stretches of one file, as `decodeSpans` returns them.
    struct Spans {
        /// One buffer per stretch asked for, in the same order: the audio `decode` would
        /// give there, cut short where the audio ends (empty when it starts past it).
        std::vector<SampleBuffer> parts;
        /// The length of the whole audio in frames at 48000 Hz: exact when a stretch
        /// reached the end, else as the file's header tells it.
        std::size_t frames = 0;
    };

    /// Decodes only `spans` of `path`. This base decodes the whole file and cuts it;
    /// a decoder that reads files as a stream overrides it so that memory follows the
    /// stretches, not the file, and accepts files too long for `decode`. None, with a
    /// plain-words reason in `error`, on failure. Any thread, one call at a time.
    virtual std::optional<Spans> decodeSpans(const QString& path, const std::vector<Span>& spans,
                                             std::string& error) {
        auto whole = decode(path, error);
        if (!whole)
            return std::nullopt;
        Spans result{{}, whole->frames()};
        for (const Span& span : spans) {
            SampleBuffer& part = result.parts.emplace_back();
            const std::size_t last = std::min(span.last, whole->frames());
            if (span.first < last)
                part.samples.assign(whole->samples.begin() +
                                        static_cast<std::ptrdiff_t>(span.first),
                                    whole->samples.begin() + static_cast<std::ptrdiff_t>(last));
        }
        return result;
    }
};

} // namespace tappix
