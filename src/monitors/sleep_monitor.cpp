#include "monitors/sleep_monitor.h"

#include "core/log.h"

namespace tappix {

SleepMonitor::SleepMonitor(SettingsStore& settings, AudioDeviceManager& devices,
                           UserNotifier& notifier, Scheduler& scheduler)
    : settings_(settings), devices_(devices), notifier_(notifier), scheduler_(scheduler) {}

SleepMonitor::~SleepMonitor() {
    stop();
}

void SleepMonitor::start() {
    stop();
    schedule();
    evaluate();
}

void SleepMonitor::stop() {
    if (timer_ != 0)
        scheduler_.cancel(timer_);
    timer_ = 0;
}

void SleepMonitor::schedule() {
    timer_ = scheduler_.schedule(kPollInterval, [this] {
        timer_ = 0;
        schedule(); // repeat first, so a callback that stops the monitor wins
        evaluate();
    });
}

void SleepMonitor::evaluate() {
    std::optional<QString> reason;
    if (settings_.sleepEnabled()) {
        // In priority order; later triggers are not even asked once one holds.
        if (settings_.sleepTriggerMicrophone() && devices_.isMicrophoneInUse())
            reason = QStringLiteral("The microphone is live");
        else if (settings_.sleepTriggerCamera() && devices_.isCameraInUse())
            reason = QStringLiteral("The camera is on");
        else if (settings_.sleepTriggerHeadphones() && devices_.isDefaultOutputBluetooth())
            reason = QStringLiteral("Headphones are connected");
        else if (settings_.sleepTriggerSpeakers() && devices_.isDefaultOutputBuiltIn())
            reason = QStringLiteral("Playing through built-in speakers");
    }
    const bool wanted = reason.has_value();
    // A different reason while already asleep is not news.
    if (wanted == isSleeping_)
        return;
    isSleeping_ = wanted;
    qCInfo(lcApp, "%s", wanted ? qPrintable(QStringLiteral("sleeping: ") + *reason) : "awake");
    if (onChange_)
        onChange_(isSleeping_, reason);
    if (settings_.notificationsEnabled()) {
        if (isSleeping_)
            notifier_.post(kNotificationID, QStringLiteral("Sleeping"), *reason);
        else
            notifier_.post(kNotificationID, QStringLiteral("Clacking again"),
                           QStringLiteral("Keystroke sounds are back"));
    }
}

} // namespace tappix
