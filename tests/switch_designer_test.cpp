// The switch designer: ids from names, the kit it writes (files, seeds, manifest), the
// same bytes for the same design, and how it fails.

#include "kits/soundpack_config.h"
#include "kits/switch_designer.h"
#include "platform/sndfile/sndfile_decoder.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <map>

using namespace tappix;

namespace {

bool writeFile(const std::vector<float>& samples, const QString& path, std::string& error) {
    return writeWav(samples, QFile::encodeName(path).toStdString(), error);
}

QByteArray bytes(const QString& path) {
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

// Every file of a kit directory by its path inside it.
std::map<QString, QByteArray> snapshot(const QString& directory) {
    std::map<QString, QByteArray> files;
    QDir dir(directory);
    files["config.json"] = bytes(dir.filePath("config.json"));
    for (const QString& name : QDir(dir.filePath("sounds")).entryList(QDir::Files))
        files["sounds/" + name] = bytes(dir.filePath("sounds/" + name));
    return files;
}

constexpr SynthParams kDesign{410.0f, 0.85f, 9.5f, 8200.0f, true};

} // namespace

TEST(SwitchDesigner, IdsComeFromTheTrimmedLowerCasedName) {
    EXPECT_EQ(SwitchDesigner::kitId("My Switch!"), "custom-my-switch");
    EXPECT_EQ(SwitchDesigner::kitId(" \tMy Switch\t "), "custom-my-switch");
    EXPECT_EQ(SwitchDesigner::kitId("--A__b  9--"), "custom-a-b-9");
    EXPECT_EQ(SwitchDesigner::kitId("Crème brûlée"), "custom-cr-me-br-l-e");
    EXPECT_EQ(SwitchDesigner::kitId("!!!"), "custom-");
    EXPECT_EQ(SwitchDesigner::kitId(""), "custom-");
    // Only spaces and tabs are trimmed from the shown name.
    EXPECT_EQ(SwitchDesigner::displayName(" \t Deep\n\t"), "Deep\n");
}

// Five groups of four presses and three releases, each file the design's own render; the
// same design and name save the same bytes, and one id replaces its kit whole.
TEST(SwitchDesigner, WritesAKitThatChecksTheSameBytesEachTimeAndOneIdReplacesIt) {
    QTemporaryDir user, second;
    const SwitchDesigner designer(writeFile);
    const SwitchDesigner::Result result = designer.save(kDesign, "  My Switch! ", user.path());
    ASSERT_TRUE(result.ok()) << result.error;
    EXPECT_EQ(result.directory, user.path() + "/custom-my-switch");
    std::string error;
    const auto config = SoundpackConfig::decode(bytes(result.directory + "/config.json"), &error);
    ASSERT_TRUE(config) << error;
    EXPECT_EQ(config->id, "custom-my-switch");
    EXPECT_EQ(config->metadata.name, "My Switch!");
    EXPECT_TRUE(config->metadata.supportsKeyUp);
    std::vector<std::string> groups;
    for (const auto& [group, sound] : config->sounds) {
        groups.push_back(group);
        EXPECT_EQ(sound.down.size(), 4u) << group;
        EXPECT_EQ(sound.up.size(), 3u) << group;
    }
    EXPECT_EQ(groups,
              (std::vector<std::string>{"alpha", "backspace", "enter", "modifier", "space"}));
    // The first press is the design's render from the first seed.
    QTemporaryDir mine;
    ASSERT_TRUE(
        writeFile(SynthEngine::render(SwitchDesigner::groupParams("alpha", kDesign), 24301, false),
                  mine.filePath("a.wav"), error));
    EXPECT_EQ(bytes(result.directory + "/sounds/alpha_down_0.wav"), bytes(mine.filePath("a.wav")));
    QProcess check;
    check.start(QStringLiteral(TAPPIX_KIT_PATH), {"check", result.directory});
    ASSERT_TRUE(check.waitForFinished(30000));
    const QString out = QString::fromUtf8(check.readAllStandardOutput());
    EXPECT_TRUE(out.contains("\nOK\n")) << out.toStdString();

    const auto files = snapshot(result.directory);
    EXPECT_EQ(files.size(), 36u);
    EXPECT_EQ(files, snapshot(designer.save(kDesign, "  My Switch! ", second.path()).directory));

    // "my-switch" is the same kit: the save replaces it whole, stray files and all.
    QFile(result.directory + "/sounds/stray.wav").open(QIODevice::WriteOnly);
    SynthParams other = kDesign;
    other.bodyHz = 200.0f;
    const auto replaced = designer.save(other, "my-switch", user.path());
    ASSERT_TRUE(replaced.ok()) << replaced.error;
    EXPECT_EQ(replaced.directory, result.directory);
    EXPECT_EQ(QDir(user.path()).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
              QStringList{"custom-my-switch"});
    const auto now = snapshot(result.directory);
    EXPECT_EQ(now.size(), 36u);
    EXPECT_NE(now.at("sounds/alpha_down_0.wav"), files.at("sounds/alpha_down_0.wav"));
    EXPECT_EQ(SoundpackConfig::decode(now.at("config.json"))->metadata.name, "my-switch");
}

TEST(SwitchDesigner, FailuresGiveTheSystemsReasonAndNoManifest) {
    QTemporaryDir dir;
    // A writer that fails on the ninth file stops the save there: the files before it
    // stay, and no manifest makes them a kit.
    int written = 0;
    const SwitchDesigner failing(
        [&](const std::vector<float>& samples, const QString& path, std::string& error) {
            if (++written == 9) {
                error = "No space left on device";
                return false;
            }
            return writeFile(samples, path, error);
        });
    const auto full = failing.save(kDesign, "Full", dir.path());
    EXPECT_EQ(full.error, "backspace_down_1.wav: No space left on device");
    EXPECT_EQ(QDir(full.directory + "/sounds").entryList(QDir::Files).size(), 8);
    EXPECT_FALSE(QFile::exists(full.directory + "/config.json"));

    const auto unnamed = SwitchDesigner(writeFile).save(kDesign, " \t ", dir.path());
    EXPECT_FALSE(unnamed.ok());
    EXPECT_FALSE(QFile::exists(dir.filePath("custom-")));
}

TEST(SwitchDesigner, TheWaveformOutlinesThePressThenTheRelease) {
    const auto peaks = SwitchDesigner::waveform(kDesign, 200);
    ASSERT_EQ(peaks.size(), 200u);
    for (float peak : peaks)
        EXPECT_TRUE(peak >= 0.0f && peak <= 1.0f);
    // The press at full height; then a silent pause; then the release, normalised alike.
    const std::size_t press =
        SynthEngine::render(kDesign, SwitchDesigner::kPreviewSeed, false).size();
    const std::size_t total = SwitchDesigner::previewSamples(kDesign).size();
    const auto pressBins = static_cast<long>(press * 200 / total);
    const auto pauseBin = static_cast<long>((press + 1000) * 200 / total);
    EXPECT_NEAR(*std::max_element(peaks.begin(), peaks.begin() + pressBins), 0.85f, 0.01f);
    EXPECT_EQ(peaks[static_cast<std::size_t>(pauseBin)], 0.0f);
    EXPECT_NEAR(*std::max_element(peaks.begin() + pauseBin, peaks.end()), 0.85f, 0.01f);
    // A longer sustain draws a different outline.
    SynthParams ringy = kDesign;
    ringy.decayMs = 30.0f;
    EXPECT_NE(SwitchDesigner::waveform(ringy, 200), peaks);
}
