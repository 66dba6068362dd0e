#pragma once

// Tappix's services on a platform made of stand-ins: a keyboard the test types on, an
// output that plays nowhere, a preferences file in a private directory, and one kit
// ("click") plus any the test adds.

#include "app/app_delegate.h"

#include "audio/audio_output.h"
#include "support/core_app.h"
#include "support/fake_time.h"
#include "support/temp_prefs.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>

namespace tappix::test {

/// A keyboard at the platform boundary; `typeContinuously` types on a thread until `stop`.
class TestKeyboard final : public CaptureSource {
public:
    bool start(CaptureSink& sink) override {
        sink_ = &sink;
        if (continuous_) {
            running_ = true;
            thread_ = std::thread([this] {
                for (KeyCode code = 0; running_; code = (code + 1) % 50) {
                    sink_->keyDown(code, false, {});
                    sink_->keyUp(code, {});
                }
            });
        }
        return true;
    }
    void stop() override {
        running_ = false;
        if (thread_.joinable())
            thread_.join();
        sink_ = nullptr;
    }
    void typeContinuously() { continuous_ = true; }
    CaptureSink* sink() const { return sink_; }

private:
    CaptureSink* sink_ = nullptr;
    bool continuous_ = false;
    std::atomic<bool> running_{false};
    std::thread thread_;
};

/// An output that plays nowhere: the mixer renders only when a test renders it.
class HandOutput final : public AudioOutput {
public:
    bool start(Mixer&) override { return true; }
    void stop() override {}
    void setDevice(const std::optional<std::string>&) override {}
    bool isPlaying() const override { return true; }
    double latencySeconds() const override { return 0.0; }
};

/// Every file decodes to a short click; each decode is counted.
class ClickDecoder final : public SampleDecoder {
public:
    explicit ClickDecoder(std::atomic<int>& decodes) : decodes_(decodes) {}
    std::optional<SampleBuffer> decode(const QString&, std::string&) override {
        ++decodes_;
        return SampleBuffer{std::vector<float>(64, 0.5f)};
    }

private:
    std::atomic<int>& decodes_;
};

/// The window in front, as the test says a desktop reports it.
class TestFocus final : public FocusSource {
public:
    QString unavailableReason() const override { return {}; }
    std::vector<AppIdentity> runningApps() override { return running; }
    AppIdentity describe(const QString& id) const override { return {id, id, {}}; }
    void show(std::optional<FocusedWindow> window) { report(std::move(window)); }
    std::vector<AppIdentity> running;
};

/// Keeps what is posted, as "id|title|body".
class RecordingNotifier final : public UserNotifier {
public:
    void post(const QString& id, const QString& title, const QString& body) override {
        posted.push_back(id + '|' + title + '|' + body);
    }
    std::vector<QString> posted;
};

/// Writes a one-sample kit `id` into `directory`, on the shelf `family` when given, whose
/// `sounds` (the default one, or Return's and the space bar's too) all play that sample.
inline void writeKit(const QString& directory, const QString& id, const QString& name,
                     const QString& family = {}, const QStringList& sounds = {"default"}) {
    QDir().mkpath(directory + "/" + id + "/sounds");
    QFile(directory + "/" + id + "/sounds/a.wav").open(QIODevice::WriteOnly);
    QFile manifest(directory + "/" + id + "/config.json");
    manifest.open(QIODevice::WriteOnly);
    QJsonObject metadata{{"name", name}, {"brand", "B"}, {"author", "A"}};
    if (!family.isEmpty())
        metadata.insert("family", family);
    QJsonObject soundsObject;
    for (const QString& sound : sounds)
        soundsObject.insert(sound,
                            QJsonObject{{"down", QJsonArray{"a.wav"}}, {"up", QJsonArray{}}});
    manifest.write(QJsonDocument(QJsonObject{{"id", id},
                                             {"metadata", metadata},
                                             {"license", QJsonObject{{"type", "t"}, {"url", "u"}}},
                                             {"sounds", soundsObject}})
                       .toJson());
}

/// How a harness starts: `withWindows` needs a QApplication; `addKits` writes into the
/// bundle and the user's directory before the scan; no `microphone`, none can be had;
/// `platform` changes the platform last.
struct HarnessOptions {
    bool continuous = false;
    bool withWindows = false;
    bool captureIsPossible = true;
    QJsonObject preferences = {};
    std::function<void(const QString& bundle, const QString& user)> addKits = {};
    std::function<std::unique_ptr<Microphone>()> microphone = {};
    std::function<void(AppDelegate::Platform&)> platform = {};
};

/// Options for a Tappix that shows itself to a returning user.
inline HarnessOptions windowed(QJsonObject preferences = {}) {
    HarnessOptions options;
    options.withWindows = true;
    preferences.insert("hasSeenWelcome", true);
    options.preferences = preferences;
    return options;
}

struct Harness {
    QTemporaryDir kits;
    QTemporaryDir userKits;
    test::TempPrefs prefs;
    test::FakeTime time;
    std::atomic<bool> captureIsPossible{true};
    std::atomic<int> decodes{0};
    TestKeyboard* keyboard = nullptr;
    TestFocus* focus = nullptr;
    std::unique_ptr<AppDelegate> delegate;

