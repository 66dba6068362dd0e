// Device questions answered by a real sound server, and the camera check.

#include "platform/camera_watch.h"
#include "platform/pulse/pulse_device_manager.h"

#include "support/core_app.h"
#include "support/pipewire_server.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

using namespace tappix;
using test::SoundServer;

// On a private PulseAudio and on a private PipeWire with its PulseAudio layer.
using DeviceQueries = test::SoundServerTest;

INSTANTIATE_TEST_SUITE_P(Servers, DeviceQueries, ::testing::Values("pulseaudio", "pipewire"),
                         test::serverName);

// A recording of a monitor, even the default source, is no live microphone.
TEST_P(DeviceQueries, TheMicrophoneIsLiveOnlyWhileItIsRecordedAndOutputsHaveTheirKind) {
    SoundServer::setDefault("sink", "tappix_a");
    SoundServer::setDefault("source", "tappix_mic");
    PulseDeviceManager devices;
    EXPECT_FALSE(devices.isMicrophoneInUse());
    {
        auto other = SoundServer::startRecording("tappix_a.monitor");
        // Asked once the server lists the recording, so a question about any stream sees it.
        ASSERT_TRUE(test::waitFor(
            [] {
                return SoundServer::pactl({"list", "short", "source-outputs"}).contains('\t');
            },
            10000));
        EXPECT_FALSE(devices.isMicrophoneInUse());
        SoundServer::setDefault("source", "tappix_a.monitor");
        EXPECT_FALSE(devices.isMicrophoneInUse());
        SoundServer::setDefault("source", "tappix_mic");
    }
    {
        auto recording = SoundServer::startRecording();
        EXPECT_TRUE(test::waitFor([&] { return devices.isMicrophoneInUse(); }, 2000));
    }
    EXPECT_TRUE(test::waitFor([&] { return !devices.isMicrophoneInUse(); }, 2000));

    // Bluetooth and built-in outputs, from the default sink's properties.
    EXPECT_FALSE(devices.isDefaultOutputBluetooth());
    EXPECT_FALSE(devices.isDefaultOutputBuiltIn());
    for (const QString bus : {"bluetooth", "pci"}) {
        const QString module =
            SoundServer::pactl(
                {"load-module", "module-null-sink", "sink_name=tappix_" + bus,
                 "sink_properties=\"device.description=" + bus + " device.bus=" + bus + "\""})
                .trimmed();
        SoundServer::setDefault("sink", "tappix_" + bus);
        // PipeWire takes the new default a moment after pactl returns (seen once in CI).
        EXPECT_TRUE(test::waitFor(
            [&] {
                return devices.isDefaultOutputBluetooth() == (bus == "bluetooth") &&
                       devices.isDefaultOutputBuiltIn() == (bus == "pci");
            },
            2000))
            << bus.toStdString();
        SoundServer::pactl({"unload-module", module});
        // Back to the fixture's sink, reported, before the next one: PipeWire otherwise still
        // settles the removed default while the next is chosen.
        SoundServer::setDefault("sink", "tappix_a");
    }
}

// A camera is in use while some process holds its node open. The processes are looked
// through once at the first question, when a node appears and after a close; an open is
// seen as it happens, and while nothing is opened or closed, nothing is looked through.
TEST(CameraWatch, OpensAndClosesAreSeenAndOnlyTheyLookThroughTheProcesses) {
    QTemporaryDir root;
    const QString dev = root.filePath("dev"), proc = root.filePath("proc");
    QDir().mkpath(dev);
    auto node = [&](const char* name) { QFile(dev + "/" + name).open(QIODevice::WriteOnly); };
    auto holds = [&](const char* pid, const char* target) {
        QDir().mkpath(QString("%1/%2/fd").arg(proc, pid));
        QFile::link(target[0] == '/' ? QString(target) : dev + "/" + target,
                    QString("%1/%2/fd/7").arg(proc, pid));
    };
    auto lets = [&](const char* pid) { QDir(proc + "/" + pid).removeRecursively(); };
    auto openAndClose = [&](const char* name) {
        QFile(dev + "/" + name).open(QIODevice::ReadOnly);
    };
    node("video0");
    node("null");
    holds("100", "/dev/snd/pcmC0D0c");
    holds("200", "video0");
    QDir().mkpath(proc + "/self/fd"); // not a process
    CameraWatch camera(dev.toStdString(), proc.toStdString());
    EXPECT_TRUE(camera.inUse()) << "held before the first question";
    lets("200");
    openAndClose("video0");
    EXPECT_FALSE(camera.inUse()) << "its holder closed it";
    holds("300", "video0");
    EXPECT_FALSE(camera.inUse()) << "nothing opened or closed: no look";
    lets("300");
    QFile held(dev + "/video0");
    ASSERT_TRUE(held.open(QIODevice::ReadOnly));
    EXPECT_TRUE(camera.inUse()) << "opened";
    node("other");
    openAndClose("null");
    EXPECT_TRUE(camera.inUse()) << "another node opened and closed";
    held.close();
    EXPECT_FALSE(camera.inUse()) << "closed";
    holds("400", "video1");
    node("video1");
    EXPECT_TRUE(camera.inUse()) << "a node plugged in already held";
    lets("400");
    QFile::remove(dev + "/video1");
    EXPECT_FALSE(camera.inUse()) << "unplugged and let go";
    EXPECT_FALSE(CameraWatch("/nonexistent", "/nonexistent").inUse());
}
