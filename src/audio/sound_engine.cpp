#include "audio/sound_engine.h"

#include "core/log.h"

#include <algorithm>
#include <set>

namespace tappix {
namespace {

constexpr std::uint32_t kGrid = 1u << 24;

} // namespace

SoundEngine::SoundEngine(const SoundpackStore& store, SamplePlayer& player, const Clock& clock,
                         std::uint64_t seed)
    : store_(store), player_(player), clock_(clock), previewSeed_(~seed), random_(seed) {
    apply(false);
}

void SoundEngine::setSettings(Settings settings) {
    settings_ = std::move(settings);
    apply(false);
}

std::optional<std::string> SoundEngine::currentPackId() const {
    return currentPack_ ? std::optional(currentPack_->config.id) : std::nullopt;
}

void SoundEngine::loadPack(const Soundpack* pack) {
    if (pack)
        currentPack_ = *pack;
    else
        currentPack_.reset();
    mainConfig_ = pack ? std::make_shared<const SoundpackConfig>(pack->config) : nullptr;
    qCInfo(lcEngine, "main kit: %s", pack ? pack->config.id.c_str() : "(none)");
    apply(true);
}

void SoundEngine::mixChanged() {
    apply(true);
}

void SoundEngine::apply(bool reread) {
    // The regions the settings and the main kit ask for.
    Regions wanted{};
    // Manifests are shared between regions and snapshots, never copied per change.
    std::map<std::string, std::shared_ptr<const SoundpackConfig>, std::less<>> assignedConfigs;
    for (KeyGroup::Value group : KeyGroup::allCases) {
        const auto& voice = settings_.voices[group];
        std::optional<Region> region;
        // A voice whose kit is not installed plays from the main kit.
        const Soundpack* assigned =
            voice && voice->packId ? store_.find(voice->packId->toStdString()) : nullptr;
        if (assigned) {
            auto& config = assignedConfigs[assigned->config.id];
            // The manifest the regions already use while it is the same, so that
            // unchanged regions compare equal.
            for (const auto& used : requestedRegions_.value_or(Regions{}))
                if (!config && used && used->packId == assigned->config.id &&
                    *used->config == assigned->config)
                    config = used->config;
            if (!config)
                config = std::make_shared<const SoundpackConfig>(assigned->config);
            region = Region{assigned->config.id, config, {}};
        } else if (mainConfig_) {
            region = Region{mainConfig_->id, mainConfig_, {}};
        }
        if (region && voice && voice->sound)
            region->sound = voice->sound->toStdString();
        wanted[group] = std::move(region);
    }

    // One set per distinct kit, with every file its manifest lists.
    std::vector<SamplePlayer::SampleSet> sets;
    std::set<std::string> seen;
    for (const auto& region : wanted) {
        if (!region || !seen.insert(region->packId).second)
            continue;
        const Soundpack* pack = store_.find(region->packId);
        const QString directory =
            pack ? pack->soundsDirectory()
                 : (currentPack_ ? currentPack_->soundsDirectory() : QString());
        sets.push_back({region->packId, directory, region->config->allFiles()});
    }

    const bool load = reread || sets != requestedSets_;
    const bool changed = !requestedRegions_ || wanted != *requestedRegions_;
    bool ask = load;
    {
        std::lock_guard lock(published_->mutex);
        published_->settings = settings_;
        // Same kits: nothing to wait for, unless loads asked for before are not in yet.
        // With no kit in at all (the first load) keys have nothing to play meanwhile:
        // they resolve at once (and count), and sound once the samples are in.
        const bool nothingIn = std::none_of(published_->regions.begin(), published_->regions.end(),
                                            [](const auto& region) { return region.has_value(); });
        if (changed && (nothingIn || (!load && published_->pending == 0)))
            published_->regions = wanted;
        else if (!load && changed)
            ask = true;
        if (ask)
            ++published_->pending;
        published_->publishLocked();
    }
    requestedRegions_ = wanted;
    if (!ask)
        return;
    requestedSets_ = sets;
    player_.loadSampleSets(std::move(sets),
                           [published = published_, wanted] { published->loaded(wanted); });
}

void SoundEngine::Published::publishLocked() {
    auto next = std::make_shared<State>();
    next->settings = settings;
    next->regions = regions;
    state.store(std::move(next));
}

void SoundEngine::Published::loaded(const Regions& loaded) {
    // On the player's thread, once the samples are in; in the order of the loads.
    std::vector<std::function<void()>> waiting;
    {
        std::lock_guard lock(mutex);
        regions = loaded;
        publishLocked();
        if (--pending == 0)
            waiting.swap(afterLoads);
    }
    for (auto& task : waiting)
        task();
}

void SoundEngine::whenLoaded(std::function<void()> task) {
    {
        std::lock_guard lock(published_->mutex);
        if (published_->pending > 0) {
            published_->afterLoads.push_back(std::move(task));
            return;
        }
    }
    task();
}

void SoundEngine::useMouseKit(const std::string& kitId) {
    if (loadedMouseKitID_ == kitId)
        return;
    const Soundpack* pack = store_.find(kitId);
    if (!pack) {
        // A kit that is not there sounds like nothing, never like the kit chosen before.
        qCInfo(lcEngine, "mouse kit %s is not installed", kitId.c_str());
        loadedMouseKitID_.reset();
        mouseKit_.store(nullptr);
        return;
    }
    player_.loadMouseKit(pack->soundsDirectory(), pack->config.allFiles());
    loadedMouseKitID_ = kitId;
    mouseKit_.store(std::make_shared<const SoundpackConfig>(pack->config));
}

std::optional<SoundEngine::ResolvedVoice> SoundEngine::resolveIn(const State& state, KeyCode code) {
    const auto& region = state.regions[KeyGroup::of(code)];
    if (!region)
        return std::nullopt;
    return ResolvedVoice{region->packId, region->config, region->sound, soundCandidates(code)};
}

std::optional<SoundEngine::ResolvedVoice> SoundEngine::resolve(KeyCode code) const {
    return resolveIn(*state(), code);
}

const std::vector<std::string>* SoundEngine::variants(const ResolvedVoice& voice, bool down) {
    auto lookup = [&](std::string_view name) -> const std::vector<std::string>* {
        auto it = voice.config->sounds.find(name);
        if (it == voice.config->sounds.end())
            return nullptr;
        const auto& list = down ? it->second.down : it->second.up;
        return list.empty() ? nullptr : &list;
    };
    if (voice.sound) {
        if (const auto* list = lookup(*voice.sound))
            return list;
    }
    for (std::string_view name : voice.candidates) {
        if (const auto* list = lookup(name))
            return list;
    }
    return nullptr;
}

const std::string& SoundEngine::pick(const std::vector<std::string>& list,
                                     SynthEngine::Random& random) {
    return list[random.uniform(static_cast<std::uint32_t>(list.size()))];
}

SynthEngine::Random SoundEngine::previewRandom() {
    // Each preview draws from a generator of its own, so previews from the main thread
    // never share state with the key queue's generator.
    return SynthEngine::Random(
        previewSeed_.fetch_add(0x9E3779B97F4A7C15ULL, std::memory_order_relaxed));
}

PackTuning SoundEngine::tuningFor(const State& state, const std::string& packId) {
    auto it = state.settings.tunings.find(packId);
    return it == state.settings.tunings.end() ? PackTuning{} : it->second;
}

void SoundEngine::handleKey(KeyCode code, bool down) {
    const auto current = state();
    const Settings& s = current->settings;
    if (!s.isEnabled)
        return;
    const auto voice = resolveIn(*current, code);
    if (!voice)
        return;

    if (s.ignoreRapidKeys) {
        const Clock::Duration now = clock_.now();
        const bool rapid =
            lastEventTime_ &&
            now - *lastEventTime_ < std::chrono::duration_cast<Clock::Duration>(
                                        std::chrono::duration<double>(kRapidKeySeconds));
        // Dropped events move the time too: a burst sounds only its first event.
        lastEventTime_ = now;
        if (rapid)
            return;
    }

    const KeyGroup coarse = coarseGroup(code);
    if (coarse == KeyGroup::modifier && !s.modifierSoundsEnabled)
        return;
    if (!down) {
        if (!voice->config->metadata.supportsKeyUp || !s.keyUpSoundsEnabled)
            return;
    } else {
        if (counters_.keystroke)
            counters_.keystroke();
        if (s.dingOnReturn && coarse == KeyGroup::enter) {
            if (!dingBuffer_)
                dingBuffer_ = SynthEngine::makeBuffer(SynthEngine::ding());
            player_.playBuffer(dingBuffer_, 1.0f, 0.0f, s.effectsVolume);
            if (counters_.ding)
                counters_.ding();
        }
    }

    const auto* list = variants(*voice, down);
    if (!list)
        return;
    const std::string& variant = pick(*list, random_);
    const PackTuning tuning = tuningFor(*current, voice->packId);

    float multiplier = 1.0f;
    if (s.pitchVariation && tuning.variation > 0.0f) {
        const std::uint32_t r = random_.uniform(kGrid + 1);
        const float v = tuning.variation;
        multiplier =
            1.0f +
            (r == kGrid ? v : static_cast<float>(r) / static_cast<float>(kGrid) * 2.0f * v - v);
    }
    const float rate = std::clamp(tuning.pitch * s.tonePitch * multiplier, 0.5f, 2.0f);
    float width = 0.0f;
    if (s.stereoPanning)
        width = tuning.panWidth * (s.spatialAudio ? kSpatialWidth : 1.0f);
    const float pan = std::clamp(panPosition(code) * width, -0.9f, 0.9f);
    player_.play(voice->packId, variant, rate, pan, tuning.gain);
}

SampleRef SoundEngine::mouseBuffer(SynthEngine::MouseProfile profile, bool press) {
    auto& buffer = synthMouseBuffers_[{profile, press}];
    if (!buffer) {
        const auto preset = SynthEngine::mousePreset(profile, press);
        buffer = SynthEngine::makeBuffer(SynthEngine::render(preset.params, preset.seed, false));
    }
    return buffer;
}

void SoundEngine::handleMouse(MouseButton, bool down) {
    const auto current = state();
    const Settings& s = current->settings;
    if (!s.isEnabled || !s.mouseClickSounds)
        return;
    // The release is deliberately quieter than the press.
    const float level = s.effectsVolume * (down ? 0.95f : 0.6f);
    bool played = false;
    if (const auto* profile = std::get_if<SynthEngine::MouseProfile>(&s.mouseSound.choice)) {
        player_.playBuffer(mouseBuffer(*profile, down), 1.0f, 0.0f, level);
        played = true;
    } else if (std::holds_alternative<std::string>(s.mouseSound.choice)) {
        const auto kit = mouseKit_.load();
        if (kit) {
            ResolvedVoice voice{kit->id, kit, std::nullopt, soundCandidates(0)};
            if (const auto* list = variants(voice, down)) {
                player_.playMouse(pick(*list, random_), 1.0f, 0.0f, level);
                played = true;
            }
        }
    } else if (auto voice = resolveIn(*current, 0)) {
        // The keyboard's kit: its ordinary-key sound, releases only where it has them.
        if (down || voice->config->metadata.supportsKeyUp) {
            if (const auto* list = variants(*voice, down)) {
                const PackTuning tuning = tuningFor(*current, voice->packId);
                player_.play(voice->packId, pick(*list, random_), 1.0f, 0.0f,
                             tuning.gain * s.effectsVolume);
                played = true;
            }
        }
    }
    if (played && down && counters_.click)
        counters_.click();
}

void SoundEngine::previewKey(KeyCode code) {
    // Heard once the kits asked for so far are in (a kit just chosen, not the one before).
    // The task may run after the engine is gone: it holds only what it needs.
    whenLoaded(
        [published = published_, &player = player_, random = previewRandom(), code]() mutable {
            const auto current = published->state.load();
            const auto voice = resolveIn(*current, code);
            if (!voice)
                return;
            const auto* list = variants(*voice, true);
            if (!list)
                return;
            const PackTuning tuning = tuningFor(*current, voice->packId);
            const float rate = std::clamp(tuning.pitch * current->settings.tonePitch, 0.5f, 2.0f);
            const float pan =
                panPosition(code) * (current->settings.stereoPanning ? tuning.panWidth : 0.0f);
            player.play(voice->packId, pick(*list, random), rate, pan, tuning.gain);
        });
}

void SoundEngine::previewKit(KeyCode code) {
    whenLoaded(
        [published = published_, &player = player_, random = previewRandom(), code]() mutable {
            const auto current = published->state.load();
            const auto voice = resolveIn(*current, code);
            if (!voice)
                return;
            if (const auto* list = variants(*voice, true))
                player.play(voice->packId, pick(*list, random), 1.0f, 0.0f,
                            tuningFor(*current, voice->packId).gain);
        });
}

} // namespace tappix
