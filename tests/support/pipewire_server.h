#pragma once

#include "support/pulse_server.h"

#include <gtest/gtest.h>

#include <QStandardPaths>
#include <memory>
#include <string>

namespace tappix::test {

/// The private server as PipeWire, WirePlumber (device monitors off) and pipewire-pulse
/// on a session bus of their own. refuseSmall sets `pulse.min.req` to 2048 frames (0.3.65
/// grants a stream asking for 10 ms 42.7 ms).
class PipeWireServer final : public SoundServer {
public:
    explicit PipeWireServer(Buffers buffers = Buffers::asked) : SoundServer(buffers) {
        // WirePlumber 0.4 (Lua) and 0.5 (.conf).
        writeConfig("wireplumber/main.lua.d/51-tappix-test.lua",
                    "alsa_monitor.enabled = false\nv4l2_monitor.enabled = false\n"
                    "libcamera_monitor.enabled = false\n");
        writeConfig("wireplumber/bluetooth.lua.d/51-tappix-test.lua",
                    "bluez_monitor.enabled = false\n");
        writeConfig("wireplumber/wireplumber.conf.d/51-tappix-test.conf",
                    "wireplumber.profiles = {\n  main = {\n"
                    "    hardware.audio = disabled\n    hardware.bluetooth = disabled\n"
                    "    hardware.video-capture = disabled\n    monitor.alsa = disabled\n"
                    "    monitor.alsa-midi = disabled\n    monitor.bluez = disabled\n"
                    "    monitor.bluez-midi = disabled\n    monitor.v4l2 = disabled\n"
                    "    monitor.libcamera = disabled\n  }\n}\n");
        if (buffers == Buffers::refuseSmall)
            writeConfig("pipewire/pipewire-pulse.conf.d/51-tappix-test.conf",
                        "pulse.properties = { pulse.min.req = 2048/48000 }\n");
        started_ = start();
    }

    static bool isInstalled() {
        for (const char* program :
             {"pipewire", "wireplumber", "pipewire-pulse", "dbus-run-session"})
            if (QStandardPaths::findExecutable(QString::fromLatin1(program)).isEmpty())
                return false;
        return true;
    }

private:
    void launch() override {
        // WirePlumber waits for PipeWire's socket; the outer shell takes the group down
        // on the leash's SIGTERM, which dbus-run-session alone would leave behind.
        server_.start(QStringLiteral("sh"),
                      {"-c", "trap 'kill -KILL 0' TERM; dbus-run-session -- sh -c \"$0\" & wait",
                       "pipewire & i=0; while [ ! -S \"$XDG_RUNTIME_DIR/pipewire-0\" ] && "
                       "[ $i -lt 100 ]; do sleep 0.05; i=$((i+1)); done; "
                       "wireplumber & pipewire-pulse & wait"});
    }
    bool loadDevices() override {
        // No module-null-source in pipewire-pulse 0.3.65: a null sink of a source's class.
        return !addSink("tappix_a", "Speakers-A").isEmpty() &&
               !addSink("tappix_b", "Speakers-B").isEmpty() &&
               !pactl({"load-module", "module-null-sink", "media.class=Audio/Source/Virtual",
                       "sink_name=tappix_mic", "channels=2"})
                    .trimmed()
                    .isEmpty();
    }
};

/// A suite run once per server kind, one server for the suite; derived fixtures call
/// `SoundServerTest::SetUp()` first and stop unless `serverReady()`.
class SoundServerTest : public ::testing::TestWithParam<std::string> {
protected:
    static void TearDownTestSuite() { replaceServer({}, SoundServer::Buffers::asked); }
    void SetUp() override {
        if (!server_ || kind_ != GetParam())
            replaceServer(GetParam(), SoundServer::Buffers::asked);
        if (const std::string why = whyNotRunning(); !why.empty()) {
            if (GetParam() == "pipewire")
                GTEST_SKIP() << why;
            FAIL() << why;
        }
    }
    bool serverReady() const { return !IsSkipped() && !HasFailure(); }
    /// A server of the same kind treating buffers as `buffers`, for this test alone (its
    /// clients gone first); empty when it runs, else why not.
    std::string restartServer(SoundServer::Buffers buffers) {
        replaceServer(GetParam(), buffers);
        kind_.clear();
        return whyNotRunning();
    }

    static inline SoundServer* server_ = nullptr;
    static inline std::string kind_;

private:
    /// Replaces the server with one of `kind` ("pulseaudio" or "pipewire"; none when empty).
    static void replaceServer(const std::string& kind, SoundServer::Buffers buffers) {
        delete server_;
        server_ = nullptr;
        if (!kind.empty())
            server_ = kind == "pipewire" ? static_cast<SoundServer*>(new PipeWireServer(buffers))
                                         : new PulseServer(buffers);
        kind_ = kind;
    }
    std::string whyNotRunning() const {
        if (GetParam() == "pipewire" && !PipeWireServer::isInstalled())
            return "PipeWire is not installed (tools/install-deps.sh installs pipewire, "
                   "pipewire-pulse and wireplumber)";
        if (!server_->started())
            return GetParam() + " could not start: " + server_->log().toStdString();
        return {};
    }
};

inline std::string serverName(const ::testing::TestParamInfo<std::string>& info) {
    return info.param;
}

} // namespace tappix::test
