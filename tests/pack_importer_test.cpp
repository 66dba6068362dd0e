#include "kits/kit_checker.h"
#include "kits/source_pack_config.h"
#include "platform/evdev/pack_key_codes.h"
#include "platform/pack_import.h"
#include "platform/sndfile/sndfile_decoder.h"
#include "support/pack_builder.h"
#include "support/sound_analysis.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <QDirIterator>
#include <QJsonArray>
#include <QLocalServer>
#include <QProcess>
#include <QTemporaryDir>
#include <linux/input-event-codes.h>

using namespace tappix;
using namespace tappix::test;

namespace {

// Loudness levels that tell the stretches of a test pack apart.
constexpr double kA = 0.15, kEnter = 0.3, kSpace = 0.45, kArrow = 0.6, kKeypad = 0.75, kUp = 0.9;

/// A pack directory and a kit directory in one temporary directory.
struct Workspace {
    QTemporaryDir temp;
    QString pack = temp.filePath("pack");
    QString kits = temp.filePath("kits");

    PackImportResult import(const QString& source, PackImporter::Options options = {}) {
        options.kitDirectory = kits;
        return importPack(source, options);
    }

    /// Every file below the temporary directory, relative to it.
    QStringList files() const {
        QStringList all;
        QDirIterator it(temp.path(), QDir::Files | QDir::Hidden | QDir::System,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            all << QDir(temp.path()).relativeFilePath(it.next());
        return all;
    }
};

std::optional<SampleBuffer> decoded(const QString& kitDir, const std::string& file) {
    std::string error;
    auto buffer =
        SndfileDecoder().decode(kitDir + "/sounds/" + QString::fromStdString(file), error);
    EXPECT_TRUE(buffer) << file << ": " << error;
    return buffer;
}

/// Peak level of the middle half of a kit file, to the nearest 0.05 (lossy codecs move it).
double level(const QString& kitDir, const std::string& file) {
    const auto buffer = decoded(kitDir, file);
    double peak = buffer ? 0 : -1;
    for (std::size_t i = buffer ? buffer->frames() / 4 : 0; buffer && i < buffer->frames() * 3 / 4;
         ++i)
        peak = std::max(peak, double(std::abs(buffer->samples[i])));
    return std::round(peak * 20) / 20;
}

/// The levels of every variant a kit plays for a sound key (a release with "^" after it).
std::vector<double> levels(const PackImportResult& result, std::string key) {
    const bool up = key.ends_with('^');
    const auto it = result.config->sounds.find(up ? key.substr(0, key.size() - 1) : key);
    std::vector<double> found;
    for (const std::string& file : it == result.config->sounds.end() ? std::vector<std::string>{}
                                   : up                              ? it->second.up
                                                                     : it->second.down)
        found.push_back(level(result.directory, file));
    return found;
}

std::optional<SampleBuffer> first(const PackImportResult& result, const std::string& key) {
    return decoded(result.directory, result.config->sounds.at(key).down.front());
}

/// Each sound key has one variant at its level.
void expectLevels(const PackImportResult& result,
                  std::initializer_list<std::pair<std::string, double>> expected) {
    for (const auto& [key, value] : expected)
        EXPECT_EQ(levels(result, key), std::vector{std::round(value * 20) / 20}) << key;
}

QJsonObject json(const QString& text) {
    return QJsonDocument::fromJson(text.toUtf8()).object();
}

QJsonObject readJson(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object()
                                          : QJsonObject();
}

bool mentions(const std::vector<std::string>& lines, const std::string& text) {
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.find(text) != std::string::npos;
    });
}

