// Capture under a real X server: Xvfb started by the test, keys and clicks from xdotool.

#include "input/key_event_service.h"
#include "platform/null/null_capture.h"
#include "platform/x11/x11_capture.h"

#include "support/event_recorder.h"
#include "support/threads.h"
#include "support/xvfb_server.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <chrono>
#include <thread>
#include <unistd.h>

using namespace tappix;
using Events = std::vector<std::string>;

namespace {

class X11Capture : public ::testing::Test {
protected:
    static void SetUpTestSuite() { server_ = new test::XvfbServer; }
    static void TearDownTestSuite() { delete server_; }

    void SetUp() override {
        ASSERT_TRUE(server_->isRunning()) << "Xvfb did not start";
        CaptureBackends backends;
        backends.keyboard = std::make_unique<NullCapture>(); // force the fallback
        backends.fallback =
            std::make_unique<x11::X11Capture>(x11::X11Capture::Kind::keys, "tappix-x11keys");
        backends.mice.push_back(
            std::make_unique<x11::X11Capture>(x11::X11Capture::Kind::buttons, "tappix-x11mouse"));
        service_ = std::make_unique<KeyEventService>(std::move(backends));
        recorder_.attach(*service_);
        service_->start();
        ASSERT_EQ(service_->backend(), KeyEventService::Backend::fallback);
    }

    /// Events delivered until `count` have arrived or five seconds pass.
    Events collect(std::size_t count) {
        Events events;
        for (int i = 0; i < 500 && events.size() < count; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            service_->drain();
            for (auto& e : recorder_.take())
                events.push_back(std::move(e));
        }
        // Anything extra shows up as a mismatch.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        service_->drain();
        for (auto& e : recorder_.take())
            events.push_back(std::move(e));
        return events;
    }

    static test::XvfbServer* server_;
    std::unique_ptr<KeyEventService> service_;
    test::EventRecorder recorder_;
};

test::XvfbServer* X11Capture::server_ = nullptr;

} // namespace

TEST_F(X11Capture, AvailableOnAnX11Session) {
    EXPECT_TRUE(x11::rawEventsAvailable());
}

TEST_F(X11Capture, TypedWordGivesEachKeyOnceInOrder) {
    ASSERT_TRUE(test::XvfbServer::xdotool({"type", "--delay", "30", "keys"}));
    EXPECT_EQ(collect(8), (Events{"k 40 down", "k 40 up", "k 14 down", "k 14 up", "k 16 down",
                                  "k 16 up", "k 1 down", "k 1 up"}));
    // The reader is the first hop of every key: real-time, as the key queue is.
    if (geteuid() == 0) {
        EXPECT_EQ(test::schedulingPolicies("tappix-x11keys"), std::vector<int>{SCHED_FIFO});
    }
}

TEST_F(X11Capture, HeldKeyRepeatsGiveNothing) {
    ASSERT_TRUE(test::XvfbServer::xdotool({"keydown", "j"}));
    std::this_thread::sleep_for(std::chrono::milliseconds(700)); // past the auto-repeat delay
    ASSERT_TRUE(test::XvfbServer::xdotool({"keyup", "j"}));
    EXPECT_EQ(collect(2), (Events{"k 38 down", "k 38 up"}));
}

TEST_F(X11Capture, MediaAndModifierKeys) {
    ASSERT_TRUE(test::XvfbServer::xdotool({"key", "XF86AudioRaiseVolume"}));
    EXPECT_EQ(collect(2), (Events{"k 1000 down", "k 1000 up"}));
    // xdotool releases a modifier twice; a key-up is delivered even when not held.
    ASSERT_TRUE(test::XvfbServer::xdotool({"key", "shift+Return"}));
    EXPECT_EQ(collect(5), (Events{"k 56 down", "k 36 down", "k 56 up", "k 56 up", "k 36 up"}));
}

TEST_F(X11Capture, MiddleClickIsOtherAndTheWheelIsSilent) {
    service_->setMouseCapture(true);
    ASSERT_TRUE(service_->isMouseCaptureOn());
    ASSERT_TRUE(test::XvfbServer::xdotool({"click", "4"}));
    ASSERT_TRUE(test::XvfbServer::xdotool({"click", "5"}));
    ASSERT_TRUE(test::XvfbServer::xdotool({"click", "2"}));
    ASSERT_TRUE(test::XvfbServer::xdotool({"click", "3"}));
    EXPECT_EQ(collect(4), (Events{"m other down", "m other up", "m right down", "m right up"}));
}

TEST_F(X11Capture, StopEndsKeyCaptureButNotMouseCapture) {
    service_->setMouseCapture(true);
    service_->stop();
    ASSERT_TRUE(test::XvfbServer::xdotool({"key", "a"}));
    ASSERT_TRUE(test::XvfbServer::xdotool({"click", "1"}));
    EXPECT_EQ(collect(2), (Events{"m left down", "m left up"}));
}
