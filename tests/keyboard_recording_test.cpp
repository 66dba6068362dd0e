// Cutting synthetic recordings of typing (known sounds, offset and jitter) into kits.

#include "input/key_codes.h"
#include "kits/keyboard_recording.h"
#include "kits/kit_checker.h"
#include "kits/switch_designer.h"
#include "platform/sndfile/sndfile_decoder.h"
#include "support/sound_analysis.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cmath>
#include <functional>
#include <map>
#include <numbers>
#include <numeric>
#include <random>

using namespace tappix;

namespace {

constexpr int kRate = KeyboardRecording::kSampleRate;
constexpr double kClockStart = 5000.0; // the recording's first sample on the events' clock
constexpr double kOffset = 0.037;      // how far the sounds lag the key events
constexpr double kLeadSeconds = 0.8;   // quiet before the first key

// A key sound: a tick of noise and a ringing body, both decaying.
std::vector<float> keySound(unsigned seed, float gain, double decayMs, float bodyHz) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> noise(-1.0f, 1.0f);
    const auto length = static_cast<std::size_t>(decayMs * 7 * kRate / 1000);
    std::vector<float> out(length);
    for (std::size_t i = 0; i < length; ++i) {
        const double t = double(i) / kRate;
        const double body =
            std::sin(2 * std::numbers::pi * bodyHz * t) * std::exp(-t * 1000 / decayMs);
        const double tick = noise(random) * std::exp(-t * 1000 / 0.8);
        out[i] = gain * static_cast<float>(0.6 * body + 0.5 * tick);
    }
    return out;
}

// How one key sounds in a scene.
struct Voice {
    float pressGain = 0.3f;
    double pressDecayMs = 10;
    double holdMs = 120;
    float touchGain = 0; // a soft first touch of the key `touchMs` before its click
    double touchMs = 8;
};

struct Placed {
    std::size_t start; // where the sound's own start lies in the recording
    std::vector<float> sound;
};

// A recording of each key typed three times, press and release, 350 ms apart, over a
// faint hiss, with the sounds `kOffset` (± 3 ms) after their events.
struct Scene {
    std::vector<float> samples;
    std::vector<RecordedKeyEvent> events;
    std::vector<Placed> placed; // one for each event

    explicit Scene(std::map<KeyCode, Voice> voices = {}, float hissLevel = 0.0003f) {
        const KeyCode keysTyped[] = {keys::a,         keys::s,         keys::d,    keys::space,
                                     keys::returnKey, keys::backspace, keys::shift};
        std::mt19937 random(7);
        std::uniform_real_distribution<double> jitter(-0.003, 0.003);
        double t = kLeadSeconds;
        unsigned seed = 100;
        for (int round = 0; round < 3; ++round) {
            for (KeyCode code : keysTyped) {
                const Voice voice = voices.contains(code) ? voices[code] : Voice{};
                const float body = 300.0f + 40.0f * float(code % 13);
                std::vector<float> press =
                    keySound(seed++, voice.pressGain, voice.pressDecayMs, body);
                if (voice.touchGain > 0) {
                    std::vector<float> touch = keySound(seed++, voice.touchGain, 0.3, body * 3);
                    touch.resize(static_cast<std::size_t>(voice.touchMs * kRate / 1000), 0.0f);
                    press.insert(press.begin(), touch.begin(), touch.end());
                }
                add(code, true, t, std::move(press), jitter(random));
                add(code, false, t + voice.holdMs / 1000,
                    keySound(seed++, voice.pressGain * 0.4f, 5, body * 1.5f), jitter(random));
                t += 0.35;
            }
        }
        samples.resize(static_cast<std::size_t>((t + 0.5) * kRate), 0.0f);
        for (const Placed& p : placed)
            for (std::size_t i = 0; i < p.sound.size() && p.start + i < samples.size(); ++i)
                samples[p.start + i] += p.sound[i];
        std::mt19937 hiss(3);
        std::normal_distribution<float> gauss(0.0f, hissLevel); // by default about -70 dBFS
        for (float& s : samples)
            s += gauss(hiss);
    }

    void add(KeyCode code, bool down, double at, std::vector<float> sound, double jitter) {
        events.push_back({code, down, kClockStart + at});
        placed.push_back({static_cast<std::size_t>(std::lround((at + kOffset + jitter) * kRate)),
                          std::move(sound)});
    }

    KeyboardRecording::Cut cut() const {
        return KeyboardRecording::cut(samples, kClockStart, events);
    }
};

bool writeFile(const std::vector<float>& samples, const QString& path, std::string& error) {
    return writeWav(samples, QFile::encodeName(path).toStdString(), error);
}

} // namespace

