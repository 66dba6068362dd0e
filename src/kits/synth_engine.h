#pragma once

#include "core/sample_buffer.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace tappix {

/// What one synthesised keystroke sounds like.
struct SynthParams {
    /// Pitch of the key's body resonance, Hz.
    float bodyHz = 0;
    /// Loudness of the initial noise click (linear gain).
    float click = 0;
    /// Time constant of the body's decay, ms; the sound lasts four of them.
    float decayMs = 0;
    /// Corner of the final one-pole low-pass, Hz.
    float toneHz = 0;
    /// Adds the short 2600 Hz leaf resonance of clicky switches.
    bool clicky = false;

    friend bool operator==(const SynthParams&, const SynthParams&) = default;
};

/// Sounds made from numbers: keystrokes, the Return bell and mouse clicks. Every
/// render is a pure function of its parameters and a 64-bit seed, identical on every
/// machine (32-bit float arithmetic, no fused multiply-adds). Any thread.
namespace SynthEngine {

/// The 64-bit linear congruential generator every render draws from.
class Random {
public:
    /// Starts from `seed`.
    explicit Random(std::uint64_t seed) : state_(seed) {}
    /// Advances once and returns the low 32 bits.
    std::uint32_t next32();
    /// Uniform in 0 … bound-1 by multiply-shift with rejection.
    std::uint32_t uniform(std::uint32_t bound);
    /// Uniform in the closed range lo … hi on a 2^24 grid.
    float uniform(float lo, float hi);
    /// Uniform noise in -1 … 1.
    float noise();

private:
    std::uint64_t state_;
};

/// The sample rate of every render.
inline constexpr int kSampleRate = 48000;

/// One keystroke; `isUp` gives the quieter, shorter, higher release.
std::vector<float> render(const SynthParams& params, std::uint64_t seed, bool isUp);

/// The typewriter bell played on Return: 0.55 s, three decaying partials.
std::vector<float> ding();

/// Wraps samples as a playable buffer (an empty render gives an empty buffer).
SampleRef makeBuffer(std::vector<float> samples);

/// The four synthesised mouse sounds.
enum class MouseProfile { soft, crisp, deep, tick };

/// Every profile, in listing order.
inline constexpr std::array<MouseProfile, 4> kMouseProfiles{MouseProfile::soft, MouseProfile::crisp,
                                                            MouseProfile::deep, MouseProfile::tick};

/// "soft", "crisp", "deep" or "tick".
std::string_view rawValue(MouseProfile profile);

/// The profile with that raw value, or none.
std::optional<MouseProfile> mouseProfileFrom(std::string_view raw);

/// A mouse preset: the parameters and the seed of a press or a release.
struct MousePreset {
    /// Render parameters (never clicky).
    SynthParams params;
    /// 49436 for presses, 49437 for releases.
    std::uint64_t seed;
};

/// The preset for a profile's press (`press` true) or release.
MousePreset mousePreset(MouseProfile profile, bool press);

} // namespace SynthEngine
} // namespace tappix
