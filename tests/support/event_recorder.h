#pragma once

#include "input/key_event_service.h"

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tappix::test {

/// Collects what a `KeyEventService` delivers as readable lines ("k 56 down",
/// "m other up"), so tests compare tables of events.
class EventRecorder {
public:
    void attach(KeyEventService& service) {
        service.setOnKeyEvent([this](KeyCode code, bool down, KeyTime) {
            add("k " + std::to_string(code) + (down ? " down" : " up"));
        });
        service.setOnMouseEvent([this](MouseButton button, bool down) {
            add("m " + std::string(mouseButtonName(button)) + (down ? " down" : " up"));
        });
    }

    std::vector<std::string> take() {
        std::lock_guard lock(mutex_);
        return std::exchange(events_, {});
    }

    /// What `service`'s reader threads deliver until `count` events or five seconds, and
    /// anything more in the next 100 ms (it shows up as a mismatch).
    std::vector<std::string> collect(KeyEventService& service, std::size_t count) {
        std::vector<std::string> events;
        const auto pull = [&] {
            service.drain();
            for (auto& e : take())
                events.push_back(std::move(e));
        };
        for (int i = 0; i < 500 && events.size() < count; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            pull();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        pull();
        return events;
    }

private:
    void add(std::string line) {
        std::lock_guard lock(mutex_);
        events_.push_back(std::move(line));
    }

    std::mutex mutex_;
    std::vector<std::string> events_;
};

} // namespace tappix::test
