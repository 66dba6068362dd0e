#pragma once

#include <chrono>

namespace tappix {

/// A source of monotonic time. Logic that measures intervals (rapid keys, typing
/// bursts) takes one so tests can drive time by hand.
class Clock {
public:
    /// Time as a duration since an arbitrary, fixed origin.
    using Duration = std::chrono::nanoseconds;

    virtual ~Clock() = default;

    /// The current time. Any thread.
    virtual Duration now() const = 0;
};

/// The real monotonic clock.
class SteadyClock final : public Clock {
public:
    Duration now() const override {
        return std::chrono::duration_cast<Duration>(
            std::chrono::steady_clock::now().time_since_epoch());
    }
};

} // namespace tappix
