#include "core/serial_queue.h"

#include <future>

namespace tappix {

SerialQueue::SerialQueue(const QString& name, QThread::Priority priority, std::size_t capacity)
    : capacity_(capacity) {
    setObjectName(name);
    start(priority);
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        tasks_.clear();
    }
    wake_.notify_all();
    wait();
    // A task a caller is running itself finishes before the queue goes.
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return !busy_; });
}

void SerialQueue::post(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        if (stopping_)
            return;
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

bool SerialQueue::tryPost(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        if (stopping_)
            return false;
        if (capacity_ > 0 && tasks_.size() >= capacity_) {
            dropped_.fetch_add(1, std::memory_order_relaxed);
            return false;
        }
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
    return true;
}

bool SerialQueue::tryRunOrPost(std::function<void()> task) {
    {
        std::unique_lock lock(mutex_);
        if (stopping_)
            return false;
        if (!busy_ && tasks_.empty()) {
            busy_ = true;
            lock.unlock();
            task();
            lock.lock();
            busy_ = false;
            const bool waiting = !tasks_.empty() || stopping_;
            lock.unlock();
            // Whatever came in meanwhile waited for this one: the queue's thread takes it on
            // (or the destructor goes on).
            if (waiting)
                wake_.notify_all();
            return true;
        }
    }
    return tryPost(std::move(task));
}

void SerialQueue::drain() {
    std::promise<void> done;
    auto future = done.get_future();
    post([&done] { done.set_value(); });
    future.wait();
}

void SerialQueue::run() {
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || (!busy_ && !tasks_.empty()); });
            if (stopping_)
                return;
            task = std::move(tasks_.front());
            tasks_.pop_front();
            busy_ = true;
        }
        task();
        std::lock_guard lock(mutex_);
        busy_ = false;
    }
}

} // namespace tappix
