#pragma once

#include "kits/soundpack_config.h"

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tappix {

/// How a keyboard kit sounds, in a few numbers measured the same way on the kits Tappix
/// makes and on recordings of real keyboards, so the two can be compared.
///
/// Each press sound is measured from its onset, the first sample above 10 % of its
/// peak: over its first 40 ms (Hann window), the spectral centroid and flatness of the
/// power spectrum between 200 Hz and 12 kHz and the levels of the third-octave bands
/// there; and the time from the onset until the sound stays under -40 dB of its peak.
/// A kit's figures are the medians over its press sounds. Any thread.
struct KitFigures {
    /// Third-octave bands measured, by centre: 200 Hz to 10 kHz.
    static constexpr std::array<double, 18> kBandHz{200,  250,  315,  400,  500,  630,
                                                    800,  1000, 1250, 1600, 2000, 2500,
                                                    3150, 4000, 5000, 6300, 8000, 10000};
    /// Level of each band in dB, relative to the mean of the bands (so only the shape
    /// of the spectrum counts, not how loud a recording was made).
    using Envelope = std::array<double, kBandHz.size()>;

    /// The figures of one press.
    struct Press {
        /// Spectral centroid, Hz.
        double centroidHz = 0;
        /// Spectral flatness: 0 for a pure tone, 1 for white noise.
        double flatness = 0;
        /// Time from the onset until the sound stays under -40 dB of its peak, ms.
        double decayMs = 0;
        /// The spectral envelope.
        Envelope envelope{};
    };

    /// Median centroid over the presses, Hz.
    double centroidHz = 0;
    /// Median flatness.
    double flatness = 0;
    /// Median time to -40 dB, ms.
    double decayMs = 0;
    /// Per band, the median over the presses, again relative to the mean of the bands.
    Envelope envelope{};
    /// How many presses were measured.
    std::size_t presses = 0;

    /// The figures of one press of mono 48 kHz `samples`; none when it is silent.
    static std::optional<Press> measure(const std::vector<float>& samples);

    /// The medians over `presses`.
    static KitFigures summarise(const std::vector<Press>& presses);

    /// Loads the samples of a kit's file by its name in the manifest, or none.
    using Loader = std::function<std::optional<std::vector<float>>(const std::string& file)>;

    /// A kit's press sounds: every distinct file in the `down` lists of its manifest.
    static std::vector<std::string> pressFiles(const SoundpackConfig& config);

    /// A kit's figures over its press sounds, each loaded once through `load`.
    static KitFigures ofKit(const SoundpackConfig& config, const Loader& load);

    /// The distance of two spectral envelopes: the mean absolute difference of their
    /// band levels, dB.
    static double distance(const Envelope& a, const Envelope& b);
};

} // namespace tappix
