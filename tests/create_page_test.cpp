// The Create page's view models wired to the delegate: a keyboard recorded into a kit, a
// designed kit saved off the main thread, listed and chosen, the tuner writing the main
// kit's tuning. A failed save is driven through the page in tests/ui/test_settings_pages.py.

#include "input/key_codes.h"
#include "settings/settings_store.h"
#include "support/stand_in_app.h"
#include "ui/desktop_shell.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QJsonObject>
#include <QSignalSpy>
#include <cmath>
#include <random>

using namespace tappix;
using test::Harness;
using test::HarnessOptions;

namespace {

QStringList rowsIn(const KitListModel& kits, const QString& section) {
    QStringList ids;
    for (int row = 0; row < kits.rowCount(); ++row) {
        const QModelIndex index = kits.index(row);
        if (index.data(KitListModel::SectionRole).toString() == section)
            ids << index.data(KitListModel::KitIdRole).toString();
    }
    return ids;
}

// A microphone at the platform boundary: silence, with a key's click 20 ms after each
// moment the test says a key sounded, on the harness's clock.
class FakeMicrophone final : public Microphone {
public:
    struct Room {
        const Clock* clock = nullptr;
        std::vector<double> sounds;
        std::string failure;
        bool refuse = false;
        double now() const { return std::chrono::duration<double>(clock->now()).count(); }
    };
    explicit FakeMicrophone(std::shared_ptr<Room> room) : room_(std::move(room)) {}

    bool start(std::string& error) override {
        error = room_->refuse ? "there is no microphone" : "";
        start_ = room_->now();
        return !room_->refuse;
    }
    Recording stop() override { return snapshot(); }
    Recording snapshot() override {
        Recording recording;
        recording.startSeconds = start_;
        recording.error = room_->failure;
        recording.samples.assign(std::size_t((room_->now() - start_ + 0.4) * kSampleRate), 0.0f);
        std::mt19937 random(5);
        std::uniform_real_distribution<float> noise(-1.0f, 1.0f);
        for (double at : room_->sounds) {
            const auto from = std::size_t((at + 0.02 - start_) * kSampleRate);
            for (std::size_t i = 0; i < 1440 && from + i < recording.samples.size(); ++i)
                recording.samples[from + i] += 0.4f * noise(random) * std::exp(-float(i) / 240.0f);
        }
        return recording;
    }
    std::vector<float> tail(std::size_t count) override {
        const auto all = snapshot().samples;
        return {all.end() - std::ptrdiff_t(std::min(count, all.size())), all.end()};
    }
    std::string name() const override { return "Test Microphone"; }
    float takePeak() override { return room_->sounds.empty() ? 0.0f : 0.4f; }
    std::string failure() const override { return room_->failure; }

private:
    std::shared_ptr<Room> room_;
    double start_ = 0;
};

struct RecorderRun {
    std::shared_ptr<FakeMicrophone::Room> room = std::make_shared<FakeMicrophone::Room>();
    std::unique_ptr<Harness> run;
    explicit RecorderRun(const QJsonObject& preferences = {}) {
        HarnessOptions options = test::windowed(preferences);
        options.microphone = [room = room] { return std::make_unique<FakeMicrophone>(room); };
        run = std::make_unique<Harness>(options);
        room->clock = &run->time;
        run->delegate->settings().setSelectedPackIdText("click");
    }
    RecorderViewModel& recorder() { return run->delegate->shell()->recorder(); }
    // Presses and releases `code` as the microphone hears it; every third move reaches
    // the recorder 100 ms after it happened, as on a busy machine.
    void typeKey(KeyCode code) {
        for (bool down : {true, false}) {
            run->time.advance(std::chrono::milliseconds(down ? 300 : 120));
            room->sounds.push_back(room->now());
            const KeyTime moved = run->now();
            run->time.advance(std::chrono::milliseconds(++moves % 3 == 0 ? 100 : 0));
            run->press(code, down, moved);
        }
    }
    int moves = 0;
};

} // namespace

