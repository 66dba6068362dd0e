// What the key-cast overlay adds to a key: on the key queue, the check when it is off and
// the hop to the main thread when it is on; on the main thread, the chips' own work.
// Run: build/bench/key_cast_bench

#include "input/key_codes.h"
#include "monitors/key_cast.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <atomic>
#include <map>

using namespace tappix;

namespace {

QCoreApplication& application() {
    static int argc = 1;
    static char name[] = "key_cast_bench";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

/// Time moved by hand; tasks kept in order and run when due.
class ManualTime final : public Clock, public Scheduler {
public:
    Duration now() const override { return now_; }
    TaskId schedule(std::chrono::milliseconds delay, std::function<void()> task) override {
        tasks_.emplace(nextId_, std::make_pair(now_ + delay, std::move(task)));
        return nextId_++;
    }
    void cancel(TaskId id) override { tasks_.erase(id); }
    void advance(Duration step) {
        now_ += step;
        for (auto it = tasks_.begin(); it != tasks_.end();) {
            if (it->second.first <= now_) {
                auto task = std::move(it->second.second);
                it = tasks_.erase(it);
                task();
            } else {
                ++it;
            }
        }
    }

private:
    Duration now_{};
    std::map<TaskId, std::pair<Duration, std::function<void()>>> tasks_;
    TaskId nextId_ = 1;
};

constexpr KeyCode kLetters[] = {keys::q, keys::w, keys::e, keys::r, keys::t, keys::y, keys::u};

/// The key queue with the overlay off: one relaxed load, and the event stays.
void KeyQueueOverlayOff(benchmark::State& state) {
    std::atomic<bool> on{false};
    std::int64_t hops = 0;
    for (auto _ : state) {
        if (on.load(std::memory_order_relaxed))
            ++hops;
        benchmark::DoNotOptimize(hops);
    }
}
BENCHMARK(KeyQueueOverlayOff);

/// The key queue with the overlay on: the queued hop of a key-down, as the delegate
/// makes it (the main thread's delivery measured apart, below).
void KeyQueueOverlayOn(benchmark::State& state) {
    application();
    ManualTime time;
    KeyCast cast(time, time);
    QPointer<KeyCast> target = &cast;
    std::size_t n = 0;
    for (auto _ : state) {
        const KeyCode code = kLetters[n++ % std::size(kLetters)];
        QMetaObject::invokeMethod(
            target,
            [target, code] {
                if (target)
                    target->key(code, true);
            },
            Qt::QueuedConnection);
        if (n % 256 == 0) {
            state.PauseTiming();
            QCoreApplication::sendPostedEvents(&cast, QEvent::MetaCall);
            state.ResumeTiming();
        }
    }
    QCoreApplication::sendPostedEvents(&cast, QEvent::MetaCall);
}
BENCHMARK(KeyQueueOverlayOn);

/// The main thread's share: one key down and up becoming a chip among six, keys 80 ms
/// apart so chips expire as they do in fast typing.
void MainThreadChipPerKey(benchmark::State& state) {
    ManualTime time;
    KeyCast cast(time, time);
    int changes = 0;
    cast.setOnChange([&changes] { ++changes; });
    std::size_t n = 0;
    for (auto _ : state) {
        const KeyCode code = kLetters[n++ % std::size(kLetters)];
        cast.key(code, true);
        cast.key(code, false);
        time.advance(std::chrono::milliseconds(80));
    }
    benchmark::DoNotOptimize(changes);
}
BENCHMARK(MainThreadChipPerKey);

} // namespace

BENCHMARK_MAIN();
