#include "kits/synth_engine.h"

#include <algorithm>
#include <cassert>
#include <cmath>

namespace tappix::SynthEngine {
namespace {

constexpr float kTwoPi = 6.283185f;
constexpr float kRate = 48000.0f;
constexpr std::uint32_t kGrid = 1u << 24;
constexpr float kGridStep = 1.0f / static_cast<float>(kGrid); // 2^-24, exact

} // namespace

std::uint32_t Random::next32() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<std::uint32_t>(state_);
}

std::uint32_t Random::uniform(std::uint32_t bound) {
    std::uint64_t m = static_cast<std::uint64_t>(next32()) * bound;
    if (static_cast<std::uint32_t>(m) < bound) {
        const std::uint32_t threshold = (0u - bound) % bound; // (2^32 - bound) mod bound
        while (static_cast<std::uint32_t>(m) < threshold)
            m = static_cast<std::uint64_t>(next32()) * bound;
    }
    return static_cast<std::uint32_t>(m >> 32);
}

float Random::uniform(float lo, float hi) {
    const std::uint32_t r = uniform(kGrid + 1);
    if (r == kGrid)
        return hi;
    const float span = hi - lo;
    return span * (static_cast<float>(r) * kGridStep) + lo;
}

float Random::noise() {
    const std::uint32_t r = uniform(kGrid + 1);
    if (r == kGrid)
        return 1.0f;
    return 2.0f * (static_cast<float>(r) * kGridStep) - 1.0f;
}

std::vector<float> render(const SynthParams& params, std::uint64_t seed, bool isUp) {
    const float click = isUp ? params.click * 0.55f : params.click;
    const float decay = isUp ? params.decayMs * 0.5f : params.decayMs;
    const float body = isUp ? params.bodyHz * 1.35f : params.bodyHz;

    Random random(seed);
    const float jitter1 = random.uniform(0.96f, 1.04f);
    const float jitter2 = random.uniform(0.94f, 1.06f);

    const float length = decay / 1000.0f * kRate * 4.0f;
    // Callers pass sane parameters; a bad length is a programming error, yet a
    // negative or absurd one must not allocate the machine away.
    assert(std::isfinite(length) && length >= 0.0f && length < 1e8f);
    if (!std::isfinite(length) || length < 1.0f || length >= 1e8f)
        return {};
    const auto n = static_cast<std::size_t>(length);

    const float amp = isUp ? 0.36f : 0.8f;
    const float f1 = body * jitter1;
    const float f2 = body * 6.3f * jitter2;
    const float f2Omega = f2 * kTwoPi;
    const float decaySeconds = decay / 1000.0f;

    std::vector<float> out(n);
    for (std::size_t i = 0; i < n; ++i) {
        const float t = static_cast<float>(i) / kRate;
        const float env = std::exp(-t / decaySeconds);
        float c = 0.0f;
        if (t < 0.006f) {
            const float noise = random.noise();
            c = click * (std::exp(t / -0.0012f) * noise) + 0.0f;
        }
        float s =
            amp * env * (std::sin(f1 * kTwoPi * t) * 0.75f + std::sin(f2Omega * t + 1.3f) * 0.35f) +
            c;
        if (params.clicky && t < 0.02f)
            s = s + std::sin(16336.281f * t) * (click * 0.5f * std::exp(t / -0.004f));
        out[i] = s;
    }

    const float a = 1.0f - std::exp(-kTwoPi * params.toneHz / kRate);
    float y = 0.0f;
    for (float& x : out) {
        y = y + a * (x - y);
        x = y;
    }

    float peak = 0.0f;
    for (float x : out)
        peak = std::max(peak, std::fabs(x));
    if (peak > 0.0f) {
        for (float& x : out)
            x = x / peak * 0.85f;
    }
    return out;
}

std::vector<float> ding() {
    constexpr std::size_t n = 26400;
    std::vector<float> out(n);
    for (std::size_t i = 0; i < n; ++i) {
        const float t = static_cast<float>(i) / kRate;
        const float attack = std::min(t / 0.004f, 1.0f);
        const float p1 = std::exp(t / -0.28f) * std::sin(8281.238f * t);
        const float p2 = std::exp(t / -0.18f) * std::sin(16568.76f * t) * 0.45f;
        const float p3 = std::exp(t / -0.1f) * std::sin(24856.28f * t) * 0.22f;
        out[i] = attack * (p1 + 0.0f + p2 + p3) * 0.35f;
    }
    return out;
}

SampleRef makeBuffer(std::vector<float> samples) {
    auto buffer = std::make_shared<SampleBuffer>();
    buffer->samples = std::move(samples);
    return buffer;
}

std::string_view rawValue(MouseProfile profile) {
    switch (profile) {
    case MouseProfile::soft:
        return "soft";
    case MouseProfile::crisp:
        return "crisp";
    case MouseProfile::deep:
        return "deep";
    case MouseProfile::tick:
        return "tick";
    }
    return "soft";
}

std::optional<MouseProfile> mouseProfileFrom(std::string_view raw) {
    for (MouseProfile profile : kMouseProfiles) {
        if (rawValue(profile) == raw)
            return profile;
    }
    return std::nullopt;
}

MousePreset mousePreset(MouseProfile profile, bool press) {
    constexpr std::uint64_t kPressSeed = 49436;
    constexpr std::uint64_t kReleaseSeed = 49437;
    SynthParams params;
    switch (profile) {
    case MouseProfile::soft:
        params = press ? SynthParams{340, 0.85f, 14, 6500} : SynthParams{420, 0.51f, 10, 6500};
        break;
    case MouseProfile::crisp:
        params = press ? SynthParams{520, 1.0f, 9, 9000} : SynthParams{620, 0.6f, 7, 9000};
        break;
    case MouseProfile::deep:
        params = press ? SynthParams{190, 0.7f, 24, 3800} : SynthParams{235, 0.42f, 16, 3800};
        break;
    case MouseProfile::tick:
        params = press ? SynthParams{780, 0.6f, 6, 11000} : SynthParams{880, 0.36f, 5, 11000};
        break;
    }
    return MousePreset{params, press ? kPressSeed : kReleaseSeed};
}

} // namespace tappix::SynthEngine
