#pragma once

#include "core/sample_buffer.h"

#include <QString>
#include <optional>
#include <string>

namespace tappix {

/// Turns an audio file into a 48000 Hz mono buffer (channels averaged, resampled).
/// Implemented over the platform's decoder; a null one stands in for tests.
class SampleDecoder {
public:
    virtual ~SampleDecoder() = default;

    /// Decodes `path`; on failure returns none and puts a plain-words reason in `error`.
    /// Any thread, but one call at a time per decoder.
    virtual std::optional<SampleBuffer> decode(const QString& path, std::string& error) = 0;
};

} // namespace tappix
