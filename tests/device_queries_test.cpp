// Device questions answered by a real sound server, and the /proc camera check.

#include "platform/pulse/pulse_device_manager.h"

#include "support/pipewire_server.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

using namespace tappix;
using test::PulseServer;
using test::SoundServer;

namespace {

// On a private PulseAudio and on a private PipeWire with its PulseAudio layer.
class DeviceQueries : public test::SoundServerTest {
protected:
    void SetUp() override {
        SoundServerTest::SetUp();
        if (!serverReady())
            return;
        SoundServer::setDefault("sink", "tappix_a");
        SoundServer::setDefault("source", "tappix_mic");
        devices_ = std::make_unique<PulseDeviceManager>();
    }

    /// Polls a question for up to one sleep-monitor interval.
    template <typename Question> static bool within2s(Question question, bool wanted) {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 2000) {
            if (question() == wanted)
                return true;
            QThread::msleep(50);
        }
        return false;
    }

    std::unique_ptr<PulseDeviceManager> devices_;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Servers, DeviceQueries, ::testing::Values("pulseaudio", "pipewire"),
                         test::serverName);

TEST_P(DeviceQueries, ARecordingClientOnTheDefaultSourceIsALiveMicrophone) {
    EXPECT_FALSE(devices_->isMicrophoneInUse());
    {
        auto recording = PulseServer::startRecording();
        EXPECT_TRUE(within2s([&] { return devices_->isMicrophoneInUse(); }, true));
    }
    EXPECT_TRUE(within2s([&] { return devices_->isMicrophoneInUse(); }, false));
}

TEST_P(DeviceQueries, AMonitorNeverCountsAsAMicrophone) {
    SoundServer::setDefault("source", "tappix_a.monitor");
    auto recording = PulseServer::startRecording("tappix_a.monitor");
    QThread::msleep(500);
    EXPECT_FALSE(devices_->isMicrophoneInUse());
}

TEST_P(DeviceQueries, BluetoothAndBuiltInOutputsFromTheSinkProperties) {
    EXPECT_FALSE(devices_->isDefaultOutputBluetooth());
    EXPECT_FALSE(devices_->isDefaultOutputBuiltIn());
    const QString bt =
        PulseServer::pactl({"load-module", "module-null-sink", "sink_name=tappix_bt",
                            "sink_properties=\"device.description=Buds device.bus=bluetooth\""})
            .trimmed();
    const QString jack =
        PulseServer::pactl({"load-module", "module-null-sink", "sink_name=tappix_jack",
                            "sink_properties=\"device.description=Jack device.bus=pci\""})
            .trimmed();
    SoundServer::setDefault("sink", "tappix_bt");
    EXPECT_TRUE(devices_->isDefaultOutputBluetooth());
    EXPECT_FALSE(devices_->isDefaultOutputBuiltIn());
    SoundServer::setDefault("sink", "tappix_jack");
    EXPECT_TRUE(devices_->isDefaultOutputBuiltIn());
    EXPECT_FALSE(devices_->isDefaultOutputBluetooth());
    PulseServer::pactl({"unload-module", bt});
    PulseServer::pactl({"unload-module", jack});
}

TEST(CameraInUse, AProcessHoldingAVideoNodeCounts) {
    QTemporaryDir proc;
    auto process = [&](const char* pid, const char* fd, const char* target) {
        QDir().mkpath(proc.filePath(QString("%1/fd").arg(pid)));
        QFile::link(target, proc.filePath(QString("%1/fd/%2").arg(pid, fd)));
    };
    process("100", "0", "/dev/null");
    process("100", "5", "/dev/snd/pcmC0D0c");
    QDir().mkpath(proc.filePath("self")); // not a process directory
    EXPECT_FALSE(anyProcessHoldsVideoDevice(proc.path().toStdString()));
    process("4242", "7", "/dev/video0");
    EXPECT_TRUE(anyProcessHoldsVideoDevice(proc.path().toStdString()));
    EXPECT_FALSE(anyProcessHoldsVideoDevice("/nonexistent"));
}

TEST(NoSoundServer, EveryQuestionIsAnsweredNoWithoutHanging) {
    const QByteArray saved = qgetenv("PULSE_SERVER");
    qputenv("PULSE_SERVER", "unix:/nonexistent/native");
    {
        PulseDeviceManager devices;
        QElapsedTimer timer;
        timer.start();
        EXPECT_FALSE(devices.isMicrophoneInUse());
        EXPECT_FALSE(devices.isDefaultOutputBluetooth());
        EXPECT_FALSE(devices.isDefaultOutputBuiltIn());
        EXPECT_TRUE(devices.outputDevices().empty());
        EXPECT_FALSE(devices.isServerReachable());
        EXPECT_LT(timer.elapsed(), 1000); // a hang, not a performance bound
    }
    if (saved.isEmpty())
        qunsetenv("PULSE_SERVER");
    else
        qputenv("PULSE_SERVER", saved);
}