/// A version-2 pack with a release sound: Space, Enter and an arrow of their own.
void writeSmallPack(const QString& dir) {
    const std::pair<const char*, double> tones[] = {
        {"generic", kA}, {"space", kSpace}, {"enter", kEnter}, {"down", kArrow}, {"up", kUp},
    };
    for (const auto& [file, level] : tones)
        ASSERT_TRUE(writeTone(dir + "/" + file + ".wav", 48000, kWav16, {level}));
    writeConfig(dir, json(R"({"id":"small","name":"Small Pack","key_define_type":"multi",
        "version":2,"sound":"generic.wav","soundup":"up.wav",
        "defines":{"57":"space.wav","28":"enter.wav","57424":"down.wav"}})"));
}

/// The written manifest passes the same check as `tappix-kit check`.
void expectKitChecks(const PackImportResult& result) {
    ASSERT_TRUE(result.ok()) << result.error;
    SndfileDecoder decoder;
    const KitReport report = checkKit(result.directory, decoder);
    for (const std::string& problem : report.problems)
        ADD_FAILURE() << problem;
    ASSERT_TRUE(report.config);
    EXPECT_EQ(*report.config, *result.config);
}

/// Runs tappix-kit with `home` for every per-user directory, and no session bus.
QString runKit(const QString& home, const QStringList& arguments, int* exitCode) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_DATA_HOME", home + "/data");
    env.insert("XDG_CONFIG_HOME", home);
    env.insert("XDG_RUNTIME_DIR", home + "/run");
    env.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home + "/no-bus");
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(TAPPIX_KIT_PATH), arguments);
    process.waitForFinished(60000);
    *exitCode = process.exitCode();
    return QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError());
}

} // namespace

TEST(PackKeyCodes, ScanCodesReachTheKeysCaptureDelivers) {
    using evdev::linuxCodeForPackKey;
    const std::pair<std::int64_t, int> table[] = {
        {1, KEY_ESC},       {28, KEY_ENTER},      {57, KEY_SPACE},       {86, KEY_102ND},
        {88, KEY_F12},      {3612, KEY_KPENTER},  {3613, KEY_RIGHTCTRL}, {3637, KEY_KPSLASH},
        {3639, KEY_SYSRQ},  {3640, KEY_RIGHTALT}, {3653, KEY_PAUSE},     {3655, KEY_HOME},
        {3657, KEY_PAGEUP}, {3663, KEY_END},      {3665, KEY_PAGEDOWN},  {3666, KEY_INSERT},
        {3667, KEY_DELETE}, {3675, KEY_LEFTMETA}, {3676, KEY_RIGHTMETA}, {3677, KEY_COMPOSE},
        {57416, KEY_UP},    {57419, KEY_LEFT},    {57421, KEY_RIGHT},    {57424, KEY_DOWN},
        {60999, KEY_HOME},  {61000, KEY_UP},      {61010, KEY_INSERT},   {61011, KEY_DELETE},
    };
    for (const auto& [pack, key] : table)
        EXPECT_EQ(linuxCodeForPackKey(pack), std::optional<std::uint16_t>(key)) << pack;
    for (std::int64_t unused : {0, 84, 85, 89, 3584, 3600 + 0x11, 57344, 99999})
        EXPECT_FALSE(linuxCodeForPackKey(unused)) << unused;
}

