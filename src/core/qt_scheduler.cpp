#include "core/qt_scheduler.h"

#include <QTimer>

namespace tappix {

QtScheduler::QtScheduler(QObject* parent) : QObject(parent) {}

QtScheduler::~QtScheduler() {
    for (auto& [id, timer] : timers_)
        delete timer;
}

Scheduler::TaskId QtScheduler::schedule(std::chrono::milliseconds delay,
                                        std::function<void()> task) {
    const TaskId id = nextId_++;
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer, &QTimer::timeout, this, [this, id, task = std::move(task)] {
        // Forget the timer before running, so the task may schedule or cancel freely.
        if (auto it = timers_.find(id); it != timers_.end()) {
            it->second->deleteLater();
            timers_.erase(it);
        }
        task();
    });
    timers_.emplace(id, timer);
    timer->start(delay);
    return id;
}

void QtScheduler::cancel(TaskId id) {
    if (auto it = timers_.find(id); it != timers_.end()) {
        it->second->stop();
        it->second->deleteLater();
        timers_.erase(it);
    }
}

} // namespace tappix
