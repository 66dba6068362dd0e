// Key-to-sound latency of a running tappix, measured from the recording of the sink
// it plays on. Run through bench/tappix_figures.sh, which starts the servers and tappix.
//
// Keys are injected with XTest (the mechanism xdotool uses) at 15 per second and their
// onsets found in a recording of the sink's monitor. The recording starts at an
// unknown offset, so this program first plays reference clicks through its own audio
// player (the same output path tappix uses) at known times: their onsets give the
// offset plus the audio path's own delay. Key onset minus reference onset is then
// what capture and the engine add; the total adds the audio path, reported as the
// stream's configured latency.

#include "audio/audio_player.h"
#include "platform/audio_backends.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QThread>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <vector>

using namespace tappix;
using Steady = std::chrono::steady_clock;

namespace {

double ms(Steady::time_point t, Steady::time_point origin) {
    return std::chrono::duration<double, std::milli>(t - origin).count();
}

/// Sample-precise onsets: the first sample over `threshold` after 30 ms of quiet.
std::vector<double> onsets(const std::vector<float>& stereo, float threshold) {
    std::vector<double> found;
    std::size_t quiet = 48 * 30;
    for (std::size_t i = 0; i < stereo.size() / 2; ++i) {
        const float level = std::max(std::fabs(stereo[2 * i]), std::fabs(stereo[2 * i + 1]));
        if (level >= threshold) {
            if (quiet >= 48 * 30)
                found.push_back(static_cast<double>(i) / 48.0);
            quiet = 0;
        } else {
            ++quiet;
        }
    }
    return found;
}

double percentile(std::vector<double> values, double q) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(q * static_cast<double>(values.size() - 1))];
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int keys = argc > 1 ? std::atoi(argv[1]) : 200;
    const QString sink = argc > 2 ? argv[2] : "bench";
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        std::fprintf(stderr, "no X display\n");
        return 1;
    }
    const KeyCode keycode = XKeysymToKeycode(display, XStringToKeysym("a"));

    auto devices = makeAudioDeviceManager();
    AudioPlayer reference(makeAudioOutput(), makeSampleDecoder(), *devices, 1.0f);
    auto click = std::make_shared<SampleBuffer>();
    click->samples.assign(480, 0.0f);
    for (std::size_t i = 0; i < 48; ++i)
        click->samples[i] = 0.8f;

    const QString file = QStringLiteral("/tmp/tappix-key-latency.raw");
    QProcess parec;
    parec.setStandardOutputFile(file);
    parec.start("parec", {"--device=" + sink + ".monitor", "--format=float32le", "--rate=48000",
                          "--channels=2", "--latency-msec=5"});
    while (QFile(file).size() < 48000 * 8)
        QThread::msleep(10); // the recording is flowing
    QThread::msleep(500);

    // Known times, all on one clock; the recording's start is found from the references.
    const Steady::time_point origin = Steady::now();
    std::vector<double> referenceTimes, keyTimes;
    for (int i = 0; i < 10; ++i) {
        referenceTimes.push_back(ms(Steady::now(), origin));
        reference.playBuffer(click, 1.0f, 0.0f, 1.0f);
        QThread::msleep(150);
    }
    QThread::msleep(300);
    for (int i = 0; i < keys; ++i) {
        const auto due = origin + std::chrono::milliseconds(2000 + i * 1000 / 15);
        std::this_thread::sleep_until(due);
        XTestFakeKeyEvent(display, keycode, True, 0);
        XFlush(display);
        keyTimes.push_back(ms(Steady::now(), origin));
        QThread::msleep(25);
        XTestFakeKeyEvent(display, keycode, False, 0);
        XFlush(display);
    }
    QThread::msleep(500);
    ::kill(static_cast<pid_t>(parec.processId()), SIGINT);
    parec.waitForFinished(3000);

    QFile recorded(file);
    recorded.open(QIODevice::ReadOnly);
    const QByteArray bytes = recorded.readAll();
    std::vector<float> stereo(static_cast<std::size_t>(bytes.size()) / sizeof(float));
    std::memcpy(stereo.data(), bytes.constData(), stereo.size() * sizeof(float));
    const auto found = onsets(stereo, 0.02f);
    if (found.size() < referenceTimes.size() + static_cast<std::size_t>(keys)) {
        std::fprintf(stderr, "found %zu onsets, expected %zu\n", found.size(),
                     referenceTimes.size() + keys);
        return 1;
    }
    // Recording time of origin plus the audio path, from the references.
    std::vector<double> offsets;
    for (std::size_t i = 0; i < referenceTimes.size(); ++i)
        offsets.push_back(found[i] - referenceTimes[i]);
    const double offset = percentile(offsets, 0.5);
    std::vector<double> extra;
    for (std::size_t i = 0; i < keyTimes.size(); ++i)
        extra.push_back(found[referenceTimes.size() + i] - offset - keyTimes[i]);
    const double audioPath = reference.output().latencySeconds() * 1000.0;
    std::printf("key-to-sound latency over %d keys at 15 keys/s:\n", keys);
    std::printf("  capture + engine (key onset minus reference onset): p50 %.1f ms  p99 %.1f ms  "
                "max %.1f ms\n",
                percentile(extra, 0.5), percentile(extra, 0.99), percentile(extra, 1.0));
    std::printf("  audio path (stream buffer + sink, as configured): %.1f ms\n", audioPath);
    std::printf("  total: p50 %.1f ms  p99 %.1f ms\n", percentile(extra, 0.5) + audioPath,
                percentile(extra, 0.99) + audioPath);
    std::printf("  reference spread (audio path jitter): %.1f ms\n",
                percentile(offsets, 1.0) - percentile(offsets, 0.0));
    XCloseDisplay(display);
    return 0;
}
