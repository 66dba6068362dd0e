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
};

} // namespace tappix
