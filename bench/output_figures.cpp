// Prints the output stream's configured latency and what the player costs while
// nothing plays, against the sound server in PULSE_SERVER (see with_private_pulse.sh).
//
// Run: bench/with_private_pulse.sh build/bench/output_figures [idle-seconds]

#include "audio/audio_player.h"
#include "platform/audio_backends.h"

#include <QCoreApplication>
#include <QThread>
#include <cstdio>
#include <cstdlib>
#include <ctime>

using namespace tappix;

namespace {
double cpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int idle = argc > 1 ? std::atoi(argv[1]) : 10;
    auto devices = makeAudioDeviceManager();
    AudioPlayer player(makeAudioOutput(), makeSampleDecoder(), *devices, 0.6f);
    if (!player.output().isPlaying()) {
        std::fprintf(stderr, "no sound server\n");
        return 1;
    }
    QThread::msleep(500);
    std::printf("output latency as configured and reported: %.1f ms\n",
                player.output().latencySeconds() * 1000);
    const double before = cpuSeconds();
    QThread::sleep(static_cast<unsigned long>(idle));
    const double used = cpuSeconds() - before;
    std::printf("CPU while idle over %d s: %.1f ms (%.3f %% of one core)\n", idle, used * 1000,
                used / idle * 100);
    return 0;
}
