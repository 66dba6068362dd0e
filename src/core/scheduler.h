#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace tappix {

/// Runs tasks later on the thread that owns it. Logic that waits (counter flushes,
/// polls, coalesced writes) takes one so tests can run hours of waiting in microseconds.
class Scheduler {
public:
    /// Identifies a scheduled task; 0 is never a valid id.
    using TaskId = std::uint64_t;

    virtual ~Scheduler() = default;

    /// Runs `task` once, `delay` from now, on the scheduler's thread. Owner thread only.
    virtual TaskId schedule(std::chrono::milliseconds delay, std::function<void()> task) = 0;

    /// Cancels a task that has not run yet; unknown or finished ids are ignored. Owner thread only.
    virtual void cancel(TaskId id) = 0;
};

} // namespace tappix
