#include "kits/soundpack_store.h"

#include "kits/kit_catalog.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QTemporaryDir>

using namespace tappix;

namespace {

const char* kMinimal =
    R"({"id":"k","metadata":{"name":"K","brand":"B","author":"A"},
    "license":{"type":"t","url":""},"sounds":{"alpha":{"down":["a.wav"],"up":[]}}})";

void writeKit(const QString& dir, const QByteArray& manifest) {
    QDir().mkpath(dir + "/sounds");
    QFile file(dir + "/config.json");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(manifest);
}

QByteArray manifestWithId(const char* id) {
    return QByteArray(kMinimal).replace("\"id\":\"k\"", QByteArray("\"id\":\"") + id + "\"");
}

/// `object` with the field at a dotted path set to `value`, or removed when undefined.
QJsonObject withField(QJsonObject object, QStringList path, const QJsonValue& value) {
    const QString key = path.takeFirst();
    if (path.isEmpty()) {
        if (value.isUndefined())
            object.remove(key);
        else
            object.insert(key, value);
    } else {
        object.insert(key, withField(object.value(key).toObject(), path, value));
    }
    return object;
}

Soundpack pack(const char* id, const char* name, std::optional<std::string> family = std::nullopt) {
    Soundpack p;
    p.config.id = id;
    p.config.metadata.name = name;
    p.config.metadata.family = std::move(family);
    return p;
}

} // namespace

// Every required field missing or null fails by name; wrong types say what they should be;
// null and unknown fields are let through.
TEST(SoundpackConfig, StrictDecodingWithReadableErrorsAndOrderedSounds) {
    const QByteArray base = kMinimal;
    std::vector<std::pair<QByteArray, std::string>> cases = {
        {"", "config.json is not valid JSON"},
        {"[]", "config.json must hold one JSON object"},
        {QByteArray(base).replace(R"("brand":"B")", R"("brand":7)"),
         "\"metadata.brand\" must be a string"},
        {QByteArray(base).replace(R"("author":"A")", R"("author":"A","supportsKeyUp":"yes")"),
         "\"metadata.supportsKeyUp\" must be true or false"},
        {QByteArray(base).replace(R"("down":["a.wav"])", R"("down":["a.wav",3])"),
         "\"sounds.alpha.down\" must be an array of strings"},
    };
    for (const QString& field : QStringLiteral("id metadata metadata.name metadata.brand "
                                               "metadata.author license license.type license.url "
                                               "sounds sounds.alpha.down sounds.alpha.up")
                                    .split(' '))
        for (const QJsonValue& gone : {QJsonValue(QJsonValue::Undefined), QJsonValue()})
            cases.emplace_back(QJsonDocument(withField(QJsonDocument::fromJson(base).object(),
                                                       field.split('.'), gone))
                                   .toJson(),
                               "\"" + field.toStdString() + "\" is missing");
    for (const auto& [json, expected] : cases) {
        std::string error;
        EXPECT_FALSE(SoundpackConfig::decode(json, &error)) << json.toStdString();
        EXPECT_EQ(error.rfind(expected, 0), 0u) << error;
    }
    // null leaves an optional field out, as absence does; unknown fields are ignored.
    const auto config = SoundpackConfig::decode(
        R"({"id":"k","metadata":{"name":"K","brand":"B","author":"A","blurb":null,
        "future":{"x":1}},"license":{"type":"t","url":""},"sounds":{
        "modifier":{"down":["m.wav"],"up":[]},"zeta":{"down":["z.wav"],"up":["a.wav"]},
        "alpha":{"down":["a.wav","a.wav"],"up":[]},"beta":{"down":["b.wav"],"up":[]},
        "space":{"down":[],"up":["s.wav"]}}})");
    ASSERT_TRUE(config);
    EXPECT_FALSE(config->metadata.blurb || config->metadata.family || config->metadata.keys);
    EXPECT_FALSE(config->metadata.supportsKeyUp);
    EXPECT_EQ(config->metadata.category, "keyboard");
    // Sounds in the order the kit's pages list them; every file once.
    EXPECT_EQ(config->orderedSoundKeys(),
              (std::vector<std::string>{"alpha", "modifier", "beta", "zeta"}));
    EXPECT_EQ(config->allFiles(),
              (std::vector<std::string>{"a.wav", "b.wav", "m.wav", "s.wav", "z.wav"}));
}