TEST(KeyboardRecording, FindsEachSoundAtItsOnsetMeasuresTheOffsetAndWritesAKitThatChecks) {
    Scene scene;
    // A second release of a key already up (X11 sends some) moves no key.
    const std::size_t typed = scene.events.size();
    scene.events.push_back(scene.events.back());
    scene.events.back().seconds += 0.02;
    const auto cut = scene.cut();
    ASSERT_TRUE(cut.error.empty()) << cut.error;
    EXPECT_TRUE(cut.retakes.empty()) << cut.retakes.front();
    ASSERT_EQ(cut.keptCount(), typed);
    EXPECT_EQ(cut.takes.back().flaw, KeyboardRecording::Flaw::unmatched);
    EXPECT_NEAR(cut.offsetSeconds, kOffset, 0.0015);
    EXPECT_LT(cut.onsetSpreadSeconds, 0.003);
    EXPECT_LT(cut.noiseFloorDbfs, -65);

    const std::size_t preRoll = std::lround(KeyboardRecording::kPreRollMs * kRate / 1000);
    float loudest = 0;
    for (std::size_t e = 0; e < typed; ++e) {
        const auto& take = cut.takes[e];
        const Placed& truth = scene.placed[e];
        const double trueOnset = double(truth.start + test::soundStart(truth.sound)) / kRate;
        EXPECT_NEAR(take.onsetSeconds, trueOnset, 0.0005) << "event " << e;
        const auto aligned =
            test::align(take.samples, preRoll, truth.sound, test::soundStart(truth.sound), 2);
        EXPECT_LE(std::fabs(aligned.errorMs), 0.5) << "event " << e;
        EXPECT_GT(aligned.correlation, 0.97) << "event " << e;
        for (float s : take.samples)
            loudest = std::max(loudest, std::fabs(s));
    }
    EXPECT_NEAR(loudest, KeyboardRecording::kTargetPeak, 0.01);

    // Each key under its own name and its group, releases included.
    const auto kit = KeyboardRecording::makeKit(cut, "  Desk Board ");
    ASSERT_TRUE(kit.error.empty()) << kit.error;
    EXPECT_EQ(kit.config.id, "recorded-desk-board");
    EXPECT_EQ(kit.config.metadata.name, "Desk Board");
    EXPECT_TRUE(kit.config.metadata.supportsKeyUp);
    for (KeyCode code : {keys::a, keys::space, keys::returnKey, keys::backspace, keys::shift})
        for (std::size_t c = 0; c < 2; ++c) {
            const auto sound = kit.config.sounds.find(std::string(soundCandidates(code).names[c]));
            ASSERT_NE(sound, kit.config.sounds.end()) << soundCandidates(code).names[c];
            EXPECT_GE(std::min(sound->second.down.size(), sound->second.up.size()), 3u)
                << sound->first;
        }
    EXPECT_EQ(kit.config.sounds.at("alpha").down.size(), 9u);

    QTemporaryDir dir;
    const QString kits = dir.filePath("kits");
    const auto saved = SwitchDesigner(writeFile).saveWhole(kit.config, kit.files, kits);
    ASSERT_TRUE(saved.ok()) << saved.error;
    SndfileDecoder decoder;
    const KitReport report = checkKit(saved.directory, decoder);
    EXPECT_TRUE(report.ok()) << (report.problems.empty() ? "" : report.problems.front());
    EXPECT_EQ(report.goodFiles, int(typed));

    // A disk that fills up while saving it again: the earlier kit stays whole.
    int written = 0;
    const SwitchDesigner failing(
        [&](const std::vector<float>& s, const QString& p, std::string& e) {
            e = ++written == 5 ? "No space left on device" : "";
            return e.empty() && writeFile(s, p, e);
        });
    const auto full = failing.saveWhole(kit.config, kit.files, kits);
    EXPECT_NE(full.error.find("No space left on device"), std::string::npos) << full.error;
    EXPECT_EQ(checkKit(saved.directory, decoder).goodFiles, int(typed));
    EXPECT_EQ(QDir(kits).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{"recorded-desk-board"});
}

