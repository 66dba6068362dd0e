// The wiring of the whole service on a platform made of stand-ins (support/stand_in_app.h).

#include "app/app_delegate.h"

#include "input/key_codes.h"
#include "support/stand_in_app.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>
#include <optional>

using namespace tappix;
using namespace std::chrono_literals;

using test::Harness;

TEST(AppDelegate, TheShortcutTurnsTheSoundsOffAndOnWithoutSwallowingKeys) {
    Harness run;
    using namespace keys;
    auto chord = [&](std::vector<KeyCode> held) { // down in order, up the other way round
        for (KeyCode code : held)
            run.press(code, true);
        for (auto code = held.rbegin(); code != held.rend(); ++code)
            run.press(*code, false);
        QCoreApplication::processEvents();
    };
    // The statistics take what came a moment later.
    auto keystrokes = [&] {
        run.time.advance(AppDelegate::kStatisticsBatch);
        return run.delegate->settings().keystrokeCount();
    };
    chord({control, command, k});
    EXPECT_FALSE(run.delegate->settings().isEnabled());
    // The chord's own keys, K included, sound: the shortcut only listens.
    const auto counted = keystrokes();
    EXPECT_EQ(counted, 3);
    run.type({a, s, d});
    EXPECT_EQ(keystrokes(), counted);

    chord({rightCommand, rightControl, k});
    EXPECT_TRUE(run.delegate->settings().isEnabled());
    run.type({a});
    EXPECT_EQ(keystrokes(), counted + 1);

    // Another combination, and a bad one that turns the shortcut off.
    run.delegate->settings().setToggleSoundsShortcut(QStringLiteral("Alt+Shift+F5"));
    run.settle();
    chord({control, command, k});
    EXPECT_TRUE(run.delegate->settings().isEnabled());
    chord({option, shift, f5});
    EXPECT_FALSE(run.delegate->settings().isEnabled());
    run.delegate->settings().setToggleSoundsShortcut(QStringLiteral("Hyper+Q"));
    run.settle();
    chord({option, shift, f5});
    EXPECT_FALSE(run.delegate->settings().isEnabled());

    // The bell and the mouse are counted too, each once.
    SettingsStore& settings = run.delegate->settings();
    settings.setIsEnabled(true);
    settings.setDingOnReturn(true);
    settings.setMouseClickSounds(true);
    run.settle();
    run.type({returnKey});
    run.keyboard->sink()->mouse(MouseButton::left, true);
    run.keyboard->sink()->mouse(MouseButton::left, false);
    run.settle();
    run.time.advance(AppDelegate::kStatisticsBatch);
    EXPECT_EQ(settings.dingCount(), 1);
    EXPECT_EQ(settings.clickCount(), 1);
    run.delegate->shutdown();
    EXPECT_EQ(run.file().value("toggleSoundsShortcut").toString(), QStringLiteral("Hyper+Q"));
}

// The typing statistics are not woken for every key: the first key after a quiet spell
// reaches them at once, the keys right after it together a moment later, each at the time
// it went down, and what is on its way when Tappix quits is still counted.
TEST(AppDelegate, TypingStatisticsTakeKeysTogetherAndLoseNoneAtQuit) {
    Harness run;
    using namespace keys;
    const SettingsStore& settings = run.delegate->settings();
    struct Step {
        KeyCode key;
        std::chrono::milliseconds after; // since the step before
        int counted;                     // keystrokes the statistics hold once it settled
    };
    const Step steps[] = {
        {a, 0ms, 1},   // the first wakes the main thread
        {s, 100ms, 1}, // the next ones wait for the take, 250 ms after the first
        {d, 100ms, 1},
        {f, 100ms, 3}, // the take came first; this one waits for the next
    };
    for (const Step& step : steps) {
        run.time.advance(step.after);
        run.press(step.key, true);
        run.press(step.key, false);
        EXPECT_EQ(settings.keystrokeCount(), step.counted) << "key " << step.key;
    }
    // Timed when they went down (0.1 s apart), not when they were taken.
    EXPECT_NEAR(settings.typingSeconds(), 0.2, 0.001);
    EXPECT_EQ(run.delegate->typingMonitor().sessionKeystrokes(), 3);
    run.delegate->shutdown();
    EXPECT_EQ(run.file().value("keystrokeCount").toInt(), 4);
}

