// The wiring of the whole service on a platform made of stand-ins: a keyboard the test
// types on, an output that plays nowhere, a preferences file in a private directory.

#include "app/app_delegate.h"

#include "input/key_codes.h"
#include "platform/null/null_output.h"
#include "support/fake_time.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <atomic>
#include <thread>

using namespace tappix;
using namespace std::chrono_literals;

namespace {

QCoreApplication& app() {
    static int argc = 1;
    static char name[] = "tappix_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* instance =
        QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    return instance ? *instance : *QCoreApplication::instance();
}

/// A keyboard at the platform boundary. `typeContinuously` makes it behave like a
/// real backend thread that keeps reporting until `stop` joins it.
class TestKeyboard final : public CaptureSource {
public:
    bool start(CaptureSink& sink) override {
        sink_ = &sink;
        if (continuous_) {
            running_ = true;
            thread_ = std::thread([this] {
                for (KeyCode code = 0; running_; code = (code + 1) % 50) {
                    sink_->keyDown(code, false);
                    sink_->keyUp(code);
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

/// Every file decodes to a short click.
class ClickDecoder final : public SampleDecoder {
public:
    std::optional<SampleBuffer> decode(const QString&, std::string&) override {
        return SampleBuffer{std::vector<float>(64, 0.5f)};
    }
};

class SilentNotifier final : public UserNotifier {
public:
    void post(const QString&, const QString&, const QString&) override {}
};

struct Harness {
    QTemporaryDir kits;
    test::TempPrefs prefs;
    test::FakeTime time;
    TestKeyboard* keyboard = nullptr;
    std::unique_ptr<AppDelegate> delegate;

    explicit Harness(bool continuous = false) {
        app();
        QDir().mkpath(kits.filePath("click/sounds"));
        QFile(kits.filePath("click/sounds/a.wav")).open(QIODevice::WriteOnly);
        QFile manifest(kits.filePath("click/config.json"));
        manifest.open(QIODevice::WriteOnly);
        manifest.write(R"({"id":"click","metadata":{"name":"Click","brand":"B","author":"A"},
            "license":{"type":"t","url":"u"},"sounds":{"default":{"down":["a.wav"],"up":[]}}})");
        manifest.close();

        auto source = std::make_unique<TestKeyboard>();
        keyboard = source.get();
        if (continuous)
            keyboard->typeContinuously();
        AppDelegate::Platform platform;
        platform.output = std::make_unique<NullOutput>();
        platform.decoder = std::make_unique<ClickDecoder>();
        platform.devices = std::make_unique<NullAudioDeviceManager>();
        platform.capture.keyboard = std::move(source);
        platform.captureIsPossible = [] { return true; };
        platform.notifier = std::make_unique<SilentNotifier>();
        platform.clock = &time;
        platform.scheduler = &time;
        delegate =
            std::make_unique<AppDelegate>(std::move(platform), prefs.path, kits.path(), QString());
        delegate->start();
    }

    /// Presses and releases each key, 150 ms apart, and lets every hop land.
    void type(std::initializer_list<KeyCode> codes) {
        for (KeyCode code : codes) {
            keyboard->sink()->keyDown(code, false);
            keyboard->sink()->keyUp(code);
            settle();
            time.advance(150ms);
        }
    }
    void press(KeyCode code, bool down) {
        if (down)
            keyboard->sink()->keyDown(code, false);
        else
            keyboard->sink()->keyUp(code);
        settle();
    }
    void settle() {
        delegate->keyService().drain();
        QCoreApplication::processEvents();
    }
    QJsonObject file() const {
        QFile f(prefs.path);
        f.open(QIODevice::ReadOnly);
        return QJsonDocument::fromJson(f.readAll()).object();
    }
};

} // namespace

TEST(AppDelegate, TypedKeysReachTheStatisticsAndTheFileAtShutdown) {
    Harness run;
    using namespace keys;
    // "hello wrld", two corrections, "orld", Return.
    run.type(
        {h, e, l, l, o, space, w, r, l, d, backspace, backspace, backspace, o, r, l, d, returnKey});
    EXPECT_EQ(run.delegate->settings().productiveKeys(), 15);
    EXPECT_EQ(run.delegate->settings().corrections(), 3);
    EXPECT_EQ(run.delegate->settings().keystrokeCount(), 18);
    EXPECT_TRUE(run.delegate->typingMonitor().isTyping());

    run.delegate->shutdown();
    const QJsonObject stored = run.file();
    EXPECT_EQ(stored.value("productiveKeys").toInt(), 15);
    EXPECT_EQ(stored.value("corrections").toInt(), 3);
    EXPECT_EQ(stored.value("keystrokeCount").toInt(), 18);
    EXPECT_NEAR(stored.value("typingSeconds").toDouble(), 17 * 0.15, 1e-6);
}

TEST(AppDelegate, TheShortcutTurnsTheSoundsOffAndOnWithoutSwallowingKeys) {
    Harness run;
    using namespace keys;
    auto chord = [&](KeyCode first, KeyCode second, KeyCode key) {
        run.press(first, true);
        run.press(second, true);
        run.press(key, true);
        run.press(key, false);
        run.press(second, false);
        run.press(first, false);
        QCoreApplication::processEvents();
    };
    chord(control, command, k);
    EXPECT_FALSE(run.delegate->settings().isEnabled());
    // The chord's own keys, K included, sound: the shortcut only listens.
    const auto counted = run.delegate->settings().keystrokeCount();
    EXPECT_EQ(counted, 3);
    run.type({a, s, d});
    EXPECT_EQ(run.delegate->settings().keystrokeCount(), counted);

    chord(rightCommand, rightControl, k);
    EXPECT_TRUE(run.delegate->settings().isEnabled());
    run.type({a});
    EXPECT_EQ(run.delegate->settings().keystrokeCount(), counted + 1);

    // Another combination, and a bad one that turns the shortcut off.
    run.delegate->settings().setToggleSoundsShortcut(QStringLiteral("Alt+Shift+F5"));
    run.settle();
    chord(control, command, k);
    EXPECT_TRUE(run.delegate->settings().isEnabled());
    chord(option, shift, f5);
    EXPECT_FALSE(run.delegate->settings().isEnabled());
    run.delegate->settings().setToggleSoundsShortcut(QStringLiteral("Hyper+Q"));
    run.settle();
    chord(option, shift, f5);
    EXPECT_FALSE(run.delegate->settings().isEnabled());
    run.delegate->shutdown();
    EXPECT_EQ(run.file().value("toggleSoundsShortcut").toString(), QStringLiteral("Hyper+Q"));
}

// Keys arriving on the capture thread while the service is torn down never reach a
// destroyed engine or monitor (the sanitizer build turns such a use into a failure).
TEST(AppDelegate, ShutsDownCleanlyWhileKeysAreStillArriving) {
    for (int round = 0; round < 5; ++round) {
        Harness run(true);
        // Let keys flow; the counter hops to the main thread, so wait for it there.
        for (int i = 0; i < 100000 && run.delegate->settings().keystrokeCount() < 100; ++i)
            QCoreApplication::processEvents();
        run.delegate.reset();
        QCoreApplication::processEvents();
        EXPECT_GT(run.file().value("keystrokeCount").toInt(), 0);
    }
}
