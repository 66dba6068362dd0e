// The whole path as a user meets it: tappix running against a private X server and
// a private PulseAudio server, keys typed with xdotool, sound recorded from the sink.

#include "support/pulse_server.h"
#include "support/sound_analysis.h"
#include "support/temp_prefs.h"
#include "support/x11_desk.h"
#include "support/xvfb_server.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

using namespace tappix;
using test::PulseServer;
using test::XvfbServer;

namespace {

class EndToEnd : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        x_ = new XvfbServer;
        pulse_ = new PulseServer;
    }
    static void TearDownTestSuite() {
        delete pulse_;
        delete x_;
    }

    /// Starts tappix with these preferences and waits until it captures and plays.
    void launch(const QJsonObject& preferences) {
        ASSERT_TRUE(x_->isRunning());
        prefs_.write(preferences);

        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", home_.path());
        env.insert("XDG_CONFIG_HOME", prefs_.dir.path());
        env.insert("XDG_DATA_HOME", home_.filePath("data"));
        // Its own runtime directory, so tests running side by side are not one instance.
        env.insert("XDG_RUNTIME_DIR", home_.path());
        tappix_.setProcessEnvironment(env);
        tappix_.setProcessChannelMode(QProcess::MergedChannels);
        test::leash(tappix_);
        tappix_.start(QStringLiteral(TAPPIX_PATH), {});
        ASSERT_TRUE(tappix_.waitForStarted(5000));
        // Capture may need the 2 s retry when the display refuses a first connection.
        ASSERT_TRUE(waitForLog("global backend: X11 raw events")) << log_.constData();
        // A key before the kit is decoded is silent by design (a loaded machine decodes slowly).
        ASSERT_TRUE(waitForLog("sounds ready: ")) << log_.constData();
        // Let the output settle on the (lazily waking) null sink.
        pulse_->record(
            "tappix_a", [] {}, 0);
    }

    /// Waits (up to 10 s) for `text` in the log after its first `from` bytes.
    bool waitForLog(const QByteArray& text, qsizetype from = 0) {
        while (log_.indexOf(text, from) < 0 && tappix_.waitForReadyRead(10000))
            log_ += tappix_.readAll();
        return log_.indexOf(text, from) >= 0;
    }

    void TearDown() override {
        if (tappix_.state() != QProcess::NotRunning) {
            tappix_.terminate();
            EXPECT_TRUE(tappix_.waitForFinished(5000));
            EXPECT_EQ(tappix_.exitCode(), 0);
        }
    }

    /// Presses and releases each key with time between them, recording the sink.
    std::vector<float> type(const QStringList& keys, int holdMs = 120, int gapMs = 250) {
        return pulse_->record(
            "tappix_a",
            [&] {
                for (const QString& key : keys) {
                    XvfbServer::xdotool({"keydown", key});
                    QThread::msleep(static_cast<unsigned long>(holdMs));
                    XvfbServer::xdotool({"keyup", key});
                    QThread::msleep(static_cast<unsigned long>(gapMs));
                }
            },
            600);
    }

    static inline XvfbServer* x_ = nullptr;
    static inline PulseServer* pulse_ = nullptr;
    QTemporaryDir home_;
    test::TempPrefs prefs_; // the configuration home
    QProcess tappix_;
    QByteArray log_;
};

const QJsonObject kQuietExtras{{"pitchVariation", false}};

} // namespace

// Left keys sound on the left; the statistics reach the file at SIGTERM.
TEST_F(EndToEnd, EachPressAndReleaseSoundsOnceAndTheStatisticsReachTheFile) {
    launch(kQuietExtras); // first launch: the buckling-spring kit, which has releases
    EXPECT_EQ(test::onsets(type({"a", "s", "d"})).size(), 6u);
    const auto left = type({"q"}, 80, 100);
    EXPECT_GT(test::energy(left, 0, 0, 2000), 1.5 * test::energy(left, 1, 0, 2000));
    const auto right = type({"p"}, 80, 100);
    EXPECT_GT(test::energy(right, 1, 0, 2000), 1.5 * test::energy(right, 0, 0, 2000));

    XvfbServer::xdotool({"type", "--delay", "90", "the quick brwn"});
    XvfbServer::xdotool({"key", "--delay", "90", "BackSpace", "BackSpace", "BackSpace"});
    XvfbServer::xdotool({"type", "--delay", "90", "rown fox"});
    tappix_.terminate();
    ASSERT_TRUE(tappix_.waitForFinished(5000));
    EXPECT_EQ(tappix_.exitCode(), 0);
    const QJsonObject stored = prefs_.read();
    EXPECT_EQ(stored.value("productiveKeys").toInt(), 5 + 22);
    EXPECT_EQ(stored.value("corrections").toInt(), 3);
    EXPECT_GT(stored.value("typingSeconds").toDouble(), 1.0);
    EXPECT_GE(stored.value("keystrokeCount").toInt(), 5 + 25);
}

