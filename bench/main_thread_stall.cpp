// How long Tappix's main thread, where the windows, the typing statistics and the key cast
// live, is held away from its event loop: a precise 1 ms timer on that thread, armed
// anew each time it fires; how late it fires is how long the loop could not run. Tappix
// runs as at a login start (tray, no window open) on this session's platform: its sound
// server, cameras, display and preferences (bench/main_thread_stall.sh makes a private
// one, with every sleep trigger on).
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
#include <cstdio>
#include <vector>

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
    QElapsedTimer clock;
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    qint64 due = 0;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        lateMs.push_back(static_cast<double>(now - due) / 1e6);
        if (now >= qint64(seconds) * 1'000'000'000) {
            QCoreApplication::quit();
            return;
        }
        due = now + kPeriodNs;
        timer.start(1);
    });
    // The start's own work (loading the kit, building the tray) is not the steady state.
    QTimer::singleShot(warmUp * 1000, [&] {
        clock.start();
        due = kPeriodNs;
        timer.start(1);
    });
    QCoreApplication::exec();
    delegate.shutdown();

    if (lateMs.empty())
        return 1;
    std::vector<double> sorted = lateMs;
    std::sort(sorted.begin(), sorted.end());
    auto at = [&](double q) { return sorted[static_cast<std::size_t>(q * (sorted.size() - 1))]; };
    const auto over5 =
        std::count_if(sorted.begin(), sorted.end(), [](double ms) { return ms > 5; });
    std::printf("main-thread timer lateness over %d s (%zu ticks): longest %.2f ms, p99.9 %.2f ms, "
                "p99 %.2f ms, median %.2f ms; %ld ticks over 5 ms\n",
                seconds, sorted.size(), sorted.back(), at(0.999), at(0.99), at(0.5),
                static_cast<long>(over5));
    return 0;
}
