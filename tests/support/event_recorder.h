#pragma once

#include "input/key_event_service.h"

#include <mutex>
#include <sstream>
#include <string>
#include <vector>

namespace tappix::test {

/// Collects what a `KeyEventService` delivers as readable lines ("k 56 down",
/// "m other up"), so tests compare tables of events.
class EventRecorder {
public:
    void attach(KeyEventService& service) {
        service.setOnKeyEvent([this](KeyCode code, bool down) {
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

private:
    void add(std::string line) {
        std::lock_guard lock(mutex_);
        events_.push_back(std::move(line));
    }

    std::mutex mutex_;
    std::vector<std::string> events_;
};

} // namespace tappix::test
