#include "settings/settings_store.h"

#include "settings/json_file_preferences.h"
#include "settings/theme_store.h"
#include "support/fake_time.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>
#include <functional>
#include <limits>
#include <memory>

using namespace tappix;
using namespace std::chrono_literals;

namespace {

/// A store over a real preferences file, reopened to test persistence; the saves it announced.
struct Fixture {
    test::FakeTime time;
    test::TempPrefs file;
    std::unique_ptr<JsonFilePreferences> prefs;
    std::unique_ptr<SettingsStore> store;
    std::vector<QString> events;

    Fixture() { open(); }

    void open() {
        prefs = std::make_unique<JsonFilePreferences>(file.path, time);
        store = std::make_unique<SettingsStore>(*prefs, time);
        QObject::connect(store.get(), &SettingsStore::tappixMixChanged,
                         [this] { events.push_back("mix"); });
        QObject::connect(store.get(), &SettingsStore::tappixSettingsChanged,
                         [this] { events.push_back("settings"); });
    }
    void reopen() {
        store.reset();
        prefs.reset();
        open();
    }
};

const std::vector<QString> kSaved{"mix", "settings"};

QStringList keptAside(const test::TempPrefs& prefs) {
    return QDir(QFileInfo(prefs.path).absolutePath())
        .entryList({QStringLiteral("preferences.json.corrupt-*")}, QDir::Files);
}

QByteArray bytesOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

// Changes are written once, after a pause, atomically and privately; no change, no write.
TEST(JsonFilePreferences, OneWriteForWhatChangedAndNoneForWhatDidNot) {
    using Change = std::function<void(JsonFilePreferences&)>;
    const struct {
        const char* name;
        Change change;
        int writes;
        double volume;
    } cases[] = {
        {"nothing", [](JsonFilePreferences&) {}, 0, 0.5},
        {"an absent key removed", [](JsonFilePreferences& p) { p.remove("gone"); }, 0, 0.5},
        {"fifty changes",
         [](JsonFilePreferences& p) {
             for (int i = 0; i < 50; ++i)
                 p.setValue("volume", i / 100.0);
         },
         1, 0.49},
        {"a key removed", [](JsonFilePreferences& p) { p.remove("other"); }, 1, 0.5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        test::FakeTime time;
        test::TempPrefs prefs;
        const QByteArray before = R"({"volume": 0.5, "other": true})"; // not as the store writes
        prefs.writeRaw(before);
        {
            JsonFilePreferences store(prefs.path, time);
            c.change(store);
            time.advance(JsonFilePreferences::kWriteDelay - 1ms);
            EXPECT_EQ(store.writeCount(), 0);
            time.advance(1ms);
            EXPECT_EQ(store.writeCount(), c.writes);
        }
        EXPECT_EQ(bytesOf(prefs.path) != before, c.writes > 0);
        EXPECT_DOUBLE_EQ(prefs.read().value("volume").toDouble(), c.volume);
        EXPECT_TRUE(c.writes == 0 || QFile::permissions(prefs.path) ==
                                         (QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser |
                                          QFile::WriteUser)); // private
        // Nothing but the file itself is left in the directory (no temporary files).
        EXPECT_EQ(QDir(QFileInfo(prefs.path).absolutePath()).entryList(QDir::Files).size(), 1);
    }
}

TEST(JsonFilePreferences, UnreadableFilesAreKeptAsideAndNeverOverwritten) {
    const QByteArray bad[] = {
        "",          "{\"volume\": 0.5, \"isEn", "not json at all",
        "[1, 2, 3]", "\"just a string\"",        QByteArray("\x00\xff\xfe", 3)};
    for (const QByteArray& bytes : bad) {
        SCOPED_TRACE(bytes.toStdString());
        test::FakeTime time;
        test::TempPrefs prefs;
        prefs.writeRaw(bytes);
        {
            JsonFilePreferences store(prefs.path, time);
            EXPECT_FALSE(store.contains(QStringLiteral("volume")));
            ASSERT_FALSE(store.keptAsidePath().isEmpty());
            store.setValue(QStringLiteral("volume"), 0.25);
        }
        const QStringList aside = keptAside(prefs);
        ASSERT_EQ(aside.size(), 1);
        EXPECT_EQ(bytesOf(QFileInfo(prefs.path).absolutePath() + '/' + aside.front()), bytes);
        EXPECT_EQ(prefs.read().value(QStringLiteral("volume")).toDouble(), 0.25);

        // A second corrupt load keeps both copies.
        prefs.writeRaw(bytes);
        JsonFilePreferences again(prefs.path, time);
        EXPECT_EQ(keptAside(prefs).size(), 2);
    }
}

TEST(JsonFilePreferences, UnwritableDirectoryKeepsValuesInMemory) {
    test::FakeTime time;
    JsonFilePreferences store(QStringLiteral("/proc/tappix-cannot-exist/preferences.json"), time);
    store.setValue(QStringLiteral("volume"), 0.3);
    store.sync();
    EXPECT_EQ(store.value(QStringLiteral("volume")).toDouble(), 0.3);
    EXPECT_EQ(store.writeCount(), 0);
}

// Whoever hears a change reads the new value, and the file already holds it; it loads back.
TEST(SettingsStore, AChangeIsInPlaceWhenAnnouncedAndLoadsBack) {
    Fixture f;
    SettingsStore& s = *f.store;
    std::vector<std::string> seen;
    QObject listening; // its connections end with it
    const auto saved = [&](const char* key) { return f.prefs->value(key).toVariant().toString(); };
    QObject::connect(&s, &SettingsStore::statsChanged, &listening,
                     [&] { seen.push_back("stats " + std::to_string(s.keystrokeCount())); });
    QObject::connect(&s, &SettingsStore::tappixMixChanged, &listening, [&] {
        seen.push_back("mix " + s.activeMix().value_or(SoundMix{}).name.toStdString());
    });
    QObject::connect(&s, &SettingsStore::tappixSettingsChanged, &listening, [&] {
        seen.push_back("settings " + std::to_string(s.tuning(QStringLiteral("velvet")).gain) + " " +
                       saved("volume").toStdString());
    });
    s.incrementKeystrokes();
    s.createMix(QStringLiteral("Night"));
    s.setTuning(QStringLiteral("velvet"), PackTuning{1.0f, 0.5f, 0.0f, 1.0f});
    s.setVolume(0.3f);
    EXPECT_EQ(seen, (std::vector<std::string>{"stats 1", "mix Night", "settings 1.000000 ",
                                              "settings 0.500000 ", "settings 0.500000 0.3"}));
    const std::vector<SoundMix> mixes = s.mixes();

    // A float in its shortest form; an absent optional or an empty device removes its key.
    s.setSelectedPackIdText(QStringLiteral("velvet"));
    s.setSelectedPackId(std::nullopt);
    s.setOutputDeviceUIDText(QStringLiteral("usb"));
    s.setOutputDeviceUIDText(QString());
    f.prefs->sync();
    EXPECT_EQ(f.file.read().value("volume"), QJsonValue(0.3)); // not 0.30000001
    EXPECT_FALSE(f.file.read().contains("selectedPackId"));
    EXPECT_FALSE(f.file.read().contains("outputDeviceUID"));

    f.reopen();
    EXPECT_EQ(f.store->keystrokeCount(), 1);
    EXPECT_EQ(f.store->volume(), 0.3f);
    EXPECT_EQ(f.store->tuning(QStringLiteral("velvet")), (PackTuning{1.0f, 0.5f, 0.0f, 1.0f}));
    EXPECT_EQ(f.store->mixes(), mixes);
    EXPECT_EQ(f.store->activeMixId(), mixes.front().id);
}

// Loading writes nothing back, not even at exit: odd values stay for a later version.
TEST(SettingsStore, LoadingTakesDefaultsForOddValuesAndWritesNothing) {
    const struct {
        const char* file; // null: no file
        QString expected;
    } cases[] = {
        {nullptr, "1 0.6 synth-soft none 0 0 0 none 1 1 ()"},
        {R"({"isEnabled": "yes", "volume": true, "mouseSoundId": 3, "selectedPackId": [],
             "keystrokeCount": "many", "soundMixes": {}, "packTunings": {"k": {"pitch": 1}},
             "activeMixId": "ghost", "statsEnabled": false,
             "sleepAppIds": ["XTerm", 3, "", "XTerm", "org.example.Notes"]})",
         "1 0.6 synth-soft none 0 0 0 none 0 1 (XTerm,org.example.Notes)"},
        {R"({"volume": 1e300, "tonePitch": 1.5, "isEnabled": false, "keystrokeCount": 7})",
         "0 0.6 synth-soft none 7 0 0 none 1 1.5 ()"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file ? c.file : "no file");
        test::FakeTime time;
        test::TempPrefs file;
        if (c.file)
            file.writeRaw(c.file);
        {
            JsonFilePreferences prefs(file.path, time);
            SettingsStore s(prefs, time);
            const QString loaded = QString("%1 %2 %3 %4 %5 %6 %7 %8 %9 %10 (%11)")
                                       .arg(s.isEnabled())
                                       .arg(s.volume())
                                       .arg(s.mouseSoundId(), s.selectedPackId().value_or("none"))
                                       .arg(s.keystrokeCount())
                                       .arg(s.mixes().size())
                                       .arg(s.tunings().size())
                                       .arg(s.activeMixId().value_or("none"))
                                       .arg(s.statsEnabled())
                                       .arg(s.tonePitch())
                                       .arg(s.sleepAppIds().join(','));
            EXPECT_EQ(loaded, c.expected);
            EXPECT_EQ(s.tuning(QStringLiteral("never-tuned")).variation, 0.04f);
            time.advance(1h);
            EXPECT_EQ(prefs.writeCount(), 0);
        }
        EXPECT_EQ(file.exists(), c.file != nullptr);
        EXPECT_EQ(bytesOf(file.path), QByteArray(c.file));
    }
}

