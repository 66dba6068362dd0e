#pragma once

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>
#include <cmath>
#include <csignal>
#include <cstring>
#include <memory>
#include <vector>

namespace tappix::test {

/// A private sound server for one test binary, spoken to through the PulseAudio
/// protocol: two 48 kHz float null sinks ("tappix_a", the default, and "tappix_b") and
/// a silent source as the default microphone ("tappix_mic"), on a socket of its own
/// exported to this process as PULSE_SERVER. Nothing system-wide is touched.
class SoundServer {
public:
    /// What the server grants a playback stream that asks for a small buffer.
    enum class Buffers {
        /// What the stream asks for (the server's own rounding aside).
        asked,
        /// Never a small one: the default sink "tappix_a" makes every stream on it take a
        /// buffer of 50 ms or more whatever it asks for, as a network sink does.
        refuseSmall,
    };

    virtual ~SoundServer() = default;

    /// Starts (or restarts) the server on the same socket; true once it answers with its
    /// sinks and defaults in place.
    virtual bool start() = 0;
    /// Kills the server outright, as a crash would.
    virtual void kill() = 0;
    /// Stops the server where it is (true) or lets it go on (false): its clients stay
    /// connected while nothing moves, as when a server hangs.
    virtual void pause(bool stopped) = 0;
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

    /// Makes `name` the default sink (or source, with `what` "source") and waits until the
    /// server reports it: PipeWire (0.3.65) answers with the old default for a moment
    /// after pactl returns, until WirePlumber has stored the new one.
    static void setDefault(const QString& what, const QString& name) {
        const QString expected =
            QStringLiteral("Default %1: %2\n")
                .arg(what == QLatin1String("source") ? "Source" : "Sink", name);
        QElapsedTimer timer;
        timer.start();
        do {
            pactl({"set-default-" + what, name});
            if (pactl({"info"}).contains(expected))
                return;
            QThread::msleep(20);
        } while (timer.elapsed() < 3000);
    }

    /// Records a sink's monitor (stereo float frames) while `action` runs, plus `tailMs`.
    template <typename Action>
    std::vector<float> record(const QString& sink, Action action, int tailMs = 300) {
        // Straight to a file: a pipe nobody drains while the test waits would fill up.
        const QString file = dir_.filePath(QStringLiteral("recording.raw"));
        QFile::remove(file);
        QProcess parec;
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
    /// Points this process's PulseAudio clients at `socket`.
    void exportSocket(const QString& socket) {
        qputenv("PULSE_SERVER", ("unix:" + socket).toLocal8Bit());
        qputenv("PULSE_CLIENTCONFIG", dir_.filePath(QStringLiteral("client.conf")).toLocal8Bit());
    }
    /// Waits until the server answers, then sets the default microphone.
    static bool answers() {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 5000) {
            if (pactl({"info"}).contains("Server Name")) {
                pactl({"set-default-source", "tappix_mic"});
                return true;
            }
            QThread::msleep(50);
        }
        return false;
    }

    QTemporaryDir dir_;
    bool started_ = false;
};

/// The private server as a PulseAudio daemon.
class PulseServer final : public SoundServer {
public:
    /// Measured with PulseAudio 16.1: a stream asking for 10 ms with minreq 5 ms gets that
    /// (10.5 ms) on null, pipe, echo-cancel and combine sinks alike (a combine sink pushes
    /// 210 ms a moment after the connect, but grants 10.5 ms again when asked anew). A sink
    /// of fixed latency grants that latency plus two minreqs: 50 ms on a tunnel sink with
    /// `latency_msec=40`, which is what `Buffers::refuseSmall` makes "tappix_a" (a tunnel
    /// back into this server, to a null sink "tappix_far").
    explicit PulseServer(Buffers buffers = Buffers::asked) : buffers_(buffers) {
        socket_ = dir_.filePath(QStringLiteral("native"));
        exportSocket(socket_);
        started_ = start();
    }
    ~PulseServer() override { kill(); }

    bool start() override {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), dir_.path());
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir_.path());
        env.insert(QStringLiteral("PULSE_RUNTIME_PATH"), dir_.filePath(QStringLiteral("runtime")));
        env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        server_.setProcessEnvironment(env);
        server_.setStandardOutputFile(QProcess::nullDevice());
        server_.setStandardErrorFile(dir_.filePath(QStringLiteral("server.log")));
        const QString sink =
            QStringLiteral("module-null-sink sink_name=%1 rate=48000 format=float32le channels=2 "
                           "sink_properties=device.description=%2");
        const bool refuse = buffers_ == Buffers::refuseSmall;
        server_.start(QStringLiteral("pulseaudio"),
                      {"-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
                       "--log-target=stderr", "-L",
                       "module-native-protocol-unix socket=" + socket_ + " auth-anonymous=1", "-L",
                       refuse ? sink.arg("tappix_far", "Far") : sink.arg("tappix_a", "Speakers-A"),
                       "-L", sink.arg("tappix_b", "Speakers-B"), "-L",
                       "module-null-source source_name=tappix_mic"});
        if (!answers())
            return false;
        return !refuse || !pactl({"load-module", "module-tunnel-sink", "server=unix:" + socket_,
                                  "sink=tappix_far", "sink_name=tappix_a", "latency_msec=40",
                                  "rate=48000", "format=float32le", "channels=2",
                                  "sink_properties=device.description=Speakers-A"})
                               .trimmed()
                               .isEmpty();
    }

    void kill() override {
        server_.kill();
        server_.waitForFinished(3000);
    }

    void pause(bool stopped) override {
        ::kill(static_cast<pid_t>(server_.processId()), stopped ? SIGSTOP : SIGCONT);
    }

private:
    Buffers buffers_;
    QString socket_;
    QProcess server_;
};

/// Per-channel energy of interleaved stereo, as RMS over the frames that hold sound.
struct Levels {
    double left = 0, right = 0, peakLeft = 0, peakRight = 0;
};

inline Levels levels(const std::vector<float>& stereo) {
    Levels out;
    double sumL = 0, sumR = 0;
    const std::size_t frames = stereo.size() / 2;
    for (std::size_t i = 0; i < frames; ++i) {
        const double l = stereo[2 * i], r = stereo[2 * i + 1];
        sumL += l * l;
        sumR += r * r;
        out.peakLeft = std::max(out.peakLeft, std::fabs(l));
        out.peakRight = std::max(out.peakRight, std::fabs(r));
    }
    if (frames) {
        out.left = std::sqrt(sumL / frames);
        out.right = std::sqrt(sumR / frames);
    }
    return out;
}

} // namespace tappix::test
