#include "audio/sound_engine.h"
#include "input/key_codes.h"
#include "support/fake_time.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <functional>
#include <thread>

using namespace tappix;
using namespace std::chrono_literals;

namespace {

/// The player boundary: records what the engine asks for.
struct RecordingPlayer final : SamplePlayer {
    struct Play {
        std::string kind, pack, name;
        float rate, pan, gain;
    };
    std::vector<Play> plays;
    std::vector<std::vector<SampleSet>> loads;
    /// Loads finish only when `finishLoads` says so, as a slow decode would.
    bool holdLoads = false;
    std::vector<std::function<void()>> unfinished;
    void loadSampleSets(std::vector<SampleSet> sets, std::function<void()> loaded) override {
        loads.push_back(std::move(sets));
        if (holdLoads)
            unfinished.push_back(std::move(loaded));
        else if (loaded)
            loaded();
    }
    void finishLoads() {
        for (auto& loaded : std::exchange(unfinished, {}))
            loaded();
    }
    void loadMouseKit(const QString&, std::vector<std::string>) override { loads.push_back({}); }
    void play(std::string pack, std::string name, float rate, float pan, float gain) override {
        plays.push_back({"key", pack, name, rate, pan, gain});
    }
    void playMouse(std::string name, float rate, float pan, float gain) override {
        plays.push_back({"mouse", "", name, rate, pan, gain});
    }
    void playBuffer(SampleRef, float rate, float pan, float gain) override {
        plays.push_back({"buffer", "", "", rate, pan, gain});
    }
    std::vector<std::string> names() {
        std::vector<std::string> out;
        for (const auto& p : plays)
            out.push_back(p.kind == "key" ? p.pack + "/" + p.name : p.kind);
        plays.clear();
        return out;
    }
};

void writeKit(const QString& root, const char* dir, const QByteArray& manifest) {
    QDir().mkpath(root + "/" + dir + "/sounds");
    QFile file(root + "/" + dir + "/config.json");
    file.open(QIODevice::WriteOnly);
    file.write(manifest);
}

const QByteArray kMain = R"({"id":"main","metadata":{"name":"Main","brand":"B","author":"A"},
  "license":{"type":"t","url":""},"sounds":{
  "alpha":{"down":["alpha.wav"],"up":["alpha-up.wav"]},
  "enter":{"down":["enter.wav"],"up":[]},"shiftRight":{"down":["shift.wav"],"up":["shift-up.wav"]}}})";
const QByteArray kUpKit =
    R"({"id":"up","metadata":{"name":"Up","brand":"B","author":"A","supportsKeyUp":true},
  "license":{"type":"t","url":""},"sounds":{"default":{"down":["d.wav"],"up":["u.wav"]},
  "clack":{"down":["clack.wav"],"up":[]}}})";

struct Fixture {
    QTemporaryDir dir;
    SoundpackStore store{dir.path(), QString()};
    RecordingPlayer player;
    test::FakeTime time;
    std::unique_ptr<SoundEngine> engine;
    SoundEngine::Settings settings;
    int keystrokes = 0, dings = 0, clicks = 0;

    Fixture() {
        writeKit(dir.path(), "main", kMain);
        writeKit(dir.path(), "up", kUpKit);
        store.reload();
        engine = std::make_unique<SoundEngine>(store, player, time, 1);
        engine->setCounters({[this] { ++keystrokes; }, [this] { ++dings; }, [this] { ++clicks; }});
        settings.pitchVariation = false;
        apply();
        engine->loadPack(store.find("main"));
    }
    void apply() { engine->setSettings(settings); }
    void key(KeyCode code, bool down = true) { engine->handleKey(code, down); }
};

using Names = std::vector<std::string>;

} // namespace

TEST(SoundEngine, ResolvesThroughTheMixAndTheMainKit) {
    Fixture f;
    f.key(keys::a);
    f.key(keys::returnKey);
    f.key(keys::rightShift);
    f.key(keys::isoSection); // unnamed: alpha
    EXPECT_EQ(f.player.names(),
              (Names{"main/alpha.wav", "main/enter.wav", "main/shift.wav", "main/alpha.wav"}));

    f.settings.voices[KeyGroup::enter] = MixVoice{QStringLiteral("up"), QStringLiteral("clack")};
    f.settings.voices[KeyGroup::space] = MixVoice{QStringLiteral("not-installed"), std::nullopt};
    f.apply();
    f.engine->mixChanged();
    f.key(keys::returnKey);
    f.key(keys::space);
    EXPECT_EQ(f.player.names(), (Names{"up/clack.wav", "main/alpha.wav"}));
    ASSERT_FALSE(f.player.loads.empty());
    EXPECT_EQ(f.player.loads.back().size(), 2u); // main and up, each once

    f.engine->loadPack(nullptr);
    f.key(keys::a); // no main kit, no assignment: silent
    f.key(keys::returnKey);
    EXPECT_EQ(f.player.names(), (Names{"up/clack.wav"}));
}