TEST(SourcePackConfig, RangesExpandAndPacksDecodeForgivinglyUnlessTheyAreNoPack) {
    std::string error;
    using V = std::vector<std::string>;
    EXPECT_EQ(SourcePackConfig::expandRange("press/R{0-2}.mp3", error),
              (V{"press/R0.mp3", "press/R1.mp3", "press/R2.mp3"}));
    EXPECT_EQ(SourcePackConfig::expandRange("k{09-11}.ogg", error),
              (V{"k09.ogg", "k10.ogg", "k11.ogg"}));
    EXPECT_EQ(SourcePackConfig::expandRange("k{2-1}", error), (V{"k2", "k1"}));
    EXPECT_EQ(SourcePackConfig::expandRange("plain-name.wav", error), (V{"plain-name.wav"}));
    for (const char* bad :
         {"k{0-}.wav", "k{a-3}.wav", "k{3}.wav", "k}0-1{", "k{0-1}{2-3}", "k{0-100000}.wav"}) {
        error.clear();
        EXPECT_TRUE(SourcePackConfig::expandRange(bad, error).empty()) << bad;
        EXPECT_FALSE(error.empty()) << bad;
    }

    std::vector<std::string> problems;
    const auto config = SourcePackConfig::decode(
        R"({"id":"p1","name":"  Blue   Switch ","key_define_type":"multiple","version":"2",
            "sound":"a{1-2}.wav","soundup":null,
            "defines":{"30":"a.wav","30-up":"b.wav","x1":"c.wav","14":null,"15":"",
                       "16":7,"17":["d.wav","e{1-2}.wav"]}})",
        error, problems);
    ASSERT_TRUE(config) << error;
    EXPECT_EQ(config->name, "Blue Switch");
    EXPECT_EQ(config->layout, SourcePackConfig::Layout::multi);
    EXPECT_EQ(config->version, 2);
    EXPECT_EQ(config->sound, (std::vector<std::string>{"a1.wav", "a2.wav"}));
    ASSERT_EQ(config->defines.size(), 3u); // in key order: 17, 30, 30-up
    EXPECT_EQ(config->defines[0].files, (std::vector<std::string>{"d.wav", "e1.wav", "e2.wav"}));
    EXPECT_TRUE(config->defines[2].up);
    EXPECT_EQ(config->defines[2].code, 30);
    ASSERT_EQ(problems.size(), 2u); // "x1" and the number 7; null and "" are silent keys
    EXPECT_NE(problems[0].find("\"16\""), std::string::npos);
    EXPECT_NE(problems[1].find("\"x1\" is not a key code"), std::string::npos);

    for (const char* refused : {"[1,2]", "{\"name\":\"no defines\"}", "not json",
                                R"({"key_define_type":"chord","defines":{}})",
                                R"({"key_define_type":"single","defines":{"30":[0,10]}})"}) {
        error.clear();
        EXPECT_FALSE(SourcePackConfig::decode(refused, error, problems)) << refused;
        EXPECT_FALSE(error.empty()) << refused;
    }
}

TEST(PackImport, SingleFilePackIsCutIntoFadedSlicesPerKey) {
    Workspace w;
    // Stretches of 100 ms: A, Enter, Space, arrow, keypad Enter.
    ASSERT_TRUE(
        writeTone(w.pack + "/sound.ogg", 44100, kOgg, {kA, kEnter, kSpace, kArrow, kKeypad}));
    ASSERT_TRUE(writeTone(w.pack + "/release.wav", 48000, kWav16, {kUp}));
    writeConfig(w.pack, json(R"({"id":"sp","name":"Slice Pack","key_define_type":"single",
        "version":2,"includes_numpad":true,"sound":"sound.ogg","soundup":"release.wav",
        "defines":{"30":[0,100],"28":[100,100],"28-up":[0,100],"57":[200,100],"57416":[300,100],
        "3612":[400,100],"3637":[400,100],"84":[0,100]}})"));
    const PackImportResult result = w.import(w.pack);
    expectKitChecks(result);
    EXPECT_EQ(result.config->id, "imported-slice-pack");
    EXPECT_EQ(result.config->metadata.name, "Slice Pack");
    EXPECT_TRUE(result.config->metadata.supportsKeyUp);
    EXPECT_TRUE(result.problems.empty()) << result.problems.front();
    // Both Enter keys are "enter": the main one's sound wins; the rest play the letters.
    expectLevels(result, {{"a", kA},
                          {"enter^", kUp},
                          {"space", kSpace},
                          {"arrUp", kArrow},
                          {"enter", kEnter},
                          {"default", kA},
                          {"alpha", kA},
                          {"modifier", kA}});
    ASSERT_EQ(result.notes.size(), 2u);
    EXPECT_NE(result.notes[0].find("(84)"), std::string::npos);
    EXPECT_NE(result.notes[1].find("(3637)"), std::string::npos);

    // Each slice is its own 100 ms file that starts and ends in silence.
    const auto cut = first(result, "space");
    ASSERT_TRUE(cut);
    EXPECT_NEAR(double(cut->frames()), 4800, 2);
    EXPECT_LT(std::abs(cut->samples.front()), 0.01f);
    EXPECT_LT(std::abs(cut->samples.back()), 0.01f);
}

