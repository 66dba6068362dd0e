// The Sound page's output device picker against a real sound server: a private
// PulseAudio whose sinks the test loads, unloads, stops and restarts while the list follows.

#include "ui/output_device_list_model.h"

#include "audio/audio_player.h"
#include "platform/pulse/pulse_device_manager.h"
#include "platform/pulse/pulse_output.h"
#include "platform/sndfile/sndfile_decoder.h"
#include "settings/json_file_preferences.h"
#include "settings/settings_store.h"
#include "support/core_app.h"
#include "support/fake_time.h"
#include "support/pipewire_server.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <memory>

using namespace tappix;
using test::SoundServer;

namespace {

/// One row as the page reads it.
struct Listed {
    QString uid, name;
    bool isAvailable = false, isChosen = false;
    friend bool operator==(const Listed&, const Listed&) = default;
};

std::vector<Listed> rows(const OutputDeviceListModel& model) {
    std::vector<Listed> out;
    for (int i = 0; i < model.rowCount(); ++i) {
        const QModelIndex at = model.index(i);
        out.push_back({at.data(OutputDeviceListModel::UidRole).toString(),
                       at.data(OutputDeviceListModel::NameRole).toString(),
                       at.data(OutputDeviceListModel::IsAvailableRole).toBool(),
                       at.data(OutputDeviceListModel::IsChosenRole).toBool()});
    }
    return out;
}

class OutputDevicePicker : public test::SoundServerTest {};

} // namespace

INSTANTIATE_TEST_SUITE_P(Servers, OutputDevicePicker, ::testing::Values("pulseaudio"),
                         test::serverName);

// One model over the server's changes: sinks come and go, the default moves, a chosen sink
// that goes away stays listed, greyed and chosen, and so it stays while the server is down,
// as in a model started then; the stream's latency is read.
TEST_P(OutputDevicePicker, FollowsTheSinksTheDefaultTheChoiceAndTheServer) {
    test::app();
    SoundServer::setDefault("sink", "tappix_a");
    test::FakeTime time;
    test::TempPrefs file;
    JsonFilePreferences prefs{file.path, time};
    SettingsStore store{prefs, time};
    PulseDeviceManager devices;
    AudioPlayer player(std::make_unique<PulseOutput>(), std::make_unique<SndfileDecoder>(), devices,
                       1.0f);
    OutputDeviceListModel model(store, &devices, &player.output());
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    const std::vector<Listed> usual{{"", "System default (Speakers-A)", true, true},
                                    {"tappix_a", "Speakers-A", true, false},
                                    {"tappix_b", "Speakers-B", true, false}};
    ASSERT_TRUE(test::waitFor([&] { return rows(model) == usual; }));
    EXPECT_EQ(model.currentIndex(), 0);
    // A null sink has no hardware behind it: the stream's small buffer is all there is.
    ASSERT_TRUE(test::waitFor([&] { return model.chosenLatencyMs() > 0; }));
    EXPECT_FALSE(model.latencyIsHigh());

    // Listed by name, not in the order the server made them.
    const QString headset =
        SoundServer::pactl({"load-module", "module-null-sink", "sink_name=tappix_headset",
                            "sink_properties=device.description=Headset"})
            .trimmed();
    ASSERT_TRUE(test::waitFor([&] { return rows(model).size() == 4; }));
    EXPECT_EQ(rows(model)[1], (Listed{"tappix_headset", "Headset", true, false}));
    model.choose(QStringLiteral("tappix_headset"));
    EXPECT_EQ(store.outputDeviceUIDText(), QStringLiteral("tappix_headset"));
    EXPECT_EQ(model.currentIndex(), 1);
    EXPECT_FALSE(rows(model)[0].isChosen);
    SoundServer::pactl({"unload-module", headset});
    EXPECT_TRUE(test::waitFor([&] { return !rows(model)[1].isAvailable; }));
    EXPECT_EQ(rows(model)[1], (Listed{"tappix_headset", "Headset", false, true}));
    EXPECT_EQ(model.currentIndex(), 1);

    // Back to the default: the absent device is no longer offered.
    model.choose(QString());
    EXPECT_EQ(store.outputDeviceUIDText(), QString());
    EXPECT_EQ(rows(model), usual);
    SoundServer::setDefault("sink", "tappix_b");
    EXPECT_TRUE(test::waitFor(
        [&] { return rows(model)[0].name == QStringLiteral("System default (Speakers-B)"); }));
    EXPECT_TRUE(test::waitFor([&] { return !model.busy(); }));

    model.choose(QStringLiteral("tappix_b"));
    server_->kill();
    EXPECT_TRUE(test::waitFor([&] {
        return rows(model) == std::vector<Listed>{{"", "System default", true, false},
                                                  {"tappix_b", "Speakers-B", false, true}};
    }));
    EXPECT_EQ(model.currentIndex(), 1);
    {
        // Started while there is no server: every question is answered no at once, and the
        // stored choice is offered by its uid.
        PulseDeviceManager none;
        QElapsedTimer timer;
        timer.start();
        EXPECT_FALSE(none.isMicrophoneInUse());
        EXPECT_FALSE(none.isDefaultOutputBluetooth());
        EXPECT_FALSE(none.isDefaultOutputBuiltIn());
        EXPECT_TRUE(none.outputDevices().empty());
        EXPECT_FALSE(none.isServerReachable());
        EXPECT_LT(timer.elapsed(), 1000); // a hang, not a performance bound
        PulseOutput output;
        OutputDeviceListModel late(store, &none, &output);
        QAbstractItemModelTester lateTester(&late,
                                            QAbstractItemModelTester::FailureReportingMode::Fatal);
        EXPECT_TRUE(test::waitFor([&] { return !late.busy(); }));
        EXPECT_EQ(rows(late), (std::vector<Listed>{{"", "System default", true, false},
                                                   {"tappix_b", "tappix_b", false, true}}));
        EXPECT_EQ(late.currentIndex(), 1);
        EXPECT_EQ(late.chosenLatencyMs(), OutputDeviceListModel::kUnknownLatency);
    }
    ASSERT_TRUE(server_->start());
    EXPECT_TRUE(
        test::waitFor([&] { return rows(model).size() == 3 && rows(model)[2].isAvailable; }));
    EXPECT_EQ(rows(model)[0].name, QStringLiteral("System default (Speakers-A)"));
    EXPECT_EQ(model.currentIndex(), 2);
}
