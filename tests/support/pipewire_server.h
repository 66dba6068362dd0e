#pragma once

#include "support/pulse_server.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <csignal>
#include <memory>
#include <string>
#include <unistd.h>

namespace tappix::test {

/// The private server as PipeWire with WirePlumber and its PulseAudio layer
/// (pipewire-pulse), the stack most desktops run: all three inside a session bus of
/// their own, with a private 0700 runtime directory, configuration and state, and
/// WirePlumber's ALSA, Bluetooth and camera monitors off, so a machine's real devices
/// are never opened: a start fails when WirePlumber loaded a device plugin all the same.
/// The sinks and the microphone are loaded through pactl.
///
/// It runs as root as well (CI containers have no user session): PipeWire 0.3.65 does
/// not refuse root, and under root in a container the only complaint in the log is the
/// session bus failing to raise its file limit. The stack is up in about 0.3 s.
///
/// With `Buffers::refuseSmall` pipewire-pulse is set up for larger requests
/// (`pulse.min.req` of 2048 frames), so every stream takes more than it asks for. Measured
/// with 0.3.65, a stream asking for 10 ms with minreq 5 ms: by default it gets 16 ms
/// (minreq 5.3 ms); with this it gets 128 ms, minreq 42.7 ms and a configured sink latency
/// of 42.7 ms, asked again after a change as well. (`pulse.min.quantum` alone grants 16 ms
/// first and pushes 53.3 ms a moment later; `pulse.min.frag` alone changes nothing.)
class PipeWireServer final : public SoundServer {
public:
    explicit PipeWireServer(Buffers buffers = Buffers::asked) {
        runtime_ = dir_.filePath(QStringLiteral("runtime"));
        QDir().mkpath(runtime_);
        QFile::setPermissions(runtime_, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                            QFileDevice::ExeOwner);
        // The device monitors off, in WirePlumber 0.4's Lua and 0.5's own format (0.5
        // ignores the Lua files, 0.4 the .conf ones).
        const QString config = dir_.filePath(QStringLiteral("config/wireplumber"));
        for (const auto& [file, text] :
             {std::pair{"main.lua.d/51-tappix-test.lua", "alsa_monitor.enabled = false\n"
                                                         "v4l2_monitor.enabled = false\n"
                                                         "libcamera_monitor.enabled = false\n"},
              std::pair{"bluetooth.lua.d/51-tappix-test.lua", "bluez_monitor.enabled = false\n"},
              std::pair{"wireplumber.conf.d/51-tappix-test.conf",
                        "wireplumber.profiles = {\n  main = {\n"
                        "    hardware.audio = disabled\n    hardware.bluetooth = disabled\n"
                        "    hardware.video-capture = disabled\n    monitor.alsa = disabled\n"
                        "    monitor.alsa-midi = disabled\n    monitor.bluez = disabled\n"
                        "    monitor.bluez-midi = disabled\n    monitor.v4l2 = disabled\n"
                        "    monitor.libcamera = disabled\n  }\n}\n"}}) {
            const QString path = config + "/" + file;
            QDir().mkpath(QFileInfo(path).path());
            QFile out(path);
            if (out.open(QIODevice::WriteOnly))
                out.write(text);
        }
        if (buffers == Buffers::refuseSmall) {
            const QString pulse =
                dir_.filePath(QStringLiteral("config/pipewire/pipewire-pulse.conf.d"));
            QDir().mkpath(pulse);
            QFile file(pulse + "/51-tappix-test.conf");
            if (file.open(QIODevice::WriteOnly))
                file.write("pulse.properties = { pulse.min.req = 2048/48000 }\n");
        }
        exportSocket(runtime_ + QStringLiteral("/pulse/native"));
        started_ = start();
    }
    ~PipeWireServer() override { kill(); }

    /// Whether the three programs are installed.
    static bool isInstalled() {
        for (const char* program :
             {"pipewire", "wireplumber", "pipewire-pulse", "dbus-run-session"})
            if (QStandardPaths::findExecutable(QString::fromLatin1(program)).isEmpty())
                return false;
        return true;
    }

