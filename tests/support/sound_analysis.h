#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace tappix::test {

/// FNV-1a over the bytes of `values` (as laid out in memory): one number that changes with
/// any bit of any value, to pin output that must stay the same on every build.
template <typename T> std::uint64_t fingerprint(const std::vector<T>& values) {
    std::uint64_t h = 14695981039346656037ULL;
    std::vector<unsigned char> bytes(values.size() * sizeof(T));
    if (!bytes.empty())
        std::memcpy(bytes.data(), values.data(), bytes.size());
    for (unsigned char byte : bytes)
        h = (h ^ byte) * 1099511628211ULL;
    return h;
}

/// Where sounds start in interleaved stereo: the first 2 ms window whose level
/// crosses `threshold` after at least `quietMs` below it. Times in ms.
inline std::vector<double> onsets(const std::vector<float>& stereo, double threshold = 0.02,
                                  double quietMs = 25) {
    constexpr std::size_t kWindow = 96; // 2 ms
    std::vector<double> found;
    double quietFor = quietMs;
    const std::size_t frames = stereo.size() / 2;
    for (std::size_t start = 0; start + kWindow <= frames; start += kWindow) {
        double peak = 0;
        for (std::size_t i = start; i < start + kWindow; ++i)
            peak = std::max(
                {peak, double(std::fabs(stereo[2 * i])), double(std::fabs(stereo[2 * i + 1]))});
        if (peak >= threshold) {
            if (quietFor >= quietMs)
                found.push_back(double(start) / 48.0);
            quietFor = 0;
        } else {
            quietFor += 2;
        }
    }
    return found;
}

/// Energy of one channel between two times (ms).
inline double energy(const std::vector<float>& stereo, int channel, double fromMs, double toMs) {
    const std::size_t from = std::size_t(fromMs * 48),
                      to = std::min(stereo.size() / 2, std::size_t(toMs * 48));
    double sum = 0;
    for (std::size_t i = from; i < to; ++i)
        sum += double(stereo[2 * i + channel]) * stereo[2 * i + channel];
    return sum;
}

/// The first sample of a mono sound above `share` of its peak: where it starts.
inline std::size_t soundStart(const std::vector<float>& mono, float share = 0.1f) {
    float peak = 0;
    for (float s : mono)
        peak = std::max(peak, std::fabs(s));
    std::size_t i = 0;
    while (i < mono.size() && std::fabs(mono[i]) < share * peak)
        ++i;
    return i;
}

/// How a cut sound lines up with the sound it was cut from.
struct Alignment {
    /// How far (ms) the cut's start lies from where it was meant to be.
    double errorMs = 1e9;
    /// The normalised correlation of the two at that alignment.
    double correlation = 0;
};

/// Lines `cut` up with `original`, expecting `original`'s sample `originalStart` at the
/// cut's sample `cutStart`: tries shifts up to `searchMs` either way and compares the
/// first `lengthMs` of the cut. Mono 48 kHz.
inline Alignment align(const std::vector<float>& cut, std::size_t cutStart,
                       const std::vector<float>& original, std::size_t originalStart,
                       double searchMs = 10, double lengthMs = 100) {
    const auto search = static_cast<std::ptrdiff_t>(searchMs * 48);
    const std::size_t length = std::min(cut.size(), static_cast<std::size_t>(lengthMs * 48));
    Alignment best;
    for (std::ptrdiff_t shift = -search; shift <= search; ++shift) {
        double both = 0, cutEnergy = 0, originalEnergy = 0;
        for (std::size_t n = 0; n < length; ++n) {
            const std::ptrdiff_t m = static_cast<std::ptrdiff_t>(n) -
                                     static_cast<std::ptrdiff_t>(cutStart) +
                                     static_cast<std::ptrdiff_t>(originalStart) + shift;
            const double o = m >= 0 && m < static_cast<std::ptrdiff_t>(original.size())
                                 ? original[static_cast<std::size_t>(m)]
                                 : 0.0;
            both += cut[n] * o;
            cutEnergy += double(cut[n]) * cut[n];
            originalEnergy += o * o;
        }
        const double correlation =
            cutEnergy > 0 && originalEnergy > 0 ? both / std::sqrt(cutEnergy * originalEnergy) : 0;
        if (correlation > best.correlation) {
            best.correlation = correlation;
            best.errorMs = static_cast<double>(shift) / 48.0;
        }
    }
    return best;
}

} // namespace tappix::test
