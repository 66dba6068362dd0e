#pragma once

#include "core/scheduler.h"

#include <QObject>
#include <unordered_map>

namespace tappix {

/// A `Scheduler` over the event loop's own timers, running tasks on the thread whose
/// event loop owns this object (the main thread in the application). A task costs a
/// timer registration and nothing else: no object, no connection, no posted deletion,
/// which matters for the few that are moved on every key (the statistics' flush).
class QtScheduler final : public QObject, public Scheduler {
    Q_OBJECT
public:
    /// Creates a scheduler bound to the calling thread's event loop.
    explicit QtScheduler(QObject* parent = nullptr);
    ~QtScheduler() override;

    /// Schedules `task` after `delay`. Owner thread only.
    TaskId schedule(std::chrono::milliseconds delay, std::function<void()> task) override;

    /// Cancels a pending task. Owner thread only.
    void cancel(TaskId id) override;

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    struct Pending {
        int timerId = 0;
        std::function<void()> task;
    };
    // Ids of our own, never reused, so a stale id cannot cancel a later task that got the
    // same timer id from the event loop.
    std::unordered_map<TaskId, Pending> pending_;
    std::unordered_map<int, TaskId> byTimer_;
    TaskId nextId_ = 1;
};

} // namespace tappix