// Counters flush ten seconds after the last increment or at the end; a reset at once.
TEST(SettingsStore, CountersFlushLateResetsAtOnceAndNothingCountsWhenOff) {
    Fixture f;
    EXPECT_EQ(f.store->accuracy(), 1.0); // no keys yet: nothing was wrong
    for (int i = 0; i < 10; ++i) {
        f.store->incrementKeystrokes();
        f.time.advance(1s);
    }
    EXPECT_EQ(f.store->keystrokeCount(), 10);
    // Now t=10 s; the last increment was at t=9 s, so nothing is flushed before t=19 s.
    f.time.advance(9s - 1ms);
    f.prefs->sync();
    EXPECT_FALSE(f.file.read().contains(QStringLiteral("keystrokeCount")));
    f.time.advance(1ms + JsonFilePreferences::kWriteDelay);
    EXPECT_EQ(f.file.read().value(QStringLiteral("keystrokeCount")).toInteger(), 10);
    EXPECT_EQ(f.prefs->writeCount(), 1);
    EXPECT_EQ(f.time.pending(), 0u);

    // Destroyed while both the flush and the file write are pending: nothing is lost.
    f.store->incrementKeystrokes();
    f.store->incrementDings();
    f.store->setVolume(0.9f);
    f.store->addTypingSeconds(12.5);
    f.reopen();
    SettingsStore& s = *f.store;
    EXPECT_EQ(s.keystrokeCount(), 11);
    EXPECT_EQ(s.dingCount(), 1);
    EXPECT_FLOAT_EQ(s.volume(), 0.9f);
    EXPECT_EQ(s.typingSeconds(), 12.5);
    EXPECT_EQ(f.time.pending(), 0u);

    s.incrementProductiveKeys();
    s.recordWPM(80);
    s.recordWPM(60);
    EXPECT_EQ(s.bestWPM(), 80.0);
    s.resetStats();
    EXPECT_EQ(f.time.pending(), 1u); // only the coalesced file write, no counter flush
    f.prefs->sync();
    EXPECT_EQ(f.file.read().value("productiveKeys").toInteger(-1), 0);
    EXPECT_EQ(f.file.read().value("bestWPM").toDouble(-1), 0.0);
    EXPECT_EQ(f.file.read().value("keystrokeCount").toInteger(-1), 0);

    s.setStatsEnabled(false);
    f.prefs->sync();
    s.incrementKeystrokes();
    s.incrementDings();
    s.incrementClicks();
    s.incrementProductiveKeys();
    s.incrementCorrections();
    s.recordWPM(90);
    s.addTypingSeconds(3);
    EXPECT_EQ(s.keystrokeCount() + s.dingCount() + s.clickCount() + s.productiveKeys() +
                  s.corrections(),
              0);
    EXPECT_EQ(s.bestWPM() + s.typingSeconds(), 0.0);
    EXPECT_EQ(f.time.pending(), 0u);
}

