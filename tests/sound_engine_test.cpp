#include "audio/sound_engine.h"
#include "input/key_codes.h"
#include "support/fake_time.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <array>
#include <cstdio>
#include <functional>
#include <map>

using namespace tappix;

namespace {

/// The player boundary: records what the engine asks for.
struct RecordingPlayer final : SamplePlayer {
    struct Play {
        std::string name; // "kit/sample" for a key, else "mouse", "buffer" or "loaded"
        float rate, pan, gain;
    };
    std::vector<Play> plays;
    /// Loads finish only when `finishLoads` says so, as a slow decode would.
    bool holdLoads = false;
    std::vector<std::function<void()>> unfinished;
    void loadSampleSets(std::vector<SampleSet>, std::function<void()> loaded) override {
        if (holdLoads)
            unfinished.push_back(std::move(loaded));
        else if (loaded)
            loaded();
    }
    /// Finishes the loads held, noting "loaded" among the plays when there were any.
    void finishLoads() {
        if (!unfinished.empty())
            plays.push_back({"loaded", 1, 0, 1});
        for (auto& loaded : std::exchange(unfinished, {}))
            loaded();
    }
    void loadMouseKit(const QString&, std::vector<std::string>) override {}
    void play(std::string pack, std::string name, float rate, float pan, float gain) override {
        plays.push_back({pack + "/" + name, rate, pan, gain});
    }
    void playMouse(std::string, float rate, float pan, float gain) override {
        plays.push_back({"mouse", rate, pan, gain});
    }
    void playBuffer(SampleRef, float rate, float pan, float gain) override {
        plays.push_back({"buffer", rate, pan, gain});
    }
    /// What played since the last call, by name, with rate, pan and gain when `detail`.
    std::vector<std::string> names(bool detail = false) {
        std::vector<std::string> out;
        char text[64];
        for (const auto& p : plays) {
            std::snprintf(text, sizeof text, " r%g p%g g%g", double(p.rate), double(p.pan),
                          double(p.gain));
            out.push_back(p.name + (detail ? text : ""));
        }
        plays.clear();
        return out;
    }
};

/// Writes kit `id` with `sounds`, its metadata saying `more` besides a name, brand and author.
void writeKit(const QString& root, const QString& id, const char* more, const char* sounds) {
    QDir().mkpath(root + "/" + id + "/sounds");
    QFile file(root + "/" + id + "/config.json");
    file.open(QIODevice::WriteOnly);
    file.write(QStringLiteral(R"({"id":"%1","metadata":{"name":"%1","brand":"B","author":"A"%2},
        "license":{"type":"t","url":""},"sounds":{%3}})")
                   .arg(id, QLatin1String(more), QLatin1String(sounds))
                   .toUtf8());
}

struct Fixture {
    QTemporaryDir dir;
    SoundpackStore store{dir.path(), QString()};
    RecordingPlayer player;
    test::FakeTime time;
    std::unique_ptr<SoundEngine> engine;
    SoundEngine::Settings settings;
    int keystrokes = 0, dings = 0, clicks = 0;

    Fixture() {
        writeKit(dir.path(), "main", "", R"("alpha":{"down":["alpha.wav"],"up":["alpha-up.wav"]},
            "enter":{"down":["enter.wav"],"up":[]},"shiftRight":{"down":["shift.wav"],"up":["shift-up.wav"]})");
        writeKit(dir.path(), "up", R"(,"supportsKeyUp":true)",
                 R"("default":{"down":["d.wav"],"up":["u.wav"]},
            "clack":{"down":["clack.wav"],"up":[]})");
        writeKit(dir.path(), "many", "", R"("alpha":{"down":["1.wav","2.wav","3.wav","4.wav",
            "5.wav","6.wav","7.wav","8.wav"],"up":[]})");
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

} // namespace

