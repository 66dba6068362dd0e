#pragma once

#include "audio/audio_device_manager.h"
#include "core/scheduler.h"
#include "monitors/focus_source.h"
#include "monitors/user_notifier.h"
#include "settings/settings_store.h"

#include <QMetaObject>
#include <QString>
#include <chrono>
#include <functional>
#include <optional>

namespace tappix {

/// Quiets the keystroke sounds while the moment calls for it: a live microphone, a
/// camera on, Bluetooth headphones or the built-in speakers as the output, a
/// full-screen window or one of the chosen applications in front, each trigger enabled
/// separately. Polls the devices every two seconds and evaluates at once whenever the
/// focus source reports a change, tells its owner when it falls asleep or wakes, and
/// optionally posts a notification. Main thread only.
class SleepMonitor {
public:
    /// Time between polls.
    static constexpr std::chrono::milliseconds kPollInterval{2000};
    /// The notification identifier; a newer one replaces the older.
    static inline const QString kNotificationID = QStringLiteral("tappix.sleep");

    /// Called when the state flips: (isSleeping, reason; none when waking).
    using OnChange = std::function<void(bool, std::optional<QString>)>;

    /// A monitor over these services; nothing polls until `start`. Without a focus
    /// source the two window triggers never hold. Main thread.
    SleepMonitor(SettingsStore& settings, AudioDeviceManager& devices, UserNotifier& notifier,
                 Scheduler& scheduler, FocusSource* focus = nullptr);
    /// Stops polling. Main thread.
    ~SleepMonitor();

    SleepMonitor(const SleepMonitor&) = delete;
    SleepMonitor& operator=(const SleepMonitor&) = delete;

    /// Sets the owner's callback. Main thread.
    void setOnChange(OnChange onChange) { onChange_ = std::move(onChange); }
    /// (Re)starts the 2 s poll, listens to the focus source, and evaluates at once.
    /// Main thread.
    void start();
    /// Stops the poll and stops listening to the focus source. Main thread.
    void stop();
    /// One poll. Main thread.
    void evaluate();
    /// Whether the sounds are quieted now. Main thread.
    bool isSleeping() const { return isSleeping_; }

private:
    void schedule();

    SettingsStore& settings_;
    AudioDeviceManager& devices_;
    UserNotifier& notifier_;
    Scheduler& scheduler_;
    FocusSource* focus_;
    QMetaObject::Connection focusConnection_;
    OnChange onChange_;
    bool isSleeping_ = false;
    Scheduler::TaskId timer_ = 0;
};

} // namespace tappix