TEST(SoundEngine, RapidKeysAreMeasuredOnEveryEvent) {
    Fixture f;
    f.settings.ignoreRapidKeys = true;
    f.apply();
    f.key(keys::a);
    f.time.advance(5ms);
    f.key(keys::s);
    EXPECT_EQ(f.player.names().size(), 1u);
    f.time.advance(1s);
    for (int i = 0; i < 3; ++i) {
        f.key(keys::a, i % 2 == 0);
        f.time.advance(6ms);
    }
    EXPECT_EQ(f.player.names().size(), 1u); // each dropped event moved the time

    f.time.advance(1s);
    f.key(keys::f17); // F17 has no sound in this kit… yet it still counts for the rule
    f.time.advance(5ms);
    f.key(keys::a);
    EXPECT_EQ(f.player.names().size(), 1u);

    f.settings.ignoreRapidKeys = false;
    f.apply();
    for (int i = 0; i < 4; ++i) {
        f.key(keys::a);
        f.time.advance(1ms);
    }
    EXPECT_EQ(f.player.names().size(), 4u);
}

TEST(SoundEngine, ModifierAndReleaseRules) {
    Fixture f;
    f.key(keys::a, false); // main kit does not declare release sounds
    EXPECT_TRUE(f.player.names().empty());
    f.settings.modifierSoundsEnabled = false;
    f.apply();
    f.key(keys::rightShift, true);
    f.key(keys::rightShift, false);
    EXPECT_TRUE(f.player.names().empty());
    EXPECT_EQ(f.keystrokes, 0);

    f.engine->loadPack(f.store.find("up"));
    f.key(keys::a, false);
    EXPECT_EQ(f.player.names(), (Names{"up/u.wav"}));
    f.settings.keyUpSoundsEnabled = false;
    f.apply();
    f.key(keys::a, false);
    EXPECT_TRUE(f.player.names().empty());
    EXPECT_EQ(f.keystrokes, 0); // releases are not keystrokes

    f.settings.isEnabled = false;
    f.apply();
    f.key(keys::a);
    EXPECT_TRUE(f.player.names().empty());
}

// The rate's range is pinned by PitchVariationNeverLeavesThePlayableRange.
TEST(SoundEngine, PanAndGainFormulas) {
    Fixture f;
    f.settings.spatialAudio = true;
    f.settings.tunings["main"] = PackTuning{1.0f, 1.7f, 0.04f, 3.0f};
    f.apply();
    f.key(keys::backspace); // right-most column: 0.35 × 3 × 1.25 would be 1.3125
    EXPECT_EQ(f.player.plays.back().pan, 0.9f);
    EXPECT_EQ(f.player.plays.back().gain, 1.7f);
    f.settings.stereoPanning = false;
    f.apply();
    f.key(keys::backspace);
    EXPECT_EQ(f.player.plays.back().pan, 0.0f);
}