    bool start() override {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), dir_.path());
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime_);
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir_.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_STATE_HOME"), dir_.filePath(QStringLiteral("state")));
        env.remove(QStringLiteral("PULSE_SERVER"));
        env.remove(QStringLiteral("PIPEWIRE_REMOTE"));
        env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        env.remove(QStringLiteral("DISPLAY"));
        server_.setProcessEnvironment(env);
        server_.setStandardOutputFile(QProcess::nullDevice());
        server_.setStandardErrorFile(dir_.filePath(QStringLiteral("server.log")),
                                     QIODevice::Append);
        // Its own process group, so a kill takes the whole stack, as a crash of the
        // user's session audio would.
        server_.setChildProcessModifier([] { ::setsid(); });
        // WirePlumber needs PipeWire's socket; pipewire-pulse is served by both.
        server_.start(QStringLiteral("dbus-run-session"),
                      {"--", "sh", "-c",
                       "pipewire & i=0; while [ ! -S \"$XDG_RUNTIME_DIR/pipewire-0\" ] && "
                       "[ $i -lt 100 ]; do sleep 0.05; i=$((i+1)); done; "
                       "wireplumber & pipewire-pulse & wait"});
        if (!server_.waitForStarted(3000) || !answers())
            return false;
        const QString sink = QStringLiteral("sink_name=%1 rate=48000 format=float32le channels=2 "
                                            "sink_properties=device.description=%2");
        for (const auto& [name, description] :
             {std::pair{"tappix_a", "Speakers-A"}, std::pair{"tappix_b", "Speakers-B"}})
            pactl(QStringList{"load-module", "module-null-sink"} +
                  sink.arg(name, description).split(' '));
        // pipewire-pulse (0.3.65) has no module-null-source: a null sink made a source
        // by its media class is the silent microphone.
        pactl({"load-module", "module-null-sink", "media.class=Audio/Source/Virtual",
               "sink_name=tappix_mic", "channels=2"});
        // WirePlumber makes a new default known a moment after it is set.
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 5000) {
            pactl({"set-default-sink", "tappix_a"});
            pactl({"set-default-source", "tappix_mic"});
            const QString info = pactl({"info"});
            if (info.contains("Default Sink: tappix_a\n") &&
                info.contains("Default Source: tappix_mic\n"))
                return ownsNoDevices();
            QThread::msleep(100);
        }
        return false;
    }

    void pause(bool stopped) override {
        ::kill(-static_cast<pid_t>(server_.processId()), stopped ? SIGSTOP : SIGCONT);
    }

    void kill() override {
        if (server_.state() == QProcess::NotRunning)
            return;
        ::kill(-static_cast<pid_t>(server_.processId()), SIGKILL);
        server_.waitForFinished(3000);
        // A killed PipeWire leaves its sockets; the next start replaces them.
        QFile::remove(runtime_ + QStringLiteral("/pipewire-0"));
        QFile::remove(runtime_ + QStringLiteral("/pipewire-0.lock"));
        QFile::remove(runtime_ + QStringLiteral("/pulse/native"));
    }

private:
    /// Whether WirePlumber left the machine's sound cards, Bluetooth and cameras alone:
    /// it has loaded none of PipeWire's device plugins. Says which it has in the log.
    bool ownsNoDevices() {
        static const QRegularExpression device(
            QStringLiteral("libspa-(alsa|bluez5|v4l2|libcamera)\\.so"));
        const auto group = static_cast<pid_t>(server_.processId());
        for (const QString& entry :
             QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            bool number = false;
            const pid_t pid = entry.toInt(&number);
            QFile comm(QStringLiteral("/proc/%1/comm").arg(entry));
            if (!number || ::getpgid(pid) != group || !comm.open(QIODevice::ReadOnly) ||
                comm.readAll().trimmed() != "wireplumber")
                continue;
            QFile maps(QStringLiteral("/proc/%1/maps").arg(entry));
            maps.open(QIODevice::ReadOnly);
            const QRegularExpressionMatch loaded =
                device.match(QString::fromLatin1(maps.readAll()));
            if (loaded.hasMatch()) {
                QFile log(dir_.filePath(QStringLiteral("server.log")));
                log.open(QIODevice::Append);
                log.write("WirePlumber loaded " + loaded.captured().toLatin1() +
                          ": the test server could take this machine's devices\n");
                return false;
            }
        }
        return true;
    }

    QString runtime_;
    QProcess server_;
};

/// The private sound servers the audio tests run against, by name: "pulseaudio" or
/// "pipewire".
inline std::unique_ptr<SoundServer>
makeSoundServer(const std::string& kind,
                SoundServer::Buffers buffers = SoundServer::Buffers::asked) {
    if (kind == "pipewire")
        return std::make_unique<PipeWireServer>(buffers);
    return std::make_unique<PulseServer>(buffers);
}

/// Why the audio tests cannot run on `kind`'s server, or empty when it runs. Only a
/// PipeWire stack that cannot start is a reason to skip; the tests say so by name.
inline std::string whyNotRunning(const std::string& kind, const SoundServer* server) {
    if (kind == "pipewire" && !PipeWireServer::isInstalled())
        return "PipeWire is not installed (tools/install-deps.sh installs pipewire, "
               "pipewire-pulse and wireplumber)";
    if (!server || !server->started())
        return kind + " could not start: " + (server ? server->log().toStdString() : "");
    return {};
}

/// A suite run once per server kind: one server for the suite, remade when the kind
/// changes. Derived fixtures call `SoundServerTest::SetUp()` first and stop when it
/// skipped or failed.
class SoundServerTest : public ::testing::TestWithParam<std::string> {
protected:
    static void TearDownTestSuite() {
        delete server_;
        server_ = nullptr;
    }
    void SetUp() override {
        if (!server_ || kind_ != GetParam()) {
            delete server_;
            server_ = makeSoundServer(GetParam()).release();
            kind_ = GetParam();
        }
        if (const std::string why = whyNotRunning(GetParam(), server_); !why.empty()) {
            if (GetParam() == "pipewire")
                GTEST_SKIP() << why;
            FAIL() << why;
        }
    }
    /// Whether `SoundServerTest::SetUp` left the test to run.
    bool serverReady() const { return !IsSkipped() && !HasFailure(); }
    /// Replaces the suite's server with one of the same kind that treats buffers as
    /// `buffers`, for this test alone (the next test starts a usual one); empty when it
    /// runs, else why not. Clients of the old server must be gone.
    std::string restartServer(SoundServer::Buffers buffers) {
        delete server_;
        server_ = makeSoundServer(GetParam(), buffers).release();
        kind_.clear();
        return whyNotRunning(GetParam(), server_);
    }

    static inline SoundServer* server_ = nullptr;
    static inline std::string kind_;
};

/// The servers' names as test-name suffixes.
inline std::string serverName(const ::testing::TestParamInfo<std::string>& info) {
    return info.param;
}

} // namespace tappix::test
