#pragma once

#include <QThread>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>

namespace tappix {

/// A named thread that runs posted tasks one at a time, in posting order.
/// Destroying the queue drops tasks that have not started and joins the thread.
///
/// Events go in through `tryPost`, which refuses (and counts) a task once `capacity`
/// tasks wait, so a burst that outruns the thread cannot grow the queue without limit;
/// `post` is for the few control tasks that must never be lost.
///
/// `tryRunOrPost` is for the hot path of a key: when the queue is idle it runs the task
/// at once on the calling thread, as a synchronous dispatch would, instead of waking the
/// queue's thread for it. Tasks still run one at a time and in the order they came in;
/// only the thread they run on differs, so a task may not assume which one it is.
class SerialQueue final : public QThread {
public:
    /// Starts the thread; `name` becomes the OS thread name (at most 15 characters).
    /// `capacity` bounds `tryPost` (0: no bound).
    explicit SerialQueue(const QString& name, QThread::Priority priority = QThread::HighPriority,
                         std::size_t capacity = 0);

    /// Drops pending tasks and joins. Not from the queue's own thread.
    ~SerialQueue() override;

    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    /// Runs `task` later on the queue, however many wait. Any thread.
    void post(std::function<void()> task);

    /// Runs `task` later on the queue unless `capacity` tasks already wait: then drops
    /// it, counts it and returns false. Any thread.
    bool tryPost(std::function<void()> task);

    /// Runs `task` now on the calling thread when nothing waits or runs on the queue (a
    /// thread handoff saved: each is a wake-up, and on a busy machine a delay); otherwise
    /// as `tryPost`. Returns false when the task was dropped. Any thread but the queue's
    /// own, and not from a task of this queue that waits for the queue.
    bool tryRunOrPost(std::function<void()> task);

    /// Tasks `tryPost` dropped since the start. Any thread.
    std::uint64_t dropped() const { return dropped_.load(std::memory_order_relaxed); }

    /// Blocks until every task posted before this call has run. Not from the queue itself.
    void drain();

private:
    void run() override;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    const std::size_t capacity_;
    std::atomic<std::uint64_t> dropped_{0};
    bool stopping_ = false;
    // A task is running, on the queue's thread or on a caller's.
    bool busy_ = false;
};

} // namespace tappix
