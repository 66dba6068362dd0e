#pragma once

#include "core/scheduler.h"

#include <QObject>
#include <unordered_map>

class QTimer;

namespace tappix {

/// A `Scheduler` over Qt single-shot timers, running tasks on the thread whose event
/// loop owns this object (the main thread in the application).
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

private:
    std::unordered_map<TaskId, QTimer*> timers_;
    TaskId nextId_ = 1;
};

} // namespace tappix
