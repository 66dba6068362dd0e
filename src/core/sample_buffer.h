#pragma once

#include <memory>
#include <vector>

namespace tappix {

/// Decoded audio as the mixer plays it: mono, 48000 Hz, 32-bit float.
struct SampleBuffer {
    /// The processing rate of every buffer.
    static constexpr int kSampleRate = 48000;

    /// The samples, nominally -1 to 1.
    std::vector<float> samples;

    /// Length in frames.
    std::size_t frames() const { return samples.size(); }
};

/// Buffers are shared read-only between the loader, the engine and the mixer.
using SampleRef = std::shared_ptr<const SampleBuffer>;

} // namespace tappix
