#pragma once

#include "audio/audio_device_manager.h"
#include "audio/audio_player.h"
#include "audio/microphone.h"
#include "audio/sound_engine.h"
#include "core/clock.h"
#include "core/qt_scheduler.h"
#include "input/key_event_service.h"
#include "input/keyboard_access.h"
#include "input/shortcut_matcher.h"
#include "kits/soundpack_store.h"
#include "monitors/focus_source.h"
#include "monitors/key_cast.h"
#include "monitors/sleep_monitor.h"
#include "monitors/typing_monitor.h"
#include "monitors/update_checker.h"
#include "monitors/user_notifier.h"
#include "settings/json_file_preferences.h"
#include "settings/settings_store.h"
#include "settings/theme_store.h"
#include "ui/desktop_shell.h"

#include <QObject>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tappix {

/// Owns every long-lived service, builds them in a fixed order, wires their
/// callbacks, applies the settings to the audio side whenever they change, and
/// starts key capture when it becomes possible and stops it when it no longer is.
/// Main thread only.
class AppDelegate final : public QObject {
    Q_OBJECT
public:
    /// How often the delegate asks whether key capture is possible.
    static constexpr int kPermissionPollMs = 2000;
    /// The kit a first launch selects when it is installed.
    static constexpr const char* kFirstKit = "ibm-buckling-spring";
    /// How long after the first run ends the panel opens to show where Tappix lives.
    static constexpr std::chrono::milliseconds kShowPanelAfterOnboarding{350};
    /// How long a Tappix started again with a new group has to take over.
    static constexpr std::chrono::milliseconds kTakeOverWait{20000};
    /// While keys keep coming, the typing statistics take them this often rather than at
    /// each key: each hop to the main thread is a wake-up of it.
    static constexpr std::chrono::milliseconds kStatisticsBatch{250};

    /// The platform parts the delegate runs on (real ones in `tappix`, others in tests).
    struct Platform {
        std::unique_ptr<AudioOutput> output;
        std::unique_ptr<SampleDecoder> decoder;
        std::unique_ptr<AudioDeviceManager> devices;
        CaptureBackends capture;
        std::function<bool()> captureIsPossible;
        std::unique_ptr<UserNotifier> notifier;
        /// Fetches the release feed; no update checks when null.
        std::unique_ptr<FeedFetcher> feedFetcher;
        /// The release feed's address.
        QUrl updateFeed;
        /// Time for the monitors and the preferences file; the system's when null.
        const Clock* clock = nullptr;
        /// Timers for the same; the Qt event loop's when null.
        Scheduler* scheduler = nullptr;
        /// Whether Tappix shows itself: the tray icon, the panel and the settings window.
        /// Needs a QApplication from `DesktopShell::makeApplication`.
        bool withWindows = false;
        /// Whether the desktop starts Tappix at login; a launch then opens no window.
        std::function<bool()> launchesAtLogin = {};
        /// Starts Tappix at login, or stops; false when the desktop's files refused.
        std::function<bool(bool)> setLaunchAtLogin = {};
        /// Tells which window is in front, for the window sleep triggers; none when null.
        std::unique_ptr<FocusSource> focus = {};
        /// Makes a recording of the default microphone; the sound server's when null.
        std::function<std::unique_ptr<Microphone>()> makeMicrophone = {};
        /// Whether the user may read the keyboards, and which group would let them;
        /// nothing is offered when null.
        std::function<KeyboardAccess()> keyboardAccess = {};
        /// Whether the system can be asked to add the user to a group.
        std::function<bool()> canAskToJoin = {};
        /// Asks the system to add the user to a group; false when it cannot be asked.
        std::function<bool(const QString& group, std::function<void(GroupJoinResult)> done)>
            askToJoin = {};
        /// Starts Tappix again as a process of its own that also holds `group` and takes
        /// over from this one; false when it could not be started.
        std::function<bool(const QString& group)> startWithGroup = {};
        /// Shows a file selected in the desktop's file manager, or calls `otherwise`.
        std::function<void(const QString& path, std::function<void()> otherwise)> showFile = {};
        /// This process took over from a Tappix that joined the keyboards' group: it opens
        /// the first-run window, and never starts itself again.
        bool tookOver = false;
        /// Runs once on the audio queue's thread, as `capture.onKeyQueueThread` does on
        /// the key queue's: the sound of a key goes through both. None leaves it as it starts.
        std::function<void()> onAudioQueueThread = {};
    };