TEST_F(EndToEnd, TheChosenKitSoundsAndGoesQuietWhileTheMicOrAListedOrFullScreenAppIsLive) {
    // The listed app is known by its desktop file, which names its window class.
    ASSERT_TRUE(test::writeNotesEntry(home_.filePath("data")));
    QJsonObject prefs = kQuietExtras;
    prefs["selectedPackId"] = "gun-shotgun";
    prefs["keyUpSoundsEnabled"] = false;
    prefs["sleepEnabled"] = true;
    prefs["sleepVolume"] = 0.0;
    prefs["sleepTriggerMicrophone"] = true;
    prefs["sleepTriggerApps"] = true;
    prefs["sleepTriggerFullScreen"] = true;
    prefs["sleepAppIds"] = QJsonArray{"org.example.Notes"};
    // The test is the window manager: it says which window is in front.
    test::Desk desk;
    static const char notesClass[] = "notes\0Notes", editorClass[] = "editor\0Editor";
    const auto notes = desk.window(notesClass, sizeof notesClass);
    const auto editor = desk.window(editorClass, sizeof editorClass);
    desk.activate(editor);
    launch(prefs);
    const auto shotgun = type({"a"}, 80, 100);
    ASSERT_FALSE(test::onsets(shotgun).empty());
    const double start = test::onsets(shotgun).front();
    // The shotgun's boom rings on long after a switch's click would be over.
    EXPECT_GT(test::energy(shotgun, 0, start + 350, start + 700), 0.5);

    // A key heard just before: the first key after going quiet must not slip through.
    qsizetype asleep = 0;
    {
        auto call = PulseServer::startRecording(); // someone starts a call
        ASSERT_TRUE(waitForLog("sleeping: The microphone is live")) << log_.constData();
        EXPECT_TRUE(test::onsets(type({"a", "s"})).empty());
        asleep = log_.size();
    }
    ASSERT_TRUE(waitForLog("awake", asleep)) << log_.constData();
    EXPECT_FALSE(test::onsets(type({"a"})).empty());

    desk.activate(notes);
    ASSERT_TRUE(waitForLog("sleeping: Quiet Notes is in front")) << log_.constData();
    EXPECT_TRUE(test::onsets(type({"a", "s"})).empty());
    asleep = log_.size();
    desk.activate(editor);
    ASSERT_TRUE(waitForLog("awake", asleep)) << log_.constData();
    EXPECT_FALSE(test::onsets(type({"a", "s"})).empty());

    desk.set(editor, "_NET_WM_STATE", XCB_ATOM_ATOM, {desk.atom("_NET_WM_STATE_FULLSCREEN")});
    ASSERT_TRUE(waitForLog("sleeping: A full-screen app is in front")) << log_.constData();
    EXPECT_TRUE(test::onsets(type({"a"})).empty());
}

TEST_F(EndToEnd, OffAtStartTheShortcutTurnsTheSoundsOnAndOffAndReturnRingsTheBell) {
    QJsonObject prefs = kQuietExtras;
    prefs["isEnabled"] = false;
    prefs["keyUpSoundsEnabled"] = false;
    prefs["dingOnReturn"] = true;
    launch(prefs);
    EXPECT_TRUE(test::onsets(type({"a", "b"})).empty());
    XvfbServer::xdotool({"key", "ctrl+super+k"});
    ASSERT_TRUE(waitForLog("sounds on by the shortcut")) << log_.constData();

    const auto plain = type({"a"}, 80, 100);
    const auto bell = type({"Return"}, 80, 100);
    ASSERT_FALSE(test::onsets(plain).empty());
    ASSERT_FALSE(test::onsets(bell).empty());
    const double p = test::onsets(plain).front(), b = test::onsets(bell).front();
    // The bell (0.55 s) is still sounding after a key's own sound has died away.
    EXPECT_GT(test::energy(bell, 0, b + 350, b + 550),
              10 * test::energy(plain, 0, p + 350, p + 550) + 0.05);

    XvfbServer::xdotool({"key", "ctrl+super+k"});
    ASSERT_TRUE(waitForLog("sounds off by the shortcut")) << log_.constData();
    QThread::msleep(600); // the chord's own sounds die away first
    EXPECT_TRUE(test::onsets(type({"a", "s"})).empty());
}
