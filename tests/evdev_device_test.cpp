#include "platform/evdev/evdev_capture.h"
#include "platform/evdev/evdev_device.h"
#include "platform/evdev/evdev_keymap.h"
#include "platform/evdev/keyboard_nodes.h"

#include "platform/capture_backends.h"

#include "support/event_recorder.h"
#include "support/threads.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace tappix;
using namespace tappix::evdev;
using Events = std::vector<std::string>;

namespace {

/// A sink that records what a device reports, without a service in between; a key's
/// time, when the stream gave one, in microseconds.
struct RecordingSink final : CaptureSink {
    Events events;
    static std::string at(KeyTime time) {
        const auto us =
            std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch());
        return us.count() ? " at " + std::to_string(us.count()) : "";
    }
    void keyDown(KeyCode code, bool repeat, KeyTime time) override {
        events.push_back("k " + std::to_string(code) + (repeat ? " repeat" : " down") + at(time));
    }
    void keyUp(KeyCode code, KeyTime time) override {
        events.push_back("k " + std::to_string(code) + " up" + at(time));
    }
    void flagsChanged(KeyCode, KeyTime) override { events.push_back("flags"); }
    void systemDefined(std::int64_t, std::int64_t, KeyTime) override { events.push_back("system"); }
    void mouse(MouseButton b, bool down) override {
        events.push_back("m " + std::string(mouseButtonName(b)) + (down ? " down" : " up"));
    }
};

/// A pipe standing in for /dev/input/eventN: the test writes raw `input_event`s.
struct Stream {
    int fds[2]{-1, -1};
    const int& read = fds[0];
    int& write = fds[1];
    Stream() { EXPECT_EQ(::pipe2(fds, O_NONBLOCK | O_CLOEXEC), 0); }
    ~Stream() { closeWriter(); }
    /// Writes the bytes of `events` from `from` up to `to`.
    void send(const std::vector<input_event>& events, std::size_t from = 0,
              std::size_t to = SIZE_MAX) const {
        const std::size_t all = events.size() * sizeof(input_event);
        from = std::min(from, all);
        const std::size_t size = std::min(to, all) - from;
        const auto* bytes = reinterpret_cast<const unsigned char*>(events.data()) + from;
        ASSERT_EQ(::write(write, bytes, size), static_cast<ssize_t>(size));
    }
    void closeWriter() { ::close(std::exchange(write, -1)); }
};

/// A key event the kernel stamped `micros` after the steady clock's start.
input_event key(std::uint16_t code, int value, long micros = 0) {
    return input_event{{micros / 1'000'000, micros % 1'000'000}, EV_KEY, code, value};
}
input_event syn(std::uint16_t code = SYN_REPORT) {
    return input_event{{}, EV_SYN, code, 0};
}

} // namespace

// KEY_FN is the table's last code; -1: no key code.
TEST(EvdevKeymap, TranslatesAtTheBoundaryToItsLastEntryAndNoFurther) {
    const std::pair<int, KeyCode> keys[] = {{KEY_A, 0},           {KEY_B, 11},
                                            {KEY_102ND, 10},      {KEY_LEFTMETA, 55},
                                            {KEY_RIGHTCTRL, 62},  {KEY_F1, 122},
                                            {KEY_NUMLOCK, 71},    {KEY_KPENTER, 76},
                                            {KEY_VOLUMEUP, 1000}, {KEY_KBDILLUMDOWN, 1022},
                                            {KEY_POWER, -1},      {KEY_FN, 63},
                                            {KEY_FN + 1, -1},     {KEY_MAX, -1}};
    for (const auto& [from, code] : keys)
        EXPECT_EQ(virtualKeyCode(std::uint16_t(from)).value_or(-1), code) << from;
    const std::pair<int, std::optional<MouseButton>> buttons[] = {{BTN_LEFT, MouseButton::left},
                                                                  {BTN_RIGHT, MouseButton::right},
                                                                  {BTN_SIDE, MouseButton::other},
                                                                  {BTN_TOUCH, std::nullopt}};
    for (const auto& [from, button] : buttons)
        EXPECT_EQ(mouseButton(std::uint16_t(from)), button) << from;
}

