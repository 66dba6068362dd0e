// tappix-doctor: tells a user why Tappix is silent, and shows what it hears.

#include "audio/mixer.h"
#include "core/clock.h"
#include "input/key_event_service.h"
#include "kits/soundpack_store.h"
#include "platform/audio_backends.h"
#include "platform/capture_backends.h"
#include "platform/dbus/remote_control_client.h"
#include "platform/evdev/input_recording.h"
#include "platform/evdev/recording_replay.h"
#include "settings/json_file_preferences.h"

#include <QFile>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <tuple>

namespace {

constexpr const char* kHelp =
    "Usage: tappix-doctor [--watch SECONDS] | --replay FILE\n"
    "\n"
    "Prints which way Tappix would capture keys on this machine and why: the readable\n"
    "keyboards by name, or the reason none is (with the command that fixes permissions),\n"
    "and whether this is an X11 or Wayland session; then the sound server, its default\n"
    "output and the output devices; the latency of Tappix's output stream on the chosen\n"
    "device, what the server reports for the device and why it is what it is, and how\n"
    "often the output ran dry since Tappix started; and the kit directories with the\n"
    "kits found there.\n"
    "\n"
    "  --watch SECONDS  then capture for that long and print each event as it arrives,\n"
    "                   e.g. \"key 0 a down\" or \"mouse other up\".\n"
    "  --replay FILE    instead, feed an input recording through Tappix's capture and\n"
    "                   print the events Tappix would deliver, with their times, e.g.\n"
    "                   \"1.250 key 36 enter down\". FILE is what evemu-record or\n"
    "                   libinput record wrote (the files attached to bug reports);\n"
    "                   libinput record hides which letter keys moved unless it ran\n"
    "                   with --show-keycodes.\n"
    "  -h, --help       show this text.\n";

void describeLatency(tappix::AudioDeviceManager& devices);

void describeAudio() {
    auto devices = tappix::makeAudioDeviceManager();
    if (!devices->isServerReachable()) {
        std::printf("audio: no sound server answers (is PulseAudio or PipeWire running?)\n");
        return;
    }
    std::printf("audio: %s\n", devices->serverDescription().c_str());
    const auto fallback = devices->defaultOutput();
    std::printf("audio: default output: %s\n",
                fallback ? (fallback->name + " (" + fallback->uid + ")").c_str() : "none");
    for (const auto& device : devices->outputDevices())
        std::printf("audio: output device: %s (%s)\n", device.name.c_str(), device.uid.c_str());
    describeLatency(*devices);
}

// How long the doctor's own output stream runs to learn its latency and count underruns.
constexpr int kProbeMs = 600;
// Beyond this a device's own latency is worth a reason.
constexpr double kNoticeableSeconds = 0.005;
// Servers round a buffer to units of their own (PulseAudio makes 10 ms 10.5 ms).
constexpr double kRoundingSeconds = 0.001;

double ms(double seconds) {
    return seconds * 1000;
}

// The output device the user chose in the preferences, or none (the default).
std::optional<std::string> chosenOutput() {
    QFile file(tappix::JsonFilePreferences::defaultPath());
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QString uid =
        QJsonDocument::fromJson(file.readAll()).object().value("outputDeviceUID").toString();
    return uid.isEmpty() ? std::nullopt : std::optional<std::string>(uid.toStdString());
}

// The latency of an output stream like Tappix's on the chosen device, what the server
// says about that device and why, and the underruns of the running Tappix.
void describeLatency(tappix::AudioDeviceManager& devices) {
    std::optional<std::string> sink = chosenOutput();
    if (sink && !devices.deviceID(*sink)) {
        std::printf("audio: chosen output %s is not present; Tappix plays on the default\n",
                    sink->c_str());
        sink.reset();
    }
    if (!sink) {
        const auto fallback = devices.defaultOutput();
        if (!fallback)
            return;
        sink = fallback->uid;
    }
    // Asked before the stream starts, which wakes a suspended device.
    const auto before = devices.outputLatency(*sink);
    const tappix::SteadyClock clock;
    tappix::Mixer mixer(clock);
    auto output = tappix::makeAudioOutput();
    output->setDevice(sink);
    if (!output->start(mixer)) {
        std::printf("audio: no output stream could be opened on %s\n", sink->c_str());
        return;
    }
    QThread::msleep(kProbeMs);
    const auto during = devices.outputLatency(*sink);
    std::printf("audio: output stream on %s: configured latency %.1f ms (how long a new "
                "sound waits: the device's own part and how far ahead of it Tappix writes)\n",
                sink->c_str(), ms(output->latencySeconds()));
    if (during)
        std::printf("audio: device %s: latency %.1f ms now, configured %.1f ms, %s\n",
                    sink->c_str(), ms(during->currentSeconds), ms(during->configuredSeconds),
                    during->dynamic ? "follows its streams" : "fixed");
    if (during && during->currentSeconds == 0 && during->configuredSeconds == 0)
        std::printf("audio: why: the server reports no latency for the device (PipeWire's "
                    "PulseAudio layer reports none); the stream's figure is what is known\n");
    if (during && during->suspended)
        std::printf("audio: why: the device is suspended and stays so while a stream plays: "
                    "nothing is heard until it is resumed (pactl suspend-sink %s 0)\n",
                    sink->c_str());
    else if (before && before->suspended)
        std::printf("audio: why: the device was suspended while idle; it wakes with the first "
                    "sound, which may come a moment late\n");
    if (during && during->portOffsetSeconds != 0)
        std::printf("audio: why: port %s adds %.1f ms (its latency offset, as Bluetooth "
                    "devices have)\n",
                    during->port.c_str(), ms(during->portOffsetSeconds));
    if (during && !during->dynamic && during->configuredSeconds > kNoticeableSeconds)
        std::printf("audio: why: the device's latency is fixed at %.1f ms; no stream can go "
                    "below it\n",
                    ms(during->configuredSeconds));
    if (output->bufferSeconds() > output->requestedBufferSeconds() + kRoundingSeconds)
        std::printf("audio: why: the server gave the stream a %.1f ms buffer instead of the "
                    "%.0f ms asked for\n",
                    ms(output->bufferSeconds()), ms(output->requestedBufferSeconds()));
    const std::uint64_t probeUnderruns = output->underruns();
    output->stop();

    const tappix::RemoteControlClient tappix;
    const auto status =
        tappix.isRunning() ? tappix.properties() : tappix::RemoteControlClient::Result{};
    const QVariantMap properties = status.value.toMap();
    if (status.ok && properties.contains("Underruns"))
        std::printf("audio: underruns since Tappix started: %llu\n",
                    properties.value("Underruns").toULongLong());
    else
        std::printf("audio: underruns in a %d ms test stream: %llu (Tappix is not running)\n",
                    kProbeMs, static_cast<unsigned long long>(probeUnderruns));
}

void describeKits() {
    const QString bundle = tappix::SoundpackStore::defaultBundleDirectory();
    const QString user = tappix::SoundpackStore::defaultUserDirectory();
    for (const auto& [label, directory, isUser] :
         {std::tuple{"bundled kits", bundle, false}, {"your kits", user, true}}) {
        if (directory.isEmpty()) {
            std::printf("kits: %s: no directory found\n", label);
            continue;
        }
        tappix::SoundpackStore store(isUser ? QString() : directory,
                                     isUser ? directory : QString());
        store.reload();
        std::printf("kits: %s: %s: %zu kit%s\n", label, qPrintable(directory), store.packs().size(),
                    store.packs().size() == 1 ? "" : "s");
        for (const auto& pack : store.packs())
            std::printf("kits:   %s — %s\n", pack.config.id.c_str(),
                        pack.config.metadata.name.c_str());
    }
}

int watch(QCoreApplication& app, double seconds) {
    tappix::KeyEventService service(tappix::makeCaptureBackends());
    service.setOnKeyEvent([](tappix::KeyCode code, bool down, tappix::KeyTime) {
        const auto name = tappix::keyName(code);
        std::printf("key %lld %.*s %s\n", static_cast<long long>(code),
                    static_cast<int>(name ? name->size() : 1), name ? name->data() : "-",
                    down ? "down" : "up");
        std::fflush(stdout);
    });
    service.setOnMouseEvent([](tappix::MouseButton button, bool down) {
        const auto name = tappix::mouseButtonName(button);
        std::printf("mouse %.*s %s\n", static_cast<int>(name.size()), name.data(),
                    down ? "down" : "up");
        std::fflush(stdout);
    });
    service.start();
    service.setMouseCapture(true);
    if (service.backend() == tappix::KeyEventService::Backend::stopped)
        std::printf("watch: no capture backend could start; nothing will be heard\n");
    else
        std::printf("watching for %g s…\n", seconds);
    std::fflush(stdout);
    QTimer::singleShot(static_cast<int>(seconds * 1000), &app, &QCoreApplication::quit);
    app.exec();
    service.drain();
    return 0;
}

std::string keyLine(tappix::KeyCode code, bool down) {
    const auto name = tappix::keyName(code);
    return "key " + std::to_string(code) + " " + (name ? std::string(*name) : std::string("-")) +
           (down ? " down" : " up");
}

// Largest recording read; hours of typing fit in far less.
constexpr qint64 kMaxRecordingBytes = 256LL * 1024 * 1024;

int replay(const char* path) {
    QFile file(QString::fromLocal8Bit(path));
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "tappix-doctor: cannot read %s: %s\n", path,
                     qPrintable(file.errorString()));
        return 1;
    }
    if (file.size() > kMaxRecordingBytes) {
        std::fprintf(stderr, "tappix-doctor: %s is larger than 256 MiB\n", path);
        return 1;
    }
    std::string error;
    const auto recording = tappix::evdev::InputRecording::parse(file.readAll(), error);
    if (!recording) {
        std::fprintf(stderr, "tappix-doctor: %s: %s\n", path, error.c_str());
        return 1;
    }
    const bool evemu = recording->format == tappix::evdev::InputRecording::Format::evemu;
    std::printf("replaying %s: %s recording, %zu events", path,
                evemu ? "evemu-record" : "libinput record", recording->events.size());
    for (const std::string& device : recording->devices)
        std::printf(", \"%s\"", device.c_str());
    std::printf("\n");
    for (const std::string& problem : recording->problems)
        std::printf("problem: %s\n", problem.c_str());

    // The same service the application uses, fed by the recording instead of devices.
    tappix::KeyEventService service({});
    double now = 0; // written before each event, read on the delivery queue after it
    int delivered = 0;
    service.setOnKeyEvent([&](tappix::KeyCode code, bool down, tappix::KeyTime) {
        std::printf("%.3f %s\n", now, keyLine(code, down).c_str());
        ++delivered;
    });
    service.setOnMouseEvent([&](tappix::MouseButton button, bool down) {
        const auto name = tappix::mouseButtonName(button);
        std::printf("%.3f mouse %.*s %s\n", now, static_cast<int>(name.size()), name.data(),
                    down ? "down" : "up");
        ++delivered;
    });
    tappix::evdev::replayRecording(
        *recording, service.captureSink(), [&](double time) { now = time; },
        [&] { service.drain(); });
    service.drain();
    std::printf("%d event%s delivered\n", delivered, delivered == 1 ? "" : "s");
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    double watchSeconds = -1;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            std::fputs(kHelp, stdout);
            return 0;
        }
        if (arg == "--watch" && i + 1 < argc) {
            char* end = nullptr;
            watchSeconds = std::strtod(argv[++i], &end);
            if (*end != '\0' || watchSeconds <= 0) {
                std::fprintf(stderr, "tappix-doctor: --watch needs a positive number of seconds\n");
                return 2;
            }
            continue;
        }
        if (arg == "--replay" && i + 1 < argc)
            return replay(argv[i + 1]);
        std::fprintf(stderr, "tappix-doctor: unknown argument '%s'\n\n%s", argv[i], kHelp);
        return 2;
    }
    for (const std::string& line : tappix::describeCapture())
        std::printf("%s\n", line.c_str());
    describeAudio();
    describeKits();
    std::fflush(stdout);
    return watchSeconds > 0 ? watch(app, watchSeconds) : 0;
}
