// A keystroke on a mechanical keyboard, modelled from the parts that make it sound.
//
// The model
// ---------
// A keystroke is a handful of short mechanical events, each of which (a) radiates a
// broadband click directly and (b) strikes the structure of the board, which then rings
// in its own damped, inharmonic modes:
//
//   press    [click leaf snaps | tactile bump scrapes] → stem bottoms out on the housing
//            → (long keys) stabiliser wire ends land a few ms apart and rattle
//   release  [click jacket resets | bump scrapes back] → stem slider tops out against the
//            housing top: a lighter, shorter and brighter impact that reaches the plate
//            and case through the switch only, so they ring less and the cap more.
//
// Every impact is a half-sine force pulse whose duration is the contact time (a Hertzian
// contact: a soft contact is long and excites only low modes, a hard one is short and
// reaches high ones), plus a burst of band-shaped noise for what is radiated at the
// point of contact. The force drives a bank of two-pole resonators (modal synthesis):
//
//   plate    modes (m, n) of a simply supported rectangular plate the size of the board,
//            f_mn ∝ m²/a² + n²/b²; each is weighted by its mode shape sin(mπx/a)·sin(nπy/b)
//            at the key's position, so a key's row and column change which modes it
//            excites, as on a real board. Higher modes decay faster.
//   case     the cavity and bottom panel: a few low modes, the "thock"; excited more by
//            keys near the middle and by long keys.
//   keycap   a free-free beam (ratios 1 : 2.756 : 5.404) whose pitch falls with the cap's
//            width and with the height of its row's profile.
//   housing  the switch's own plastic shell, high and short-lived.
//   spring   the coil spring's near-harmonic surge modes: a faint metallic ring.
//   wire     a stabiliser's wire, struck by the rattle impacts of Space, Return,
//            Backspace and Shift.
//
// Only the lowest modes of plate and case stand apart. Above a kHz or so the plate, PCB,
// case and caps together have so many modes, so heavily damped, that they overlap: the
// board answers an impact with a dense ringing that is heard as noise in a broad band
// (around 1 to 3 kHz on recorded boards), decaying over some tens of ms. It is rendered
// as such: noise through a pair of band-passes, its centre moved by the key's row and
// place, lower and longer under a long cap. This, with the sharp broadband attack, is
// what makes a keystroke a clack rather than a tuned thud.
//
// After each impact the stem and cap buzz in their play for some ms: a faint band of
// high noise that outlasts the click.
//
// A board is far smaller than the wavelengths of its lowest modes, so it radiates them
// poorly: the output falls off at 12 dB per octave below a corner of some hundred Hz
// (heavier, larger cases lower). Recorded keystrokes carry little below 400 Hz.
//
// Every key draws its own small detuning and level offsets of all modes from a key seed
// (no two keys alike) and every stroke its own force, contact time and timing from a
// press seed. The signal is dry (no room): DC removed, optionally low-passed for boards
// that are dampened, never normalised here.
//
// The kits' profiles are calibrated against recordings of real keyboards of their
// families (bench/kit_features): over the first 40 ms of each press, the spectral
// centroid, flatness and third-octave envelope, and the time to fall 40 dB.
//
// Sources
//   D. Asonov and R. Agrawal, "Keyboard Acoustic Emanations", IEEE Symposium on Security
//     and Privacy, 2004: a keystroke is a push peak (finger and bottom-out) and a weaker
//     release peak some 100 ms later; keys differ measurably because the plate is struck
//     at different places.
//   L. Zhuang, F. Zhou and J. D. Tygar, "Keyboard Acoustic Emanations Revisited", ACM CCS
//     2005: the touch, hit and release components and their spectra.
//   A. Farnell, "Designing Sound", MIT Press, 2010: procedural impacts as excitation
//     through noise bursts into resonant bodies; contact time sets brightness.
//   J.-M. Adrien, "The missing link: modal synthesis", in Representations of Musical
//     Signals, MIT Press, 1991; K. van den Doel, P. G. Kry and D. K. Pai, "FoleyAutomatic:
//     physically-based sound effects for interactive simulation and animation", SIGGRAPH
//     2001: contact sounds as banks of damped modes with position-dependent gains.
//   P. R. Cook, "Real Sound Synthesis for Interactive Applications", A K Peters, 2002:
//     two-pole resonators, noise excitation and per-event parameter randomisation.
//   N. H. Fletcher and T. D. Rossing, "The Physics of Musical Instruments", Springer,
//     1998: mode frequencies of plates and free-free bars.
//   K. L. Johnson, "Contact Mechanics", Cambridge University Press, 1985: Hertzian
//     contact duration of an elastic impact.
//   R. H. Lyon and R. G. DeJong, "Theory and Application of Statistical Energy Analysis",
//     Butterworth-Heinemann, 1995: where modes overlap, a structure's response is a band
//     of decaying noise described by its energy, not by single modes.
//   F. Fahy and P. Gardonio, "Sound and Structural Vibration", Academic Press, 2007: the
//     radiation efficiency of small plates falls steeply towards low frequencies.

