#include "settings/settings_store.h"

#include "settings/json_file_preferences.h"
#include "support/fake_time.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QSignalSpy>

using namespace tappix;

namespace {

struct Fixture {
    test::FakeTime time;
    test::TempPrefs file;
    JsonFilePreferences prefs{file.path, time};
    SettingsStore store{prefs, time};
    std::vector<QString> events;

    Fixture() {
        QObject::connect(&store, &SettingsStore::tappixMixChanged,
                         [this] { events.push_back("mix"); });
        QObject::connect(&store, &SettingsStore::tappixSettingsChanged,
                         [this] { events.push_back("settings"); });
    }
};

const std::vector<QString> kSaved{"mix", "settings"};

} // namespace

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
        const SoundMix mix = f.store.createMix(QString::fromUtf8(c.given));
        EXPECT_EQ(mix.name, QString::fromUtf8(c.name));
        EXPECT_EQ(mix.id, c.id);
        EXPECT_EQ(f.store.activeMixId(), mix.id);
    }
    EXPECT_EQ(f.store.mixes().size(), 6u);

    // Deleting another mix keeps the active one; deleting the active one leaves none.
    f.store.deleteMix(QStringLiteral("late-night"));
    EXPECT_EQ(f.store.activeMixId(), QStringLiteral("n-code-mix"));
    f.store.deleteMix(QStringLiteral("n-code-mix"));
    EXPECT_FALSE(f.store.activeMixId());
    f.prefs.sync();
    EXPECT_FALSE(f.file.read().contains(QStringLiteral("activeMixId")));
    EXPECT_EQ(f.file.read().value(QStringLiteral("soundMixes")).toArray().size(), 4);
}

TEST(Mixes, SaveOrderNoOpsAndTheFileForm) {
    Fixture f;
    const SoundMix mix = f.store.createMix(QStringLiteral("A"));
    EXPECT_EQ(f.events, kSaved);

    f.events.clear();
    f.store.setActiveMix(QStringLiteral("ghost"));
    f.store.updateMix(SoundMix{QStringLiteral("ghost"), QStringLiteral("x"), {}});
    f.store.setVoice(MixVoice{QStringLiteral("k"), std::nullopt}, KeyGroup::space,
                     QStringLiteral("ghost"));
    EXPECT_TRUE(f.events.empty());
    EXPECT_EQ(f.store.activeMixId(), mix.id);

    f.store.setVoice(MixVoice{QStringLiteral("k"), std::nullopt}, KeyGroup::space, mix.id);
    EXPECT_EQ(f.store.voice(KeyGroup::space)->packId, QStringLiteral("k"));
    f.store.setTuning(QStringLiteral("k"), PackTuning{0.9f, 1.1f, 0.04f, 0.3f});
    f.prefs.sync(); // a voice without a sound, and floats in their shortest form
    EXPECT_EQ(f.file.read()["soundMixes"][0]["assignments"]["space"],
              (QJsonObject{{QStringLiteral("packId"), QStringLiteral("k")}}));
    EXPECT_EQ(f.file.read()["packTunings"][QStringLiteral("k")]["variation"], QJsonValue(0.04));
    f.events.clear();
    f.store.setActiveMix(std::nullopt);
    EXPECT_EQ(f.events, kSaved);
    EXPECT_FALSE(f.store.activeMix());
    EXPECT_FALSE(f.store.voice(KeyGroup::space)); // no mix plays
    f.events.clear();
    f.store.deleteMix(QStringLiteral("ghost")); // saves even when nothing goes
    EXPECT_EQ(f.events, kSaved);

    f.events.clear();
    f.store.setTuning(QStringLiteral("k"), PackTuning{});
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
