#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace tappix {

/// The character of one modelled keyboard: switch, keycaps, plate and case. Levels are
/// in dB relative to the bottom-out impact, times in ms, frequencies in Hz.
struct SwitchProfile {
    /// Duration of the stem's bottom-out contact: short is hard and bright.
    double contactMs = 0.5;
    /// Level and decay of the broadband noise of the impact (the radiated "tick").
    double noiseDb = 8, noiseDecayMs = 1.5;
    /// Corners of the band the impact noise is shaped to.
    double noiseLowHz = 600, noiseHighHz = 9000;
    /// The stem and cap buzzing in their play after the impact: a faint, high noise
    /// that outlasts the click.
    double buzzDb = -26, buzzDecayMs = 10;
    /// The board's dense ringing after each impact: plate, PCB, case and caps have far
    /// too many modes above a kHz or so to hear one by one, so they ring as a band of
    /// noise around `tailHz` (width set by `tailQ`) that decays with `tailDecayMs`.
    double tailDb = 8, tailHz = 1500, tailQ = 0.5, tailDecayMs = 20;
    /// Lowest plate mode, its decay time constant and level.
    double plateHz = 420, plateDecayMs = 14, plateDb = -14;
    /// Case cavity modes (the low "thock"): lowest frequency, decay, level.
    double caseHz = 190, caseDecayMs = 24, caseDb = -10;
    /// Keycap modes of a 1u cap, their decay and level.
    double capHz = 2100, capDecayMs = 10, capDb = 6;
    /// Switch housing modes, struck directly by the stem.
    double housingHz = 4300, housingDecayMs = 3, housingDb = -6;
    /// The coil spring's ring after each impact.
    double springHz = 5200, springDecayMs = 40, springDb = -30;
    /// A click leaf or jacket: level (off below -90), resonance, decay, and how long
    /// before bottom-out it snaps on the way down.
    double clickDb = -120, clickHz = 4200, clickDecayMs = 1.5, clickLeadMs = 9;
    /// A tactile bump: level of its scrape (off below -90) and how long before bottom-out.
    double bumpDb = -120, bumpLeadMs = 14;
    /// Stabiliser wire rattle on long keys.
    double rattleDb = -20;
    /// Release: the top-out impact relative to the press, and its contact duration.
    double releaseDb = -10, releaseContactMs = 0.3;
    /// Corner of the gentle low-pass of a dampened board (0: none).
    double muteHz = 0;
    /// Below about this frequency a board, far smaller than the sound's wavelength,
    /// radiates ever less: its low modes are felt more than heard (0: no fall-off).
    double radiateHz = 600;
    /// How far keys differ from each other and presses from each other (fractions).
    double keySpread = 0.04, pressSpread = 0.015;
};

/// Where a key sits on the board and what kind of cap it has.
struct KeyPlacement {
    /// 0 function row, 1 number row, 2 top letters, 3 home row, 4 bottom letters, 5 space row.
    int row = 3;
    /// Centre of the key from the board's left edge, in key units (19.05 mm).
    double x = 7.0;
    /// Width of the cap in key units.
    double width = 1.0;
    /// Whether a stabiliser wire holds the cap (Space, Return, Backspace, Shift).
    bool stabilised = false;
};

/// A physically informed model of a keystroke on a mechanical keyboard, rendered as a
/// dry mono 48 kHz signal. Pure functions, identical on every machine. Any thread.
namespace SwitchModel {

/// The sample rate of every render.
inline constexpr int kSampleRate = 48000;

/// The key named `keyName` (a Tappix sound key name such as "a", "space", "shiftLeft")
/// on a tenkeyless board, or none for a name the board does not have.
std::optional<KeyPlacement> placementOf(std::string_view keyName);

/// One press (`release` false) or release of the key at `key`. `keySeed` fixes what
/// makes this key differ from the others; `pressSeed` what makes this stroke differ
/// from other strokes of the same key. Not normalised: a kit scales all its sounds
/// by one gain, which keeps keys, presses and releases in proportion.
std::vector<float> render(const SwitchProfile& profile, const KeyPlacement& key,
                          std::uint64_t keySeed, std::uint64_t pressSeed, bool release);

} // namespace SwitchModel
} // namespace tappix