// Settings changes decode only kits they bring in: a mix voice from another kit its files alone.
TEST(AppDelegate, SettingsChangesDecodeOnlyTheKitsTheyBringIn) {
    test::HarnessOptions options;
    options.addKits = [](const QString& bundle, const QString&) {
        test::writeKit(bundle, "other", "Other");
    };
    Harness run(options);
    SettingsStore& s = run.delegate->settings();
    SoundMix mix;
    struct Change {
        const char* what;
        std::function<void()> make;
        int decodes;
    };
    const Change changes[] = {
        {"the volume", [&] { s.setVolume(0.3f); }, 0},
        {"a new mix", [&] { mix = s.createMix("Mine"); }, 0},
        {"a voice from another kit",
         [&] {
             s.setVoice(MixVoice{QStringLiteral("other"), std::nullopt}, KeyGroup::space, mix.id);
         },
         1},
        {"the mix renamed",
         [&] {
             mix = *s.activeMix();
             mix.name = "Renamed";
             s.updateMix(mix);
         },
         0},
        {"a kit that is not installed", [&] { s.setSelectedPackIdText("gone"); }, 0},
        {"the volume while it is chosen", [&] { s.setVolume(0.4f); }, 0},
        {"the kit chosen before", [&] { s.setSelectedPackIdText("click"); }, 0},
        {"the other kit chosen", [&] { s.setSelectedPackIdText("other"); }, 0},
    };
    run.delegate->audioPlayer().drain(); // the kit chosen at start
    for (const Change& change : changes) {
        const int before = run.decodes;
        change.make();
        run.settle();
        run.delegate->audioPlayer().drain();
        EXPECT_EQ(run.decodes - before, change.decodes) << change.what;
    }
}

// Keys arriving while the service is torn down never reach a destroyed part (the sanitizer).
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

// The window in front reaches the mixer's duck when the desktop reports it, not at a poll.
TEST(AppDelegate, AListedAppInFrontDucksAtOnceAndLeavingItRestores) {
    test::HarnessOptions options;
    options.preferences = {{"sleepEnabled", true},
                           {"sleepTriggerApps", true},
                           {"sleepVolume", 0.0},
                           {"volume", 0.5},
                           {"sleepAppIds", QJsonArray{"XTerm"}}};
    Harness run(options);
    std::vector<bool> flips;
    QObject::connect(run.delegate.get(), &AppDelegate::sleepingChanged,
                     [&](bool sleeping) { flips.push_back(sleeping); });
    const Mixer& mixer = run.delegate->audioPlayer().mixer();
    EXPECT_FLOAT_EQ(mixer.targetOutputGain(), 0.5f);

    run.focus->show(FocusedWindow{{"XTerm", "XTerm", {}}, {"xterm", "XTerm"}});
    EXPECT_FLOAT_EQ(mixer.targetOutputGain(), 0.0f); // no time has passed
    run.focus->show(FocusedWindow{{"org.example.Notes", "Notes", {}}, {}});
    EXPECT_FLOAT_EQ(mixer.targetOutputGain(), 0.5f);
    EXPECT_EQ(flips, (std::vector<bool>{true, false}));

    // After shutdown a late report reaches nothing.
    run.delegate->shutdown();
    run.focus->show(FocusedWindow{{"XTerm", "XTerm", {}}, {}});
    EXPECT_EQ(flips.size(), 2u);
}

// The chosen device reaches the stream at start (a named one: the default is followed anyway)
// and on every change.
TEST(AppDelegate, TheChosenDeviceReachesTheOutputAtStartAndOnEachChange) {
    using Devices = std::vector<std::optional<std::string>>;
    struct Output final : AudioOutput {
        Devices* asked;
        explicit Output(Devices* devices) : asked(devices) {}
        bool start(Mixer&) override { return true; }
        void stop() override {}
        void setDevice(const std::optional<std::string>& device) override {
            asked->push_back(device);
        }
        bool isPlaying() const override { return true; }
        double latencySeconds() const override { return 0.0; }
    };
    const struct {
        const char* atStart;
        Devices started, changed;
    } cases[] = {
        {"tappix_b", {"tappix_b"}, {"tappix_b", "usb", std::nullopt}},
        {nullptr, {}, {"usb", std::nullopt}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.atStart ? c.atStart : "the default");
        Devices asked;
        test::HarnessOptions options;
        if (c.atStart)
            options.preferences = {{"outputDeviceUID", c.atStart}};
        options.platform = [&asked](AppDelegate::Platform& p) {
            p.output = std::make_unique<Output>(&asked);
        };
        Harness run(options);
        EXPECT_EQ(asked, c.started);
        for (const char* uid : {"usb", "usb", ""}) { // the same again leaves the stream
            run.delegate->settings().setOutputDeviceUIDText(uid);
            run.settle();
        }
        EXPECT_EQ(asked, c.changed);
    }
}
