// Recording a keyboard as a person does it: `tappix-kit record` listens to the private
// sound server's microphone and captures keys under a private X server; the ways it must
// refuse to make a kit.

#include "support/pulse_server.h"
#include "support/xvfb_server.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

using namespace tappix;
using test::PulseServer;
using test::XvfbServer;

namespace {

class RecordingAKeyboard : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        x_ = new XvfbServer;
        pulse_ = new PulseServer;
    }
    static void TearDownTestSuite() {
        delete pulse_;
        delete x_;
    }

    void SetUp() override {
        ASSERT_TRUE(x_->isRunning());
        env_.insert("HOME", home_.path());
        env_.insert("XDG_CONFIG_HOME", home_.filePath("config"));
        env_.insert("XDG_DATA_HOME", home_.filePath("data"));
        env_.insert("XDG_RUNTIME_DIR", home_.path());
        // The microphone: whatever is played into the sink "mic_feed", through a source of
        // its own (a remap of the sink's monitor, so not a monitor itself).
        PulseServer::pactl({"unload-module", "module-null-source"});
        feedModule_ = PulseServer::pactl({"load-module", "module-null-sink", "sink_name=mic_feed",
                                          "rate=48000", "channels=1"})
                          .trimmed();
        micModule_ = PulseServer::pactl({"load-module", "module-remap-source",
                                         "source_name=tappix_mic", "master=mic_feed.monitor"})
                         .trimmed();
        PulseServer::pactl({"set-default-source", "tappix_mic"});
        recorder_.setProcessEnvironment(env_);
        recorder_.setProcessChannelMode(QProcess::MergedChannels);
        test::leash(recorder_);
    }

    void TearDown() override {
        recorder_.kill();
        recorder_.waitForFinished(5000);
        PulseServer::pactl({"unload-module", micModule_});
        PulseServer::pactl({"unload-module", feedModule_});
    }

    /// Starts `tappix-kit record`; true once it asks for keys.
    bool start(const QStringList& arguments) {
        recorder_.start(QStringLiteral(TAPPIX_KIT_PATH), QStringList{"record"} + arguments);
        while (!output_.contains("Type each key") && recorder_.waitForReadyRead(10000))
            output_ += recorder_.readAll();
        return output_.contains("Type each key");
    }
    /// Waits (15 s at most) for the recorder to end: its exit code, its output in `output_`.
    int finish() {
        recorder_.waitForFinished(15000);
        output_ += recorder_.readAll();
        return recorder_.state() == QProcess::NotRunning ? recorder_.exitCode() : -1;
    }

    static XvfbServer* x_;
    static PulseServer* pulse_;
    QTemporaryDir home_;
    QProcessEnvironment env_ = QProcessEnvironment::systemEnvironment();
    QString kits_ = home_.filePath("data/Tappix/Soundpacks");
    QString micModule_, feedModule_;
    QProcess recorder_;
    QByteArray output_;
};

XvfbServer* RecordingAKeyboard::x_ = nullptr;
PulseServer* RecordingAKeyboard::pulse_ = nullptr;

} // namespace

TEST_F(RecordingAKeyboard, NoMicrophoneAVanishingOneOrAnUnwritableKitDirectoryMakeNoKit) {
    const auto says = [&](const char* text) {
        EXPECT_TRUE(output_.contains(text)) << output_.data();
        EXPECT_FALSE(QDir(kits_ + "/recorded-mine").exists());
        output_.clear();
    };
    // The microphone goes away after the prompt.
    ASSERT_TRUE(start({"--name", "Mine"})) << output_.data();
    XvfbServer::xdotool({"key", "a"});
    PulseServer::pactl({"unload-module", micModule_});
    EXPECT_EQ(finish(), 1);
    says("went away while recording; no kit was made");
    // The only input left is an output's monitor.
    PulseServer::pactl({"set-default-source", "tappix_a.monitor"});
    start({"--name", "Mine"});
    EXPECT_EQ(finish(), 1);
    says("there is no microphone");
    // A kit directory that cannot be written is found out before any typing.
    QFile(home_.filePath("file")).open(QIODevice::WriteOnly);
    start({home_.filePath("file/kits"), "--name", "Mine"});
    EXPECT_EQ(finish(), 1);
    says("cannot write a kit into");
}
