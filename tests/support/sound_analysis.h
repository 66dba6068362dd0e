#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

namespace tappix::test {

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

} // namespace tappix::test
