// Recording a keyboard as a person does it: `tappix-kit record` listens to the private
// sound server's microphone and captures keys under a private X server, while known key
// sounds (a bundled kit's recordings) reach the microphone a little after each key.

#include "core/sample_buffer.h"
#include "kits/kit_checker.h"
#include "platform/sndfile/sndfile_decoder.h"
#include "support/pulse_server.h"
#include "support/sound_analysis.h"
#include "support/xvfb_server.h"

#include <gtest/gtest.h>
#include <pulse/error.h>
#include <pulse/simple.h>

#include <QProcess>
#include <QTemporaryDir>
#include <chrono>
#include <csignal>
#include <deque>
#include <map>
#include <pthread.h>
#include <thread>

// Last: Xlib's macros would clash with the names above.
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>
#undef None
#undef Bool
#undef Status

using namespace tappix;
using test::PulseServer;
using test::XvfbServer;

namespace {

constexpr int kRate = SampleBuffer::kSampleRate;

std::vector<float> decode(const QString& path) {
    SndfileDecoder decoder;
    std::string error;
    const auto buffer = decoder.decode(path, error);
    EXPECT_TRUE(buffer) << path.toStdString() << ": " << error;
    return buffer ? buffer->samples : std::vector<float>{};
}

/// A key moved `after` seconds after the one before it, and the sound the microphone hears.
struct Keyed {
    KeySym key;
    bool down;
    double after;
    const std::vector<float>* sound;
};

/// How long after its key a sound reaches the microphone: longer than the stream's
/// buffer (150 ms), so it is placed once the X server has said when the key moved.
constexpr double kSoundLag = 0.21;

/// Presses `keys` under the X server and plays into `sink` each key's sound `kSoundLag`
/// after the server says the key moved: keys and sounds on the server's clock, however
/// late a loaded machine gets round to either. The recorder (`recorder`) is stopped for a
/// moment as the third key moves, as a busy machine would, so it reads that key late.
bool playKeyed(const char* sink, const std::vector<Keyed>& keys, pid_t recorder,
               std::string& error) {
    using Clock = std::chrono::steady_clock;
    const auto now = [] { return std::chrono::duration<double>(Clock::now().time_since_epoch()); };
    // The stream must never run dry: on a loaded machine the player, and the stream's
    // own thread it starts, run at real-time priority where that is allowed (root in CI).
    const sched_param realtime{10}, normal{0};
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &realtime);
    Display* display = XOpenDisplay(nullptr);
    const pa_sample_spec format{PA_SAMPLE_FLOAT32LE, kRate, 1};
    const pa_buffer_attr buffer{std::uint32_t(-1), kRate * 3 / 20 * sizeof(float),
                                std::uint32_t(-1), std::uint32_t(-1), std::uint32_t(-1)};
    int code = 0;
    pa_simple* stream = pa_simple_new(nullptr, "keyed timeline", PA_STREAM_PLAYBACK, sink,
                                      "key sounds", &format, nullptr, &buffer, &code);
    if (!display || !stream) {
        error = display ? pa_strerror(code) : "no X display";
        pthread_setschedparam(pthread_self(), SCHED_OTHER, &normal);
        return false;
    }
    // When each key moved, by the server: raw events, in ms of CLOCK_MONOTONIC cut to 32 bits.
    unsigned char bits[XIMaskLen(XI_LASTEVENT)]{};
    XISetMask(bits, XI_RawKeyPress);
    XISetMask(bits, XI_RawKeyRelease);
    XIEventMask mask{XIAllMasterDevices, int(sizeof bits), bits};
    XISelectEvents(display, DefaultRootWindow(display), &mask, 1);
    XSync(display, False);
    const auto moved = [&] {
        XEvent event;
        do
            XNextEvent(display, &event);
        while (event.xcookie.type != GenericEvent || !XGetEventData(display, &event.xcookie));
        const auto time = std::uint32_t(static_cast<XIRawEvent*>(event.xcookie.data)->time);
        XFreeEventData(display, &event.xcookie);
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now()).count();
        return double(ms - std::uint32_t(std::uint32_t(ms) - time)) / 1000;
    };

    double length = 0.8 + kSoundLag + 1.5; // the lead-in, the lag and a tail
    for (const Keyed& k : keys)
        length += k.after;
    std::vector<float> played(std::size_t(length * kRate), 0.0f);
    constexpr std::size_t kChunk = kRate / 200;
    // When the stream plays its first sample: the earliest of the last few estimates,
    // since each is late by the time the answer took (and an underrun moves it on).
    std::deque<double> zeros;
    double nextAt = 0;
    std::size_t next = 0;
    std::thread stall;
    bool ok = true;
    for (std::size_t at = 0; ok && at < played.size(); at += kChunk) {
        const std::size_t count = std::min(kChunk, played.size() - at);
        ok = pa_simple_write(stream, played.data() + at, count * sizeof(float), &code) == 0;
        if (at % (4 * kChunk) == 0 && at >= kRate / 5) { // once the stream plays
            const pa_usec_t latency = pa_simple_get_latency(stream, &code);
            zeros.push_back(now().count() + latency / 1e6 - double(at + count) / kRate);
            if (zeros.size() > 8)
                zeros.pop_front();
        }
        if (next == keys.size() || (next == 0 ? at < kRate * 4 / 5 : now().count() < nextAt))
            continue;
        const Keyed& k = keys[next];
        if (next == 2) {
            ::kill(recorder, SIGSTOP);
            stall = std::thread([recorder] {
                std::this_thread::sleep_for(std::chrono::milliseconds(150));
                ::kill(recorder, SIGCONT);
            });
        }
        XTestFakeKeyEvent(display, XKeysymToKeycode(display, k.key), k.down, CurrentTime);
        XFlush(display);
        const double when = moved();
        const double zero = *std::min_element(zeros.begin(), zeros.end());
        // Never where the stream has gone: the recorder finds a sound near where the others lie.
        const auto from =
            std::max(std::size_t(std::max(0.0, (when + kSoundLag - zero) * kRate)), at + count);
        for (std::size_t i = 0; i < k.sound->size() && from + i < played.size(); ++i)
            played[from + i] += (*k.sound)[i] * 0.5f;
        if (++next < keys.size())
            nextAt = when + keys[next].after;
    }
    ok = ok && pa_simple_drain(stream, &code) == 0;
    if (!ok && error.empty())
        error = pa_strerror(code);
    if (stall.joinable())
        stall.join();
    pa_simple_free(stream);
    XCloseDisplay(display);
    pthread_setschedparam(pthread_self(), SCHED_OTHER, &normal);
    return ok && next == keys.size();
}

