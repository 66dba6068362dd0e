#include "core/qt_scheduler.h"

#include <QTimerEvent>

namespace tappix {

QtScheduler::QtScheduler(QObject* parent) : QObject(parent) {}

QtScheduler::~QtScheduler() = default; // QObject kills its timers

Scheduler::TaskId QtScheduler::schedule(std::chrono::milliseconds delay,
                                        std::function<void()> task) {
    const TaskId id = nextId_++;
    const int timerId = startTimer(delay, Qt::PreciseTimer);
    if (timerId == 0)
        return id; // no event loop to run it on (logged by Qt): it never runs
    pending_.emplace(id, Pending{timerId, std::move(task)});
    byTimer_.emplace(timerId, id);
    return id;
}

void QtScheduler::cancel(TaskId id) {
    const auto it = pending_.find(id);
    if (it == pending_.end())
        return;
    killTimer(it->second.timerId);
    byTimer_.erase(it->second.timerId);
    pending_.erase(it);
}

void QtScheduler::timerEvent(QTimerEvent* event) {
    // Single shot: forget the task before running it, so it may schedule or cancel freely.
    const int timerId = event->timerId();
    killTimer(timerId);
    const auto byTimer = byTimer_.find(timerId);
    if (byTimer == byTimer_.end())
        return;
    const auto it = pending_.find(byTimer->second);
    byTimer_.erase(byTimer);
    if (it == pending_.end())
        return;
    const std::function<void()> task = std::move(it->second.task);
    pending_.erase(it);
    task();
}

} // namespace tappix