// Each case: settings on a fresh engine with the main kit, then a script, an event a word: a
// key by name ("^": its release), `+N` N ms later, `m`/`r` a left or right click, `@X` mouse
// sound X, `pk`/`pK` a preview of the key or kit on Backspace, `pR` of the kit on Return, `L`
// the held loads finishing. Out comes what played (with rate, pan and gain when `detail`).
TEST(SoundEngine, EventsInSoundsOut) {
    // clang-format off
    const std::map<std::string, KeyCode> named = {{"a", keys::a}, {"s", keys::s},
        {"ret", keys::returnKey}, {"space", keys::space}, {"rshift", keys::rightShift},
        {"iso", keys::isoSection}, {"f17", keys::f17}, {"bksp", keys::backspace},
        {"kpenter", keys::keypadEnter}};
    const MixVoice clack{QStringLiteral("up"), QStringLiteral("clack")};
    struct Case {
        const char* what;
        std::function<void(Fixture&)> set;
        const char* script;
        std::vector<std::string> out;
        bool detail = false;
        std::array<int, 3> counts{-1, -1, -1}; // keystrokes, dings, clicks
    };
    const Case cases[] = {
        {"keys resolve through the main kit, unnamed ones to alpha", {}, "a ret rshift iso",
         {"main/alpha.wav", "main/enter.wav", "main/shift.wav", "main/alpha.wav"}},
        {"a mix voice, and one of a kit not installed playing the main kit", [&](Fixture& f) {
             f.settings.voices[KeyGroup::enter] = clack;
             f.settings.voices[KeyGroup::space] = MixVoice{QStringLiteral("gone"), std::nullopt};
         }, "ret space", {"up/clack.wav", "main/alpha.wav"}},
        {"no main kit: only the mix sounds", [&](Fixture& f) {
             f.settings.voices[KeyGroup::enter] = clack;
             f.engine->loadPack(nullptr);
         }, "a ret", {"up/clack.wav"}},
        // Each dropped event moves the time.
        {"rapid keys measured on every event",
         [](Fixture& f) { f.settings.ignoreRapidKeys = true; },
         "a +5 s +1000 a +6 a^ +6 a +1000 f17 +5 a",
         {"main/alpha.wav", "main/alpha.wav", "main/alpha.wav"}},
        {"no releases from a kit without them, no modifiers when off",
         [](Fixture& f) { f.settings.modifierSoundsEnabled = false; }, "a^ rshift rshift^", {},
         false, {0, 0, 0}},
        {"releases from a kit with them, not counted as keystrokes",
         [](Fixture& f) { f.engine->loadPack(f.store.find("up")); }, "a^", {"up/u.wav"}, false,
         {0, 0, 0}},
        {"release sounds off", [](Fixture& f) {
             f.engine->loadPack(f.store.find("up"));
             f.settings.keyUpSoundsEnabled = false;
         }, "a^", {}},
        {"sounds off", [](Fixture& f) { f.settings.isEnabled = false; }, "a", {}},
        // Backspace, right-most: 0.35 × 3 × 1.25 would be 1.3125.
        {"pan clamped, gain from the kit's tuning", [](Fixture& f) {
             f.settings.spatialAudio = true;
             f.settings.tunings["main"] = PackTuning{1.0f, 1.7f, 0.04f, 3.0f};
         }, "bksp", {"main/alpha.wav r1 p0.9 g1.7"}, true},
        {"no panning", [](Fixture& f) {
             f.settings.stereoPanning = false;
             f.settings.tunings["main"] = PackTuning{1.0f, 1.7f, 0.04f, 3.0f};
         }, "bksp", {"main/alpha.wav r1 p0 g1.7"}, true},
        {"the bell and counters on presses only",
         [](Fixture& f) { f.settings.dingOnReturn = true; },
         "ret ret^ kpenter", {"buffer", "main/enter.wav", "buffer", "main/enter.wav"}, false,
         {2, 2, 0}},
        {"no mouse sounds unless asked", {}, "m", {}, false, {0, 0, 0}},
        {"mouse sounds at the effects volume", [](Fixture& f) {
             f.settings.mouseClickSounds = true;
             f.settings.effectsVolume = 0.5f;
         }, "m m^", {"buffer r1 p0 g0.475", "buffer r1 p0 g0.3"}, true, {0, 0, 1}},
        {"a mouse kit not installed is silent, not the kit chosen before",
         [](Fixture& f) { f.settings.mouseClickSounds = true; },
         "@up r @not-installed r @up r @match-keyboard r r^", {"mouse", "mouse", "main/alpha.wav"}},
        {"previews ignore the event rules", [](Fixture& f) {
             f.settings.isEnabled = false;
             f.settings.tonePitch = 1.5f;
             f.settings.tunings["main"] = PackTuning{1.0f, 0.8f, 0.04f, 2.0f};
         }, "pk pK", {"main/alpha.wav r1.5 p0.7 g0.8", "main/alpha.wav r1 p0 g0.8"}, true},
        // Keys never wait for a kit's samples: until the player has a new kit in, they play
        // the kits before and a kit preview waits. A change of no kit loads nothing.
        {"a level", [](Fixture& f) { f.player.holdLoads = true, f.settings.tonePitch = 1.2f; },
         "ret space pR L", {"main/enter.wav", "main/alpha.wav", "main/enter.wav"}},
        {"another sound of the same kit", [](Fixture& f) {
             f.player.holdLoads = true;
             f.settings.voices[KeyGroup::space] = MixVoice{std::nullopt, QStringLiteral("enter")};
         }, "space pR L", {"main/enter.wav", "main/enter.wav"}},
        {"another kit for Return", [&](Fixture& f) {
             f.player.holdLoads = true;
             f.settings.voices[KeyGroup::enter] = clack;
         }, "ret space pR L ret",
         {"main/enter.wav", "main/alpha.wav", "loaded", "up/clack.wav", "up/clack.wav"}},
        {"a kit not installed", [&](Fixture& f) {
             f.settings.voices[KeyGroup::enter] = clack;
             f.apply();
             f.player.holdLoads = true;
             f.settings.voices[KeyGroup::enter] = MixVoice{QStringLiteral("gone"), std::nullopt};
         }, "ret pR L ret", {"up/clack.wav", "loaded", "main/enter.wav", "main/enter.wav"}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Fixture f;
        if (c.set)
            c.set(f);
        f.apply();
        for (const QString& word : QString(c.script).split(' ', Qt::SkipEmptyParts)) {
            const bool up = word.endsWith('^');
            const std::string name = word.chopped(up ? 1 : 0).toStdString();
            if (word[0] == '+')
                f.time.advance(std::chrono::milliseconds(word.mid(1).toInt()));
            else if (name == "m" || name == "r")
                f.engine->handleMouse(name == "m" ? MouseButton::left : MouseButton::right, !up);
            else if (word[0] == '@') {
                f.settings.mouseSound = MouseSoundOption::parse(name.substr(1));
                f.apply();
                if (name != "@match-keyboard")
                    f.engine->useMouseKit(name.substr(1));
            } else if (name[0] == 'p')
                name == "pk"
                    ? f.engine->previewKey(keys::backspace)
                    : f.engine->previewKit(name == "pK" ? keys::backspace : keys::returnKey);
            else if (name == "L")
                f.player.finishLoads();
            else
                f.key(named.at(name), !up);
        }
        EXPECT_EQ(f.player.names(c.detail), c.out);
        if (c.counts[0] >= 0) {
            EXPECT_EQ((std::array<int, 3>{f.keystrokes, f.dings, f.clicks}), c.counts);
        }
    }
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
        SCOPED_TRACE(testing::Message() << "tone " << c.tonePitch << ", kit " << c.kitPitch
                                        << ", variation " << c.variation);
        f.settings.tonePitch = c.tonePitch;
        f.settings.tunings["main"] = PackTuning{c.kitPitch, 1.0f, c.variation, 1.0f};
        f.apply();
        float low = 3.0f, high = 0.0f;
        for (int i = 0; i < 400; ++i) {
            f.key(keys::a);
            low = std::min(low, f.player.plays.back().rate);
            high = std::max(high, f.player.plays.back().rate);
        }
        // 400 draws come within 2 % of either end of the range, never past it.
        const float span = c.highest - c.lowest;
        EXPECT_GE(low, c.lowest - 1e-5f);
        EXPECT_LE(high, c.highest + 1e-5f);
        EXPECT_LE(low, c.lowest + span * 0.02f + 1e-5f);
        EXPECT_GE(high, c.highest - span * 0.02f - 1e-5f);
        f.player.plays.clear();
    }
}

// The variants typed keys draw are the same with and without previews from the panel between.
TEST(SoundEngine, PreviewsLeaveTheKeysDrawsAlone) {
    std::vector<std::string> typed[2];
    for (int withPreviews : {0, 1}) {
        Fixture f;
        f.engine->loadPack(f.store.find("many"));
        for (int i = 0; i < 200; ++i) {
            f.key(keys::a);
            typed[withPreviews].push_back(f.player.plays.back().name);
            if (withPreviews)
                f.engine->previewKit(keys::a), f.engine->previewKey(keys::s);
        }
        EXPECT_EQ(f.player.plays.size(), withPreviews ? 600u : 200u);
    }
    EXPECT_EQ(typed[0], typed[1]);
}