#include "kits/switch_model.h"

#include "kits/portable_math.h"
#include "kits/synth_engine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace tappix::SwitchModel {
namespace {

namespace pm = PortableMath;
constexpr double kRate = kSampleRate;

// --- The board ---------------------------------------------------------------------

/// Plate size in key units: a tenkeyless board, and the y of each row's centre.
constexpr double kPlateWidth = 18.5;
constexpr double kPlateDepth = 6.5;
constexpr std::array<double, 6> kRowY{0.5, 1.75, 2.75, 3.75, 4.75, 5.75};

/// Relative keycap pitch by row: taller caps (function and number rows of a sculpted
/// profile) ring lower, the low home row highest.
constexpr std::array<double, 6> kRowCapPitch{0.92, 0.94, 0.98, 1.04, 1.0, 1.02};

struct KeySite {
    std::string_view name;
    int row;
    double x, width;
    bool stabilised;
};

// clang-format off
/// Every sound key name of a single key, placed on an ANSI tenkeyless board.
constexpr KeySite kLayout[] = {
    {"esc", 0, 0.5, 1, false},
    {"f1", 0, 2.5, 1, false}, {"f2", 0, 3.5, 1, false}, {"f3", 0, 4.5, 1, false},
    {"f4", 0, 5.5, 1, false}, {"f5", 0, 7.0, 1, false}, {"f6", 0, 8.0, 1, false},
    {"f7", 0, 9.0, 1, false}, {"f8", 0, 10.0, 1, false}, {"f9", 0, 11.5, 1, false},
    {"f10", 0, 12.5, 1, false}, {"f11", 0, 13.5, 1, false}, {"f12", 0, 14.5, 1, false},
    {"clear", 0, 17.75, 1, false},
    {"`", 1, 0.5, 1, false}, {"1", 1, 1.5, 1, false}, {"2", 1, 2.5, 1, false},
    {"3", 1, 3.5, 1, false}, {"4", 1, 4.5, 1, false}, {"5", 1, 5.5, 1, false},
    {"6", 1, 6.5, 1, false}, {"7", 1, 7.5, 1, false}, {"8", 1, 8.5, 1, false},
    {"9", 1, 9.5, 1, false}, {"0", 1, 10.5, 1, false}, {"-", 1, 11.5, 1, false},
    {"=", 1, 12.5, 1, false}, {"backspace", 1, 14.0, 2, true},
    {"home", 1, 16.75, 1, false}, {"pgUp", 1, 17.75, 1, false},
    {"tab", 2, 0.75, 1.5, false}, {"q", 2, 2.0, 1, false}, {"w", 2, 3.0, 1, false},
    {"e", 2, 4.0, 1, false}, {"r", 2, 5.0, 1, false}, {"t", 2, 6.0, 1, false},
    {"y", 2, 7.0, 1, false}, {"u", 2, 8.0, 1, false}, {"i", 2, 9.0, 1, false},
    {"o", 2, 10.0, 1, false}, {"p", 2, 11.0, 1, false}, {"[", 2, 12.0, 1, false},
    {"]", 2, 13.0, 1, false}, {"\\", 2, 14.25, 1.5, false},
    {"del", 2, 15.75, 1, false}, {"end", 2, 16.75, 1, false}, {"pgDn", 2, 17.75, 1, false},
    {"capsLock", 3, 0.875, 1.75, false}, {"a", 3, 2.25, 1, false}, {"s", 3, 3.25, 1, false},
    {"d", 3, 4.25, 1, false}, {"f", 3, 5.25, 1, false}, {"g", 3, 6.25, 1, false},
    {"h", 3, 7.25, 1, false}, {"j", 3, 8.25, 1, false}, {"k", 3, 9.25, 1, false},
    {"l", 3, 10.25, 1, false}, {";", 3, 11.25, 1, false}, {"'", 3, 12.25, 1, false},
    {"enter", 3, 13.875, 2.25, true},
    {"shiftLeft", 4, 1.125, 2.25, true}, {"z", 4, 2.75, 1, false}, {"x", 4, 3.75, 1, false},
    {"c", 4, 4.75, 1, false}, {"v", 4, 5.75, 1, false}, {"b", 4, 6.75, 1, false},
    {"n", 4, 7.75, 1, false}, {"m", 4, 8.75, 1, false}, {",", 4, 9.75, 1, false},
    {".", 4, 10.75, 1, false}, {"/", 4, 11.75, 1, false},
    {"shiftRight", 4, 13.625, 2.75, true}, {"arrUp", 4, 16.75, 1, false},
    {"ctrlLeft", 5, 0.625, 1.25, false}, {"optionLeft", 5, 1.875, 1.25, false},
    {"command", 5, 3.125, 1.25, false}, {"space", 5, 6.875, 6.25, true},
    {"optionRight", 5, 10.625, 1.25, false}, {"fn", 5, 11.875, 1.25, false},
    {"arrLeft", 5, 15.75, 1, false}, {"arrDown", 5, 16.75, 1, false},
    {"arrRight", 5, 17.75, 1, false},
};
// clang-format on

// --- Mode tables ----------------------------------------------------------------------

/// A family of modes: frequency ratios to its lowest mode, relative gains and relative
/// decay times.
template <std::size_t N> struct ModeSet { std::array<double, N> ratio, gain, decay; };

/// Plate modes (m, n) used, lowest first.
constexpr std::array<std::array<int, 2>, 9> kPlateModes{
    {{1, 1}, {2, 1}, {3, 1}, {4, 1}, {5, 1}, {1, 2}, {2, 2}, {3, 2}, {6, 1}}};
constexpr ModeSet<3> kCaseModes{{1.0, 1.58, 2.37}, {1.0, 0.55, 0.35}, {1.0, 0.75, 0.55}};
constexpr ModeSet<3> kCapModes{{1.0, 2.756, 5.404}, {1.0, 0.55, 0.3}, {1.0, 0.6, 0.4}};
constexpr ModeSet<3> kHousingModes{{1.0, 1.47, 2.09}, {1.0, 0.7, 0.45}, {1.0, 0.8, 0.6}};
constexpr ModeSet<3> kSpringModes{{1.0, 2.01, 3.03}, {1.0, 0.45, 0.25}, {1.0, 0.7, 0.5}};
constexpr ModeSet<2> kClickModes{{1.0, 1.62}, {1.0, 0.5}, {1.0, 0.7}};
constexpr ModeSet<3> kWireModes{{1.0, 2.756, 5.404}, {1.0, 0.5, 0.25}, {1.0, 0.6, 0.35}};
/// Lowest stabiliser wire mode of a 2.25u wire, and its decay time constant.
constexpr double kWireHz = 1350, kWireDecayMs = 22;

/// How strongly a release (top-out) drives each part relative to a press.
struct Drive {
    double plate, kase, cap, housing, spring;
};
constexpr Drive kPressDrive{1.0, 1.0, 1.0, 1.0, 1.0};
constexpr Drive kReleaseDrive{0.45, 0.3, 1.0, 1.5, 1.2};
/// How the board's dense ringing after a top-out differs: higher and shorter.
constexpr double kReleaseTailPitch = 1.5, kReleaseTailDecay = 0.6;

/// Stabiliser rattle: delays of the secondary impacts (ms) and their levels.
constexpr std::array<double, 3> kRattleDelayMs{2.2, 5.8, 10.5};
constexpr std::array<double, 3> kRattleLevel{1.0, 0.55, 0.3};

/// Rendering limits: resonators stop once rung down by e^-kRingOut; sounds are trimmed
/// where they fall this far below their peak, then faded out.
constexpr double kRingOut = 12.0;
constexpr double kTrimDb = -60.0;
constexpr double kFadeMs = 3.0;
constexpr double kMaxSeconds = 0.8;
/// Filtered noise has far less peak than the modes a unit impact rings; this brings a
/// 0 dB noise burst to about the same loudness.
constexpr double kNoiseGain = 4.0;
/// Where the first event of a stroke lands: a little silence keeps the attack whole.
constexpr double kStartMs = 0.5;

// --- Building blocks ----------------------------------------------------------------

struct Mode {
    double hz, decayMs, gain;
    int channel;
};

/// Force channels that the modes listen to.
enum Channel { kStem = 0, kClick = 1, kWire = 2, kChannels = 3 };

class Stroke {
public:
    explicit Stroke(std::size_t length)
        : out_(length, 0.0), channels_{std::vector<double>(length, 0.0),
                                       std::vector<double>(length, 0.0),
                                       std::vector<double>(length, 0.0)} {}

