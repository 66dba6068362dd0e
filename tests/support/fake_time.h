#pragma once

#include "core/clock.h"
#include "core/scheduler.h"

#include <algorithm>
#include <vector>

namespace tappix::test {

/// A clock and scheduler driven by hand: `advance` moves time and runs, in order,
/// every task that falls due on the way.
class FakeTime final : public Clock, public Scheduler {
public:
    Duration now() const override { return now_; }

    TaskId schedule(std::chrono::milliseconds delay, std::function<void()> task) override {
        tasks_.push_back({now_ + delay, nextId_, std::move(task)});
        return nextId_++;
    }

    void cancel(TaskId id) override {
        std::erase_if(tasks_, [id](const Task& t) { return t.id == id; });
    }

    /// Moves time forward by `step`, running due tasks at their own times.
    void advance(Duration step) {
        const Duration target = now_ + step;
        for (;;) {
            auto next =
                std::min_element(tasks_.begin(), tasks_.end(), [](const Task& a, const Task& b) {
                    return a.due != b.due ? a.due < b.due : a.id < b.id;
                });
            if (next == tasks_.end() || next->due > target)
                break;
            Task task = std::move(*next);
            tasks_.erase(next);
            now_ = task.due;
            task.run();
        }
        now_ = target;
    }

    /// Tasks still waiting.
    std::size_t pending() const { return tasks_.size(); }

private:
    struct Task {
        Duration due;
        TaskId id;
        std::function<void()> run;
    };
    Duration now_{};
    std::vector<Task> tasks_;
    TaskId nextId_ = 1;
};

} // namespace tappix::test