// What each kind of device reports of a stream: repeats dropped, only its own role's
// keys, each at the time the kernel gave it, nothing between SYN_DROPPED and the next
// report, and a record split across two reads put together.
TEST(EvdevDevice, ReportsOnlyItsRolesKeysOnceEach) {
    const struct {
        DeviceRole role;
        std::vector<input_event> in;
        Events out;
        std::size_t firstRead = SIZE_MAX; // bytes in the first read, the rest in a second
    } cases[] = {
        {DeviceRole::keyboard,
         {key(KEY_A, 1), syn(), key(KEY_A, 2), syn(), key(KEY_A, 2), key(KEY_A, 0), syn(),
          key(KEY_VOLUMEUP, 1), key(KEY_POWER, 1), input_event{{}, EV_MSC, MSC_SCAN, 30},
          key(BTN_LEFT, 1)},
         {"k 0 down", "k 0 up"}},
        {DeviceRole::media,
         {key(KEY_A, 1), key(KEY_VOLUMEUP, 1), key(KEY_VOLUMEUP, 2), key(KEY_VOLUMEUP, 0)},
         {"k 1000 down", "k 1000 up"}},
        {DeviceRole::pointer,
         {key(BTN_MIDDLE, 1), syn(), key(BTN_MIDDLE, 0), key(BTN_LEFT, 1), key(BTN_TOUCH, 1),
          key(KEY_A, 1)},
         {"m other down", "m other up", "m left down"}},
        {DeviceRole::keyboard,
         {key(KEY_Q, 1), syn(), syn(SYN_DROPPED), key(KEY_W, 1), key(KEY_Q, 0), syn(),
          key(KEY_E, 1), syn()},
         {"k 12 down", "k 14 down"}},
        {DeviceRole::keyboard,
         {key(KEY_S, 1, 7'000'250), syn(), key(KEY_S, 0, 7'095'000), syn()},
         {"k 1 down at 7000250", "k 1 up at 7095000"}},
        {DeviceRole::keyboard,
         {key(KEY_A, 1), key(KEY_LEFTSHIFT, 1)},
         {"k 0 down", "k 56 down"},
         sizeof(input_event) + offsetof(input_event, code) + 1},
    };
    for (const auto& c : cases) {
        Stream stream;
        RecordingSink sink;
        EvdevDevice device(::dup(stream.read), c.role, "device");
        stream.send(c.in, 0, c.firstRead);
        EXPECT_EQ(device.readAvailable(sink), EvdevDevice::ReadResult::open);
        stream.send(c.in, c.firstRead);
        EXPECT_EQ(device.readAvailable(sink), EvdevDevice::ReadResult::open);
        EXPECT_EQ(sink.events, c.out);
    }
}