    /// Builds the services in order: settings, kits (scanned at once), player, capture
    /// (stopped). Main thread.
    AppDelegate(Platform platform, const QString& preferencesPath, const QString& bundleKits,
                const QString& userKits, QObject* parent = nullptr);
    ~AppDelegate() override;

    /// The start-up sequence: engine and main kit, callbacks, settings observers,
    /// settings applied once, capture if possible, the capture poll. Main thread.
    void start();

    /// The shutdown sequence: counters written, capture stopped. Main thread.
    void shutdown();

    /// Pushes the current settings into the services. Main thread.
    void applySettings();

    /// Sends every key that moves to `recorder` instead of the sound engine, so Tappix
    /// stays quiet while a keyboard is recorded; an empty `recorder` gives the keys back
    /// to the engine. The recorder runs on the key queue; once this returns, an old one
    /// is no longer called. Main thread.
    void setKeyRecorder(std::function<void(KeyCode, bool, KeyTime)> recorder);

    /// Flips `isEnabled`, as the sounds shortcut does. Main thread.
    void toggleSounds();

    /// Asks the release feed now ("Check for Updates…"). Main thread.
    void checkForUpdates();
    /// The update checker, or null in a build or test without one. Main thread.
    UpdateChecker* updateChecker() { return updateChecker_.get(); }

    /// Opens the panel (by a command, so in the screen's top-right corner). Main thread.
    void showPanel();
    /// Opens the settings window on `page`, which becomes the stored last page, or on
    /// the last page when empty. Main thread.
    void openSettings(const QString& page = {});
    /// A later launch asked for Tappix: the settings window on its last page. Main thread.
    void reopen();
    /// The first-run window, on the step that holds now. Main thread.
    void showOnboarding();
    /// The first run is over: remembered, and the panel shows where Tappix lives now.
    /// Main thread.
    void finishOnboarding();
    /// The windows, when Tappix shows itself and has started. Main thread.
    DesktopShell* shell() { return shell_.get(); }
    /// Whether a process asking to take over is the one this Tappix started again with
    /// the keyboards' group (and still waits for). Main thread.
    bool expectsTakeOver() const { return restart_ == Restart::starting; }

    /// The kits found at start. Main thread.
    const SoundpackStore& packStore() const { return *packStore_; }
    /// The settings store (tests, diagnostics). Main thread.
    SettingsStore& settings() { return *settings_; }
    /// The audio player (tests, diagnostics). Main thread.
    AudioPlayer& audioPlayer() { return *audioPlayer_; }
    /// The key service (tests, diagnostics). Main thread.
    KeyEventService& keyService() { return *keyService_; }
    /// The engine, once started. Main thread.
    SoundEngine* soundEngine() { return soundEngine_.get(); }
    /// The sleep monitor. Main thread.
    SleepMonitor& sleepMonitor() { return *sleepMonitor_; }
    /// The typing monitor. Main thread.
    TypingMonitor& typingMonitor() { return *typingMonitor_; }
    /// The key-cast chips. Main thread.
    KeyCast& keyCast() { return *keyCast_; }

Q_SIGNALS:
    /// The sleep monitor quieted Tappix down (true) or woke it (false).
    void sleepingChanged(bool isSleeping);

private:
    /// What the engine counted for one key or mouse event: it goes to the main thread
    /// with the key-downs for the statistics.
    struct EventCounts {
        int keystrokes = 0;
        int dings = 0;
        int clicks = 0;
        bool any() const { return keystrokes + dings + clicks > 0; }
        EventCounts& operator+=(const EventCounts& more) {
            keystrokes += more.keystrokes;
            dings += more.dings;
            clicks += more.clicks;
            return *this;
        }
    };
    /// A key-down for the typing statistics, timed when it was heard.
    struct StatisticsKey {
        KeyCode code;
        Clock::Duration at;
    };

