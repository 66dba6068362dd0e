#pragma once

#include "core/clock.h"
#include "core/scheduler.h"
#include "input/key_group.h"
#include "settings/settings_store.h"

#include <QObject>
#include <chrono>
#include <deque>

namespace tappix {

/// Turns the timing of key presses into a live typing speed, per-burst speed and
/// accuracy, and the lifetime counters of the settings store. It sees only which key
/// went down and when, never what was typed. A burst ends after four seconds without
/// a counted key. Main thread only.
class TypingMonitor final : public QObject {
    Q_OBJECT
    Q_PROPERTY(double liveWPM READ liveWPM NOTIFY changed)
    Q_PROPERTY(double sessionWPM READ sessionWPM NOTIFY changed)
    Q_PROPERTY(double sessionAccuracy READ sessionAccuracy NOTIFY changed)
    Q_PROPERTY(qint64 sessionKeystrokes READ sessionKeystrokes NOTIFY changed)
    Q_PROPERTY(bool isTyping READ isTyping NOTIFY changed)
    Q_PROPERTY(double lastWPM READ lastWPM NOTIFY changed)
    Q_PROPERTY(double lastAccuracy READ lastAccuracy NOTIFY changed)
    Q_PROPERTY(qint64 lastKeystrokes READ lastKeystrokes NOTIFY changed)

public:
    /// A pause longer than this ends a burst.
    static constexpr double kBurstGapSeconds = 4.0;
    /// The live speed looks this far back.
    static constexpr double kWindowSeconds = 6.0;
    /// Time between ticks while a burst is in progress.
    static constexpr std::chrono::milliseconds kTick{500};
    /// A burst must have this many text keys to set a best speed.
    static constexpr std::int64_t kBestMinimumKeys = 25;

    /// Whether a key counts: text, a correction, or neither.
    enum class KeyKind { ignored, text, correction };
    /// The classification of a key code.
    static KeyKind classify(KeyCode code);

    /// A monitor feeding `settings`, timed by `clock`, ticking on `scheduler`. Main thread.
    TypingMonitor(SettingsStore& settings, const Clock& clock, Scheduler& scheduler,
                  QObject* parent = nullptr);
    ~TypingMonitor() override;

    /// One accepted key-down, now. Main thread.
    void keyDown(KeyCode code);
    /// One accepted key-down at `at` on the monitor's clock: keys may reach the monitor a
    /// moment after they went down, a few at once, in the order they went down. Main thread.
    void keyDown(KeyCode code, Clock::Duration at);

    /// Speed over the last six seconds. Main thread.
    double liveWPM() const { return liveWPM_; }
    /// Speed of the current burst. Main thread.
    double sessionWPM() const { return sessionWPM_; }
    /// Accuracy of the current burst, 0 … 1. Main thread.
    double sessionAccuracy() const { return sessionAccuracy_; }
    /// Text keys and corrections of the current burst. Main thread.
    qint64 sessionKeystrokes() const { return sessionKeystrokes_; }
    /// Whether a burst is in progress. Main thread.
    bool isTyping() const { return isTyping_; }
    /// The last finished burst's speed. Main thread.
    double lastWPM() const { return lastWPM_; }
    /// The last finished burst's accuracy. Main thread.
    double lastAccuracy() const { return lastAccuracy_; }
    /// The last finished burst's keystrokes. Main thread.
    qint64 lastKeystrokes() const { return lastKeystrokes_; }

Q_SIGNALS:
    /// Any of the values changed.
    void changed();

private:
    void recompute(Clock::Duration now);
    void endBurst();
    void tick();
    void scheduleTick();

    SettingsStore& settings_;
    const Clock& clock_;
    Scheduler& scheduler_;
    Scheduler::TaskId timer_ = 0;

    double liveWPM_ = 0, sessionWPM_ = 0, sessionAccuracy_ = 1.0;
    qint64 sessionKeystrokes_ = 0;
    bool isTyping_ = false;
    double lastWPM_ = 0, lastAccuracy_ = 1.0;
    qint64 lastKeystrokes_ = 0;

    // Times stay in the clock's integer units: as seconds in a double, a pause of
    // exactly four seconds could come out a hair longer and end the burst.
    std::deque<Clock::Duration> window_;
    Clock::Duration lastKeyTime_{};
    bool anyKey_ = false;
    qint64 sessionProductive_ = 0, sessionCorrections_ = 0;
    double sessionActiveSeconds_ = 0;
};

} // namespace tappix