TEST(PackImport, Version2MultiPackKeepsRangesReleasesAndFallbacks) {
    Workspace w;
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(writeTone(w.pack + QString("/press/GENERIC_R%1.wav").arg(i), 48000, kWav16,
                              {0.05 + 0.05 * i}));
    const std::pair<const char*, double> tones[] = {
        {"press/SPACE", kSpace}, {"press/ENTER", kKeypad}, {"press/LEFT", kArrow},
        {"press/KP4", kEnter},   {"release/GENERIC", kUp}, {"release/SPACE", kA},
    };
    for (const auto& [file, level] : tones)
        ASSERT_TRUE(writeTone(w.pack + "/" + file + ".wav", 48000, kWav16, {level}));
    writeConfig(w.pack, json(R"({"id":"v2","name":"Range Pack","key_define_type":"multi",
        "version":2,"sound":"press/GENERIC_R{0-4}.wav","soundup":"release/GENERIC.wav",
        "defines":{"57":"press/SPACE.wav","57-up":"release/SPACE.wav","3612":"press/ENTER.wav",
        "57419":"Press/left.WAV","61003":"press/KP4.wav","14":null}})")); // a name's case differs
    const PackImportResult result = w.import(w.pack);
    expectKitChecks(result);
    EXPECT_TRUE(result.problems.empty()) << result.problems.front();
    EXPECT_TRUE(result.config->metadata.supportsKeyUp);
    EXPECT_EQ(levels(result, "default"), (std::vector<double>{0.05, 0.1, 0.15, 0.2, 0.25}));
    EXPECT_EQ(levels(result, "alpha"), levels(result, "default"));
    // The arrow's own code beats the keypad's Num Lock alias of it.
    expectLevels(result, {{"default^", kUp},
                          {"space", kSpace},
                          {"space^", kA},
                          {"enter", kKeypad},
                          {"arrLeft", kArrow}});
    // Backspace, defined as null, falls back like every undefined key.
    EXPECT_EQ(levels(result, "backspace"), levels(result, "default"));

    // The same pack again replaces its import; another of the same name gets its own id.
    EXPECT_TRUE(w.import(w.pack).replaced);
    QJsonObject config = readJson(w.pack + "/config.json");
    config["id"] = "another";
    writeConfig(w.pack, config);
    const PackImportResult other = w.import(w.pack);
    EXPECT_FALSE(other.replaced);
    EXPECT_EQ(other.config->id, "imported-range-pack-2");
}

TEST(PackImport, Mp3At44kAndWavAt48kEachKeepTheirPitchAndLength) {
    Workspace w;
    if (!writeTone(w.pack + "/enter.mp3", 44100, kMp3, {kEnter, kEnter, kEnter}))
        GTEST_SKIP() << "this libsndfile cannot write MP3, so no MP3 pack can be made";
    ASSERT_TRUE(writeTone(w.pack + "/space.wav", 48000, kWav16, {kSpace, kSpace, kSpace}));
    writeConfig(w.pack, json(R"({"name":"Mixed Rates","key_define_type":"multi",
        "defines":{"28":"enter.mp3","28-up":"space.wav","57":"space.wav"}})"));
    const PackImportResult result = w.import(w.pack);
    expectKitChecks(result);
    EXPECT_TRUE(result.config->metadata.supportsKeyUp); // a version-1 pack with "-up"
    for (const char* key : {"enter", "space"}) {
        SCOPED_TRACE(key);
        const auto buffer = first(result, key);
        ASSERT_TRUE(buffer);
        // 300 ms; MP3 only adds its frame padding at the end, its lead is trimmed.
        EXPECT_NEAR(double(buffer->frames()), 14400, key == std::string("enter") ? 1500 : 2);
        EXPECT_LT(test::soundStart(buffer->samples, 0.05f), 48u) << "leading silence left in";
        // 1 kHz crosses zero 200 times in 100 ms (218 if 44.1 kHz were taken for 48 kHz).
        int crossings = 0;
        for (int i = 4800; i < 9600; ++i)
            crossings += (buffer->samples[i - 1] < 0) != (buffer->samples[i] < 0);
        EXPECT_NEAR(crossings, 200, 3);
    }
}