    void installCallbacks();
    /// Hands an event's counts, and the key-down if there is one, to the statistics. Key
    /// queue.
    void queueStatistics(const EventCounts& counts, std::optional<KeyCode> keyDown);
    /// Feeds the statistics what the key queue gathered; while keys keep coming, again
    /// after `kStatisticsBatch` (`again`). Main thread.
    void takeStatistics(bool again);
    /// Adds an event's counts to the statistics. Main thread.
    void count(const EventCounts& counts);
    void applyShortcut();
    void permissionTick();
    void startCapture();
    void checkAccess();
    void setRestart(OnboardingModel::Restart restart);
    void sleepChanged(bool isSleeping, const std::optional<QString>& reason);
    void chooseFirstKit();
    void makeShell();
    void showWelcomeOrSettings();
    SoundEngine::Settings engineSettings() const;

    // Declared in dependency order, so destruction runs in reverse: the key service
    // (whose callbacks reach the engine and the monitors) goes first, the preferences
    // file last.
    QtScheduler ownScheduler_;
    SteadyClock ownClock_;
    Scheduler& scheduler_;
    const Clock& clock_;
    std::unique_ptr<JsonFilePreferences> preferences_;
    std::unique_ptr<SettingsStore> settings_;
    std::unique_ptr<ThemeStore> themes_;
    std::unique_ptr<SoundpackStore> packStore_;
    std::unique_ptr<AudioDeviceManager> devices_;
    std::unique_ptr<AudioPlayer> audioPlayer_;
    std::unique_ptr<UserNotifier> notifier_;
    std::unique_ptr<FocusSource> focus_;
    std::unique_ptr<SleepMonitor> sleepMonitor_;
    std::unique_ptr<TypingMonitor> typingMonitor_;
    std::unique_ptr<KeyCast> keyCast_;
    // Whether the key queue hands keys to the overlay; off, they never leave it.
    std::atomic<bool> keyCastOn_{false};
    std::unique_ptr<FeedFetcher> feedFetcher_;
    std::unique_ptr<UpdateChecker> updateChecker_;
    std::unique_ptr<SoundEngine> soundEngine_;
    // Touched on the key queue only.
    ShortcutMatcher shortcutMatcher_;
    // The counts the engine made for the event in hand (key queue only).
    EventCounts eventCounts_;
    // Counts and key-downs on their way to the statistics. The first after a quiet spell
    // wakes the main thread; those that follow wait for it to come back for them a
    // moment later, rather than waking it for each key.
    std::mutex statisticsMutex_;
    std::vector<StatisticsKey> statisticsKeys_; // under the mutex
    EventCounts statisticsCounts_;              // under the mutex
    bool statisticsTakeDue_ = false;            // under the mutex: a take is on its way
    std::vector<StatisticsKey> takenKeys_;      // main thread
    // Set from the main thread while the shortcut recorder listens, so the combination
    // being recorded does not also fire.
    std::atomic<bool> shortcutPaused_{false};
    // Whoever records the keyboard now, called instead of the engine (key queue).
    std::mutex keyRecorderMutex_;
    std::function<void(KeyCode, bool, KeyTime)> keyRecorder_;
    std::atomic<bool> keyRecorderOn_{false};
    std::unique_ptr<KeyEventService> keyService_;
    // The views hold the services above; they go first.
    std::unique_ptr<DesktopShell> shell_;
    bool withWindows_ = false;
    std::function<bool()> launchesAtLogin_;
    std::function<std::unique_ptr<Microphone>()> makeMicrophone_;
    std::function<bool(bool)> setLaunchAtLogin_;
    std::function<bool()> captureIsPossible_;
    std::function<KeyboardAccess()> keyboardAccess_;
    std::function<bool()> canAskToJoin_;
    std::function<bool(const QString&, std::function<void(GroupJoinResult)>)> askToJoin_;
    std::function<bool(const QString&)> startWithGroup_;
    std::function<void(const QString&, std::function<void()>)> showFile_;
    bool tookOver_ = false;
    using Restart = OnboardingModel::Restart;
    Restart restart_ = Restart::none;
    QTimer permissionTimer_;
    bool wasTrusted_ = false;
    bool applyQueued_ = false;
    bool shutDown_ = false;
    std::optional<std::optional<std::string>> appliedOutputUID_;
};

} // namespace tappix
