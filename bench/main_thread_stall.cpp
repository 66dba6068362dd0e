// How long Tappix's main thread, where the windows, the typing statistics and the key cast
// live, is held away from its event loop: a precise 1 ms timer on that thread, armed
// anew each time it fires; how late it fires is how long the loop could not run. Tappix
// runs as at a login start (tray, no window open) on this session's platform: its sound
// server, cameras, display and preferences (bench/main_thread_stall.sh makes a private
// one, with every sleep trigger on).
//
// A busy or virtual machine holds threads for tens of milliseconds now and then (measured
// here: a bare 1 ms sleep loop came 25 ms late, with 89 ticks over 5 ms in 40 s). So the
// last line counts only the loop's own stalls, leaving out those the machine caused: when
// the loop waited for a CPU for at least half the stall, or when a control thread pinned
// to the CPU the loop was on, doing nothing but sleep 1 ms at a time, was at least half as
// late at the same moment. A stall made on purpose on the loop (10 ms of work, or a 10 ms
// sleep) is counted as its own either way.
//   main_thread_stall [SECONDS] [WARM_UP_SECONDS]

#include "app/app_delegate.h"
#include "platform/audio_backends.h"
#include "platform/capture_backends.h"
#include "platform/dbus/freedesktop_notifier.h"
#include "platform/focus_backends.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {
/// A tick later than its due time: when it was due and how late it came, in milliseconds
/// on one clock (CLOCK_MONOTONIC, as QElapsedTimer), and the CPU it was armed and fired on.
struct LateTick {
    double dueMs = 0;
    double lateMs = 0;
    int armedOn = -1;
    int firedOn = -1;
    /// Of the lateness, how long the thread was runnable but waiting for a CPU.
    double queuedMs = 0;
};

/// Ticks later than this are worth keeping to compare the threads.
constexpr double kNoteworthyMs = 1.0;
/// The target: no stall of the loop longer than this.
constexpr double kTargetMs = 5.0;

/// How long a thread has waited, runnable, for a CPU since it started (the scheduler's own
/// count), in milliseconds, from its open schedstat file.
double runQueueWaitMs(int schedstat) {
    char text[96] = {};
    if (pread(schedstat, text, sizeof text - 1, 0) <= 0)
        return 0;
    double running = 0;
    double waiting = 0;
    std::sscanf(text, "%lf %lf", &running, &waiting);
    return waiting / 1e6;
}

double monotonicMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// On `cpu` alone, sleeps 1 ms at a time until `stop`, noting the ticks that came late.
void controlTicks(int cpu, const std::atomic<bool>& stop, std::vector<LateTick>& late) {
    cpu_set_t only;
    CPU_ZERO(&only);
    CPU_SET(cpu, &only);
    pthread_setaffinity_np(pthread_self(), sizeof only, &only);
    while (!stop.load()) {
        const double due = monotonicMs() + 1.0;
        const timespec period{0, 1'000'000};
        clock_nanosleep(CLOCK_MONOTONIC, 0, &period, nullptr);
        const double lateMs = monotonicMs() - due;
        if (lateMs > kNoteworthyMs)
            late.push_back({due, lateMs, cpu, cpu});
    }
}