TEST(SettingsStore, NumbersThatAreNotFiniteNeverReachTheFile) {
    Fixture f;
    SettingsStore& s = *f.store;
    const PackTuning good{1.2f, 0.8f, 0.1f, 1.5f};
    s.setTuning(QStringLiteral("velvet"), good);
    s.recordWPM(40.0);
    s.addTypingSeconds(10.0);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    s.setVolume(nan);
    s.setTonePitch(inf);
    s.setSleepVolume(-inf);
    s.setTuning(QStringLiteral("velvet"), PackTuning{nan, 1.0f, 0.04f, 1.0f});
    s.setTuning(QStringLiteral("crisp-click"), PackTuning{1.0f, inf, 0.04f, 1.0f});
    s.recordWPM(std::numeric_limits<double>::infinity());
    s.addTypingSeconds(std::numeric_limits<double>::quiet_NaN());

    f.reopen();
    SettingsStore& t = *f.store;
    EXPECT_EQ(QString("%1 %2 %3").arg(t.volume()).arg(t.tonePitch()).arg(t.sleepVolume()),
              "0.6 1 0");
    EXPECT_EQ(t.tunings(), (std::map<QString, PackTuning>{{"velvet", good}}));
    EXPECT_EQ(t.bestWPM() + t.typingSeconds(), 50.0);
}