class RecordingAKeyboard : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        x_ = new XvfbServer;
        pulse_ = new PulseServer;
    }
    static void TearDownTestSuite() {
        delete pulse_;
        delete x_;
    }

    void SetUp() override {
        ASSERT_TRUE(x_->isRunning());
        env_.insert("HOME", home_.path());
        env_.insert("XDG_CONFIG_HOME", home_.filePath("config"));
        env_.insert("XDG_DATA_HOME", home_.filePath("data"));
        env_.insert("XDG_RUNTIME_DIR", home_.path());
        // The microphone: whatever is played into the sink "mic_feed", through a source of
        // its own (a remap of the sink's monitor, so not a monitor itself).
        PulseServer::pactl({"unload-module", "module-null-source"});
        feedModule_ = PulseServer::pactl({"load-module", "module-null-sink", "sink_name=mic_feed",
                                          "rate=48000", "channels=1"})
                          .trimmed();
        micModule_ = PulseServer::pactl({"load-module", "module-remap-source",
                                         "source_name=tappix_mic", "master=mic_feed.monitor"})
                         .trimmed();
        PulseServer::pactl({"set-default-source", "tappix_mic"});
        recorder_.setProcessEnvironment(env_);
        recorder_.setProcessChannelMode(QProcess::MergedChannels);
        test::leash(recorder_);
    }

    void TearDown() override {
        recorder_.kill();
        recorder_.waitForFinished(5000);
        PulseServer::pactl({"unload-module", micModule_});
        PulseServer::pactl({"unload-module", feedModule_});
    }

    bool start(const QStringList& arguments) { // true once it asks for keys
        recorder_.start(QStringLiteral(TAPPIX_KIT_PATH), QStringList{"record"} + arguments);
        while (!output_.contains("Type each key") && recorder_.waitForReadyRead(10000))
            output_ += recorder_.readAll();
        return output_.contains("Type each key");
    }
    int finish() { // the exit code once ended (within 15 s), the output in `output_`
        recorder_.waitForFinished(15000);
        output_ += recorder_.readAll();
        return recorder_.state() == QProcess::NotRunning ? recorder_.exitCode() : -1;
    }

    static XvfbServer* x_;
    static PulseServer* pulse_;
    QTemporaryDir home_;
    QProcessEnvironment env_ = QProcessEnvironment::systemEnvironment();
    QString kits_ = home_.filePath("data/Tappix/Soundpacks");
    QString micModule_, feedModule_;
    QProcess recorder_;
    QByteArray output_;
};

