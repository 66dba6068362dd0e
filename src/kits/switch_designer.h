#pragma once

#include "kits/soundpack_config.h"
#include "kits/synth_engine.h"

#include <QString>
#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tappix {

/// Turns five synthesis numbers and a name into a kit of the user's own: five key
/// groups of rendered presses and releases and a manifest, written into the user kit
/// directory under "custom-" and the name's slug. Everything it makes is a pure
/// function of the numbers and the name, so the same design saves the same bytes.
/// Any thread; `save` touches nothing but the kit's own directory.
class SwitchDesigner {
public:
    /// Writes mono 48 kHz samples as a 16-bit PCM WAV file; false with the system's
    /// reason on failure.
    using SampleWriter =
        std::function<bool(const std::vector<float>&, const QString& path, std::string& error)>;

    /// The range a designed parameter moves in, and the step its slider takes.
    struct Range {
        /// Lowest value.
        float min;
        /// Highest value.
        float max;
        /// Slider step.
        float step;
    };

    /// Depth: the body's pitch, low for a thock, high for a pop.
    static constexpr Range kBodyHzRange{120.0f, 900.0f, 5.0f};
    /// Click: the loudness of the initial noise tick.
    static constexpr Range kClickRange{0.0f, 1.5f, 0.05f};
    /// Sustain: the body's decay time constant, ms.
    static constexpr Range kDecayMsRange{3.0f, 40.0f, 0.5f};
    /// Tone: the corner of the final low-pass, dark to bright.
    static constexpr Range kToneHzRange{1500.0f, 14000.0f, 100.0f};

    /// Where a new design starts: a rounded, medium linear.
    static constexpr SynthParams kDefaultParams{320.0f, 0.7f, 12.0f, 7000.0f, false};

    /// A named starting point.
    struct Preset {
        /// What the list shows.
        std::string_view name;
        /// The design it loads.
        SynthParams params;
    };

    /// Starting points after the feel of the bundled modelled keyboards of the same
    /// names: as bright as two partials and a tick allow (a recorded keystroke centres
    /// around 2 to 4 kHz), in the same order from dark to bright, and as tight.
    static constexpr std::array<Preset, 4> kPresets{{
        {"Crisp click", {900.0f, 1.5f, 8.0f, 14000.0f, true}},
        {"Silk linear", {700.0f, 1.0f, 10.0f, 11000.0f, false}},
        {"Deep linear", {860.0f, 1.2f, 9.0f, 13000.0f, false}},
        {"Velvet", {600.0f, 0.8f, 12.0f, 8000.0f, false}},
    }};

    /// The key groups a designed kit holds, in the order they are rendered.
    static constexpr std::array<std::string_view, 5> kGroups{"alpha", "backspace", "enter",
                                                             "modifier", "space"};
    /// Press variants per group.
    static constexpr int kPresses = 4;
    /// Release variants per group.
    static constexpr int kReleases = 3;
    /// The seed of the first file rendered.
    static constexpr std::uint64_t kFirstSeed = 24301;
    /// How far the seed moves after each file rendered.
    static constexpr std::uint64_t kSeedStep = 101;
    /// The seed a preview and the waveform use: the kit's first alpha press.
    static constexpr std::uint64_t kPreviewSeed = kFirstSeed;
    /// The id every designed kit's id starts with.
    static constexpr std::string_view kIdPrefix = "custom-";

    /// What a save made, or why it stopped.
    struct Result {
        /// The kit's id (set even when the save failed).
        QString id;
        /// The kit's directory.
        QString directory;
        /// The system's reason the save stopped; empty on success.
        std::string error;

        /// Whether the kit was written whole.
        bool ok() const { return error.empty(); }
    };

    /// A designer writing its samples with `writer`.
    explicit SwitchDesigner(SampleWriter writer);

    /// The name as the kit shows it: trimmed of spaces and tabs at both ends.
    static QString displayName(const QString& name);

    /// The display name lower-cased, every run of other characters
    /// than a-z and 0-9 made one "-", with "-" trimmed from both ends.
    static QString slug(const QString& name);

    /// "custom-" and the slug of `name`.
    static QString kitId(const QString& name);

    /// The parameters a group renders with, derived from the design: the space bar
    /// lower and longer, Enter and Backspace a little lower, modifiers higher, softer
    /// and shorter; tone and clickiness as designed everywhere.
    static SynthParams groupParams(std::string_view group, const SynthParams& design);

    /// The manifest of the kit `id` named `name` (trimmed), listing every group's files.
    static SoundpackConfig manifest(const QString& id, const QString& name);

    /// The press and the release of the preview seed, each rendered as the alpha group
    /// sounds, one after the other.
    static std::vector<float> previewSamples(const SynthParams& design);

    /// The outline of `previewSamples`: `points` peak magnitudes in 0 … 1, each the
    /// largest over its stretch of samples.
    static std::vector<float> waveform(const SynthParams& design, int points);

    /// The outline of any sound: `points` peak magnitudes in 0 … 1, each the largest
    /// over its stretch of `samples`.
    static std::vector<float> outline(const std::vector<float>& samples, int points);

    /// One sample file of a kit: its name inside `sounds/` and its samples.
    using KitFile = std::pair<std::string, std::vector<float>>;

    /// Writes a kit into `directory`: each of `files` into its `sounds` directory
    /// (made as needed), then `config` as config.json, pretty-printed, so a kit cut
    /// short never loads. Stops at the first failure with "file: reason"; empty on
    /// success.
    std::string writeKit(const SoundpackConfig& config, const std::vector<KitFile>& files,
                         const QString& directory) const;

    /// Writes a kit whole into `userDirectory`/<config.id>: built by `writeKit` in a
    /// hidden directory beside it and moved into place only once complete, so on any
    /// failure neither a half-written kit nor the loss of an earlier kit of the same id
    /// is left behind; an earlier kit is replaced only when the new one is in.
    Result saveWhole(const SoundpackConfig& config, const std::vector<KitFile>& files,
                     const QString& userDirectory) const;

    /// Writes the kit into `userDirectory`/<id>, replacing whatever was there: the
    /// sample files first, then config.json, so a kit cut short never loads. Stops at
    /// the first failure, leaving what was written.
    Result save(const SynthParams& design, const QString& name, const QString& userDirectory) const;

private:
    SampleWriter writer_;
};

} // namespace tappix