TEST(Mixes, CreateTrimsNamesAndMakesUniqueSlugsAndDeleteLeavesNoneActive) {
    Fixture f;
    const struct {
        const char* given;
        const char* name;
        const char* id;
    } cases[] = {
        {"  Late Night!!\t", "Late Night!!", "late-night"},
        {"Late night", "Late night", "late-night-2"},
        {"late  night", "late  night", "late-night-3"},
        {" \t ", "Mix", "mix"},
        {"**", "**", "mix-2"},
        {"Ünïcode Mix", "Ünïcode Mix", "n-code-mix"},
    };
    for (const auto& c : cases) {
        const SoundMix mix = f.store->createMix(QString::fromUtf8(c.given));
        EXPECT_EQ(mix.name, QString::fromUtf8(c.name));
        EXPECT_EQ(mix.id, c.id);
        EXPECT_EQ(f.store->activeMixId(), mix.id);
    }
    EXPECT_EQ(f.store->mixes().size(), 6u);

    // Deleting another mix keeps the active one; deleting the active one leaves none.
    f.store->deleteMix(QStringLiteral("late-night"));
    EXPECT_EQ(f.store->activeMixId(), QStringLiteral("n-code-mix"));
    f.store->deleteMix(QStringLiteral("n-code-mix"));
    EXPECT_FALSE(f.store->activeMixId());
    f.prefs->sync();
    EXPECT_FALSE(f.file.read().contains(QStringLiteral("activeMixId")));
    EXPECT_EQ(f.file.read().value(QStringLiteral("soundMixes")).toArray().size(), 4);
}

TEST(Mixes, SaveOrderNoOpsAndTheFileForm) {
    Fixture f;
    const SoundMix mix = f.store->createMix(QStringLiteral("A"));
    EXPECT_EQ(f.events, kSaved);

    f.events.clear();
    f.store->setActiveMix(QStringLiteral("ghost"));
    f.store->updateMix(SoundMix{QStringLiteral("ghost"), QStringLiteral("x"), {}});
    f.store->setVoice(MixVoice{QStringLiteral("k"), std::nullopt}, KeyGroup::space,
                      QStringLiteral("ghost"));
    EXPECT_TRUE(f.events.empty());
    EXPECT_EQ(f.store->activeMixId(), mix.id);

    f.store->setVoice(MixVoice{QStringLiteral("k"), std::nullopt}, KeyGroup::space, mix.id);
    EXPECT_EQ(f.store->voice(KeyGroup::space)->packId, QStringLiteral("k"));
    f.store->setTuning(QStringLiteral("k"), PackTuning{0.9f, 1.1f, 0.04f, 0.3f});
    f.prefs->sync(); // a voice without a sound, and floats in their shortest form
    EXPECT_EQ(f.file.read()["soundMixes"][0]["assignments"]["space"],
              (QJsonObject{{QStringLiteral("packId"), QStringLiteral("k")}}));
    EXPECT_EQ(f.file.read()["packTunings"][QStringLiteral("k")]["variation"], QJsonValue(0.04));
    f.events.clear();
    f.store->setActiveMix(std::nullopt);
    EXPECT_EQ(f.events, kSaved);
    EXPECT_FALSE(f.store->activeMix());
    EXPECT_FALSE(f.store->voice(KeyGroup::space)); // no mix plays
    f.events.clear();
    f.store->deleteMix(QStringLiteral("ghost")); // saves even when nothing goes
    EXPECT_EQ(f.events, kSaved);

    f.events.clear();
    f.store->setTuning(QStringLiteral("k"), PackTuning{});
    EXPECT_EQ(f.events, std::vector<QString>{"settings"});
}