/// Whether the machine held the loop: it waited for a CPU at least half the time, or the
/// control thread on the CPU it was on was as late (at least half as much) at an
/// overlapping time.
bool machineHeldToo(const LateTick& stall, const std::vector<std::vector<LateTick>>& controls) {
    if (stall.queuedMs >= stall.lateMs / 2)
        return true;
    for (const int cpu : {stall.armedOn, stall.firedOn}) {
        if (cpu < 0 || static_cast<std::size_t>(cpu) >= controls.size())
            continue;
        const std::vector<LateTick>& control = controls[static_cast<std::size_t>(cpu)];
        const bool held = std::any_of(control.begin(), control.end(), [&](const LateTick& tick) {
            const bool overlaps =
                tick.dueMs < stall.dueMs + stall.lateMs && stall.dueMs < tick.dueMs + tick.lateMs;
            return overlaps && tick.lateMs >= stall.lateMs / 2;
        });
        if (held)
            return true;
    }
    return false;
}
} // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 60;
    const int warmUp = argc > 2 ? std::atoi(argv[2]) : 3;
    const std::unique_ptr<QCoreApplication> app = tappix::DesktopShell::makeApplication(argc, argv);

    tappix::AppDelegate::Platform platform;
    platform.output = tappix::makeAudioOutput();
    platform.decoder = tappix::makeSampleDecoder();
    platform.devices = tappix::makeAudioDeviceManager();
    platform.capture = tappix::makeCaptureBackends();
    platform.captureIsPossible = tappix::captureIsPossible;
    platform.notifier = std::make_unique<tappix::FreedesktopNotifier>();
    platform.withWindows = true;
    platform.focus = tappix::makeFocusSource();
    platform.launchesAtLogin = [] { return true; };
    tappix::AppDelegate delegate(std::move(platform), tappix::JsonFilePreferences::defaultPath(),
                                 tappix::SoundpackStore::defaultBundleDirectory(),
                                 tappix::SoundpackStore::defaultUserDirectory());
    delegate.start();

    constexpr qint64 kPeriodNs = 1'000'000;
    std::vector<double> lateMs;
    lateMs.reserve(static_cast<std::size_t>(seconds) * 1000);
    std::vector<LateTick> loopStalls;
    // One control thread per CPU, each pinned to its own.
    std::vector<std::vector<LateTick>> controlLate(static_cast<std::size_t>(CPU_SETSIZE));
    std::atomic<bool> stopControl{false};
    std::vector<std::thread> controls;
    int armedOn = -1;
    const int schedstat = open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC);
    double queuedAtArm = 0;
    QElapsedTimer clock;
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    qint64 due = 0;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        lateMs.push_back(static_cast<double>(now - due) / 1e6);
        if (lateMs.back() > kNoteworthyMs)
            loopStalls.push_back({monotonicMs() - lateMs.back(), lateMs.back(), armedOn,
                                  sched_getcpu(), runQueueWaitMs(schedstat) - queuedAtArm});
        if (now >= qint64(seconds) * 1'000'000'000) {
            QCoreApplication::quit();
            return;
        }
        due = now + kPeriodNs;
        armedOn = sched_getcpu();
        queuedAtArm = runQueueWaitMs(schedstat);
        timer.start(1);
    });
    // The start's own work (loading the kit, building the tray) is not the steady state.
    QTimer::singleShot(warmUp * 1000, [&] {
        cpu_set_t allowed;
        CPU_ZERO(&allowed);
        sched_getaffinity(0, sizeof allowed, &allowed);
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
            if (CPU_ISSET(cpu, &allowed))
                controls.emplace_back(controlTicks, cpu, std::cref(stopControl),
                                      std::ref(controlLate[static_cast<std::size_t>(cpu)]));
        clock.start();
        due = kPeriodNs;
        armedOn = sched_getcpu();
        queuedAtArm = runQueueWaitMs(schedstat);
        timer.start(1);
    });
    QCoreApplication::exec();
    stopControl = true;
    for (std::thread& control : controls)
        control.join();
    delegate.shutdown();
    close(schedstat);

    if (lateMs.empty())
        return 1;
    std::vector<double> sorted = lateMs;
    std::sort(sorted.begin(), sorted.end());
    auto at = [&](double q) { return sorted[static_cast<std::size_t>(q * (sorted.size() - 1))]; };
    const auto over5 =
        std::count_if(sorted.begin(), sorted.end(), [](double ms) { return ms > kTargetMs; });
    std::printf("main-thread timer lateness over %d s (%zu ticks): longest %.2f ms, p99.9 %.2f ms, "
                "p99 %.2f ms, median %.2f ms; %ld ticks over 5 ms\n",
                seconds, sorted.size(), sorted.back(), at(0.999), at(0.99), at(0.5),
                static_cast<long>(over5));
    double ownLongest = 0;
    long ownOver = 0;
    for (const LateTick& stall : loopStalls) {
        if (machineHeldToo(stall, controlLate))
            continue;
        ownLongest = std::max(ownLongest, stall.lateMs);
        ownOver += stall.lateMs > kTargetMs ? 1 : 0;
    }
    double controlLongest = 0;
    long controlOver = 0;
    for (const std::vector<LateTick>& control : controlLate)
        for (const LateTick& tick : control) {
            controlLongest = std::max(controlLongest, tick.lateMs);
            controlOver += tick.lateMs > kTargetMs ? 1 : 0;
        }
    std::printf("control threads (one a CPU, sleeping 1 ms at a time): longest %.2f ms, %ld ticks "
                "over 5 ms\n"
                "the loop's own stalls (not the machine's): longest %.2f ms, %ld over 5 ms\n",
                controlLongest, controlOver, ownLongest, ownOver);
    return 0;
}