TEST(PackImport, BadPartsOfADirectoryPackAreReportedOneLineEach) {
    Workspace w;
    ASSERT_TRUE(writeTone(w.pack + "/sound.wav", 48000, kWav16, {kA, kEnter})); // 200 ms
    // A file outside the pack, reached by name and through a link.
    ASSERT_TRUE(writeTone(w.temp.filePath("secret.wav"), 48000, kWav16, {kUp}));
    ASSERT_TRUE(QFile::link(w.temp.filePath("secret.wav"), w.pack + "/link.wav"));
    // Past the end, starting past it, no key code, no [start, duration], no time, before 0.
    writeConfig(w.pack, json(R"({"name":"Broken","key_define_type":"single","sound":"sound.wav",
        "defines":{"30":[0,100],"28":[150,100],"57":[900,50],"enter":[0,10],"31":["a",10],
        "32":[10,0],"33":[-5,50]}})"));
    const PackImportResult single = w.import(w.pack);
    expectKitChecks(single);
    const char* singleSays[] = {"\"28\" runs past the end of the audio (200 ms)",
                                "\"57\" starts at 900 ms",
                                "\"enter\" is not a key code",
                                "\"31\" is not [start, duration]",
                                "\"32\" has a slice that starts before 0 or lasts no time",
                                "\"33\" has a slice that starts before 0 or lasts no time"};
    EXPECT_EQ(single.problems.size(), std::size(singleSays));
    for (const char* says : singleSays)
        EXPECT_TRUE(mentions(single.problems, says)) << says;
    EXPECT_FALSE(single.config->sounds.contains("d")); // the refused slices made no sound
    EXPECT_FALSE(single.config->sounds.contains("f"));
    EXPECT_NEAR(double(first(single, "enter")->frames()), 2400, 2); // cut short at the end
    expectLevels(single, {{"space", kA}}); // the skipped key plays the default

    writeConfig(w.pack, json(QString(R"({"name":"Broken","key_define_type":"multi",
        "defines":{"30":"sound.wav","28":"missing.wav","57":"../secret.wav","14":"%1",
        "15":"link.wav"}})")
                                 .arg(w.temp.filePath("secret.wav"))));
    const PackImportResult multi = w.import(w.pack);
    expectKitChecks(multi);
    EXPECT_TRUE(multi.replaced);
    const char* multiSays[] = {"\"missing.wav\": no such file",
                               "\"../secret.wav\": the name leaves the pack", "an absolute path",
                               "\"link.wav\": is a link"};
    EXPECT_EQ(multi.problems.size(), std::size(multiSays));
    for (const char* says : multiSays)
        EXPECT_TRUE(mentions(multi.problems, says)) << says;
    // Nothing of the secret reached the kit, and nothing was left anywhere else.
    for (const QString& file : w.files())
        EXPECT_TRUE(file.startsWith("pack/") || file == "secret.wav" ||
                    file.startsWith("kits/imported-broken/"))
            << file.toStdString();
    for (const auto& [key, sound] : multi.config->sounds)
        for (const std::string& file : sound.down)
            EXPECT_LT(level(multi.directory, file), kUp - 0.05) << key;
}

