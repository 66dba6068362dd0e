#include "monitors/sleep_monitor.h"
#include "monitors/typing_monitor.h"

#include "input/key_codes.h"
#include "settings/json_file_preferences.h"
#include "support/stand_in_app.h"

#include <gtest/gtest.h>

using namespace tappix;
using namespace std::chrono_literals;

namespace {

/// Answers as the test says, and notes where it was asked.
struct FakeDevices final : NullAudioDeviceManager {
    bool microphone = false, camera = false, bluetooth = false, builtIn = false;
    int queries = 0;
    bool askedOnMainThread = false;
    bool isMicrophoneInUse() override { return asked(), microphone; }
    bool isCameraInUse() override { return asked(), camera; }
    bool isDefaultOutputBluetooth() override { return asked(), bluetooth; }
    bool isDefaultOutputBuiltIn() override { return asked(), builtIn; }
    void asked() {
        ++queries;
        askedOnMainThread |= QThread::currentThread() == QCoreApplication::instance()->thread();
    }
};

FocusedWindow window(const QString& id, const QString& name, QStringList classes = {},
                     bool fullScreen = false, bool own = false) {
    return {{id, name, {}}, std::move(classes), fullScreen, own};
}

/// Settings in a preferences file of their own, on a clock driven by hand.
struct Store {
    test::FakeTime time;
    test::TempPrefs file;
    JsonFilePreferences prefs{file.path, time};
    SettingsStore settings{prefs, time};
};

struct Sleep : Store {
    FakeDevices devices;
    test::RecordingNotifier notifier;
    test::TestFocus focus;
    SleepMonitor monitor{settings, devices, notifier, time, &focus};
    std::vector<std::string> changes;

    Sleep() {
        test::app(); // the devices' answers come back through the event loop
        monitor.setOnChange([this](bool sleeping, std::optional<QString> reason) {
            changes.push_back(sleeping ? reason->toStdString() : "awake");
        });
        settings.setSleepEnabled(true);
    }
    /// Starts, and lets the devices answer.
    void start() {
        monitor.start();
        monitor.waitForAnswers();
    }
    /// Lets `step` pass, and the devices answer the polls on the way.
    void poll(std::chrono::milliseconds step) {
        time.advance(step);
        monitor.waitForAnswers();
    }
};

struct Typing : Store {
    TypingMonitor monitor{settings, time, time};

    Typing() { time.advance(100s); }
    void type(KeyCode code, std::chrono::milliseconds after = 0ms) {
        time.advance(after);
        monitor.keyDown(code);
    }
};

} // namespace

// Every 2 s, off the main thread (a sound server can take tens of milliseconds to answer);
// the first trigger that holds names the reason.
TEST(SleepMonitor, DevicesAreAskedOffTheMainThreadAndOnlyFlipsAreReported) {
    Sleep s;
    s.settings.setSleepTriggerMicrophone(true);
    s.settings.setSleepTriggerCamera(true);
    s.devices.microphone = s.devices.camera = true;
    s.monitor.start();
    EXPECT_TRUE(s.changes.empty()); // not answered yet
    s.monitor.waitForAnswers();
    EXPECT_EQ(s.changes, std::vector<std::string>{"The microphone is live"});
    s.devices.microphone = false; // the camera keeps it asleep: nothing to report
    s.poll(2s);
    EXPECT_EQ(s.changes.size(), 1u);
    s.devices.camera = false;
    s.poll(1999ms);
    EXPECT_EQ(s.changes.size(), 1u); // not polled yet
    s.time.advance(1ms);
    s.monitor.start(); // a poll while one is under way is asked once it is answered
    s.monitor.waitForAnswers();
    EXPECT_EQ(s.changes, (std::vector<std::string>{"The microphone is live", "awake"}));
    EXPECT_EQ(s.devices.queries, 1 + 2 + 2 + 2); // the first poll stops at the microphone
    EXPECT_FALSE(s.devices.askedOnMainThread);
}

TEST(SleepMonitor, DisabledTriggersSwitchingOffAndTheNotifications) {
    Sleep s;
    s.settings.setNotificationsEnabled(true);
    s.devices.microphone = s.devices.camera = s.devices.bluetooth = s.devices.builtIn = true;
    s.start();
    s.poll(10s);
    EXPECT_TRUE(s.changes.empty()); // every trigger off: never sleeps
    EXPECT_EQ(s.devices.queries, 0);

    s.settings.setSleepTriggerHeadphones(true);
    s.poll(2s);
    s.settings.setSleepTriggerSpeakers(true);
    s.poll(2s); // a lower trigger now holds too, but it is already asleep
    s.settings.setSleepEnabled(false);
    s.poll(2s);
    EXPECT_EQ(s.changes, (std::vector<std::string>{"Headphones are connected", "awake"}));
    EXPECT_EQ(s.notifier.posted,
              (std::vector<QString>{"tappix.sleep|Sleeping|Headphones are connected",
                                    "tappix.sleep|Clacking again|Keystroke sounds are back"}));
    s.monitor.stop();
    EXPECT_EQ(s.time.pending(), 0u); // no poll left behind
}

