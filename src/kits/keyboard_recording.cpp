#include "kits/keyboard_recording.h"

#include "input/key_codes.h"
#include "kits/switch_designer.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>
#include <numbers>
#include <numeric>

namespace tappix {

namespace {

constexpr std::size_t kHop =
    static_cast<std::size_t>(KeyboardRecording::kFrameMs * KeyboardRecording::kSampleRate / 1000);
// The level an onset is measured against: the loudest of these frames before it, so
// a sound that is still decaying never counts as a new one.
constexpr std::size_t kBackFrom = 3;
constexpr std::size_t kBackTo = 12;
// Onset strengths are capped here, so one very loud key cannot outvote the others
// when the offset is measured.
constexpr double kOnsetCapDb = 40.0;
// How far either side of a frame the offset search looks for an onset.
constexpr std::ptrdiff_t kAlignSlackFrames = 2;
// The onset is the first sample above this share of the attack's peak.
constexpr float kOnsetShareOfPeak = 0.1f;
// ... or this many times the noise floor, whichever is higher.
constexpr float kOnsetAboveFloor = 4.0f;
// Where the attack's peak is looked for after the onset frame.
constexpr double kAttackMs = 2.0;
// A rise this close to the sharpest one in a window, but earlier, is where the sound
// starts: a key's first touch often comes a few milliseconds before its loudest click.
constexpr double kEarlierOnsetDb = 20.0;
// Where the take's peak is looked for after its onset.
constexpr double kPeakWindowMs = 30.0;
// Frames in a row below a level that make a sound count as below it.
constexpr std::size_t kQuietRun = 5;
// A take ends this long before the next sound's onset.
constexpr double kBeforeNextMs = 1.0;
// Kept apart from the first key by the largest offset and a little more, so no key
// sound leaks into the noise estimate.
constexpr double kQuietGuardMs = 50.0;
// Levels below this count as silence when rises are measured: a microphone never
// delivers digital silence, and a rise out of it into a whisper far below any take
// (kMinPeakDbfs) is not where a key's sound starts.
constexpr double kSilentBelowDbfs = KeyboardRecording::kMinPeakDbfs - 20.0;

std::size_t samplesFor(double ms) {
    return static_cast<std::size_t>(std::lround(ms * KeyboardRecording::kSampleRate / 1000.0));
}

double dbfs(double level) {
    return 20.0 * std::log10(std::max(level, 1e-6));
}

double fromDb(double db) {
    return std::pow(10.0, db / 20.0);
}

template <typename T> T median(std::vector<T> values) {
    if (values.empty())
        return T{};
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Per frame of `kHop` samples: RMS and peak magnitude.
struct Envelope {
    std::vector<float> rms;
    std::vector<float> peak;
};

Envelope envelope(const std::vector<float>& samples) {
    Envelope env;
    const std::size_t frames = samples.size() / kHop;
    env.rms.resize(frames);
    env.peak.resize(frames);
    for (std::size_t f = 0; f < frames; ++f) {
        double sum = 0;
        float peak = 0;
        for (std::size_t i = f * kHop; i < (f + 1) * kHop; ++i) {
            sum += static_cast<double>(samples[i]) * samples[i];
            peak = std::max(peak, std::fabs(samples[i]));
        }
        env.rms[f] = static_cast<float>(std::sqrt(sum / kHop));
        env.peak[f] = peak;
    }
    return env;
}

// How sharply the level rises at each frame, in dB above the loudest of the frames
// shortly before it; the noise floor (or the level of silence, if higher) is added to
// both so that noise wobbling around the floor rises by almost nothing.
std::vector<float> onsetStrength(const Envelope& env, float floor) {
    std::vector<float> strength(env.rms.size(), 0.0f);
    const float bias = std::max(floor, static_cast<float>(fromDb(kSilentBelowDbfs)));
    for (std::size_t f = kBackTo; f < env.rms.size(); ++f) {
        float before = 0;
        for (std::size_t b = f - kBackTo; b <= f - kBackFrom; ++b)
            before = std::max(before, env.rms[b]);
        const double rise = dbfs(env.rms[f] + bias) - dbfs(before + bias);
        strength[f] = static_cast<float>(std::clamp(rise, 0.0, kOnsetCapDb));
    }
    return strength;
}

std::string_view flawWords(KeyboardRecording::Flaw flaw) {
    switch (flaw) {
    case KeyboardRecording::Flaw::missing:
        return "not heard";
    case KeyboardRecording::Flaw::tooQuiet:
        return "too quiet";
    case KeyboardRecording::Flaw::clipped:
        return "clipped (too loud for the microphone)";
    case KeyboardRecording::Flaw::overlapped:
        return "overlapped by the next key's sound";
    case KeyboardRecording::Flaw::unmatched:
    case KeyboardRecording::Flaw::none:
        break;
    }
    return "kept";
}

std::string formatDb(double db) {
    char text[32];
    std::snprintf(text, sizeof text, "%.0f dBFS", db);
    return text;
}

} // namespace

std::size_t KeyboardRecording::Cut::keptCount() const {
    return static_cast<std::size_t>(std::count_if(
        takes.begin(), takes.end(), [](const Take& take) { return take.flaw == Flaw::none; }));
}

std::string KeyboardRecording::keyTitle(KeyCode code) {
    using namespace keys;
    // Keys whose caps carry a symbol are named in words.
    static constexpr std::pair<KeyCode, const char*> kWords[] = {
        {space, "Space"},
        {returnKey, "Return"},
        {backspace, "Backspace"},
        {tab, "Tab"},
        {escape, "Esc"},
        {shift, "left Shift"},
        {rightShift, "right Shift"},
        {control, "left Ctrl"},
        {rightControl, "right Ctrl"},
        {option, "left Alt"},
        {rightOption, "right Alt"},
        {command, "left Super"},
        {rightCommand, "right Super"},
        {capsLock, "Caps Lock"},
        {keypadEnter, "keypad Enter"},
        {forwardDelete, "Delete"},
    };
    for (const auto& [key, word] : kWords)
        if (key == code)
            return word;
    if (const auto label = keyLabel(code); label && label->size() == 1)
        return std::string(
            1, static_cast<char>(std::toupper(static_cast<unsigned char>((*label)[0]))));
    if (const auto name = keyName(code))
        return std::string(*name);
    return "key " + std::to_string(code);
}

KeyboardRecording::Cut KeyboardRecording::cut(const std::vector<float>& samples,
                                              double startSeconds,
                                              const std::vector<RecordedKeyEvent>& events) {
    Cut result;
    if (events.empty()) {
        result.error = "no keys were typed while recording";
        return result;
    }
    float loudest = 0;
    for (float s : samples)
        loudest = std::max(loudest, std::fabs(s));
    if (samples.size() < 2 * kHop * kBackTo || dbfs(loudest) < kSilenceDbfs) {
        result.error = "the microphone heard only silence: check that it is the right one and "
                       "not muted";
        return result;
    }

    // Events in time order, each remembering its place in `events`; a release without
    // its press, or a press of a key already down, is no key movement of its own.
    std::vector<std::size_t> sorted(events.size());
    std::iota(sorted.begin(), sorted.end(), std::size_t{0});
    std::stable_sort(sorted.begin(), sorted.end(), [&](std::size_t a, std::size_t b) {
        return events[a].seconds < events[b].seconds;
    });
    result.takes.resize(events.size());
    std::vector<std::size_t> order;
    std::map<KeyCode, bool> held;
    for (std::size_t e : sorted) {
        Take& take = result.takes[e];
        take.code = events[e].code;
        take.down = events[e].down;
        bool& down = held[events[e].code];
        if (down == events[e].down) {
            take.flaw = Flaw::unmatched;
            continue;
        }
        down = events[e].down;
        order.push_back(e);
    }
    if (order.empty()) {
        result.error = "no keys were typed while recording";
        return result;
    }

    const Envelope env = envelope(samples);
    const std::size_t frames = env.rms.size();
    const auto frameOf = [&](double seconds) {
        return static_cast<std::ptrdiff_t>(
            std::floor((seconds - startSeconds) * kSampleRate / static_cast<double>(kHop)));
    };

    // The noise floor: the quiet before the first key, else the quietest tenth.
    const std::ptrdiff_t quietEnd =
        std::min(frameOf(events[order.front()].seconds) -
                     static_cast<std::ptrdiff_t>((kMaxOffsetMs + kQuietGuardMs) / kFrameMs),
                 static_cast<std::ptrdiff_t>(frames));
    std::vector<float> quiet;
    if (quietEnd >= static_cast<std::ptrdiff_t>(kMinQuietMs / kFrameMs))
        quiet.assign(env.rms.begin(), env.rms.begin() + quietEnd);
    else {
        std::vector<float> sorted = env.rms;
        std::sort(sorted.begin(), sorted.end());
        quiet.assign(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(
                                                          std::max<std::size_t>(1, frames / 10)));
    }
    double power = 0;
    for (float level : quiet)
        power += static_cast<double>(level) * level;
    const float floor = static_cast<float>(std::sqrt(power / static_cast<double>(quiet.size())));
    result.noiseFloorDbfs = dbfs(floor);

    const std::vector<float> strength = onsetStrength(env, floor);
    const auto strengthAt = [&](std::ptrdiff_t frame) {
        return frame >= 0 && frame < static_cast<std::ptrdiff_t>(frames)
                   ? strength[static_cast<std::size_t>(frame)]
                   : 0.0f;
    };

    // The capture-to-recording offset: the lag at which the key events line up with
    // the strongest onsets, tried from no lag outwards so that a tie keeps the smaller.
    const auto maxLag = static_cast<std::ptrdiff_t>(kMaxOffsetMs / kFrameMs);
    std::ptrdiff_t bestLag = 0;
    double bestScore = -1;
    for (std::ptrdiff_t step = 0; step <= 2 * maxLag; ++step) {
        const std::ptrdiff_t lag = (step % 2 == 0) ? step / 2 : -(step + 1) / 2;
        double score = 0;
        for (std::size_t e : order) {
            const std::ptrdiff_t at = frameOf(events[e].seconds) + lag;
            float best = 0;
            for (std::ptrdiff_t j = -kAlignSlackFrames; j <= kAlignSlackFrames; ++j)
                best = std::max(best, strengthAt(at + j));
            score += best;
        }
        if (score > bestScore) {
            bestScore = score;
            bestLag = lag;
        }
    }

    // Each event's onset: the sharpest rise within its window, the window kept short
    // of the neighbouring events' so two keys never claim one sound.
    std::vector<std::ptrdiff_t> onsetSample(events.size(), -1);
    const auto search = static_cast<std::ptrdiff_t>(kSearchMs / kFrameMs);
    for (std::size_t n = 0; n < order.size(); ++n) {
        const std::size_t e = order[n];
        Take& take = result.takes[e];
        const std::ptrdiff_t centre = frameOf(events[e].seconds) + bestLag;
        std::ptrdiff_t from = centre - search, to = centre + search;
        if (n > 0)
            from =
                std::max(from, (frameOf(events[order[n - 1]].seconds) + bestLag + centre) / 2 + 1);
        if (n + 1 < order.size())
            to = std::min(to, (frameOf(events[order[n + 1]].seconds) + bestLag + centre) / 2);
        std::ptrdiff_t best = -1;
        for (std::ptrdiff_t f = std::max<std::ptrdiff_t>(from, 0);
             f <= std::min<std::ptrdiff_t>(to, static_cast<std::ptrdiff_t>(frames) - 1); ++f)
            if (best < 0 ||
                strength[static_cast<std::size_t>(f)] > strength[static_cast<std::size_t>(best)])
                best = f;
        if (best < 0 || strength[static_cast<std::size_t>(best)] < kMinOnsetRiseDb) {
            take.flaw = Flaw::missing;
            continue;
        }
        // The earliest rise nearly as sharp: where the sound starts.
        const float sharpest = strength[static_cast<std::size_t>(best)];
        std::ptrdiff_t first = std::max<std::ptrdiff_t>(from, 0);
        while (first < best &&
               strength[static_cast<std::size_t>(first)] <
                   std::max(kMinOnsetRiseDb, static_cast<double>(sharpest) - kEarlierOnsetDb))
            ++first;
        // To the sample: the first one above a tenth of the attack's first peak.
        const std::size_t scanFrom =
            static_cast<std::size_t>(std::max<std::ptrdiff_t>(first - 2, 0)) * kHop;
        const std::size_t attackEnd = std::min(
            samples.size(), static_cast<std::size_t>(first) * kHop + samplesFor(kAttackMs));
        float attackPeak = 0;
        for (std::size_t i = scanFrom; i < attackEnd; ++i)
            attackPeak = std::max(attackPeak, std::fabs(samples[i]));
        const float threshold = std::max(kOnsetShareOfPeak * attackPeak, kOnsetAboveFloor * floor);
        std::size_t onset = scanFrom;
        while (onset < attackEnd && std::fabs(samples[onset]) < threshold)
            ++onset;
        onsetSample[e] = static_cast<std::ptrdiff_t>(onset);
        take.onsetSeconds = static_cast<double>(onset) / kSampleRate;
    }

    // The measured offset, and how closely the onsets kept to it.
    std::vector<double> lags;
    for (std::size_t e = 0; e < events.size(); ++e)
        if (onsetSample[e] >= 0)
            lags.push_back(startSeconds + result.takes[e].onsetSeconds - events[e].seconds);
    result.offsetSeconds = lags.empty() ? bestLag * kFrameMs / 1000.0 : median(lags);
    std::vector<double> spread;
    for (double lag : lags)
        spread.push_back(std::fabs(lag - result.offsetSeconds));
    result.onsetSpreadSeconds = median(spread);

    // Every event's place in the recording, in time order: where its sound starts, or
    // for a sound not heard, where it was expected. Each take knows where the next
    // sound starts.
    std::vector<std::pair<std::size_t, std::size_t>> marks; // (sample, event)
    for (std::size_t e : order) {
        const std::ptrdiff_t expected =
            (frameOf(events[e].seconds) + bestLag) * static_cast<std::ptrdiff_t>(kHop);
        const std::ptrdiff_t at = onsetSample[e] >= 0 ? onsetSample[e] : expected;
        marks.emplace_back(static_cast<std::size_t>(std::max<std::ptrdiff_t>(at, 0)), e);
    }
    std::sort(marks.begin(), marks.end());

    const float gateThreshold = static_cast<float>(floor * fromDb(kGateAboveFloorDb));
    const std::size_t preRoll = samplesFor(kPreRollMs);
    for (std::size_t h = 0; h < marks.size(); ++h) {
        if (onsetSample[marks[h].second] < 0)
            continue;
        Take& take = result.takes[marks[h].second];
        const std::size_t onset = marks[h].first;
        const std::size_t next = h + 1 < marks.size() ? marks[h + 1].first : samples.size();
        const std::size_t limit = std::min({samples.size(), onset + samplesFor(kMaxTakeMs)});

        std::size_t peakAt = onset;
        for (std::size_t i = onset; i < std::min({limit, next, onset + samplesFor(kPeakWindowMs)});
             ++i)
            if (std::fabs(samples[i]) > std::fabs(samples[peakAt]))
                peakAt = i;
        take.peak = std::fabs(samples[peakAt]);
        if (dbfs(take.peak) < kMinPeakDbfs || dbfs(take.peak) < dbfs(floor) + kMinSnrDb) {
            take.flaw = Flaw::tooQuiet;
            continue;
        }

        // Where the sound falls below a level for good (kQuietRun frames in a row).
        const auto fallsBelow = [&](float level, std::size_t until) {
            std::size_t run = 0;
            for (std::size_t f = peakAt / kHop; f < frames && f * kHop < until; ++f) {
                run = env.peak[f] < level ? run + 1 : 0;
                if (run == kQuietRun)
                    return (f + 1 - kQuietRun) * kHop;
            }
            return until;
        };
        const float tail =
            std::max(static_cast<float>(take.peak * fromDb(-kTailDb)), gateThreshold);
        std::size_t end = fallsBelow(tail, limit);
        if (next < end) {
            const std::size_t decayed =
                fallsBelow(static_cast<float>(take.peak * fromDb(-kDecayedDb)), limit);
            if (decayed > next) {
                take.flaw = Flaw::overlapped;
                // A key not heard inside this sound was drowned by it, not silent.
                for (std::size_t m = h + 1; m < marks.size() && marks[m].first < decayed; ++m)
                    if (result.takes[marks[m].second].flaw == Flaw::missing)
                        result.takes[marks[m].second].flaw = Flaw::overlapped;
                continue;
            }
            end = std::max(onset + 1, next - std::min(next, samplesFor(kBeforeNextMs)));
        }
        const std::size_t begin = onset - std::min(onset, preRoll);
        int clipped = 0;
        for (std::size_t i = begin; i < end; ++i)
            clipped += std::fabs(samples[i]) >= kClipLevel ? 1 : 0;
        if (clipped >= kMaxClippedSamples) {
            take.flaw = Flaw::clipped;
            continue;
        }

        // Gate the noise out of the decay: below the gate's threshold the level falls
        // away with the square of its distance, per frame, joined smoothly.
        std::vector<float> out(samples.begin() + static_cast<std::ptrdiff_t>(begin),
                               samples.begin() + static_cast<std::ptrdiff_t>(end));
        if (gateThreshold > 0) {
            const auto gainAt = [&](std::size_t frame) {
                if (frame >= frames || frame * kHop <= peakAt)
                    return 1.0f;
                const float level = env.peak[frame];
                return level >= gateThreshold ? 1.0f
                                              : (level / gateThreshold) * (level / gateThreshold);
            };
            for (std::size_t i = 0; i < out.size(); ++i) {
                const std::size_t at = begin + i;
                const double position = static_cast<double>(at) / kHop - 0.5;
                const auto frame = static_cast<std::size_t>(std::max(0.0, std::floor(position)));
                const float mix = static_cast<float>(std::clamp(position - frame, 0.0, 1.0));
                out[i] *= gainAt(frame) * (1 - mix) + gainAt(frame + 1) * mix;
            }
        }
        // Fade in over the pre-roll and out over the last few milliseconds.
        const std::size_t in = onset - begin;
        for (std::size_t i = 0; i < in; ++i)
            out[i] *= static_cast<float>(i) / static_cast<float>(in);
        const std::size_t fade = std::min(out.size() / 2, samplesFor(kFadeOutMs));
        for (std::size_t i = 0; i < fade; ++i)
            out[out.size() - 1 - i] *= static_cast<float>(
                0.5 - 0.5 * std::cos(std::numbers::pi * static_cast<double>(i) / fade));
        take.samples = std::move(out);
    }

    // Levels: repeats of one key toward their median, then the whole kit so its
    // loudest take peaks at the target.
    std::map<std::pair<KeyCode, bool>, std::vector<float>> peaksByKey;
    for (const Take& take : result.takes)
        if (take.flaw == Flaw::none)
            peaksByKey[{take.code, take.down}].push_back(take.peak);
    std::vector<float> gains(result.takes.size(), 1.0f);
    float loudestLevelled = 0;
    for (std::size_t t = 0; t < result.takes.size(); ++t) {
        const Take& take = result.takes[t];
        if (take.flaw != Flaw::none)
            continue;
        const float typical = median(peaksByKey[{take.code, take.down}]);
        gains[t] = std::clamp(typical / take.peak, 1.0f / kMaxTakeGain, kMaxTakeGain);
        loudestLevelled = std::max(loudestLevelled, take.peak * gains[t]);
    }
    if (loudestLevelled > 0)
        for (std::size_t t = 0; t < result.takes.size(); ++t)
            for (float& s : result.takes[t].samples)
                s *= gains[t] * kTargetPeak / loudestLevelled;

    // What to record again, one line per key and direction that lost takes.
    std::map<std::pair<KeyCode, bool>, std::pair<int, std::map<Flaw, int>>> byKey;
    std::vector<std::pair<KeyCode, bool>> keyOrder;
    for (std::size_t e : order) {
        const Take& take = result.takes[e];
        const std::pair key{take.code, take.down};
        if (!byKey.contains(key))
            keyOrder.push_back(key);
        auto& [total, flaws] = byKey[key];
        ++total;
        if (take.flaw != Flaw::none)
            ++flaws[take.flaw];
    }
    for (const auto& key : keyOrder) {
        const auto& [total, flaws] = byKey[key];
        if (flaws.empty())
            continue;
        int dropped = 0;
        std::string why;
        for (const auto& [flaw, count] : flaws) {
            dropped += count;
            why += (why.empty() ? "" : ", ") + std::to_string(count) + " " +
                   std::string(flawWords(flaw));
        }
        const std::string title = keyTitle(key.first);
        const char* what = key.second ? "press" : "release";
        result.retakes.push_back("Record " + title + " again: " + std::to_string(dropped) + " of " +
                                 std::to_string(total) + " " + what +
                                 (total == 1   ? ""
                                  : key.second ? "es"
                                               : "s") +
                                 " dropped (" + why + ")");
    }

    if (result.keptCount() == 0) {
        result.error = result.noiseFloorDbfs > kLoudFloorDbfs
                           ? "the background noise (" + formatDb(result.noiseFloorDbfs) +
                                 ") drowned the keys: record somewhere quieter, or nearer the "
                                 "keyboard"
                           : "no key could be heard clearly: bring the microphone nearer the "
                             "keyboard, or type each key firmly and one at a time";
    }
    return result;
}

QString KeyboardRecording::kitId(const QString& name) {
    return QStringLiteral("recorded-") + SwitchDesigner::slug(name);
}

KeyboardRecording::Kit KeyboardRecording::makeKit(const Cut& cut, const QString& name) {
    Kit kit;
    if (!cut.error.empty()) {
        kit.error = cut.error;
        return kit;
    }
    if (SwitchDesigner::displayName(name).isEmpty()) {
        kit.error = "the kit needs a name";
        return kit;
    }
    // Kept takes by key, in the order the keys were first typed.
    std::vector<KeyCode> keys;
    std::map<KeyCode, std::pair<std::vector<const Take*>, std::vector<const Take*>>> byKey;
    std::vector<const Take*> inTime;
    for (const Take& take : cut.takes)
        if (take.flaw == Flaw::none)
            inTime.push_back(&take);
    std::stable_sort(inTime.begin(), inTime.end(), [](const Take* a, const Take* b) {
        return a->onsetSeconds < b->onsetSeconds;
    });
    for (const Take* take : inTime) {
        if (!byKey.contains(take->code))
            keys.push_back(take->code);
        auto& [presses, releases] = byKey[take->code];
        auto& list = take->down ? presses : releases;
        if (static_cast<int>(list.size()) < kMaxVariants)
            list.push_back(take);
    }

    SoundpackConfig& config = kit.config;
    config.id = kitId(name).toStdString();
    config.metadata.name = SwitchDesigner::displayName(name).toStdString();
    config.metadata.brand = "Custom";
    config.metadata.author = "Recorded in Tappix";
    config.metadata.category = "keyboard";
    config.license = {"user-created", ""};
    std::vector<std::string> recordedNames;
    for (KeyCode code : keys) {
        const auto keyNameOf = keyName(code);
        // Files are named after the key where its name is a plain word (not "/" or ";").
        const bool plain =
            keyNameOf && std::all_of(keyNameOf->begin(), keyNameOf->end(), [](char c) {
                return std::isalnum(static_cast<unsigned char>(c)) != 0;
            });
        const std::string stem = plain ? std::string(*keyNameOf) : "key" + std::to_string(code);
        const SoundCandidates candidates = soundCandidates(code);
        const std::string group(candidates.count > 1 ? candidates.names[1] : "alpha");
        SoundpackConfig::KeySound own;
        const auto& [presses, releases] = byKey[code];
        for (const auto* list : {&presses, &releases}) {
            const bool down = list == &presses;
            for (std::size_t i = 0; i < list->size(); ++i) {
                const std::string file =
                    stem + (down ? "_down_" : "_up_") + std::to_string(i) + ".wav";
                kit.files.emplace_back(file, (*list)[i]->samples);
                (down ? own.down : own.up).push_back(file);
                auto& pooled = config.sounds[group];
                (down ? pooled.down : pooled.up).push_back(file);
            }
        }
        if (keyNameOf) {
            const std::string soundKey(*keyNameOf);
            recordedNames.push_back(soundKey);
            if (soundKey != group)
                config.sounds.emplace(soundKey, std::move(own));
        }
    }
    // A group whose keys gave only releases has no press to play.
    for (auto it = config.sounds.begin(); it != config.sounds.end();)
        it = it->second.down.empty() ? config.sounds.erase(it) : std::next(it);
    const auto alpha = config.sounds.find("alpha");
    if (alpha == config.sounds.end()) {
        kit.error = "no letter key was heard clearly, and every other key falls back on the "
                    "letters' sound: record a few letters again";
        kit.files.clear();
        return kit;
    }
    config.metadata.supportsKeyUp = !alpha->second.up.empty();
    config.metadata.keys = recordedNames;
    return kit;
}

} // namespace tappix