    /// A half-sine force pulse of unit area times `level` on `channel` at `atMs`.
    void impact(int channel, double atMs, double contactMs, double level) {
        const auto start = index(atMs);
        const auto width = std::max<std::size_t>(1, index(contactMs));
        double area = 0;
        std::vector<double> pulse(width);
        for (std::size_t i = 0; i < width; ++i) {
            pulse[i] =
                pm::sinCos(pm::kPi * (static_cast<double>(i) + 0.5) / static_cast<double>(width))
                    .sin;
            area += pulse[i];
        }
        auto& target = channels_[static_cast<std::size_t>(channel)];
        for (std::size_t i = 0; i < width && start + i < target.size(); ++i)
            target[start + i] += pulse[i] / area * level;
        last_[static_cast<std::size_t>(channel)] =
            std::max(last_[static_cast<std::size_t>(channel)], start + width);
    }

    /// Noise shaped to lowHz…highHz, rising over `riseMs` and decaying with `decayMs`,
    /// added straight to the output with peak envelope `level`.
    void noise(SynthEngine::Random& random, double atMs, double riseMs, double decayMs,
               double lowHz, double highHz, double level) {
        const auto start = index(atMs);
        const double rise = std::max(1.0, riseMs * kRate / 1000.0);
        const double fall = onePoleRetain(decayMs);
        const double hp = onePoleRetain(1000.0 / (pm::kTwoPi * lowHz));
        const double lp = 1.0 - onePoleRetain(1000.0 / (pm::kTwoPi * highHz));
        // Long enough for the envelope to fall 80 dB.
        const auto length = static_cast<std::size_t>(rise + decayMs * 9.2 * kRate / 1000.0);
        double env = 0, decay = 1, x1 = 0, h = 0, l1 = 0, l2 = 0;
        for (std::size_t i = 0; i < length && start + i < out_.size(); ++i) {
            const double x = random.noise();
            h = hp * (h + x - x1); // one-pole high-pass
            x1 = x;
            l1 += lp * (h - l1); // two one-pole low-passes
            l2 += lp * (l1 - l2);
            const double n = static_cast<double>(i);
            if (n < rise) {
                env = n / rise;
            } else {
                decay *= fall;
                env = decay;
            }
            out_[start + i] += l2 * env * level * kNoiseGain;
        }
    }

