#include "monitors/typing_monitor.h"

#include "input/key_codes.h"

#include <algorithm>

namespace tappix {

TypingMonitor::KeyKind TypingMonitor::classify(KeyCode code) {
    // Every key-down of Backspace or Forward Delete is one correction (a word deleted
    // with Ctrl+Backspace is one key-down, so one correction).
    if (code == keys::backspace || code == keys::forwardDelete)
        return KeyKind::correction;
    return isTypingKey(code) ? KeyKind::text : KeyKind::ignored;
}

TypingMonitor::TypingMonitor(SettingsStore& settings, const Clock& clock, Scheduler& scheduler,
                             QObject* parent)
    : QObject(parent), settings_(settings), clock_(clock), scheduler_(scheduler) {}

TypingMonitor::~TypingMonitor() {
    if (timer_ != 0)
        scheduler_.cancel(timer_);
}

namespace {

// The burst gap and the window in the clock's own units, so boundaries compare exactly.
constexpr auto kBurstGap = std::chrono::duration_cast<Clock::Duration>(
    std::chrono::duration<double>(TypingMonitor::kBurstGapSeconds));
constexpr auto kWindow = std::chrono::duration_cast<Clock::Duration>(
    std::chrono::duration<double>(TypingMonitor::kWindowSeconds));

double seconds(Clock::Duration duration) {
    return std::chrono::duration<double>(duration).count();
}

} // namespace

void TypingMonitor::keyDown(KeyCode code) {
    keyDown(code, clock_.now());
}

void TypingMonitor::keyDown(KeyCode code, Clock::Duration t) {
    if (!settings_.statsEnabled())
        return;
    const KeyKind kind = classify(code);
    if (kind == KeyKind::ignored)
        return;
    const Clock::Duration gap = t - lastKeyTime_;
    if (!anyKey_ || gap > kBurstGap) {
        // The pause's time is never counted; the first key of a burst starts the clock.
        endBurst();
        sessionProductive_ = sessionCorrections_ = 0;
        sessionActiveSeconds_ = 0;
    } else {
        sessionActiveSeconds_ += seconds(gap);
        settings_.addTypingSeconds(seconds(gap));
    }
    lastKeyTime_ = t;
    anyKey_ = true;
    if (kind == KeyKind::text) {
        window_.push_back(t);
        ++sessionProductive_;
        settings_.incrementProductiveKeys();
    } else {
        ++sessionCorrections_;
        settings_.incrementCorrections();
    }
    recompute(t);
    // Tick only while a burst runs: nothing changes in between, so an idle monitor
    // never wakes the main thread.
    if (timer_ == 0)
        scheduleTick();
}

void TypingMonitor::recompute(Clock::Duration t) {
    while (!window_.empty() && window_.front() < t - kWindow)
        window_.pop_front();
    if (window_.size() < 3) {
        liveWPM_ = 0;
    } else {
        const double span = std::max(seconds(window_.back() - window_.front()), 0.5);
        liveWPM_ = (static_cast<double>(window_.size()) / 5.0) / (span / 60.0);
    }
    sessionKeystrokes_ = sessionProductive_ + sessionCorrections_;
    sessionWPM_ = sessionActiveSeconds_ > 0.5 ? (static_cast<double>(sessionProductive_) / 5.0) /
                                                    (sessionActiveSeconds_ / 60.0)
                                              : 0.0;
    sessionAccuracy_ = sessionKeystrokes_ < 1 ? 1.0
                                              : static_cast<double>(sessionProductive_) /
                                                    static_cast<double>(sessionKeystrokes_);
    isTyping_ = anyKey_ && t - lastKeyTime_ <= kBurstGap && sessionKeystrokes_ > 0;
    Q_EMIT changed();
}

void TypingMonitor::endBurst() {
    if (sessionProductive_ >= kBestMinimumKeys && sessionWPM_ > 0)
        settings_.recordWPM(sessionWPM_);
    if (sessionWPM_ > 0 && sessionKeystrokes_ >= 1) {
        lastWPM_ = sessionWPM_;
        lastAccuracy_ = sessionAccuracy_;
        lastKeystrokes_ = sessionKeystrokes_;
    }
    isTyping_ = false;
    liveWPM_ = 0;
    window_.clear();
    Q_EMIT changed();
}

void TypingMonitor::scheduleTick() {
    timer_ = scheduler_.schedule(kTick, [this] {
        timer_ = 0;
        tick();
    });
}

void TypingMonitor::tick() {
    const Clock::Duration t = clock_.now();
    const bool wasTyping = isTyping_;
    recompute(t);
    if (wasTyping && t - lastKeyTime_ > kBurstGap)
        endBurst();
    if (isTyping_)
        scheduleTick();
}

} // namespace tappix
