#include "core/serial_queue.h"

#include <future>

namespace tappix {

SerialQueue::SerialQueue(const QString& name, QThread::Priority priority) {
    setObjectName(name);
    start(priority);
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        tasks_.clear();
    }
    wake_.notify_one();
    wait();
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
            wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
            if (stopping_)
                return;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

} // namespace tappix