// No microphone, then one that goes away, make no kit and give the keys back; a whole
// recording asks for each key quietly, then writes and chooses the kit off the main thread.
TEST(RecorderViewModel, FailuresMakeNoKitAndARecordingWritesAndChoosesOne) {
    RecorderRun r;
    RecorderViewModel& recorder = r.recorder();
    SettingsStore& settings = r.run->delegate->settings();
    recorder.setName("Desk Board");
    r.room->refuse = true;
    recorder.start();
    EXPECT_EQ(recorder.state(), "failed");
    EXPECT_EQ(recorder.status(), "Could not record: there is no microphone.");

    r.room->refuse = false;
    recorder.start();
    r.run->time.advance(RecorderViewModel::kQuietStart);
    r.typeKey(keys::a);
    r.room->failure = "the microphone \"Test Microphone\" went away while recording";
    r.run->time.advance(RecorderViewModel::kMeterInterval);
    EXPECT_EQ(recorder.state(), "failed");
    EXPECT_TRUE(recorder.status().endsWith("went away while recording. No kit was made."))
        << recorder.status().toStdString();
    EXPECT_EQ(settings.selectedPackId(), QStringLiteral("click"));
    EXPECT_FALSE(QDir(r.run->userKits.filePath("recorded-desk-board")).exists());
    r.run->type({keys::a});
    EXPECT_EQ(settings.keystrokeCount(), 1);

    r.room->failure.clear();
    r.room->sounds.clear();
    recorder.start();
    EXPECT_EQ(recorder.state(), "listening");
    r.run->time.advance(RecorderViewModel::kQuietStart);
    EXPECT_EQ(recorder.state(), "recording");
    using namespace keys;
    for (KeyCode code : {a, s, d, f, j, space, returnKey, backspace, shift}) {
        EXPECT_EQ(recorder.prompt(),
                  QStringLiteral("Press %1 5 times")
                      .arg(QString::fromStdString(KeyboardRecording::keyTitle(code))));
        for (int i = 0; i < RecorderViewModel::kTimes; ++i)
            r.typeKey(code);
    }
    // Tappix stayed quiet; the meter and the waveform followed the microphone.
    EXPECT_EQ(settings.keystrokeCount(), 1);
    EXPECT_GT(recorder.level(), 0.0);
    EXPECT_EQ(recorder.waveform().size(), RecorderViewModel::kWaveformPoints);
    r.run->time.advance(RecorderViewModel::kTail);
    EXPECT_EQ(recorder.state(), "saving");
    EXPECT_TRUE(recorder.busy());
    QSignalSpy changed(&recorder, &RecorderViewModel::stateChanged);
    ASSERT_TRUE(recorder.state() != "saving" || changed.wait(60000));
    ASSERT_EQ(recorder.state(), "done") << recorder.status().toStdString();
    EXPECT_EQ(settings.selectedPackId(), QStringLiteral("recorded-desk-board"));
    EXPECT_TRUE(rowsIn(r.run->delegate->shell()->kits(), KitListModel::kYoursSection)
                    .contains("recorded-desk-board"));
    const Soundpack* kit = r.run->delegate->packStore().find("recorded-desk-board");
    ASSERT_NE(kit, nullptr);
    EXPECT_EQ(kit->config.sounds.at("alpha").down.size(), 25u);
    EXPECT_TRUE(kit->config.metadata.supportsKeyUp);
    r.run->type({a});
    EXPECT_EQ(settings.keystrokeCount(), 2);
}

// A designed kit saved off the main thread, listed and chosen; the tuner then writes the
// tuning of the main kit, whichever it is.
TEST(DesignerViewModel, SaveRunsOffTheMainThreadThenListsAndChoosesTheKitTheTunerTunes) {
    Harness run(test::windowed());
    DesktopShell& shell = *run.delegate->shell();
    DesignerViewModel& designer = shell.designer();
    SettingsStore& settings = run.delegate->settings();
    TunerViewModel& tuner = shell.tuner();
    settings.setSelectedPackIdText("");
    EXPECT_FALSE(tuner.hasKit());
    tuner.setGain(0.5);
    EXPECT_TRUE(settings.tunings().empty()) << "no kit, nothing to tune";
    // The stored choice names the kit before it exists (one deleted by hand and made
    // again), so only the store's new scan can bring it into the lists.
    settings.setSelectedPackIdText("custom-my-switch");
    MixEditorModel& editor = shell.mixEditor();
    editor.createMix("Desk");
    editor.editRegion("enter");
    editor.chooseSource(MixEditorModel::kYoursSource);
    ASSERT_TRUE(editor.kitChoices().isEmpty());

    EXPECT_FALSE(designer.canSave()); // no name yet
    designer.setName(" My Switch ");
    designer.applyPreset(0);
    QSignalSpy finished(&designer, &DesignerViewModel::saveFinished);
    designer.save();
    // The main thread is free while the kit is written; a second save waits its turn.
    EXPECT_TRUE(designer.busy());
    designer.save();
    ASSERT_TRUE(finished.wait(60000));
    QCoreApplication::processEvents();
    EXPECT_EQ(finished.count(), 1);
    EXPECT_TRUE(finished.at(0).at(0).toBool());
    EXPECT_EQ(settings.selectedPackIdText(), "custom-my-switch");
    EXPECT_EQ(run.delegate->soundEngine()->currentPackId(), "custom-my-switch");
    EXPECT_EQ(rowsIn(shell.kits(), KitListModel::kYoursSection), QStringList{"custom-my-switch"});
    ASSERT_EQ(editor.kitChoices().size(), 1);
    EXPECT_EQ(editor.kitChoices()[0].toMap().value("kitId"), "custom-my-switch");

    EXPECT_EQ(tuner.kitName(), "My Switch");
    tuner.setPitch(1.5);
    tuner.setGain(9);
    tuner.setVariation(0.1);
    tuner.setPanWidth(0.25);
    EXPECT_EQ(settings.tuning("custom-my-switch"), (PackTuning{1.5f, 2.0f, 0.1f, 0.25f}));
    // Another kit shows its own tuning; the first keeps its.
    settings.setSelectedPackIdText("click");
    EXPECT_EQ(tuner.kitName(), "Click");
    EXPECT_DOUBLE_EQ(tuner.pitch(), 1.0);
    tuner.setPitch(0.75);
    EXPECT_EQ(settings.tuning("custom-my-switch").pitch, 1.5f);
    settings.setSelectedPackIdText("custom-my-switch");
    EXPECT_DOUBLE_EQ(tuner.pitch(), 1.5);
    tuner.reset();
    EXPECT_EQ(settings.tuning("custom-my-switch"), PackTuning{});
}