    /// Noise through two band-passes at `centreHz` (quality `q`), rising over `riseMs`
    /// and decaying with `decayMs`, added straight to the output with peak envelope `level`.
    void band(SynthEngine::Random& random, double atMs, double riseMs, double decayMs,
              double centreHz, double q, double level) {
        const auto start = index(atMs);
        if (centreHz <= 0 || centreHz >= 0.45 * kRate || q <= 0)
            return;
        const auto [sn, cs] = pm::sinCos(pm::kTwoPi * centreHz / kRate);
        const double alpha = sn / (2.0 * q);
        const double a0 = 1.0 + alpha;
        const double b0 = alpha / a0, a1 = -2.0 * cs / a0, a2 = (1.0 - alpha) / a0;
        // White noise through the pair keeps about this share of its amplitude, which
        // the level makes up for: a 0 dB band is about as loud as a 0 dB burst.
        const double makeUp = std::sqrt(2.0 * q * kRate / (pm::kPi * centreHz));
        const double rise = std::max(1.0, riseMs * kRate / 1000.0);
        const double fall = onePoleRetain(decayMs);
        const auto length = static_cast<std::size_t>(rise + decayMs * 9.2 * kRate / 1000.0);
        double x1 = 0, x2 = 0, y1 = 0, y2 = 0, z1 = 0, z2 = 0, decay = 1;
        for (std::size_t i = 0; i < length && start + i < out_.size(); ++i) {
            const double x = random.noise();
            const double y = b0 * (x - x2) - a1 * y1 - a2 * y2;
            x2 = x1;
            x1 = x;
            const double z = b0 * (y - y1) - a1 * z1 - a2 * z2;
            y2 = y1;
            y1 = y;
            z2 = z1;
            z1 = z;
            const double n = static_cast<double>(i);
            double env = 0;
            if (n < rise) {
                env = n / rise;
            } else {
                decay *= fall;
                env = decay;
            }
            out_[start + i] += z * env * level * makeUp;
        }
    }