// A zip of the pack's folder, as packs are shared, with macOS's extra files and hostile entries.
TEST(PackImport, ZippedFolderImportsAndHostileEntriesNeverWriteOutsideTheKitDirectory) {
    Workspace w;
    writeSmallPack(w.pack);
    const QString zipPath = w.temp.filePath("Small Pack.zip");
    QFile secret(w.pack + "/up.wav");
    ASSERT_TRUE(secret.open(QIODevice::ReadOnly));
    const QByteArray wav = secret.readAll();
    {
        ZipWriter zip(zipPath);
        zip.addTree(w.pack, "Small Pack/");
        zip.add("__MACOSX/Small Pack/._config.json", "junk");
        zip.add("../escape.wav", wav);
        zip.add("/tmp/absolute.wav", wav);
        zip.add("Small Pack/enter.wav", "/etc/passwd", true); // a link in place of a sound
        // 80 MiB of zeros, a few hundred kilobytes packed.
        zip.add("Small Pack/space.wav", QByteArray(80 * 1024 * 1024, '\0'));
    }
    const PackImportResult result = w.import(zipPath);
    expectKitChecks(result);
    for (const char* says : {"archive entry \"../escape.wav\" leaves the pack",
                             "archive entry \"/tmp/absolute.wav\" leaves the pack",
                             "archive entry \"Small Pack/enter.wav\" is a link",
                             "\"space.wav\": unpacks to more than 64 MiB"})
        EXPECT_TRUE(mentions(result.problems, says)) << says;
    EXPECT_EQ(result.problems.size(), 5u); // the link again, when Enter asked for it
    expectLevels(result, {{"arrDown", kArrow}, {"default^", kUp}, {"default", kA}});
    EXPECT_EQ(
        readJson(result.directory + "/config.json")["origin"].toObject()["importedFrom"].toString(),
        "Small Pack.zip");
    EXPECT_FALSE(QFile::exists(w.temp.filePath("escape.wav")));
    EXPECT_FALSE(QFile::exists("/tmp/absolute.wav"));
    for (const QString& file : w.files())
        EXPECT_TRUE(file.startsWith("pack/") || file == "Small Pack.zip" ||
                    file.startsWith("kits/imported-small-pack/sounds/") ||
                    file == "kits/imported-small-pack/config.json")
            << file.toStdString();

    // A pack past the total allowance stops reading instead of filling the disk.
    PackImporter::Options options;
    options.id = "tiny";
    options.maxTotalBytes = wav.size() * 2 + 1000;
    const PackImportResult capped = w.import(w.pack, options);
    EXPECT_TRUE(capped.ok()) << capped.error;
    EXPECT_TRUE(mentions(capped.problems, "the rest is not read"));
}

TEST(PackImport, RefusalsSayWhyAndLeaveNothingBehind) {
    Workspace w;
    writeSmallPack(w.pack);
    QDir().mkpath(w.temp.filePath("empty"));
    const QString notZip = w.temp.filePath("notes.zip");
    ASSERT_TRUE(QFile::copy(w.pack + "/config.json", notZip));
    QDir().mkpath(w.kits + "/mine/sounds"); // a kit the user made is never replaced
    writeConfig(w.kits + "/mine", {{"id", "mine"}});
    const std::atomic<bool> cancelled{true}; // from another thread, here before it starts
    struct Case {
        QString source;
        std::string id;
        const char* says;
        std::vector<std::string> reserved = {};
        const std::atomic<bool>* cancel = nullptr;
    };
    const Case cases[] = {
        {w.temp.filePath("nowhere"), "", "no such file or directory"},
        {w.temp.filePath("empty"), "", "no config.json"},
        {notZip, "", "not a readable zip file"},
        {w.pack, "Bad Id", "cannot be a kit id"},
        {w.pack, "mine", "was not imported"},
        {w.pack, "", "comes with Tappix", {"imported-small-pack"}},
        {w.pack, "", "cancelled", {}, &cancelled},
    };
    for (const Case& c : cases) {
        PackImporter::Options options;
        options.id = c.id;
        options.reservedIds = c.reserved;
        options.cancel = c.cancel;
        const PackImportResult result = w.import(c.source, options);
        EXPECT_FALSE(result.ok()) << c.says;
        EXPECT_NE(result.error.find(c.says), std::string::npos) << result.error;
    }
    // Audio that does not decode at all leaves no kit.
    QFile::remove(w.pack + "/generic.wav");
    for (const char* name : {"space.wav", "enter.wav", "down.wav"})
        ASSERT_TRUE(QFile::remove(w.pack + "/" + name) &&
                    QFile::copy(w.pack + "/config.json", w.pack + "/" + name));
    const PackImportResult silent = w.import(w.pack);
    EXPECT_NE(silent.error.find("nothing in the pack could be used"), std::string::npos)
        << silent.error;
    EXPECT_EQ(QDir(w.kits).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
              QStringList{"mine"});
}

