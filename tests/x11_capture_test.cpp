// Capture under a real X server: the shared Xvfb, keys and clicks from xdotool.

#include "input/key_event_service.h"
#include "platform/null/null_capture.h"
#include "platform/x11/x11_capture.h"

#include "support/event_recorder.h"
#include "support/threads.h"
#include "support/xvfb_server.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <unistd.h>

using namespace tappix;

namespace {

/// What the service on X11 alone (the primary keyboard refused) gets while xdotool runs.
std::string capture(bool mouse, bool stop, const QStringList& xdotool, std::size_t count) {
    CaptureBackends backends;
    backends.keyboard = std::make_unique<NullCapture>();
    backends.fallback =
        std::make_unique<x11::X11Capture>(x11::X11Capture::Kind::keys, "tappix-x11keys");
    backends.mice.push_back(
        std::make_unique<x11::X11Capture>(x11::X11Capture::Kind::buttons, "tappix-x11mouse"));
    KeyEventService service(std::move(backends));
    test::EventRecorder recorder;
    recorder.attach(service);
    service.start();
    EXPECT_EQ(service.backend(), KeyEventService::Backend::fallback);
    service.setMouseCapture(mouse);
    if (stop)
        service.stop();
    EXPECT_TRUE(test::XvfbServer::xdotool(xdotool));
    std::string events;
    for (const std::string& event : recorder.collect(service, count))
        events += (events.empty() ? "" : ",") + event;
    // The reader is the first hop of every key: real-time, as the key queue is.
    if (geteuid() == 0 && !stop) {
        EXPECT_EQ(test::schedulingPolicies("tappix-x11keys"), std::vector<int>{SCHED_FIFO});
    }
    return events;
}

} // namespace

TEST(X11Capture, KeysAndClicksFromTheServer) {
    ASSERT_TRUE(test::XvfbServer::shared().isRunning()) << "Xvfb did not start";
    EXPECT_TRUE(x11::rawEventsAvailable());
    const struct {
        const char* what;
        bool mouse, stop;
        const char *xdotool, *events;
    } cases[] = {
        {"a typed word gives each key once, in order", false, false, "type --delay 30 keys",
         "k 40 down,k 40 up,k 14 down,k 14 up,k 16 down,k 16 up,k 1 down,k 1 up"},
        {"a held key's repeats give nothing", false, false, "keydown j sleep 0.7 keyup j",
         "k 38 down,k 38 up"},
        {"a media key", false, false, "key XF86AudioRaiseVolume", "k 1000 down,k 1000 up"},
        // xdotool releases a modifier twice; a key-up is delivered even when not held.
        {"shift+Return", false, false, "key shift+Return",
         "k 56 down,k 36 down,k 56 up,k 56 up,k 36 up"},
        {"a middle click is other, the wheel is silent", true, false,
         "click 4 click 5 click 2 click 3", "m other down,m other up,m right down,m right up"},
        {"stop ends key capture but not mouse capture", true, true, "key a click 1",
         "m left down,m left up"},
    };
    for (const auto& c : cases) {
        const auto count = std::size_t(QString(c.events).count(',') + 1);
        EXPECT_EQ(capture(c.mouse, c.stop, QString(c.xdotool).split(' '), count), c.events)
            << c.what;
    }
}

TEST(X11Capture, TheServerGoingAwayEndsTheCaptureNotTheProcess) {
    struct Sink final : CaptureSink {
        std::atomic<int> keys{0};
        void keyDown(KeyCode, bool, KeyTime) override { ++keys; }
        void keyUp(KeyCode, KeyTime) override { ++keys; }
        void flagsChanged(KeyCode, KeyTime) override {}
        void systemDefined(std::int64_t, std::int64_t, KeyTime) override {}
        void mouse(MouseButton, bool) override {}
    } sink;
    x11::X11Capture capture(x11::X11Capture::Kind::keys, "tappix-x11gone");
    {
        test::XvfbServer server;
        ASSERT_TRUE(server.isRunning());
        ASSERT_TRUE(capture.start(sink));
        ASSERT_TRUE(test::XvfbServer::xdotool({"key", "a"}));
        for (int i = 0; i < 500 && sink.keys < 2; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_EQ(sink.keys, 2);
    }
    // The reader ends by itself once the connection is gone; the process carries on.
    for (int i = 0; i < 500 && !test::schedulingPolicies("tappix-x11gone").empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(test::schedulingPolicies("tappix-x11gone").empty());
    capture.stop();
    test::XvfbServer::shared();
}
