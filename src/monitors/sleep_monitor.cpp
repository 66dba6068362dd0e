#include "monitors/sleep_monitor.h"

#include "core/log.h"

namespace tappix {

SleepMonitor::SleepMonitor(SettingsStore& settings, AudioDeviceManager& devices,
                           UserNotifier& notifier, Scheduler& scheduler, FocusSource* focus)
    : settings_(settings), devices_(devices), notifier_(notifier), scheduler_(scheduler),
      focus_(focus) {}

SleepMonitor::~SleepMonitor() {
    stop();
}

void SleepMonitor::start() {
    stop();
    schedule();
    // Focus changes are pushed: the window triggers answer at once, not at the next poll.
    if (focus_)
        focusConnection_ =
            QObject::connect(focus_, &FocusSource::focusChanged, focus_, [this] { evaluate(); });
    evaluate();
}

void SleepMonitor::stop() {
    if (timer_ != 0)
        scheduler_.cancel(timer_);
    timer_ = 0;
    QObject::disconnect(focusConnection_);
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
        else if (const auto* window = focus_ && focus_->focused() ? &*focus_->focused() : nullptr;
                 window && !window->ownWindow) {
            if (settings_.sleepTriggerFullScreen() && window->fullScreen)
                reason = QStringLiteral("A full-screen app is in front");
            else if (settings_.sleepTriggerApps() &&
                     FocusSource::matches(*window, settings_.sleepAppIds()))
                reason = window->app.name + QStringLiteral(" is in front");
        }
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
