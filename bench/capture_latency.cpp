// Prints how long a key takes from becoming readable on a device descriptor to the
// `onKeyEvent` callback on the delivery queue, through the real evdev reader thread
// and KeyEventService, and how much CPU the capture threads use while idle.
//
// Run: build/bench/capture_latency [events]

#include "input/key_event_service.h"
#include "platform/evdev/evdev_capture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace tappix;
using Clock = std::chrono::steady_clock;

namespace {

double threadCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

} // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 10000;
    int fds[2];
    if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0)
        return 1;

    KeyEventService service{CaptureBackends{}};
    std::atomic<int> delivered{0};
    std::atomic<Clock::rep> arrivedAt{0};
    service.setOnKeyEvent([&](KeyCode, bool, KeyTime) {
        arrivedAt.store(Clock::now().time_since_epoch().count(), std::memory_order_release);
        delivered.fetch_add(1, std::memory_order_release);
    });
    evdev::EvdevCapture reader(evdev::DeviceRole::keyboard, "tappix-evtap", "/nonexistent");
    std::vector<std::unique_ptr<evdev::EvdevDevice>> devices;
    devices.push_back(
        std::make_unique<evdev::EvdevDevice>(fds[0], evdev::DeviceRole::keyboard, "bench"));
    reader.startWithDevices(service.captureSink(), std::move(devices));

    std::vector<double> micros;
    micros.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const input_event events[2] = {{{}, EV_KEY, KEY_A, (i % 2 == 0) ? 1 : 0},
                                       {{}, EV_SYN, SYN_REPORT, 0}};
        const int before = delivered.load(std::memory_order_acquire);
        const auto sent = Clock::now();
        if (::write(fds[1], events, sizeof events) != static_cast<ssize_t>(sizeof events))
            return 1;
        while (delivered.load(std::memory_order_acquire) == before) {
        }
        const auto arrived =
            Clock::time_point(Clock::duration(arrivedAt.load(std::memory_order_acquire)));
        micros.push_back(std::chrono::duration<double, std::micro>(arrived - sent).count());
    }
    std::sort(micros.begin(), micros.end());
    auto at = [&](double q) { return micros[static_cast<std::size_t>(q * (micros.size() - 1))]; };
    std::printf("capture latency over %d events (device readable -> onKeyEvent):\n", count);
    std::printf("  p50 %.1f us   p90 %.1f us   p99 %.1f us   max %.1f us\n", at(0.5), at(0.9),
                at(0.99), micros.back());

    // Idle: nothing written for two seconds; the reader blocks in epoll, the queue on
    // its condition variable.
    const double cpuBefore = threadCpuSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const double idle = threadCpuSeconds() - cpuBefore;
    std::printf("  CPU used by the process over 2 s idle: %.3f ms\n", idle * 1000);
    reader.stop();
    ::close(fds[1]);
    return 0;
}
