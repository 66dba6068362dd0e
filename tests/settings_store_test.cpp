#include "settings/settings_store.h"

#include "settings/json_file_preferences.h"
#include "support/fake_time.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

using namespace tappix;
using namespace std::chrono_literals;

namespace {

/// A store over a real preferences file, rebuilt on demand to test persistence.
struct Fixture {
    test::FakeTime time;
    test::TempPrefs file;
    std::unique_ptr<JsonFilePreferences> prefs;
    std::unique_ptr<SettingsStore> store;

    Fixture() { open(); }

    void open() {
        prefs = std::make_unique<JsonFilePreferences>(file.path, time);
        store = std::make_unique<SettingsStore>(*prefs, time);
    }
    void reopen() {
        store.reset();
        prefs.reset();
        open();
    }
};

} // namespace

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

    // The file holds a float in its shortest form; an absent optional or an empty device
    // removes its key rather than storing an empty string.
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

// Whatever the file holds, loading it writes nothing back, not even at exit: odd values
// stay in the file for a later version, and a missing file stays missing.
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
        if (c.file) {
            QFile kept(file.path);
            ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
            EXPECT_EQ(kept.readAll(), QByteArray(c.file));
        }
    }
}

// Counters flush once ten seconds after the last increment or at the end; a reset is
// written at once; nothing counts while statistics are off.
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