    /// Adds the ringing of `mode` driven by its channel.
    void ring(const Mode& mode) {
        const auto& input = channels_[static_cast<std::size_t>(mode.channel)];
        const std::size_t last = last_[static_cast<std::size_t>(mode.channel)];
        if (last == 0 || mode.hz <= 0 || mode.hz >= 0.45 * kRate)
            return;
        const double retain = onePoleRetain(mode.decayMs);
        const auto [s, c] = pm::sinCos(pm::kTwoPi * mode.hz / kRate);
        const double b1 = 2.0 * retain * c, b2 = -retain * retain, g = mode.gain * s;
        const auto end = std::min(
            out_.size(), last + static_cast<std::size_t>(kRingOut * mode.decayMs * kRate / 1000.0));
        double y1 = 0, y2 = 0;
        for (std::size_t i = 0; i < end; ++i) {
            const double y = b1 * y1 + b2 * y2 + g * input[i];
            y2 = y1;
            y1 = y;
            out_[i] += y;
        }
    }

    std::vector<double>& output() { return out_; }

    static std::size_t index(double ms) { return static_cast<std::size_t>(ms * kRate / 1000.0); }

    /// The per-sample factor of an exponential decay with this time constant.
    static double onePoleRetain(double decayMs) {
        return pm::exp(-1000.0 / (std::max(decayMs, 0.01) * kRate));
    }

private:
    std::vector<double> out_;
    std::array<std::vector<double>, kChannels> channels_;
    std::array<std::size_t, kChannels> last_{};
};

/// A factor near 1: 1 ± spread, drawn uniformly.
double jitter(SynthEngine::Random& random, double spread) {
    return 1.0 + static_cast<double>(random.uniform(-1.0f, 1.0f)) * spread;
}

template <std::size_t N>
void addModes(std::vector<Mode>& modes, const ModeSet<N>& set, double baseHz, double decayMs,
              double gain, int channel, SynthEngine::Random& keyRandom, double spread) {
    for (std::size_t i = 0; i < N; ++i) {
        // Drawn for every mode in a fixed order, so a key's sound never depends on
        // which modes end up audible.
        const double detune = jitter(keyRandom, spread);
        const double level = jitter(keyRandom, 2.0 * spread);
        modes.push_back({baseHz * set.ratio[i] * detune, decayMs * set.decay[i],
                         gain * set.gain[i] * level, channel});
    }
}

/// Removes DC (a one-pole high-pass at 25 Hz), lets the low modes fall off as a small
/// board radiates them (two one-pole high-passes: 12 dB per octave below `radiateHz`) and,
/// for dampened boards, low-passes.
void finish(std::vector<double>& x, double radiateHz, double muteHz) {
    const auto highPass = [&x](double cornerHz) {
        const double hp = Stroke::onePoleRetain(1000.0 / (pm::kTwoPi * cornerHz));
        double x1 = 0, h = 0;
        for (double& v : x) {
            h = hp * (h + v - x1);
            x1 = v;
            v = h;
        }
    };
    highPass(25.0);
    if (radiateHz > 0) {
        highPass(radiateHz);
        highPass(radiateHz);
    }
    if (muteHz <= 0)
        return;
    const double lp = 1.0 - Stroke::onePoleRetain(1000.0 / (pm::kTwoPi * muteHz));
    double l1 = 0, l2 = 0;
    for (double& v : x) {
        l1 += lp * (v - l1);
        l2 += lp * (l1 - l2);
        v = l2;
    }
}

/// Cuts the inaudible tail and fades out the rest.
std::vector<float> trimmed(const std::vector<double>& x) {
    double peak = 0;
    for (double v : x)
        peak = std::max(peak, std::fabs(v));
    const double floor = peak * pm::gainOfDb(kTrimDb);
    std::size_t end = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (std::fabs(x[i]) > floor)
            end = i + 1;
    }
    const auto fade = Stroke::index(kFadeMs);
    end = std::min(x.size(), end + fade);
    std::vector<float> out(end);
    for (std::size_t i = 0; i < end; ++i) {
        const std::size_t left = end - i;
        const double g = left < fade ? static_cast<double>(left) / static_cast<double>(fade) : 1.0;
        out[i] = static_cast<float>(x[i] * g);
    }
    return out;
}

} // namespace