TEST(TappixKitImport, ImportsAndSelectsOnlyWhenNoTappixRuns) {
    Workspace w;
    writeSmallPack(w.pack);
    test::TempPrefs prefs;
    prefs.write({{"volume", 0.4}, {"selectedPackId", "crisp-click"}});
    const QString home = prefs.dir.path();
    QDir().mkpath(home + "/run");
    QFile::setPermissions(home + "/run", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    int code = -1;
    QString out = runKit(home, {"import", w.pack}, &code);
    ASSERT_EQ(code, 0) << out.toStdString();
    EXPECT_TRUE(out.contains("imported \"Small Pack\" as imported-small-pack"))
        << out.toStdString();
    EXPECT_TRUE(QFile::exists(home + "/data/Tappix/Soundpacks/imported-small-pack/config.json"));
    // Selected, and the other preferences kept.
    EXPECT_EQ(prefs.read()["selectedPackId"].toString(), "imported-small-pack");
    EXPECT_EQ(prefs.read()["volume"].toDouble(), 0.4);

    // With a Tappix listening on its instance socket the file is left to it.
    QLocalServer running;
    ASSERT_TRUE(running.listen(home + "/run/app.morvane.tappix.socket"));
    out = runKit(home, {"import", w.pack, "--id", "again"}, &code);
    EXPECT_EQ(code, 0) << out.toStdString();
    EXPECT_TRUE(out.contains("Tappix is running")) << out.toStdString();
    EXPECT_TRUE(out.contains("tappix --kit again")) << out.toStdString();
    EXPECT_EQ(prefs.read()["selectedPackId"].toString(), "imported-small-pack");
    running.close();

    out = runKit(home, {"import", w.temp.filePath("nowhere")}, &code);
    EXPECT_EQ(code, 1);
    EXPECT_TRUE(out.contains("cannot import")) << out.toStdString();
    runKit(home, {"import"}, &code);
    EXPECT_EQ(code, 2);
}

TEST(KitCheck, NamesEachProblemOfABadKit) {
    Workspace w;
    ASSERT_TRUE(writeTone(w.kits + "/sounds/a.wav", 48000, kWav16, {kA}));
    writeConfig(w.kits, json(R"({"id":"x","metadata":{"name":"X","brand":"B","author":"A",
        "supportsKeyUp":true},"license":{"type":"t","url":""},"sounds":{"enter":{"down":["a.wav",
        "../escape.wav","gone.wav"],"up":[]}}})"));
    SndfileDecoder decoder;
    const auto bad = checkKit(w.kits, decoder).problems;
    for (const char* expected :
         {"sounds/../escape.wav: the name leaves the kit's sounds directory",
          "sounds/gone.wav: no such file", "neither \"alpha\" nor \"default\"",
          "supportsKeyUp is true but no sound has an \"up\" file"})
        EXPECT_TRUE(mentions(bad, expected)) << expected;
    QFile::resize(w.kits + "/config.json", 3); // cut short
    EXPECT_TRUE(mentions(checkKit(w.kits, decoder).problems, "config.json is not valid JSON"));
}