// Without a device a media key reader waits and hears one plugged in later (a FIFO); a
// reader of two devices delivers from both and survives one that vanishes.
TEST(EvdevCapture, ReadersDeliverSurviveAVanishingDeviceAndHearOnePluggedInLater) {
    KeyEventService service{makeCaptureBackends()};
    test::EventRecorder recorder;
    recorder.attach(service);
    CaptureSink& sink = service.captureSink();
    QTemporaryDir dev;
    const std::string dir = dev.path().toStdString();
    EXPECT_FALSE(EvdevCapture(DeviceRole::keyboard, "tappix-evtap", "/nonexistent").start(sink));
    EXPECT_FALSE(EvdevCapture(DeviceRole::keyboard, "tappix-evtap", dir).start(sink));
    EXPECT_FALSE(EvdevCapture(DeviceRole::media, "tappix-media", "/nonexistent").start(sink));
    EXPECT_TRUE(scanDevices("/nonexistent").empty());
    EvdevCapture media(DeviceRole::media, "tappix-media", dir, [](int, DeviceReport& report) {
        report.name = "stand-in";
        report.media = true;
        return true;
    });
    ASSERT_TRUE(media.start(sink));
    const std::string node = dir + "/event7";
    ASSERT_EQ(::mkfifo(node.c_str(), 0600), 0);
    int writer = -1; // opens once the reader has the node open
    for (int i = 0; i < 2000 && writer < 0; ++i) {
        writer = ::open(node.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (writer < 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_GE(writer, 0) << "the device plugged in was never opened";
    const input_event press[] = {key(KEY_VOLUMEUP, 1), syn(), key(KEY_VOLUMEUP, 0), syn()};
    ASSERT_EQ(::write(writer, press, sizeof press), static_cast<ssize_t>(sizeof press));
    EXPECT_EQ(recorder.collect(service, 2), (Events{"k 1000 down", "k 1000 up"}));
    media.stop();
    ::close(writer);

    Stream first, second;
    EvdevCapture reader(DeviceRole::keyboard, "tappix-evtap", "/nonexistent");
    std::vector<std::unique_ptr<EvdevDevice>> devices;
    devices.push_back(
        std::make_unique<EvdevDevice>(::dup(first.read), DeviceRole::keyboard, "one"));
    devices.push_back(
        std::make_unique<EvdevDevice>(::dup(second.read), DeviceRole::keyboard, "two"));
    ASSERT_TRUE(reader.startWithDevices(sink, std::move(devices)));
    first.send({key(KEY_A, 1), syn()});
    first.closeWriter(); // vanishes holding A: its key-up is reported
    second.send({key(KEY_S, 1), syn(), key(KEY_S, 2), syn(), key(KEY_S, 0), syn()});
    Events events = recorder.collect(service, 4);
    // The reader and the key queue run at real-time priority where allowed (root in CI).
    if (geteuid() == 0) {
        EXPECT_EQ(test::schedulingPolicies("tappix-evtap"), std::vector<int>{SCHED_FIFO});
        EXPECT_EQ(test::schedulingPolicies("tappix-keys"), std::vector<int>{SCHED_FIFO});
    }
    reader.stop();
    std::sort(events.begin(), events.end());
    EXPECT_EQ(events, (Events{"k 0 down", "k 0 up", "k 1 down", "k 1 up"}));
}

// Keyboards by the kernel's key lists: letters and Space in the lowest word.
TEST(KeyboardNodes, TheKernelsKeyListSaysWhichNodesAreKeyboards) {
    QTemporaryDir dev, sysfs;
    const struct {
        const char* node;
        const char* keys; // nullptr: no list in sysfs
        bool keyboard;
    } cases[] = {
        // Q 16, A 30, Z 44, Space 57.
        {"event0", "200100040010000", true},
        {"event1", "1 0 0 200100040010000", true}, // media keys in higher words
        {"event2", "200100040000000", false},      // no Q
        {"event3", "0", false},
        {"event4", "zz", false}, // unreadable list, and the node is no device when asked
        {"event5", nullptr, false},
        {"mouse0", "200100040010000", false}, // not an event node
    };
    std::vector<std::string> found, expected;
    for (const auto& c : cases) {
        if (c.keyboard)
            expected.push_back(c.node);
        QFile(dev.filePath(c.node)).open(QIODevice::WriteOnly);
        if (c.keys) {
            const QString dir = sysfs.filePath(QString(c.node) + "/device/capabilities");
            QDir().mkpath(dir);
            QFile list(dir + "/key");
            list.open(QIODevice::WriteOnly);
            list.write(QByteArray(c.keys) + "\n");
        }
    }
    for (const KeyboardNode& node :
         keyboardNodes(dev.path().toStdString(), sysfs.path().toStdString()))
        found.push_back(node.path.substr(node.path.rfind('/') + 1));
    EXPECT_EQ(found, expected);
}
