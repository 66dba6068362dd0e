#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <optional>

namespace tappix {

/// A fixed-capacity, lock-free queue for exactly one producer thread and one consumer
/// thread. Neither side allocates or blocks, so the consumer may be a render callback.
template <typename T, std::size_t Capacity> class SpscQueue {
    static_assert((Capacity & (Capacity - 1)) == 0, "capacity must be a power of two");

public:
    /// Adds an item; false when full. Producer thread only.
    bool push(const T& item) noexcept {
        const std::size_t head = head_.load(std::memory_order_relaxed);
        if (head - tail_.load(std::memory_order_acquire) == Capacity)
            return false;
        slots_[head & (Capacity - 1)] = item;
        head_.store(head + 1, std::memory_order_release);
        return true;
    }

    /// Takes the oldest item, or none when empty. Consumer thread only.
    std::optional<T> pop() noexcept {
        const std::size_t tail = tail_.load(std::memory_order_relaxed);
        if (tail == head_.load(std::memory_order_acquire))
            return std::nullopt;
        T item = slots_[tail & (Capacity - 1)];
        tail_.store(tail + 1, std::memory_order_release);
        return item;
    }

private:
    std::array<T, Capacity> slots_{};
    alignas(64) std::atomic<std::size_t> head_{0};
    alignas(64) std::atomic<std::size_t> tail_{0};
};

} // namespace tappix
