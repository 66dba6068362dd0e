#pragma once

#include "leash.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>
#include <cmath>
#include <csignal>
#include <cstring>
#include <memory>
#include <unistd.h>
#include <vector>

namespace tappix::test {

/// A private sound server spoken to through the PulseAudio protocol (PULSE_SERVER): null
/// sinks "tappix_a" (default) and "tappix_b", silent default microphone "tappix_mic"; its
/// own process group, runtime directory, home, configuration and state.
class SoundServer {
public:
    /// What a stream asking for a small buffer gets: what it asks, or (refuseSmall) 50 ms
    /// or more on "tappix_a", as on a network sink.
    enum class Buffers { asked, refuseSmall };

    virtual ~SoundServer() { kill(); }

    /// Starts (or restarts) the server; true once it answers with its devices in place.
    bool start() {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), dir_.path());
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime_);
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir_.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_STATE_HOME"), dir_.filePath(QStringLiteral("state")));
        for (const char* name :
             {"PULSE_SERVER", "PIPEWIRE_REMOTE", "DBUS_SESSION_BUS_ADDRESS", "DISPLAY"})
            env.remove(QString::fromLatin1(name));
        server_.setProcessEnvironment(env);
        server_.setStandardOutputFile(QProcess::nullDevice());
        server_.setStandardErrorFile(dir_.filePath(QStringLiteral("server.log")),
                                     QIODevice::Append);
        leash(server_, SIGTERM, true);
        launch();
        if (!server_.waitForStarted(3000) ||
            !within(5000, [] { return pactl({"info"}).contains("Server Name"); }) || !loadDevices())
            return false;
        return setDefault("sink", "tappix_a") && setDefault("source", "tappix_mic") &&
               ownsNoDevices();
    }
    /// Kills the server outright, as a crash would.
    void kill() {
        if (server_.state() == QProcess::NotRunning)
            return;
        ::kill(-static_cast<pid_t>(server_.processId()), SIGKILL);
        server_.waitForFinished(3000);
        for (const char* socket : {"pipewire-0", "pipewire-0.lock", "pulse/native"})
            QFile::remove(runtime_ + "/" + socket);
    }
    /// Stops (true) or resumes (false) the server, as when it hangs.
    void pause(bool stopped) {
        ::kill(-static_cast<pid_t>(server_.processId()), stopped ? SIGSTOP : SIGCONT);
    }
    /// Whether the first start succeeded.
    bool started() const { return started_; }
    /// The end of the server's log.
    QString log() const {
        QFile file(dir_.filePath(QStringLiteral("server.log")));
        file.open(QIODevice::ReadOnly);
        return QString::fromLocal8Bit(file.readAll().right(2000));
    }

    /// Starts a recording client on a source (the default microphone when empty), writing
    /// stereo float frames to `file` (nowhere when empty).
    static std::unique_ptr<QProcess> startRecording(const QString& source = {},
                                                    const QString& file = {}) {
        auto parec = std::make_unique<QProcess>();
        leash(*parec);
        parec->setStandardOutputFile(file.isEmpty() ? QProcess::nullDevice() : file);
        QStringList args{"--format=float32le", "--rate=48000", "--channels=2", "--latency-msec=10"};
        if (!source.isEmpty())
            args << "--device=" + source;
        parec->start(QStringLiteral("parec"), args);
        parec->waitForStarted(3000);
        return parec;
    }

    /// Runs pactl against the server and returns its output.
    static QString pactl(const QStringList& arguments) {
        QProcess tool;
        tool.start(QStringLiteral("pactl"), arguments);
        tool.waitForFinished(5000);
        return QString::fromLocal8Bit(tool.readAllStandardOutput());
    }

    /// Loads a null sink; its module's index, empty when refused.
    static QString addSink(const QString& name, const QString& description,
                           const QStringList& more = {}) {
        return pactl(QStringList{"load-module", "module-null-sink", "sink_name=" + name,
                                 "rate=48000", "format=float32le", "channels=2",
                                 "sink_properties=device.description=" + description} +
                     more)
            .trimmed();
    }

    /// Makes `name` the default sink or source; true once reported (PipeWire 0.3.65 reports
    /// the old default for a moment).
    static bool setDefault(const QString& what, const QString& name) {
        const QString expected =
            QStringLiteral("Default %1: %2\n")
                .arg(what == QLatin1String("source") ? "Source" : "Sink", name);
        return within(5000, [&] {
            pactl({"set-default-" + what, name});
            return pactl({"info"}).contains(expected);
        });
    }

    /// Records a sink's monitor (stereo float frames) while `action` runs, plus `tailMs`.
    template <typename Action>
    std::vector<float> record(const QString& sink, Action action, int tailMs = 300) {
        const QString file = dir_.filePath(QStringLiteral("recording.raw"));
        QFile::remove(file);
        const auto parec = startRecording(sink + ".monitor", file);
        within(3000, [&] { return QFileInfo(file).size() >= 4096; });
        action();
        QThread::msleep(static_cast<unsigned long>(tailMs));
        ::kill(static_cast<pid_t>(parec->processId()), SIGINT); // parec flushes only on SIGINT
        parec->waitForFinished(3000);
        QFile recorded(file);
        recorded.open(QIODevice::ReadOnly);
        const QByteArray bytes = recorded.readAll();
        std::vector<float> frames(static_cast<std::size_t>(bytes.size()) / sizeof(float));
        if (!frames.empty())
            std::memcpy(frames.data(), bytes.constData(), frames.size() * sizeof(float));
        return frames;
    }

    /// Whether `done` holds within `ms`, asked every 20 ms.
    template <typename Done> static bool within(int ms, Done done) {
        QElapsedTimer timer;
        timer.start();
        while (!done()) {
            if (timer.elapsed() > ms)
                return false;
            QThread::msleep(20);
        }
        return true;
    }

