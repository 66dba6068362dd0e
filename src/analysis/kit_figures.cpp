#include "analysis/kit_figures.h"

#include <algorithm>
#include <cmath>
#include <fftw3.h>
#include <numbers>
#include <numeric>
#include <set>

namespace tappix {
namespace {

constexpr double kRate = 48000;
/// 40 ms, the stretch measured after the onset.
constexpr std::size_t kWindow = 1920;
/// The transform length: the window zero-padded.
constexpr int kFft = 2048;
constexpr double kLowHz = 200, kHighHz = 12000;
/// The onset is the first sample above this share of the peak.
constexpr double kOnsetShare = 0.1;
/// The decay ends where the sound stays this far under its peak.
constexpr double kDecayShare = 0.01; // -40 dB
/// The edges of a third-octave band relative to its centre: 2^-1/6 and 2^1/6.
constexpr double kBandEdge[2] = {0.89089871814033930, 1.12246204830937302};

double median(std::vector<double> values) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    return n % 2 ? values[n / 2] : 0.5 * (values[n / 2 - 1] + values[n / 2]);
}

/// Subtracts the mean of the bands.
void centre(KitFigures::Envelope& envelope) {
    const double mean = std::accumulate(envelope.begin(), envelope.end(), 0.0) /
                        static_cast<double>(envelope.size());
    for (double& band : envelope)
        band -= mean;
}

/// The power spectrum of `x` from `from` on, through a Hann window of 40 ms.
std::vector<double> powerSpectrum(const std::vector<float>& x, std::size_t from) {
    // Planned once; executing a plan on other arrays is safe from any thread.
    struct Plan {
        fftw_plan plan;
        Plan() {
            double* in = fftw_alloc_real(kFft);
            fftw_complex* out = fftw_alloc_complex(kFft / 2 + 1);
            plan = fftw_plan_dft_r2c_1d(kFft, in, out, FFTW_ESTIMATE);
            fftw_free(in);
            fftw_free(out);
        }
    };
    static const Plan plan;
    struct Buffers {
        double* in = fftw_alloc_real(kFft);
        fftw_complex* out = fftw_alloc_complex(kFft / 2 + 1);
        ~Buffers() {
            fftw_free(in);
            fftw_free(out);
        }
    } buffers;
    for (std::size_t i = 0; i < static_cast<std::size_t>(kFft); ++i) {
        const double w = i < kWindow
                             ? 0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) /
                                                    static_cast<double>(kWindow - 1))
                             : 0.0;
        buffers.in[i] = from + i < x.size() && i < kWindow ? x[from + i] * w : 0.0;
    }
    fftw_execute_dft_r2c(plan.plan, buffers.in, buffers.out);
    std::vector<double> power(kFft / 2 + 1);
    for (std::size_t k = 0; k < power.size(); ++k)
        power[k] = buffers.out[k][0] * buffers.out[k][0] + buffers.out[k][1] * buffers.out[k][1];
    return power;
}

} // namespace

std::optional<KitFigures::Press> KitFigures::measure(const std::vector<float>& x) {
    double peak = 0;
    for (float v : x)
        peak = std::max(peak, static_cast<double>(std::fabs(v)));
    if (peak <= 0)
        return std::nullopt;
    std::size_t onset = 0;
    while (std::fabs(x[onset]) <= kOnsetShare * peak)
        ++onset;
    std::size_t last = onset;
    for (std::size_t i = onset; i < x.size(); ++i) {
        if (std::fabs(x[i]) >= kDecayShare * peak)
            last = i;
    }

    Press press;
    press.decayMs = static_cast<double>(last + 1 - onset) * 1000.0 / kRate;
    const auto power = powerSpectrum(x, onset);
    constexpr double kTiny = 1e-30;
    double logSum = 0, sum = 0, weighted = 0;
    int bins = 0;
    std::array<double, kBandHz.size()> bands{};
    for (std::size_t k = 0; k < power.size(); ++k) {
        const double hz = static_cast<double>(k) * kRate / kFft;
        if (hz < kLowHz || hz > kHighHz)
            continue;
        const double p = power[k] + kTiny;
        logSum += std::log(p);
        sum += p;
        weighted += hz * p;
        ++bins;
        for (std::size_t b = 0; b < kBandHz.size(); ++b) {
            if (hz >= kBandHz[b] * kBandEdge[0] && hz < kBandHz[b] * kBandEdge[1])
                bands[b] += p;
        }
    }
    press.flatness = std::exp(logSum / bins) / (sum / bins);
    press.centroidHz = weighted / sum;
    for (std::size_t b = 0; b < bands.size(); ++b)
        press.envelope[b] = 10 * std::log10(bands[b] + kTiny);
    centre(press.envelope);
    return press;
}

KitFigures KitFigures::summarise(const std::vector<Press>& presses) {
    KitFigures kit;
    kit.presses = presses.size();
    std::vector<double> centroid, flatness, decay;
    for (const Press& p : presses) {
        centroid.push_back(p.centroidHz);
        flatness.push_back(p.flatness);
        decay.push_back(p.decayMs);
    }
    kit.centroidHz = median(centroid);
    kit.flatness = median(flatness);
    kit.decayMs = median(decay);
    for (std::size_t b = 0; b < kit.envelope.size(); ++b) {
        std::vector<double> band;
        for (const Press& p : presses)
            band.push_back(p.envelope[b]);
        kit.envelope[b] = median(band);
    }
    centre(kit.envelope);
    return kit;
}

std::vector<std::string> KitFigures::pressFiles(const SoundpackConfig& config) {
    std::set<std::string> files;
    for (const auto& [key, sound] : config.sounds)
        files.insert(sound.down.begin(), sound.down.end());
    return {files.begin(), files.end()};
}

KitFigures KitFigures::ofKit(const SoundpackConfig& config, const Loader& load) {
    std::vector<Press> presses;
    for (const std::string& file : pressFiles(config)) {
        if (const auto samples = load(file)) {
            if (auto press = measure(*samples))
                presses.push_back(*press);
        }
    }
    return summarise(presses);
}

double KitFigures::distance(const Envelope& a, const Envelope& b) {
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += std::fabs(a[i] - b[i]);
    return sum / static_cast<double>(a.size());
}

} // namespace tappix
