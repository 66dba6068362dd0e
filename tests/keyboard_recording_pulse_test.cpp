// Recording a keyboard as a person does it: `tappix-kit record` listens to the private
// sound server's microphone and captures keys under a private X server; the ways it must
// refuse to make a kit.

#include "support/pulse_server.h"
#include "support/xvfb_server.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

using tappix::test::PulseServer;
using tappix::test::XvfbServer;

TEST(RecordingAKeyboard, NoMicrophoneAVanishingOneOrAnUnwritableKitDirectoryMakeNoKit) {
    XvfbServer x;
    PulseServer pulse;
    ASSERT_TRUE(x.isRunning());
    ASSERT_TRUE(pulse.started()) << pulse.log().toStdString();
    QTemporaryDir home;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home.path());
    env.insert("XDG_CONFIG_HOME", home.filePath("config"));
    env.insert("XDG_DATA_HOME", home.filePath("data"));
    env.insert("XDG_RUNTIME_DIR", home.path());
    const QString kits = home.filePath("data/Tappix/Soundpacks");
    // The microphone: a source of its own remapping a sink's monitor (so not a monitor).
    PulseServer::pactl({"unload-module", "module-null-source"});
    PulseServer::pactl(
        {"load-module", "module-null-sink", "sink_name=mic_feed", "rate=48000", "channels=1"});
    const QString mic = PulseServer::pactl({"load-module", "module-remap-source",
                                            "source_name=tappix_mic", "master=mic_feed.monitor"})
                            .trimmed();
    PulseServer::pactl({"set-default-source", "tappix_mic"});

    QProcess recorder;
    recorder.setProcessEnvironment(env);
    recorder.setProcessChannelMode(QProcess::MergedChannels);
    tappix::test::leash(recorder);
    QByteArray output;
    const auto start = [&](const QStringList& arguments) { // true once it asks for keys
        recorder.start(QStringLiteral(TAPPIX_KIT_PATH), QStringList{"record"} + arguments);
        while (!output.contains("Type each key") && recorder.waitForReadyRead(10000))
            output += recorder.readAll();
        return output.contains("Type each key");
    };
    const auto says = [&](const char* text) { // once the recorder ends
        recorder.waitForFinished(15000);
        output += recorder.readAll();
        EXPECT_EQ(recorder.state(), QProcess::NotRunning);
        EXPECT_EQ(recorder.exitCode(), 1);
        EXPECT_TRUE(output.contains(text)) << output.data();
        EXPECT_FALSE(QDir(kits + "/recorded-mine").exists());
        output.clear();
    };
    // The microphone goes away after the prompt.
    ASSERT_TRUE(start({"--name", "Mine"})) << output.data();
    XvfbServer::xdotool({"key", "a"});
    PulseServer::pactl({"unload-module", mic});
    says("went away while recording; no kit was made");
    // The only input left is an output's monitor.
    PulseServer::pactl({"set-default-source", "tappix_a.monitor"});
    start({"--name", "Mine"});
    says("there is no microphone");
    // A kit directory that cannot be written is found out before any typing.
    QFile(home.filePath("file")).open(QIODevice::WriteOnly);
    start({home.filePath("file/kits"), "--name", "Mine"});
    says("cannot write a kit into");
}