protected:
    explicit SoundServer(Buffers buffers) : buffers_(buffers) {
        runtime_ = dir_.filePath(QStringLiteral("runtime"));
        QDir().mkpath(runtime_ + QStringLiteral("/pulse"));
        QFile::setPermissions(runtime_, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                            QFileDevice::ExeOwner);
        qputenv("PULSE_SERVER", ("unix:" + socket()).toLocal8Bit());
        qputenv("PULSE_CLIENTCONFIG", dir_.filePath(QStringLiteral("client.conf")).toLocal8Bit());
    }
    virtual void launch() = 0;
    virtual bool loadDevices() = 0;

    QString socket() const { return runtime_ + QStringLiteral("/pulse/native"); }

    void writeConfig(const QString& path, const QByteArray& text) {
        const QString file = dir_.filePath(QStringLiteral("config/") + path);
        QDir().mkpath(QFileInfo(file).path());
        QFile out(file);
        if (out.open(QIODevice::WriteOnly))
            out.write(text);
    }

    QTemporaryDir dir_;
    QString runtime_;
    QProcess server_;
    Buffers buffers_;
    bool started_ = false;

private:
    /// Whether WirePlumber, where it runs, left the machine's devices alone.
    bool ownsNoDevices() {
        static const QRegularExpression device(
            QStringLiteral("libspa-(alsa|bluez5|v4l2|libcamera)\\.so"));
        for (const QString& pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
            QFile comm("/proc/" + pid + "/comm"), maps("/proc/" + pid + "/maps");
            if (::getpgid(pid.toInt()) != static_cast<pid_t>(server_.processId()) ||
                !comm.open(QIODevice::ReadOnly) || comm.readAll().trimmed() != "wireplumber" ||
                !maps.open(QIODevice::ReadOnly))
                continue;
            if (const auto loaded = device.match(QString::fromLatin1(maps.readAll()));
                loaded.hasMatch()) {
                QFile log(dir_.filePath(QStringLiteral("server.log")));
                log.open(QIODevice::Append);
                log.write("WirePlumber loaded " + loaded.captured().toLatin1() + "\n");
                return false;
            }
        }
        return true;
    }
};

/// The private server as a PulseAudio daemon. refuseSmall makes "tappix_a" a tunnel of
/// `latency_msec=40` back to "tappix_far": 16.1 grants that plus two minreqs, 50 ms.
class PulseServer final : public SoundServer {
public:
    explicit PulseServer(Buffers buffers = Buffers::asked) : SoundServer(buffers) {
        started_ = start();
    }

private:
    void launch() override {
        server_.start(QStringLiteral("pulseaudio"),
                      {"-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
                       "--log-target=stderr", "-L",
                       "module-native-protocol-unix socket=" + socket() + " auth-anonymous=1"});
    }
    bool loadDevices() override {
        const bool refuse = buffers_ == Buffers::refuseSmall;
        return !addSink(refuse ? "tappix_far" : "tappix_a", refuse ? "Far" : "Speakers-A")
                    .isEmpty() &&
               !addSink("tappix_b", "Speakers-B").isEmpty() &&
               !pactl({"load-module", "module-null-source", "source_name=tappix_mic"})
                    .trimmed()
                    .isEmpty() &&
               (!refuse || !pactl({"load-module", "module-tunnel-sink", "server=unix:" + socket(),
                                   "sink=tappix_far", "sink_name=tappix_a", "latency_msec=40",
                                   "rate=48000", "format=float32le", "channels=2",
                                   "sink_properties=device.description=Speakers-A"})
                                .trimmed()
                                .isEmpty());
    }
};

struct Levels {
    double peakLeft = 0, peakRight = 0;
};

inline Levels levels(const std::vector<float>& stereo) {
    Levels out;
    for (std::size_t i = 0; i + 1 < stereo.size(); i += 2) {
        out.peakLeft = std::max(out.peakLeft, double(std::fabs(stereo[i])));
        out.peakRight = std::max(out.peakRight, double(std::fabs(stereo[i + 1])));
    }
    return out;
}

} // namespace tappix::test