XvfbServer* RecordingAKeyboard::x_ = nullptr;
PulseServer* RecordingAKeyboard::pulse_ = nullptr;

} // namespace

TEST_F(RecordingAKeyboard, TheKitHoldsEachKeysOwnSoundCutAtItsOnset) {
    const QString spring = QStringLiteral(TAPPIX_KITS_PATH "/ibm-buckling-spring");
    SndfileDecoder decoder;
    const KitReport springKit = checkKit(spring, decoder);
    ASSERT_TRUE(springKit.config);
    constexpr int kTimes = 3;
    const std::pair<const char*, const char*> keys[] = {{"a", "a"}, {"Return", "enter"}};
    std::map<std::string, std::vector<float>> sounds; // by kit name, then "^" for a release
    std::vector<Keyed> typed;
    for (const auto& [keysym, name] : keys) // as the recorder asks: each key its times
        for (int round = 0; round < kTimes; ++round)
            for (bool down : {true, false}) {
                const auto& files = springKit.config->sounds.at(name);
                auto& samples = sounds[std::string(name) + (down ? "" : "^")];
                if (samples.empty())
                    samples =
                        decode(spring + "/sounds/" + (down ? files.down : files.up)[0].c_str());
                typed.push_back({XStringToKeysym(keysym), down, down ? 0.27 : 0.15, &samples});
            }
    ASSERT_TRUE(start({kits_, "--name", "Desk Board", "--keys", "a,return", "--times",
                       QString::number(kTimes), "--retakes", "0"}))
        << output_.data();
    std::string error;
    EXPECT_TRUE(playKeyed("mic_feed", typed, recorder_.processId(), error)) << error;
    ASSERT_EQ(finish(), 0) << output_.data();

    const QString kit = kits_ + "/recorded-desk-board";
    const KitReport report = checkKit(kit, decoder);
    ASSERT_TRUE(report.ok()) << output_.data();
    for (const auto& [keysym, name] : keys)
        for (bool down : {true, false}) {
            const auto& files = report.config->sounds.at(name);
            const auto& original = sounds.at(std::string(name) + (down ? "" : "^"));
            ASSERT_EQ((down ? files.down : files.up).size(), std::size_t(kTimes)) << name;
            for (const std::string& file : down ? files.down : files.up) {
                const auto aligned =
                    test::align(decode(kit + "/sounds/" + file.c_str()), 2 * kRate / 1000, original,
                                test::soundStart(original, 0.01f), 20);
                EXPECT_LE(std::fabs(aligned.errorMs), 5.0) << file;
                EXPECT_GT(aligned.correlation, 0.9) << file;
            }
        }
}

TEST_F(RecordingAKeyboard, NoMicrophoneAVanishingOneOrAnUnwritableKitDirectoryMakeNoKit) {
    const auto says = [&](const char* text) {
        EXPECT_TRUE(output_.contains(text)) << output_.data();
        EXPECT_FALSE(QDir(kits_ + "/recorded-mine").exists());
        output_.clear();
    };
    // The microphone goes away after the prompt.
    ASSERT_TRUE(start({"--name", "Mine"})) << output_.data();
    XvfbServer::xdotool({"key", "a"});
    PulseServer::pactl({"unload-module", micModule_});
    EXPECT_EQ(finish(), 1);
    says("went away while recording; no kit was made");
    // The only input left is an output's monitor.
    PulseServer::pactl({"set-default-source", "tappix_a.monitor"});
    start({"--name", "Mine"});
    EXPECT_EQ(finish(), 1);
    says("there is no microphone");
    // A kit directory that cannot be written is found out before any typing.
    QFile(home_.filePath("file")).open(QIODevice::WriteOnly);
    start({home_.filePath("file/kits"), "--name", "Mine"});
    EXPECT_EQ(finish(), 1);
    says("cannot write a kit into");
}