std::optional<KeyPlacement> placementOf(std::string_view keyName) {
    for (const KeySite& site : kLayout) {
        if (site.name == keyName)
            return KeyPlacement{site.row, site.x, site.width, site.stabilised};
    }
    return std::nullopt;
}

std::vector<float> render(const SwitchProfile& p, const KeyPlacement& key, std::uint64_t keySeed,
                          std::uint64_t pressSeed, bool release) {
    SynthEngine::Random keyRandom(keySeed);
    SynthEngine::Random pressRandom(pressSeed);
    const Drive& drive = release ? kReleaseDrive : kPressDrive;
    const int row = std::clamp(key.row, 0, 5);
    const double width = std::max(1.0, key.width);
    const double x = std::clamp(key.x, 0.0, kPlateWidth);
    const double y = kRowY[static_cast<std::size_t>(row)];
    const double wide = (width - 1.0) / 5.25; // 0 for 1u, 1 for Space

    // The modes this key excites.
    std::vector<Mode> modes;
    const double plateNorm = 1.0 / (kPlateWidth * kPlateWidth) + 1.0 / (kPlateDepth * kPlateDepth);
    for (const auto& [m, n] : kPlateModes) {
        const double md = m, nd = n;
        const double ratio =
            (md * md / (kPlateWidth * kPlateWidth) + nd * nd / (kPlateDepth * kPlateDepth)) /
            plateNorm;
        const double shape = pm::sinCos(pm::kPi * md * x / kPlateWidth).sin *
                             pm::sinCos(pm::kPi * nd * y / kPlateDepth).sin;
        const double detune = jitter(keyRandom, p.keySpread);
        const double level = jitter(keyRandom, 2.0 * p.keySpread);
        const double falloff = 1.0 / std::sqrt(ratio); // higher modes: weaker, shorter
        modes.push_back({p.plateHz * ratio * detune, p.plateDecayMs * falloff,
                         pm::gainOfDb(p.plateDb) * drive.plate * shape * falloff * level, kStem});
    }
    const double central = 0.6 + 0.4 * pm::sinCos(pm::kPi * x / kPlateWidth).sin;
    addModes(modes, kCaseModes, p.caseHz, p.caseDecayMs,
             pm::gainOfDb(p.caseDb) * drive.kase * central * (1.0 + 0.8 * wide), kStem, keyRandom,
             p.keySpread);
    // A wider cap is a longer beam: lower and a little longer-ringing.
    const double capPitch = kRowCapPitch[static_cast<std::size_t>(row)] * pm::pow(width, -0.33);
    addModes(modes, kCapModes, p.capHz * capPitch, p.capDecayMs * (1.0 + 0.5 * wide),
             pm::gainOfDb(p.capDb) * drive.cap, kStem, keyRandom, p.keySpread);
    addModes(modes, kHousingModes, p.housingHz, p.housingDecayMs,
             pm::gainOfDb(p.housingDb) * drive.housing, kStem, keyRandom, p.keySpread);
    addModes(modes, kSpringModes, p.springHz, p.springDecayMs,
             pm::gainOfDb(p.springDb) * drive.spring, kStem, keyRandom, p.keySpread);
    addModes(modes, kClickModes, p.clickHz, p.clickDecayMs, 1.0, kClick, keyRandom, p.keySpread);
    const double wireHz = kWireHz * pm::pow(2.25 / width, 0.3);
    addModes(modes, kWireModes, wireHz, kWireDecayMs, 1.0, kWire, keyRandom, p.keySpread);

    // This stroke: force, contact time and timing vary a little from stroke to stroke.
    const double keyLevel = jitter(keyRandom, p.keySpread);
    // Where the board is struck also moves the centre of its dense ringing, as it moves
    // the modes: by row (the cap's profile) and from key to key.
    const double tailHz = p.tailHz * kRowCapPitch[static_cast<std::size_t>(row)] *
                          jitter(keyRandom, 4.0 * p.keySpread) * (1.0 - 0.25 * wide);
    const double force = jitter(pressRandom, 5.0 * p.pressSpread) * keyLevel;
    const double contactMs = (release ? p.releaseContactMs : p.contactMs) *
                             jitter(pressRandom, 6.0 * p.pressSpread) *
                             (1.0 + 0.25 * wide); // a heavy cap lands softer
    const double leadJitter = jitter(pressRandom, 10.0 * p.pressSpread);
    const double rattleJitter = jitter(pressRandom, 10.0 * p.pressSpread);
    const double impactLevel = force * (release ? pm::gainOfDb(p.releaseDb) : 1.0);

    const bool clicky = p.clickDb > -90;
    const bool tactile = p.bumpDb > -90;
    double impactMs = kStartMs;
    if (clicky)
        impactMs += p.clickLeadMs * leadJitter * (release ? 0.6 : 1.0);
    else if (tactile)
        impactMs += p.bumpLeadMs * leadJitter * (release ? 0.7 : 1.0);

    double longest = 0;
    for (const Mode& mode : modes)
        longest = std::max(longest, mode.decayMs);
    const double lengthMs =
        std::min(kMaxSeconds * 1000.0, impactMs + kRattleDelayMs.back() * 2 + 9.2 * longest);
    Stroke stroke(Stroke::index(lengthMs) + 1);

    if (clicky) {
        // The leaf snaps (or the jacket resets): a very hard, tiny impact of its own.
        const double level = pm::gainOfDb(p.clickDb + (release ? 0.5 * p.releaseDb : 0.0)) *
                             jitter(pressRandom, 4.0 * p.pressSpread);
        stroke.impact(kClick, kStartMs, 0.06, level);
        stroke.impact(kStem, kStartMs, 0.06, 0.25 * level);
        stroke.noise(pressRandom, kStartMs, 0.05, 0.35, 1500, 14000, 0.6 * level);
    }
    if (tactile) {
        // The bump: legs scraping over the stem's slope for a few ms.
        const double level = pm::gainOfDb(p.bumpDb + (release ? 0.5 * p.releaseDb : 0.0));
        stroke.noise(pressRandom, kStartMs, 2.0, 2.5, 700, 6000, level);
        stroke.impact(kStem, kStartMs + 2.0, 1.5, 0.2 * level);
    }
    const double noiseLevel = pm::gainOfDb(p.noiseDb) * impactLevel;
    if (key.stabilised) {
        // The two ends of a long cap land a moment apart.
        const double split = 0.8 + 1.2 * wide;
        stroke.impact(kStem, impactMs, contactMs, 0.65 * impactLevel);
        stroke.impact(kStem, impactMs + split, contactMs, 0.45 * impactLevel);
        stroke.noise(pressRandom, impactMs, 0.1, p.noiseDecayMs, p.noiseLowHz, p.noiseHighHz,
                     0.7 * noiseLevel);
        stroke.noise(pressRandom, impactMs + split, 0.1, p.noiseDecayMs, p.noiseLowHz,
                     p.noiseHighHz, 0.5 * noiseLevel);
        const double rattle = pm::gainOfDb(p.rattleDb) * impactLevel * (release ? 0.6 : 1.0);
        for (std::size_t i = 0; i < kRattleDelayMs.size(); ++i) {
            const double at = impactMs + kRattleDelayMs[i] * rattleJitter;
            stroke.impact(kWire, at, 0.08, rattle * kRattleLevel[i]);
            stroke.impact(kStem, at, 0.08, 0.3 * rattle * kRattleLevel[i]);
            stroke.noise(pressRandom, at, 0.05, 0.5, 2000, 12000, 0.5 * rattle * kRattleLevel[i]);
        }
    } else {
        stroke.impact(kStem, impactMs, contactMs, impactLevel);
        stroke.noise(pressRandom, impactMs, 0.1, p.noiseDecayMs, p.noiseLowHz, p.noiseHighHz,
                     noiseLevel);
    }

    stroke.noise(pressRandom, impactMs, 0.5, p.buzzDecayMs, 2500, 16000,
                 pm::gainOfDb(p.buzzDb) * impactLevel);
    // The board rings on: lower and longer under a long cap, which spreads the blow over
    // more of the plate; after a top-out, which reaches it through the switch only, less,
    // higher and shorter.
    stroke.band(pressRandom, impactMs, 0.3,
                p.tailDecayMs * (1.0 + 0.4 * wide) * (release ? kReleaseTailDecay : 1.0),
                tailHz * (release ? kReleaseTailPitch : 1.0), p.tailQ,
                pm::gainOfDb(p.tailDb) * impactLevel * drive.plate);
    for (const Mode& mode : modes)
        stroke.ring(mode);
    finish(stroke.output(), p.radiateHz, p.muteHz);
    return trimmed(stroke.output());
}

} // namespace tappix::SwitchModel