    explicit Harness(bool continuous = false) : Harness(HarnessOptions{continuous}) {}

    explicit Harness(const HarnessOptions& options) {
        app();
        writeKit(kits.path(), "click", "Click");
        if (options.addKits)
            options.addKits(kits.path(), userKits.path());
        if (!options.preferences.isEmpty())
            prefs.write(options.preferences);

        auto source = std::make_unique<TestKeyboard>();
        keyboard = source.get();
        if (options.continuous)
            keyboard->typeContinuously();
        AppDelegate::Platform platform;
        platform.output = std::make_unique<HandOutput>();
        platform.decoder = std::make_unique<ClickDecoder>(decodes);
        platform.devices = std::make_unique<NullAudioDeviceManager>();
        platform.capture.keyboard = std::move(source);
        captureIsPossible = options.captureIsPossible;
        platform.captureIsPossible = [this] { return captureIsPossible.load(); };
        platform.notifier = std::make_unique<RecordingNotifier>();
        auto focusSource = std::make_unique<TestFocus>();
        focus = focusSource.get();
        platform.focus = std::move(focusSource);
        platform.clock = &time;
        platform.scheduler = &time;
        platform.withWindows = options.withWindows;
        platform.makeMicrophone =
            options.microphone ? options.microphone : [] { return std::unique_ptr<Microphone>(); };
        if (options.platform)
            options.platform(platform);
        delegate = std::make_unique<AppDelegate>(std::move(platform), prefs.path, kits.path(),
                                                 userKits.path());
        delegate->start();
    }

    /// Presses and releases each key, 150 ms apart, and lets every hop land.
    void type(std::initializer_list<KeyCode> codes) {
        for (KeyCode code : codes) {
            keyboard->sink()->keyDown(code, false, now());
            keyboard->sink()->keyUp(code, now());
            settle();
            time.advance(std::chrono::milliseconds(150));
        }
    }
    /// Moves `code`, stamped `at` (by default now).
    void press(KeyCode code, bool down, std::optional<KeyTime> at = {}) {
        if (down)
            keyboard->sink()->keyDown(code, false, at.value_or(now()));
        else
            keyboard->sink()->keyUp(code, at.value_or(now()));
        settle();
    }
    /// The fake clock's time, as capture stamps a key.
    KeyTime now() const {
        return KeyTime(std::chrono::duration_cast<KeyTime::duration>(time.now()));
    }
    void settle() {
        delegate->keyService().drain();
        QCoreApplication::processEvents();
    }
    QJsonObject file() const { return prefs.read(); }
};

} // namespace tappix::test
