// The Sound page's output device picker against a real sound server: a private
// PulseAudio whose sinks the tests load, unload and restart while the list follows.

#include "ui/output_device_list_model.h"

#include "audio/audio_player.h"
#include "platform/pulse/pulse_device_manager.h"
#include "platform/pulse/pulse_output.h"
#include "platform/sndfile/sndfile_decoder.h"
#include "settings/json_file_preferences.h"
#include "settings/settings_store.h"
#include "support/core_app.h"
#include "support/fake_time.h"
#include "support/pulse_server.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <memory>

using namespace tappix;
using test::PulseServer;

namespace {

/// Processes events until `condition` holds or five seconds pass.
template <typename Condition> bool eventually(Condition condition) {
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return condition();
}

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

/// A null sink loaded for one test; unloaded when it ends unless the test did.
struct ExtraSink {
    ExtraSink(const QString& name, const QString& description) {
        module = PulseServer::pactl({"load-module", "module-null-sink", "sink_name=" + name,
                                     "rate=48000", "format=float32le", "channels=2",
                                     "sink_properties=device.description=" + description})
                     .trimmed();
    }
    ~ExtraSink() { unload(); }
    void unload() {
        if (!module.isEmpty())
            PulseServer::pactl({"unload-module", module});
        module.clear();
    }
    QString module;
};

class OutputDevicePicker : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        test::app();
        server_ = new PulseServer;
    }
    static void TearDownTestSuite() { delete server_; }

    void SetUp() override {
        PulseServer::pactl({"set-default-sink", "tappix_a"});
        prefs_ = std::make_unique<JsonFilePreferences>(file_.path, time_);
        settings_ = std::make_unique<SettingsStore>(*prefs_, time_);
        devices_ = std::make_unique<PulseDeviceManager>();
    }
    void TearDown() override {
        dropModel();
        devices_.reset();
    }

    OutputDeviceListModel& makeModel(const AudioOutput* output = nullptr) {
        model_ = std::make_unique<OutputDeviceListModel>(*settings_, devices_.get(), output);
        tester_ = std::make_unique<QAbstractItemModelTester>(
            model_.get(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        return *model_;
    }
    void dropModel() {
        tester_.reset();
        model_.reset();
    }

    /// The server's own two sinks, A the default, with the default chosen.
    static std::vector<Listed> usualRows() {
        return {{"", "System default (Speakers-A)", true, true},
                {"tappix_a", "Speakers-A", true, false},
                {"tappix_b", "Speakers-B", true, false}};
    }

    static PulseServer* server_;
    test::FakeTime time_;
    test::TempPrefs file_;
    std::unique_ptr<JsonFilePreferences> prefs_;
    std::unique_ptr<SettingsStore> settings_;
    std::unique_ptr<PulseDeviceManager> devices_;
    std::unique_ptr<OutputDeviceListModel> model_;
    std::unique_ptr<QAbstractItemModelTester> tester_;
};

PulseServer* OutputDevicePicker::server_ = nullptr;

} // namespace

// One model over the server's changes: sinks come and go, the default moves, and a chosen
// sink that goes away stays listed, greyed and chosen; the stream's latency is read.
TEST_F(OutputDevicePicker, FollowsTheSinksTheDefaultAndTheChoice) {
    AudioPlayer player(std::make_unique<PulseOutput>(), std::make_unique<SndfileDecoder>(),
                       *devices_, 1.0f);
    OutputDeviceListModel& model = makeModel(&player.output());
    ASSERT_TRUE(eventually([&] { return rows(model) == usualRows(); }));
    EXPECT_EQ(model.currentIndex(), 0);
    // A null sink has no hardware behind it: the stream's small buffer is all there is.
    ASSERT_TRUE(eventually([&] { return model.chosenLatencyMs() > 0; }));
    EXPECT_FALSE(model.latencyIsHigh());

    // Listed by name, not in the order the server made them.
    ExtraSink headset("tappix_headset", "Headset");
    ASSERT_TRUE(eventually([&] { return rows(model).size() == 4; }));
    EXPECT_EQ(rows(model)[1], (Listed{"tappix_headset", "Headset", true, false}));

    model.choose(QStringLiteral("tappix_headset"));
    EXPECT_EQ(settings_->outputDeviceUIDText(), QStringLiteral("tappix_headset"));
    EXPECT_EQ(model.currentIndex(), 1);
    EXPECT_FALSE(rows(model)[0].isChosen);
    headset.unload();
    EXPECT_TRUE(eventually([&] { return !rows(model)[1].isAvailable; }));
    EXPECT_EQ(rows(model)[1], (Listed{"tappix_headset", "Headset", false, true}));
    EXPECT_EQ(rows(model).size(), 4u);
    EXPECT_EQ(model.currentIndex(), 1);

    // Back to the default: the absent device is no longer offered.
    model.choose(QString());
    EXPECT_EQ(settings_->outputDeviceUIDText(), QString());
    EXPECT_EQ(rows(model), usualRows());
    PulseServer::pactl({"set-default-sink", "tappix_b"});
    EXPECT_TRUE(eventually(
        [&] { return rows(model)[0].name == QStringLiteral("System default (Speakers-B)"); }));
    EXPECT_TRUE(eventually([&] { return !model.busy(); }));
    dropModel();
}

TEST_F(OutputDevicePicker, TheListEmptiesWhileTheServerIsDownAndReturnsWithIt) {
    settings_->setOutputDeviceUIDText(QStringLiteral("tappix_b"));
    OutputDeviceListModel& model = makeModel();
    ASSERT_TRUE(eventually([&] { return rows(model).size() == 3 && rows(model)[2].isAvailable; }));

    server_->kill();
    EXPECT_TRUE(eventually([&] {
        return rows(model) == std::vector<Listed>{{"", "System default", true, false},
                                                  {"tappix_b", "Speakers-B", false, true}};
    }));
    EXPECT_EQ(model.currentIndex(), 1);

    ASSERT_TRUE(server_->start());
    EXPECT_TRUE(eventually([&] { return rows(model).size() == 3 && rows(model)[2].isAvailable; }));
    EXPECT_EQ(rows(model)[0].name, QStringLiteral("System default (Speakers-A)"));
    EXPECT_EQ(model.currentIndex(), 2);
}

TEST(OutputDevicePickerWithoutServer, OffersTheDefaultAndTheChoiceByItsUidWithoutHanging) {
    const QByteArray saved = qgetenv("PULSE_SERVER");
    qputenv("PULSE_SERVER", "unix:/nonexistent/native");
    test::app();
    {
        test::FakeTime time;
        test::TempPrefs file;
        JsonFilePreferences prefs(file.path, time);
        SettingsStore settings(prefs, time);
        settings.setOutputDeviceUIDText(QStringLiteral("bluez_sink.gone"));
        PulseDeviceManager devices;
        PulseOutput output;
        OutputDeviceListModel model(settings, &devices, &output);
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::Fatal);
        EXPECT_TRUE(eventually([&] { return !model.busy(); }));
        EXPECT_EQ(rows(model),
                  (std::vector<Listed>{{"", "System default", true, false},
                                       {"bluez_sink.gone", "bluez_sink.gone", false, true}}));
        EXPECT_EQ(model.currentIndex(), 1);
        EXPECT_EQ(model.chosenLatencyMs(), OutputDeviceListModel::kUnknownLatency);
    }
    if (saved.isEmpty())
        qunsetenv("PULSE_SERVER");
    else
        qputenv("PULSE_SERVER", saved);
}