TEST(SleepMonitor, WindowTriggersComeAfterTheDeviceTriggersInTheirOrder) {
    const FocusedWindow notes = window("org.example.Notes", "Notes", {"notes", "Notes"});
    const FocusedWindow notesFull = window("org.example.Notes", "Notes", {}, true);
    const FocusedWindow term = window("XTerm", "XTerm", {"xterm", "XTerm"});
    const FocusedWindow ownFull = window("tappix", "Tappix", {}, true, true);
    const FocusedWindow unnamed = window("", "", {});
    enum On { speakers = 1, full = 2, apps = 4, all = 7 };
    const QString n = "org.example.Notes";
    struct Case {
        const char* what;
        int on;
        std::optional<FocusedWindow> front;
        QStringList listed;
        std::string expected;
    } cases[] = {
        {"a device trigger first", all, notesFull, {n}, "Playing through built-in speakers"},
        {"full screen first", full | apps, notesFull, {n}, "A full-screen app is in front"},
        {"a listed app, full screen off", apps, notesFull, {n}, "Notes is in front"},
        {"an id matches a class, any case", apps, term, {"xterm"}, "XTerm is in front"},
        {"an app not listed", apps | full, term, {n}, "awake"},
        {"a listed app, its trigger off", full, notes, {n}, "awake"},
        {"Tappix's own window in full screen", full | apps, ownFull, {"tappix"}, "awake"},
        {"a window naming no app", apps, unnamed, {"", "XTerm"}, "awake"},
        {"nothing in front", full | apps, std::nullopt, {"XTerm"}, "awake"},
    };
    for (const Case& c : cases) {
        Sleep s;
        s.devices.builtIn = true;
        s.settings.setSleepTriggerSpeakers(c.on & speakers);
        s.settings.setSleepTriggerFullScreen(c.on & full);
        s.settings.setSleepTriggerApps(c.on & apps);
        s.settings.setSleepAppIds(c.listed);
        s.focus.show(c.front);
        s.start();
        EXPECT_EQ(s.changes.empty() ? "awake" : s.changes.back(), c.expected) << c.what;
    }
}

TEST(TypingMonitor, TheLiveSpeedNeedsThreeKeysAndBurstsEndAfterFourQuietSeconds) {
    for (int keys : {24, 25}) {
        Typing t;
        for (int i = 0; i < keys; ++i) {
            t.type(keys::a, 100ms);
            if (i == 1 || i == 2) { // three keys, over half a second at least
                EXPECT_DOUBLE_EQ(t.monitor.liveWPM(), i == 1 ? 0.0 : 72.0);
            }
        }
        EXPECT_TRUE(t.monitor.isTyping());
        t.time.advance(4600ms); // ticks end the burst
        EXPECT_FALSE(t.monitor.isTyping());
        EXPECT_EQ(t.monitor.liveWPM(), 0.0);
        EXPECT_GT(t.monitor.lastWPM(), 0.0);
        EXPECT_EQ(t.settings.bestWPM() > 0, keys == 25) << keys;
        EXPECT_EQ(t.time.pending(), 1u); // the counter flush; no more ticks while idle
    }
}

TEST(TypingMonitor, APauseOfExactlyFourSecondsKeepsTheBurst) {
    // The boundary holds whatever the clock read when typing began: 124.002 s is a
    // reading whose seconds a double cannot hold exactly.
    for (std::chrono::milliseconds start : {0ms, 24002ms}) {
        Typing t;
        t.time.advance(start);
        t.type(keys::a);
        t.type(keys::s, 4s);
        EXPECT_EQ(t.monitor.sessionKeystrokes(), 2) << start.count();
        EXPECT_DOUBLE_EQ(t.monitor.sessionWPM(), (2 / 5.0) / (4.0 / 60.0)) << start.count();
        EXPECT_DOUBLE_EQ(t.settings.typingSeconds(), 4.0) << start.count();

        t.time.advance(4s); // a tick lands exactly four seconds after the last key
        EXPECT_TRUE(t.monitor.isTyping()) << start.count();
        EXPECT_EQ(t.monitor.lastKeystrokes(), 0) << start.count();

        t.type(keys::d, 1ms); // one millisecond more: a new burst, the pause not counted
        EXPECT_EQ(t.monitor.sessionKeystrokes(), 1) << start.count();
        EXPECT_EQ(t.monitor.lastKeystrokes(), 2) << start.count();
        EXPECT_DOUBLE_EQ(t.settings.typingSeconds(), 4.0) << start.count();
        t.time.advance(4500ms);
        EXPECT_FALSE(t.monitor.isTyping()) << start.count();
    }
}

TEST(TypingMonitor, CorrectionsIgnoredKeysAndStatisticsOff) {
    Typing t;
    t.type(keys::backspace);
    EXPECT_EQ(t.monitor.sessionAccuracy(), 0.0);
    EXPECT_EQ(t.monitor.sessionWPM(), 0.0);
    t.time.advance(5s);
    EXPECT_EQ(t.monitor.lastKeystrokes(), 0); // a burst without speed leaves the last values alone

    const double before = t.settings.typingSeconds();
    for (KeyCode ignored : {123, 53, 96, 48, 56, 1000})
        t.type(ignored, 1s);
    EXPECT_FALSE(t.monitor.isTyping());
    EXPECT_EQ(t.settings.typingSeconds(), before);

    t.type(keys::a, 1s);
    t.type(keys::s, 1s);
    t.type(keys::forwardDelete, 1s);
    EXPECT_DOUBLE_EQ(t.monitor.sessionAccuracy(), 2.0 / 3.0);
    EXPECT_EQ(t.settings.corrections(), 2);
    EXPECT_EQ(t.settings.productiveKeys(), 2);

    t.time.advance(5s);
    t.settings.setStatsEnabled(false); // statistics off: nothing counts
    for (int i = 0; i < 5; ++i)
        t.type(keys::a, 100ms);
    EXPECT_FALSE(t.monitor.isTyping());
    EXPECT_EQ(t.settings.productiveKeys(), 2);
}
