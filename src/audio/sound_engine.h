#pragma once

#include "audio/sample_player.h"
#include "core/clock.h"
#include "input/capture_source.h"
#include "input/key_group.h"
#include "kits/kit_catalog.h"
#include "kits/soundpack_store.h"
#include "kits/synth_engine.h"
#include "settings/pack_tuning.h"
#include "settings/sound_mix.h"

#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tappix {

/// Turns each key and mouse event into at most one sound: whether to sound, which
/// kit and sample answer the key, and at which rate, pan and gain. Keeps the player's
/// samples in step with the main kit and the active mix.
///
/// Settings and kits reach the per-event path as one immutable snapshot swapped
/// atomically, so events never touch the settings store; the per-event path reads no
/// file and allocates only the queued play request. A change of kits reaches the
/// snapshot only once the player has their samples in: until then keys play the kits
/// loaded before, and previews wait for the new ones.
class SoundEngine {
public:
    /// The settings the engine applies, as a value the key queue can read safely.
    struct Settings {
        bool isEnabled = true;
        bool ignoreRapidKeys = false;
        bool modifierSoundsEnabled = true;
        bool keyUpSoundsEnabled = true;
        bool dingOnReturn = false;
        bool pitchVariation = true;
        bool stereoPanning = true;
        bool spatialAudio = false;
        bool mouseClickSounds = false;
        float tonePitch = 1.0f;
        float effectsVolume = 1.0f;
        MouseSoundOption mouseSound{SynthEngine::MouseProfile::soft};
        /// The active mix's voice per region, in `KeyGroup` order (none: the main kit).
        std::array<std::optional<MixVoice>, KeyGroup::kCount> voices{};
        /// Per-kit tuning; kits without one use the identity tuning.
        std::map<std::string, PackTuning, std::less<>> tunings;
    };

    /// Counters the engine bumps; each is called on the key queue and must hop to the
    /// main thread itself.
    struct Counters {
        std::function<void()> keystroke;
        std::function<void()> ding;
        std::function<void()> click;
    };

    /// A key resolved to a kit: where to play from and which names to try.
    struct ResolvedVoice {
        /// The kit to play from.
        std::string packId;
        /// Its manifest.
        std::shared_ptr<const SoundpackConfig> config;
        /// A specific sound chosen by the mix, tried before the key's own names.
        std::optional<std::string> sound;
        /// The key's own names.
        SoundCandidates candidates;
    };

    /// Shortest gap between two sounding events when rapid keys are skipped.
    static constexpr double kRapidKeySeconds = 0.01;
    /// Spatial audio widens the stereo field by this factor.
    static constexpr float kSpatialWidth = 1.25f;

    /// An engine over `store` playing into `player`, timing rapid keys on `clock`;
    /// `seed` starts the variant and pitch draws. Main thread.
    SoundEngine(const SoundpackStore& store, SamplePlayer& player, const Clock& clock,
                std::uint64_t seed);

    /// Replaces the settings snapshot; loads samples only when the kits in use change.
    /// Main thread.
    void setSettings(Settings settings);
    /// Installs the counters. Main thread, before events flow.
    void setCounters(Counters counters) { counters_ = std::move(counters); }

    /// Makes `pack` (or none) the main kit and reloads the player's samples (the player
    /// decodes only files that are new or changed). Main thread.
    void loadPack(const Soundpack* pack);
    /// Reloads the samples of every kit the active mix uses, the same way. Main thread.
    void mixChanged();
    /// Loads a kit's samples as the mouse sounds, unless already loaded; while the kit
    /// is not installed, mouse clicks are silent. Main thread.
    void useMouseKit(const std::string& kitId);
    /// The main kit's id, if any. Main thread.
    std::optional<std::string> currentPackId() const;

    /// One key event. Key queue.
    void handleKey(KeyCode code, bool down);
    /// One mouse event. Key queue.
    void handleMouse(MouseButton button, bool down);

    /// The kit and names that answer a key, or none. Any thread.
    std::optional<ResolvedVoice> resolve(KeyCode code) const;
    /// Plays a key as it would sound, without rapid-key, enable or key-up rules and
    /// without pitch variation; after the kits asked for so far are loaded. Any thread,
    /// also while keys are being handled.
    void previewKey(KeyCode code);
    /// A short audition of the kit answering a key: rate 1, centred, tuned gain; after
    /// the kits asked for so far are loaded. Any thread, also while keys are being handled.
    void previewKit(KeyCode code);

private:
    struct Region {
        std::string packId;
        std::shared_ptr<const SoundpackConfig> config;
        std::optional<std::string> sound;
        bool operator==(const Region&) const = default;
    };
    using Regions = std::array<std::optional<Region>, KeyGroup::kCount>;
    struct State {
        Settings settings;
        Regions regions{};
    };
    /// What the per-event path reads, and what completes it: shared with the player's
    /// load callbacks, which may run after the engine is gone.
    struct Published {
        std::atomic<std::shared_ptr<const State>> state;
        std::mutex mutex;
        // The latest settings and the regions whose samples are in, under `mutex`.
        Settings settings;
        Regions regions{};
        // Loads asked for and not in yet, and the previews waiting for them.
        int pending = 0;
        std::vector<std::function<void()>> afterLoads;
        void publishLocked();
        void loaded(const Regions& loaded);
    };

    void apply(bool reread);
    void whenLoaded(std::function<void()> task);
    std::shared_ptr<const State> state() const { return published_->state.load(); }
    static std::optional<ResolvedVoice> resolveIn(const State& state, KeyCode code);
    static const std::vector<std::string>* variants(const ResolvedVoice& voice, bool down);
    static const std::string& pick(const std::vector<std::string>& list,
                                   SynthEngine::Random& random);
    SynthEngine::Random previewRandom();
    static PackTuning tuningFor(const State& state, const std::string& packId);
    SampleRef mouseBuffer(SynthEngine::MouseProfile profile, bool press);

    const SoundpackStore& store_;
    SamplePlayer& player_;
    const Clock& clock_;
    Counters counters_;

    // Main thread.
    std::optional<Soundpack> currentPack_;
    std::shared_ptr<const SoundpackConfig> mainConfig_;
    Settings settings_;
    std::optional<std::string> loadedMouseKitID_;
    std::shared_ptr<const SoundpackConfig> mouseKitConfig_;

    // The kits last asked of the player, and the regions they answer. Main thread.
    std::vector<SamplePlayer::SampleSet> requestedSets_;
    std::optional<Regions> requestedRegions_;

    std::shared_ptr<Published> published_ = std::make_shared<Published>();
    std::atomic<std::shared_ptr<const SoundpackConfig>> mouseKit_;

    // Previews, from any thread.
    std::atomic<std::uint64_t> previewSeed_;

    // Key queue.
    SynthEngine::Random random_;
    std::optional<Clock::Duration> lastEventTime_;
    SampleRef dingBuffer_;
    std::map<std::pair<SynthEngine::MouseProfile, bool>, SampleRef> synthMouseBuffers_;
};

} // namespace tappix