// Each take starts at its key's first rise (a soft touch before the click, never the
// room's noise), and the noise gate takes a loud room's hiss out of the decay.
TEST(KeyboardRecording, EachTakeStartsAtItsKeysFirstRiseAndTheGateTakesTheRoomOut) {
    const struct {
        const char* what;
        Voice a;
        float hiss;
        bool gated = false; // the gate is looked at
    } cases[] = {
        {"a soft key in a noisy room", {0.12f, 10, 120}, 0.004f},
        {"a long decay in a noisy room", {0.3f, 20, 120}, 0.004f, true},
        {"a touch before the click", {0.3f, 10, 120, 0.02f}, 0.0003f},
        // A whisper far below any take, out of digital silence, is not the first rise.
        {"a whisper long before the click", {0.3f, 10, 120, 0.0015f, 50}, 0.0f},
    };
    const std::size_t preRoll = std::lround(KeyboardRecording::kPreRollMs * kRate / 1000);
    const std::size_t fade = std::lround(KeyboardRecording::kFadeOutMs * kRate / 1000);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Scene scene({{keys::a, c.a}}, c.hiss);
        const auto cut = scene.cut();
        ASSERT_TRUE(cut.error.empty()) << cut.error;
        int presses = 0, gated = 0;
        for (std::size_t e = 0; e < scene.events.size(); ++e) {
            const auto& take = cut.takes[e];
            if (take.code != keys::a || !take.down)
                continue;
            ++presses;
            EXPECT_EQ(take.flaw, KeyboardRecording::Flaw::none) << "event " << e;
            const Placed& truth = scene.placed[e];
            const double trueOnset =
                double(truth.start + test::soundStart(truth.sound, 0.02f)) / kRate;
            EXPECT_NEAR(take.onsetSeconds, trueOnset, 0.0005) << "event " << e;
            if (!c.gated || take.samples.size() < preRoll + fade + 960)
                continue;
            ++gated;
            const auto onset = static_cast<std::size_t>(std::lround(take.onsetSeconds * kRate));
            const float* const taken = take.samples.data() + preRoll;
            const float* const heard = scene.samples.data() + onset;
            const auto energy = [](const float* x, std::size_t from, std::size_t to) {
                return std::inner_product(x + from, x + to, x + from, 0.0);
            };
            const std::size_t end = take.samples.size() - preRoll - fade;
            // The take's gain, from its first 2 ms, which the gate leaves alone.
            const double gain = energy(taken, 0, 96) / energy(heard, 0, 96);
            const double tail =
                energy(taken, end - 480, end) / (gain * energy(heard, end - 480, end));
            // Without the gate the last 10 ms keep all of it (1.0); with it, 0.85 to 0.91 here.
            EXPECT_LT(tail, 0.95) << "the room's hiss kept in the decay";
        }
        EXPECT_EQ(presses, 3);
        EXPECT_EQ(gated, c.gated ? 3 : 0);
    }
}

TEST(KeyboardRecording, BadRecordingsSayWhatToDoAgain) {
    const auto clipped = [](Scene& scene) {
        for (float& s : scene.samples)
            s = std::clamp(s, -0.5f, 0.5f) * 2.0f;
    };
    struct Case {
        const char* what;
        std::map<KeyCode, Voice> voices;
        std::function<void(Scene&)> spoil;
        std::string says; // the refusal of the recording or of its kit, or a retake's line
        std::size_t kept;
        bool kit = true; // a kit is made of what was kept
    };
    const Voice loud{3.0f, 10, 120};
    // clang-format off
    const std::vector<Case> cases = {
        {"silence", {}, [](Scene& s) { std::fill(s.samples.begin(), s.samples.end(), 0.0f); },
         "silence", 0},
        {"no keys typed", {}, [](Scene& s) { s.events.clear(); }, "no keys", 0},
        {"a constant loud noise", {}, [](Scene& s) {
             std::mt19937 random(9);
             std::normal_distribution<float> gauss(0.0f, 0.1f);
             for (float& x : s.samples)
                 x += gauss(random);
         }, "background noise", 0},
        {"a key too loud for the microphone", {{keys::a, loud}}, clipped,
         "Record A again: 3 of 3 presses dropped (3 clipped", 36},
        {"a key released before its press decays", {{keys::s, {0.3f, 60, 25}}}, {},
         "Record S again: 3 of 3 presses dropped (3 overlapped by the next key's sound)", 36},
        {"a key too soft to hear", {{keys::d, {0.0004f, 10, 120}}}, {}, "Record D again", 36},
        // Every key falls back on the letters: without them there is no kit.
        {"the letters lost", {{keys::a, loud}, {keys::s, loud}, {keys::d, loud}}, clipped,
         "letters", 24, false},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Scene scene(c.voices);
        if (c.spoil)
            c.spoil(scene);
        const auto cut = scene.cut();
        const auto kit = KeyboardRecording::makeKit(cut, "Kit");
        EXPECT_EQ(cut.keptCount(), c.kept);
        EXPECT_EQ(cut.error.empty(), c.kept > 0) << cut.error;
        std::vector<std::string> lines = cut.retakes;
        lines.insert(lines.end(), {cut.error, kit.error});
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.find(c.says) != std::string::npos;
        })) << lines.front();
        EXPECT_EQ(kit.files.size(), c.kept > 0 && c.kit ? c.kept : 0);
    }
}