TEST(SoundEngine, PitchVariationNeverLeavesThePlayableRange) {
    // Variation multiplies before the clamp, so the extremes of tone and kit pitch
    // cannot push a key outside 0.5 … 2.0, and in between it still spreads the rate.
    struct Case {
        float tonePitch, kitPitch, variation, lowest, highest;
    };
    const Case cases[] = {
        {1.0f, 1.0f, 0.04f, 0.96f, 1.04f}, {2.0f, 1.0f, 0.2f, 1.6f, 2.0f},
        {0.5f, 1.0f, 0.2f, 0.5f, 0.6f},    {1.0f, 2.0f, 0.5f, 1.0f, 2.0f},
        {1.0f, 0.5f, 0.5f, 0.5f, 0.75f},   {2.0f, 2.0f, 0.5f, 2.0f, 2.0f},
        {0.5f, 0.5f, 0.5f, 0.5f, 0.5f},    {1.5f, 1.0f, 0.0f, 1.5f, 1.5f},
    };
    Fixture f;
    f.settings.pitchVariation = true;
    for (const Case& c : cases) {
        f.settings.tonePitch = c.tonePitch;
        f.settings.tunings["main"] = PackTuning{c.kitPitch, 1.0f, c.variation, 1.0f};
        f.apply();
        float low = 3.0f, high = 0.0f;
        for (int i = 0; i < 400; ++i) {
            f.key(keys::a);
            low = std::min(low, f.player.plays.back().rate);
            high = std::max(high, f.player.plays.back().rate);
        }
        const std::string where = "tone " + std::to_string(c.tonePitch) + ", kit " +
                                  std::to_string(c.kitPitch) + ", variation " +
                                  std::to_string(c.variation);
        EXPECT_GE(low, c.lowest - 1e-5f) << where;
        EXPECT_LE(high, c.highest + 1e-5f) << where;
        // 400 draws come within 2 % of either end of the range.
        const float span = c.highest - c.lowest;
        EXPECT_LE(low, c.lowest + span * 0.02f + 1e-5f) << where;
        EXPECT_GE(high, c.highest - span * 0.02f - 1e-5f) << where;
        f.player.plays.clear();
    }
}

TEST(SoundEngine, BellAndCountersOnPressesOnly) {
    Fixture f;
    f.settings.dingOnReturn = true;
    f.settings.effectsVolume = 0.5f;
    f.apply();
    f.key(keys::returnKey);
    f.key(keys::returnKey, false);
    f.key(keys::keypadEnter);
    EXPECT_EQ(f.player.names(), (Names{"buffer", "main/enter.wav", "buffer", "main/enter.wav"}));
    EXPECT_EQ(f.keystrokes, 2);
    EXPECT_EQ(f.dings, 2);
}

TEST(SoundEngine, MouseSoundsByOption) {
    Fixture f;
    f.engine->handleMouse(MouseButton::left, true);
    EXPECT_TRUE(f.player.plays.empty()); // mouse sounds off
    f.settings.mouseClickSounds = true;
    f.settings.effectsVolume = 0.5f;
    f.apply();
    f.engine->handleMouse(MouseButton::left, true);
    f.engine->handleMouse(MouseButton::left, false);
    ASSERT_EQ(f.player.plays.size(), 2u);
    EXPECT_FLOAT_EQ(f.player.plays[0].gain, 0.475f);
    EXPECT_FLOAT_EQ(f.player.plays[1].gain, 0.3f);
    EXPECT_EQ(f.clicks, 1);
    f.player.plays.clear();

    // A kit that is not installed is silent, not the kit chosen before it.
    for (const char* option : {"up", "not-installed", "up", "match-keyboard"}) {
        f.settings.mouseSound = MouseSoundOption::parse(option);
        f.apply();
        if (std::string_view(option) != "match-keyboard")
            f.engine->useMouseKit(option);
        f.engine->handleMouse(MouseButton::right, true);
    }
    f.engine->handleMouse(MouseButton::right, false); // the main kit has no releases
    EXPECT_EQ(f.player.names(), (Names{"mouse", "mouse", "main/alpha.wav"}));
}

TEST(SoundEngine, PreviewsIgnoreTheEventRules) {
    Fixture f;
    f.settings.isEnabled = false;
    f.settings.tonePitch = 1.5f;
    f.settings.tunings["main"] = PackTuning{1.0f, 0.8f, 0.04f, 2.0f};
    f.apply();
    f.engine->previewKey(keys::backspace);
    f.engine->previewKit(keys::backspace);
    ASSERT_EQ(f.player.plays.size(), 2u);
    EXPECT_EQ(f.player.plays[0].rate, 1.5f);
    EXPECT_FLOAT_EQ(f.player.plays[0].pan, 0.7f); // no clamp, no spatial factor
    EXPECT_EQ(f.player.plays[1].rate, 1.0f);
    EXPECT_EQ(f.player.plays[1].pan, 0.0f);
    EXPECT_EQ(f.player.plays[1].gain, 0.8f);
}

