#include "monitors/sleep_monitor.h"

#include "core/log.h"

#include <QCoreApplication>
#include <utility>
#include <vector>

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
            QObject::connect(focus_, &FocusSource::focusChanged, focus_, [this] { decide(); });
    evaluate();
}

void SleepMonitor::stop() {
    if (timer_ != 0)
        scheduler_.cancel(timer_);
    timer_ = 0;
    QObject::disconnect(focusConnection_);
    // An answer still on its way belongs to the polls stopped here: it is dropped.
    ++generation_;
    asking_ = askAgain_ = false;
}

void SleepMonitor::schedule() {
    timer_ = scheduler_.schedule(kPollInterval, [this] {
        timer_ = 0;
        schedule(); // repeat first, so a callback that stops the monitor wins
        evaluate();
    });
}

void SleepMonitor::evaluate() {
    // Decided when the devices answer: the first answer can be a higher reason than the
    // window in front.
    askDevices();
}

bool SleepMonitor::isOn(DeviceTrigger trigger) const {
    switch (trigger) {
    case DeviceTrigger::microphone:
        return settings_.sleepTriggerMicrophone();
    case DeviceTrigger::camera:
        return settings_.sleepTriggerCamera();
    case DeviceTrigger::headphones:
        return settings_.sleepTriggerHeadphones();
    case DeviceTrigger::speakers:
        return settings_.sleepTriggerSpeakers();
    }
    return false;
}

void SleepMonitor::askDevices() {
    if (asking_) {
        askAgain_ = true;
        return;
    }
    // The settings are read here, on the main thread; the sleep thread only asks.
    std::vector<DeviceTrigger> asked;
    if (settings_.sleepEnabled()) {
        for (DeviceTrigger trigger : {DeviceTrigger::microphone, DeviceTrigger::camera,
                                      DeviceTrigger::headphones, DeviceTrigger::speakers})
            if (isOn(trigger))
                asked.push_back(trigger);
    }
    if (asked.empty()) {
        answered(std::nullopt);
        return;
    }
    asking_ = true;
    questions_.post([this, asked = std::move(asked), generation = generation_] {
        std::optional<DeviceTrigger> holding;
        // In priority order; later triggers are not even asked once one holds.
        for (DeviceTrigger trigger : asked) {
            const bool holds = [&] {
                switch (trigger) {
                case DeviceTrigger::microphone:
                    return devices_.isMicrophoneInUse();
                case DeviceTrigger::camera:
                    return devices_.isCameraInUse();
                case DeviceTrigger::headphones:
                    return devices_.isDefaultOutputBluetooth();
                case DeviceTrigger::speakers:
                    return devices_.isDefaultOutputBuiltIn();
                }
                return false;
            }();
            if (holds) {
                holding = trigger;
                break;
            }
        }
        QMetaObject::invokeMethod(
            &answers_,
            [this, holding, generation] {
                if (generation != generation_)
                    return;
                asking_ = false;
                answered(holding);
                if (std::exchange(askAgain_, false))
                    askDevices();
            },
            Qt::QueuedConnection);
    });
}

void SleepMonitor::answered(std::optional<DeviceTrigger> holding) {
    deviceHolding_ = holding;
    devicesAnswered_ = true;
    decide();
}

void SleepMonitor::waitForAnswers() {
    do {
        questions_.drain();
        QCoreApplication::sendPostedEvents(&answers_, QEvent::MetaCall);
    } while (asking_); // answered, and asked again
}

void SleepMonitor::decide() {
    if (!devicesAnswered_)
        return; // the first answer decides
    std::optional<QString> reason;
    if (settings_.sleepEnabled()) {
        // The devices come first; a trigger switched off since they answered no longer counts.
        if (deviceHolding_ && isOn(*deviceHolding_)) {
            switch (*deviceHolding_) {
            case DeviceTrigger::microphone:
                reason = QStringLiteral("The microphone is live");
                break;
            case DeviceTrigger::camera:
                reason = QStringLiteral("The camera is on");
                break;
            case DeviceTrigger::headphones:
                reason = QStringLiteral("Headphones are connected");
                break;
            case DeviceTrigger::speakers:
                reason = QStringLiteral("Playing through built-in speakers");
                break;
            }
        } else if (const auto* window = focus_ && focus_->focused() ? &*focus_->focused() : nullptr;
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
