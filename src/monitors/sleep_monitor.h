#pragma once

#include "audio/audio_device_manager.h"
#include "core/scheduler.h"
#include "core/serial_queue.h"
#include "monitors/focus_source.h"
#include "monitors/user_notifier.h"
#include "settings/settings_store.h"

#include <QMetaObject>
#include <QObject>
#include <QString>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

namespace tappix {

/// Quiets the keystroke sounds while the moment calls for it: a live microphone, a
/// camera on, Bluetooth headphones or the built-in speakers as the output, a
/// full-screen window or one of the chosen applications in front, each trigger enabled
/// separately. Polls the devices every two seconds and evaluates at once whenever the
/// focus source reports a change, tells its owner when it falls asleep or wakes, and
/// optionally posts a notification. Main thread only.
///
/// The device questions (a sound server's answers, the camera) are asked on a thread of
/// the monitor's own, "tappix-sleep", and their answer comes back to the main thread
/// through its event loop, so the main thread never waits for a device; a focus change
/// is decided at once with the devices' last answer.
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
    /// Stops polling, and waits for a device question under way. Main thread.
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
    /// One poll: asks the devices again, and decides when they answer. Main thread.
    void evaluate();
    /// Whether the sounds are quieted now. Main thread.
    bool isSleeping() const { return isSleeping_; }
    /// Waits until the device questions asked so far are answered, and applies the
    /// answers (tests). Main thread.
    void waitForAnswers();

private:
    /// The device triggers, in priority order.
    enum class DeviceTrigger { microphone, camera, headphones, speakers };

    void schedule();
    /// Asks the devices on the sleep thread, or marks that they are to be asked again
    /// once the question under way is answered.
    void askDevices();
    void answered(std::optional<DeviceTrigger> holding);
    bool isOn(DeviceTrigger trigger) const;
    /// Falls asleep or wakes by the devices' last answer and the window in front.
    void decide();

    SettingsStore& settings_;
    AudioDeviceManager& devices_;
    UserNotifier& notifier_;
    Scheduler& scheduler_;
    FocusSource* focus_;
    QMetaObject::Connection focusConnection_;
    OnChange onChange_;
    bool isSleeping_ = false;
    Scheduler::TaskId timer_ = 0;
    /// The first device trigger that held at the last answer.
    std::optional<DeviceTrigger> deviceHolding_;
    bool devicesAnswered_ = false;
    bool asking_ = false;
    bool askAgain_ = false;
    /// Counts the stops: an answer to a question asked before the last one is dropped.
    std::uint64_t generation_ = 0;
    /// Receives the answers on the main thread; pending ones go with it.
    QObject answers_;
    // Last: joined first, so no answer is sent to a monitor being destroyed.
    SerialQueue questions_{QStringLiteral("tappix-sleep"), QThread::NormalPriority};
};

} // namespace tappix