// Keys never wait for a kit's samples: until the player has a new kit in, keys play the
// kits loaded before, and a preview waits for the new one. A change that touches no kit
// asks the player for nothing; one that does asks for the kits in use.
TEST(SoundEngine, KitChangesTakeEffectOnceTheirSamplesAreIn) {
    Fixture f;
    f.player.holdLoads = true;
    const std::size_t loaded = f.player.loads.size();
    struct Change {
        const char* what;
        std::function<void()> make;
        bool loads;
        Names keys;      // Return, Space, then a preview of Return when it plays at once
        Names afterLoad; // the preview of Return that waited, then Return and Space again
    };
    const Change changes[] = {
        {"a level",
         [&] { f.settings.tonePitch = 1.2f; },
         false,
         {"main/enter.wav", "main/alpha.wav", "main/enter.wav"},
         {}},
        {"another sound of the same kit",
         [&] {
             f.settings.voices[KeyGroup::space] = MixVoice{std::nullopt, QStringLiteral("enter")};
         },
         false,
         {"main/enter.wav", "main/enter.wav", "main/enter.wav"},
         {}},
        {"another kit for Return",
         [&] {
             f.settings.voices[KeyGroup::enter] =
                 MixVoice{QStringLiteral("up"), QStringLiteral("clack")};
         },
         true,
         {"main/enter.wav", "main/enter.wav"},
         {"up/clack.wav", "up/clack.wav", "main/enter.wav"}},
        {"a kit that is not installed",
         [&] {
             f.settings.voices[KeyGroup::enter] = MixVoice{QStringLiteral("gone"), std::nullopt};
         },
         true,
         {"up/clack.wav", "main/enter.wav"},
         {"main/enter.wav", "main/enter.wav", "main/enter.wav"}},
    };
    for (const Change& change : changes) {
        change.make();
        f.apply();
        EXPECT_EQ(f.player.loads.size() > loaded, change.loads) << change.what;
        f.key(keys::returnKey);
        f.key(keys::space);
        f.engine->previewKit(keys::returnKey);
        EXPECT_EQ(f.player.names(), change.keys) << change.what;
        if (!change.loads)
            continue;
        f.player.finishLoads();
        f.key(keys::returnKey);
        f.key(keys::space);
        EXPECT_EQ(f.player.names(), change.afterLoad) << change.what;
        f.player.loads.resize(loaded);
    }
}

namespace {
thread_local bool tIsTypist = false;
} // namespace

// The key queue's draws must not depend on previews made meanwhile from the panel:
// the variants typed keys pick are the same with and without a previewing thread.
TEST(SoundEngine, PreviewsFromAnotherThreadLeaveTheKeyPathAlone) {
    struct CountingPlayer final : SamplePlayer {
        std::vector<std::string> keyNames; // written by the typing thread only
        std::atomic<int> previews{0};
        void loadSampleSets(std::vector<SampleSet>, std::function<void()> loaded) override {
            loaded();
        }
        void loadMouseKit(const QString&, std::vector<std::string>) override {}
        void play(std::string, std::string name, float, float, float) override {
            if (tIsTypist)
                keyNames.push_back(std::move(name));
            else
                ++previews;
        }
        void playMouse(std::string, float, float, float) override {}
        void playBuffer(SampleRef, float, float, float) override {}
    };
    QTemporaryDir dir;
    writeKit(dir.path(), "many",
             R"({"id":"many","metadata":{"name":"Many","brand":"B","author":"A"},
      "license":{"type":"t","url":""},"sounds":{"alpha":{"down":["1.wav","2.wav","3.wav","4.wav",
      "5.wav","6.wav","7.wav","8.wav"],"up":[]}}})");
    SoundpackStore store(dir.path(), QString());
    store.reload();
    test::FakeTime time;

    auto typeAll = [&](bool withPreviews) {
        CountingPlayer player;
        SoundEngine engine(store, player, time, 99);
        engine.setSettings({});
        engine.loadPack(store.find("many"));
        std::atomic<bool> typing{true};
        std::thread previewer;
        if (withPreviews)
            previewer = std::thread([&] {
                while (typing)
                    engine.previewKit(keys::a), engine.previewKey(keys::s);
            });
        std::thread typist([&] {
            tIsTypist = true;
            for (int i = 0; i < 2000; ++i)
                engine.handleKey(keys::a, true);
        });
        typist.join();
        typing = false;
        if (previewer.joinable())
            previewer.join();
        EXPECT_EQ(withPreviews, player.previews > 0);
        return player.keyNames;
    };
    const auto alone = typeAll(false);
    ASSERT_EQ(alone.size(), 2000u);
    EXPECT_EQ(typeAll(true), alone);
}