TEST(SoundpackStore, ScansInOrderSkipsBadEntriesAndBundleWins) {
    QTemporaryDir bundle, user;
    writeKit(bundle.filePath("shared"), manifestWithId("same"));
    writeKit(user.filePath("b-kit"), manifestWithId("b"));
    writeKit(user.filePath("a-kit"), manifestWithId("a"));
    writeKit(user.filePath(".hidden"), manifestWithId("hidden"));
    writeKit(user.filePath("dupe"), manifestWithId("same"));
    writeKit(user.filePath("broken"), "{not json");
    QDir().mkpath(user.filePath("empty"));
    QFile stray(user.filePath("stray.txt"));
    ASSERT_TRUE(stray.open(QIODevice::WriteOnly));

    SoundpackStore store(bundle.path(), user.path());
    store.reload();
    std::vector<std::string> ids;
    for (const auto& pack : store.packs())
        ids.push_back(pack.config.id + (pack.isUserPack ? "/user" : "/bundle"));
    EXPECT_EQ(ids, (std::vector<std::string>{"same/bundle", "a/user", "b/user", "same/user"}));
    ASSERT_TRUE(store.find("same"));
    EXPECT_FALSE(store.find("same")->isUserPack);
    EXPECT_EQ(store.find("a")->soundsDirectory(), user.filePath("a-kit") + "/sounds");
    EXPECT_FALSE(store.find("A"));
    EXPECT_FALSE(store.find("hidden"));

    // Missing directories contribute nothing.
    SoundpackStore missing("/nonexistent/one", "/nonexistent/two");
    missing.reload();
    EXPECT_TRUE(missing.packs().empty());
}

TEST(KitCatalog, FamiliesFeaturedOrderAndBlurbs) {
    const std::vector<Soundpack> packs{pack("holy-panda-v2", "Holy Panda V2"),
                                       pack("cherry-mx-brown-abs", "Cherry MX Brown"),
                                       pack("everglide-crystal-purple", "Everglide Crystal Purple"),
                                       pack("drop-holy-panda", "Drop Holy Panda"),
                                       pack("mine", "Mine", "Clicky"),
                                       pack("ours", "Ours", "tactile")};
    std::vector<std::string> tactile;
    for (const Soundpack* p : KitCatalog::kits(packs, KitCatalog::Family::tactile))
        tactile.push_back(p->config.id);
    EXPECT_EQ(tactile, (std::vector<std::string>{"drop-holy-panda", "everglide-crystal-purple",
                                                 "cherry-mx-brown-abs", "holy-panda-v2", "ours"}));
    EXPECT_FALSE(KitCatalog::family(packs[4])); // "Clicky" is not a family
    EXPECT_TRUE(KitCatalog::blurb(packs[3]));   // from the catalogue: the manifest has none
}

// A kit's own label first, then the catalogue's, then the key's name in words.
TEST(KitCatalog, SoundLabels) {
    SoundpackConfig config;
    config.id = "gun-shotgun";
    config.labels["space"] = "Big one";
    EXPECT_EQ(KitCatalog::soundLabel(config, "space"), "Big one");
    EXPECT_EQ(KitCatalog::soundLabel(config, "enter"), "Pump reload");
    EXPECT_EQ(KitCatalog::soundLabel(config, "ctrlLeft"), "Ctrl Left");
}

// A synthesised profile and "match-keyboard" by their exact names; anything else a kit id.
TEST(MouseSoundOption, ParsesAndPrintsItsStoredForm) {
    const std::pair<const char*, std::size_t> cases[] = {{"synth-tick", 0},
                                                         {"synth-loud", 1},
                                                         {"Match-Keyboard", 1},
                                                         {"razer-orochi-v2", 1},
                                                         {"match-keyboard", 2}};
    for (const auto& [text, kind] : cases) {
        EXPECT_EQ(MouseSoundOption::parse(text).toString(), text);
        EXPECT_EQ(MouseSoundOption::parse(text).choice.index(), kind) << text;
    }
    EXPECT_EQ(std::get<0>(MouseSoundOption::parse("synth-tick").choice),
              SynthEngine::MouseProfile::tick);
}
