#pragma once

#include <QThread>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace tappix {

/// A named thread that runs posted tasks one at a time, in posting order.
/// Destroying the queue drops tasks that have not started and joins the thread.
class SerialQueue final : public QThread {
public:
    /// Starts the thread; `name` becomes the OS thread name (at most 15 characters).
    explicit SerialQueue(const QString& name, QThread::Priority priority = QThread::HighPriority);

    /// Drops pending tasks and joins. Not from the queue's own thread.
    ~SerialQueue() override;

    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    /// Runs `task` later on the queue. Any thread.
    void post(std::function<void()> task);

    /// Blocks until every task posted before this call has run. Not from the queue itself.
    void drain();

private:
    void run() override;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool stopping_ = false;
};

} // namespace tappix
