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

/// A private sound server for one test binary, spoken to through the PulseAudio
/// protocol: two 48 kHz float null sinks ("tappix_a", the default, and "tappix_b") and
/// a silent source as the default microphone ("tappix_mic"), on a socket of its own
/// exported to this process as PULSE_SERVER. Nothing system-wide is touched: the server
/// runs in a process group of its own with a private 0700 runtime directory, home,
/// configuration and state.
class SoundServer {
public:
    /// What the server grants a playback stream that asks for a small buffer.
    enum class Buffers {
        /// What the stream asks for (the server's own rounding aside).
        asked,
        /// Never a small one: every stream on the default sink "tappix_a" takes a buffer
        /// of 50 ms or more whatever it asks for, as on a network sink.
        refuseSmall,
    };

    virtual ~SoundServer() { kill(); }

    /// Starts (or restarts) the server on the same socket; true once it answers with its
    /// sinks and defaults in place.
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
        // Its own process group, so a kill takes the whole server, as a crash would.
        leash(server_, SIGTERM, true);
        launch();
        if (!server_.waitForStarted(3000) || !answers() || !loadDevices())
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
        // A killed server leaves its sockets; the next start replaces them.
        for (const char* socket : {"pipewire-0", "pipewire-0.lock", "pulse/native"})
            QFile::remove(runtime_ + "/" + socket);
    }
    /// Stops the server where it is (true) or lets it go on (false): its clients stay
    /// connected while nothing moves, as when a server hangs.
    void pause(bool stopped) {
        ::kill(-static_cast<pid_t>(server_.processId()), stopped ? SIGSTOP : SIGCONT);
    }
    /// Whether the first start succeeded.
    bool started() const { return started_; }
    /// What the server wrote about itself, for a failure message.
    QString log() const {
        QFile file(dir_.filePath(QStringLiteral("server.log")));
        file.open(QIODevice::ReadOnly);
        return QString::fromLocal8Bit(file.readAll().right(2000));
    }

    /// Starts a recording client on a source (the default microphone when empty);
    /// the caller stops it by destroying the process.
    static std::unique_ptr<QProcess> startRecording(const QString& source = {}) {
        auto parec = std::make_unique<QProcess>();
        leash(*parec);
        parec->setStandardOutputFile(QProcess::nullDevice());
        QStringList args{"--latency-msec=20"};
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

    /// Loads a 48 kHz stereo float null sink; returns its module's index, empty when refused.
    static QString addSink(const QString& name, const QString& description,
                           const QStringList& more = {}) {
        return pactl(QStringList{"load-module", "module-null-sink", "sink_name=" + name,
                                 "rate=48000", "format=float32le", "channels=2",
                                 "sink_properties=device.description=" + description} +
                     more)
            .trimmed();
    }

    /// Makes `name` the default sink (or source, with `what` "source"); true once the server
    /// reports it: PipeWire (0.3.65) answers with the old default for a moment after pactl
    /// returns, until WirePlumber has stored the new one.
    static bool setDefault(const QString& what, const QString& name) {
        const QString expected =
            QStringLiteral("Default %1: %2\n")
                .arg(what == QLatin1String("source") ? "Source" : "Sink", name);
        QElapsedTimer timer;
        timer.start();
        do {
            pactl({"set-default-" + what, name});
            if (pactl({"info"}).contains(expected))
                return true;
            QThread::msleep(20);
        } while (timer.elapsed() < 5000);
        return false;
    }

    /// Records a sink's monitor (stereo float frames) while `action` runs, plus `tailMs`.
    template <typename Action>
    std::vector<float> record(const QString& sink, Action action, int tailMs = 300) {
        // Straight to a file: a pipe nobody drains while the test waits would fill up.
        const QString file = dir_.filePath(QStringLiteral("recording.raw"));
        QFile::remove(file);
        QProcess parec;
        leash(parec);
        parec.setStandardOutputFile(file);
        parec.start(QStringLiteral("parec"), {"--device=" + sink + ".monitor", "--format=float32le",
                                              "--rate=48000", "--channels=2", "--latency-msec=10"});
        parec.waitForStarted(3000);
        // Recording starts a little after parec does: wait until data flows.
        QElapsedTimer timer;
        timer.start();
        while (QFileInfo(file).size() < 4096 && timer.elapsed() < 3000)
            QThread::msleep(5);
        action();
        QThread::msleep(static_cast<unsigned long>(tailMs));
        ::kill(static_cast<pid_t>(parec.processId()), SIGINT); // parec flushes only on SIGINT
        parec.waitForFinished(3000);
        QFile recorded(file);
        recorded.open(QIODevice::ReadOnly);
        const QByteArray bytes = recorded.readAll();
        std::vector<float> frames(static_cast<std::size_t>(bytes.size()) / sizeof(float));
        if (!frames.empty())
            std::memcpy(frames.data(), bytes.constData(), frames.size() * sizeof(float));
        return frames;
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
    /// Starts the server's programs in `server_`.
    virtual void launch() = 0;
    /// Loads the sinks and the microphone once the server answers.
    virtual bool loadDevices() = 0;

    /// The PulseAudio protocol's socket.
    QString socket() const { return runtime_ + QStringLiteral("/pulse/native"); }

    /// Writes `text` to `path` under the server's configuration directory.
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
    /// Waits until the server answers.
    static bool answers() {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 5000) {
            if (pactl({"info"}).contains("Server Name"))
                return true;
            QThread::msleep(50);
        }
        return false;
    }

    /// Whether WirePlumber, where it runs, left the machine's sound cards, Bluetooth and
    /// cameras alone (loaded none of PipeWire's device plugins); says which in the log.
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

/// The private server as a PulseAudio daemon. A sink of fixed latency grants (PulseAudio
/// 16.1) that latency plus two minreqs: 50 ms on a tunnel sink with `latency_msec=40`,
/// which is what `Buffers::refuseSmall` makes "tappix_a" (a tunnel back into this server,
/// to a null sink "tappix_far").
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

/// The peak of each channel of interleaved stereo.
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
