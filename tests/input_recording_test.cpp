#include "platform/evdev/input_recording.h"
#include "platform/evdev/recording_replay.h"

#include "support/event_recorder.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

using namespace tappix;
using namespace tappix::evdev;
using Events = std::vector<std::string>;

namespace {

// What evemu-record writes for a laptop keyboard, trimmed to a few keys and lines.
const char* kEvemu = R"(# EVEMU 1.3
N: AT Translated Set 2 keyboard
E: 0.000001 0004 0004 0028	# EV_MSC / MSC_SCAN             28
E: 0.000001 0001 001c 0001	# EV_KEY / KEY_ENTER            1
E: 0.000001 0000 0000 0000	# ------------ SYN_REPORT (0) ---------- +0ms
E: 0.500000 0001 001c 0002	# EV_KEY / KEY_ENTER            2
E: 0.520000 0001 001c 0000	# EV_KEY / KEY_ENTER            0
E: 0.600000 0001 0039 0001	# EV_KEY / KEY_SPACE            1
E: 0.650000 0001 0067 0001	# EV_KEY / KEY_UP               1
E: 0.660000 0001 0060 0001	# EV_KEY / KEY_KPENTER          1
E: 0.700000 0001 0073 0001	# EV_KEY / KEY_VOLUMEUP         1
E: 0.710000 0001 0073 0000	# EV_KEY / KEY_VOLUMEUP         0
E: 0.730000 0001 0055 0001	# EV_KEY / KEY_ZENKAKUHANKAKU   1
E: 0.740000 0001 0039 0001	# EV_KEY / KEY_SPACE            1
E: 0.800000 0001 0039 0000	# EV_KEY / KEY_SPACE            0
E: 0.900000 0000 0003 0000	# ------------ SYN_DROPPED (3) ----------
E: 0.900000 0001 001e 0001	# EV_KEY / KEY_A                1
E: 0.900000 0000 0000 0000	# ------------ SYN_REPORT (0) ---------- +100ms
E: 1.000000 0001 0110 0001	# EV_KEY / BTN_LEFT             1
E: 1.000000 00zz 0110 0001
)";

// What libinput record writes for a keyboard and a mouse recorded together, trimmed.
const char* kLibinput = R"(devices:
- node: /dev/input/event3
  evdev:
    name: "AT Translated Set 2 keyboard"
  events:
  - evdev:
    - [  0,      0,   4,   4,      30] # EV_MSC / MSC_SCAN                30
    - [  0,      0,   1,  30,       1] # EV_KEY / KEY_A                    1
    - [  0,      0,   0,   0,       0] # ------------ SYN_REPORT (0) ---------- +0ms
  - evdev:
    - [  0, 120000,   1,  30,       0] # EV_KEY / KEY_A                    0
    - [  0, 120000,   0,   0,       0] # ------------ SYN_REPORT (0) ---------- +120ms
  - evdev:
    - [  1,  50000,   1, 125,       1] # EV_KEY / KEY_LEFTMETA             1
    - [  1,  60000,   1, 125,       0] # EV_KEY / KEY_LEFTMETA             0
- node: /dev/input/event5
  evdev:
    name: "Logitech USB Optical Mouse"
  events:
  - evdev:
    - [  0, 500000,   1, 273,       1] # EV_KEY / BTN_RIGHT                1
    - [  0, 500000,   2,   0,       5] # EV_REL / REL_X                    5
    - [  0, 600000,   1, 273,       0] # EV_KEY / BTN_RIGHT                0
)";

Events replay(const InputRecording& recording) {
    KeyEventService service({});
    test::EventRecorder recorder;
    recorder.attach(service);
    replayRecording(recording, service.captureSink(), {}, [&] { service.drain(); });
    service.drain();
    return recorder.take();
}

} // namespace

TEST(InputRecording, EvemuRecordingReplaysThroughCapture) {
    std::string error;
    const auto recording = InputRecording::parse(kEvemu, error);
    ASSERT_TRUE(recording) << error;
    EXPECT_EQ(recording->devices, std::vector<std::string>{"AT Translated Set 2 keyboard"});
    EXPECT_EQ(recording->problems, std::vector<std::string>{"1 event line could not be read"});
    ASSERT_EQ(recording->events.size(), 17u);
    EXPECT_EQ(recording->events[1], (InputRecording::Event{0.000001, 0, 1, 28, 1}));
    // The repeat, the code Tappix does not deliver, the second Space press and the key
    // lost in the dropped buffer make no events; the keyboard's mouse button does.
    EXPECT_EQ(replay(*recording),
              (Events{"k 36 down", "k 36 up", "k 49 down", "k 126 down", "k 76 down", "k 1000 down",
                      "k 1000 up", "k 49 up", "m left down"}));

    // Times no clock could show are unreadable lines; what is no recording is refused.
    const auto odd = InputRecording::parse("N: kbd\nE: 9223372036854775807.0 0001 001c 0001\n"
                                           "E: 1700000000.250000 0001 001c 0001\n",
                                           error);
    ASSERT_TRUE(odd) << error;
    EXPECT_EQ(odd->problems, std::vector<std::string>{"1 event line could not be read"});
    EXPECT_EQ(replay(*odd), Events{"k 36 down"});
    for (const char* text : {"", "hello\nworld\n", "E: 0.1 0001 001e 0001\n- evdev:\n"}) {
        EXPECT_FALSE(InputRecording::parse(text, error)) << text;
        EXPECT_FALSE(error.empty());
    }
}

// A libinput recording of two devices, replayed in time order by tappix-doctor.
TEST(TappixDoctorReplay, PrintsTheDeliveredEventsWithTheirTimes) {
    QTemporaryDir dir;
    QFile file(dir.filePath("keyboard.yml"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(kLibinput) > 0);
    file.close();
    QProcess doctor;
    doctor.start(QStringLiteral(TAPPIX_DOCTOR_PATH), {"--replay", file.fileName()});
    ASSERT_TRUE(doctor.waitForFinished(30000));
    EXPECT_EQ(doctor.exitCode(), 0) << doctor.readAllStandardError().toStdString();
    QStringList lines = QString::fromUtf8(doctor.readAllStandardOutput()).split('\n');
    EXPECT_TRUE(lines.takeFirst().contains("libinput record recording, 10 events, \"AT "));
    EXPECT_EQ(lines,
              (QStringList{"0.000 key 0 a down", "0.120 key 0 a up", "0.500 mouse right down",
                           "0.600 mouse right up", "1.050 key 55 command down",
                           "1.060 key 55 command up", "6 events delivered", ""}));

    doctor.start(QStringLiteral(TAPPIX_DOCTOR_PATH), {"--replay", dir.filePath("missing")});
    ASSERT_TRUE(doctor.waitForFinished(30000));
    EXPECT_EQ(doctor.exitCode(), 1);
}
