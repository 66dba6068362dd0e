#include "input/key_codes.h"
#include "platform/pack_import.h"
#include "support/pack_builder.h"
#include "support/pulse_server.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QProcess>
#include <QTemporaryDir>

using namespace tappix;

// An imported pack played by key on a private sound server: each key sounds at the level of
// its own slice of the pack's one file, which runs over a minute as cut recordings often do.
TEST(ImportedPackOnTheSink, ChosenKeysSoundTheirOwnSlices) {
    test::PulseServer server;
    QTemporaryDir temp;
    const QString pack = temp.filePath("pack");
    // 60 s of silence, then 150 ms stretches: letters 0.1, Enter 0.2, Space 0.3, Up 0.4,
    // keypad Enter 0.5.
    std::vector<double> levels(400, 0.0);
    levels.insert(levels.end(), {0.1, 0.2, 0.3, 0.4, 0.5});
    ASSERT_TRUE(test::writeTone(pack + "/keys.wav", 44100, test::kWav16, levels, 150, 440));
    const auto at = [](int ms) { return QJsonArray{60000 + ms, 150}; };
    test::writeConfig(
        pack,
        {{"name", "On The Sink"},
         {"key_define_type", "single"},
         {"sound", "keys.wav"},
         {"defines",
          QJsonObject{{"30", at(0)}, {"3612", at(600)}, {"57", at(300)}, {"57416", at(450)}}}});
    PackImporter::Options options;
    options.kitDirectory = temp.filePath("kits");
    const PackImportResult result = importPack(pack, options);
    ASSERT_TRUE(result.ok()) << result.error;
    EXPECT_TRUE(result.problems.empty()) << result.problems.front();

    // The name the engine looks up first for a key, among those the kit has.
    const auto soundFor = [&](KeyCode code) {
        for (std::string_view name : soundCandidates(code))
            if (result.config->sounds.contains(name))
                return std::string(name);
        return std::string();
    };
    const auto peakOf = [&](KeyCode code) {
        const QString name = QString::fromStdString(soundFor(code));
        int exitCode = -1;
        const auto heard = test::levels(server.record("tappix_a", [&] {
            QProcess tool;
            tool.start(QStringLiteral(TAPPIX_KIT_PATH), {"play", result.directory, "--key", name});
            tool.waitForFinished(15000);
            exitCode = tool.exitCode();
        }));
        EXPECT_EQ(exitCode, 0) << name.toStdString();
        return heard.peakLeft;
    };
    const double letter = peakOf(keys::a);
    ASSERT_GT(letter, 0.02) << "nothing reached the sink";
    // Only the keypad Enter is defined, so both Enter keys play its slice.
    EXPECT_NEAR(peakOf(keys::returnKey) / letter, 5.0, 0.5);
    EXPECT_NEAR(peakOf(keys::keypadEnter) / letter, 5.0, 0.5);
    EXPECT_NEAR(peakOf(keys::space) / letter, 3.0, 0.3);
    EXPECT_NEAR(peakOf(keys::upArrow) / letter, 4.0, 0.4);
    // A key the pack leaves out plays the default sound: the letters'.
    EXPECT_NEAR(peakOf(keys::f5) / letter, 1.0, 0.1);
}