TEST(Mixes, DecodingIsStrictButToleratesNullAndUnknownMembers) {
    const auto decode = [](const char* json) {
        return SoundMix::fromJsonArray(QJsonDocument::fromJson(json).array());
    };
    auto ok = decode(
        R"([{"id":"a","name":"A","assignments":{"enter":{"packId":null,"sound":"x"},"future":{}},"extra":1}])");
    ASSERT_TRUE(ok);
    EXPECT_EQ(ok->front().assignments.at("enter"), (MixVoice{std::nullopt, QStringLiteral("x")}));
    EXPECT_EQ(ok->front().assignments.count("future"), 1u); // kept for round trips
    EXPECT_FALSE(decode(R"([{"id":"a","name":"A"}])"));
    EXPECT_FALSE(decode(R"([{"id":"a","name":3,"assignments":{}}])"));
    EXPECT_FALSE(decode(R"([{"id":"a","name":"A","assignments":{"enter":{"packId":4}}}])"));
    EXPECT_FALSE(PackTuning::fromJson(QJsonObject{{"pitch", 1}, {"gain", 1}, {"variation", 0}}));
    EXPECT_FALSE(PackTuning::fromJson(
        QJsonObject{{"pitch", "1"}, {"gain", 1}, {"variation", 0}, {"panWidth", 1}}));
}

// Each built-in palette: six accents, canonical colours, derived ones between background and text.
TEST(Themes, BuiltInsAreWellFormed) {
    for (const ThemePalette& p : ThemePalette::builtIns()) {
        EXPECT_EQ(p.accents.size(), 6) << p.id.toStdString();
        for (const QString& colour : QStringList{p.background, p.text, p.onAccent} + p.accents)
            EXPECT_EQ(Rgb::parse(colour).value_or(Rgb{}).toHex(), colour);
        const double bg = Rgb::parse(p.background)->luminance();
        const double card = Rgb::parse(p.card())->luminance();
        const double muted = Rgb::parse(p.mutedText())->luminance();
        const double text = Rgb::parse(p.text)->luminance();
        EXPECT_TRUE((bg < card && card < muted && muted < text) ||
                    (bg > card && card > muted && muted > text))
            << p.id.toStdString();
    }
}

// The palette in force after each row's steps, at once and after a restart.
TEST(Themes, ThePaletteInForceFollowsEachChangeAndPersists) {
    using Step = std::function<void(ThemeStore&)>;
    const Step light = [](ThemeStore& t) { t.setCustomColors("#f4f4f5", "#17171A", "#2A2A30"); };
    const Step dark = [](ThemeStore& t) { t.setCustomColors("#101010", "#EEEEEE", "#FFFFFF"); };
    const Step custom = [](ThemeStore& t) { t.select(ThemeStore::kCustomID); };
    const Step ember = [](ThemeStore& t) { t.select("ember"); };
    const QJsonObject badCustom{{"themeID", "custom"}, {"customTheme", QJsonObject{{"id", 1}}}};
    const struct {
        QJsonObject file;
        std::vector<Step> steps;
        const char* inForce;
    } cases[] = {
        {{}, {}, "mono #0F0F10 #E8E8EA #0B0B0C"},
        {{{"themeID", "sepia"}}, {}, "sepia #0F0F10 #E8E8EA #0B0B0C"},
        {badCustom, {}, "custom #0F0F10 #E8E8EA #141210"},
        {{}, {ember}, "ember #130C07 #FF8C42 #170D06"},
        {{}, {ember, light, custom}, "custom #F4F4F5 #2A2A30 #FBF7EF"},
        // New colours while the custom palette is in force show at once.
        {{}, {custom, light, dark}, "custom #101010 #FFFFFF #141210"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.inForce);
        test::FakeTime time;
        test::TempPrefs file;
        if (!c.file.isEmpty())
            file.write(c.file);
        for (const bool restarted : {false, true}) {
            JsonFilePreferences prefs(file.path, time);
            ThemeStore store(prefs);
            QSignalSpy changed(&store, &ThemeStore::themeChanged);
            for (const Step& step : restarted ? std::vector<Step>{} : c.steps)
                step(store);
            EXPECT_EQ(changed.count(), restarted ? 0 : static_cast<int>(c.steps.size()));
            EXPECT_EQ(QStringList({store.selectedID(), store.background(), store.accent(),
                                   store.onAccent()})
                          .join(' '),
                      c.inForce)
                << (restarted ? "after a restart" : "at once");
        }
    }
}
