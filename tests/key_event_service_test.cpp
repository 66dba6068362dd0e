#include "input/key_codes.h"
#include "input/key_event_service.h"

#include "support/event_recorder.h"

#include <gtest/gtest.h>

#include <QString>
#include <atomic>
#include <functional>
#include <future>
#include <map>
#include <thread>

using namespace tappix;
using Events = std::vector<std::string>;

namespace {

/// A capture backend at the platform boundary: tests drive the sink it was given.
struct FakeSource final : CaptureSource {
    explicit FakeSource(bool available = true) : available(available) {}
    bool start(CaptureSink& given) override {
        starts += available;
        running += available;
        sink = available ? &given : nullptr;
        return available;
    }
    void stop() override {
        running -= sink != nullptr;
        sink = nullptr;
    }
    bool available;
    int starts = 0, running = 0;
    CaptureSink* sink = nullptr;
};

struct Fixture {
    FakeSource *keyboard, *media, *fallback, *mouse;
    std::unique_ptr<KeyEventService> service;
    test::EventRecorder recorder;

    explicit Fixture(bool keyboardAvailable = true) {
        CaptureBackends backends;
        backends.keyboard.reset(keyboard = new FakeSource(keyboardAvailable));
        backends.media.reset(media = new FakeSource);
        backends.fallback.reset(fallback = new FakeSource);
        backends.mice.emplace_back(mouse = new FakeSource);
        service = std::make_unique<KeyEventService>(std::move(backends));
        recorder.attach(*service);
        service->start();
    }
};

} // namespace

// Each script is what the backends report, one step per word: `dN` key N down, `rN` a
// down marked as a repeat, `uN` up, `fN` a flags change, `mT`/`MT`/`RT` the system-defined
// media key of type T down/up/repeated (`xT` on another subtype), `s` capture started again.
TEST(KeyEventService, DeliversEachPressAndReleaseOnce) {
    const struct {
        bool primary; // the keyboard capture is granted; else the fallback reports
        const char* script;
        Events out;
    } cases[] = {
        {true, "d0 r0 d0 u0 u12 d0", {"k 0 down", "k 0 up", "k 12 up", "k 0 down"}},
        {true, "d56 d60 u56 u60", {"k 56 down", "k 60 down", "k 56 up", "k 60 up"}},
        {true,
         "f57 f57 f56 f60 f56 f60",
         {"k 57 down", "k 57 up", "k 56 down", "k 60 down", "k 56 up", "k 60 up"}},
        {true, "m0 R0 M0 m4 m15 x1 m22 m22", {"k 1000 down", "k 1000 up", "k 1022 down"}},
        // Held across a restart: only the repeat marks keep auto-repeat silent.
        {true,
         "d38 m0 s r38 R0 r38 u38 M0 d38",
         {"k 38 down", "k 1000 down", "k 38 up", "k 1000 up", "k 38 down"}},
        {true, "d3 s d3", {"k 3 down", "k 3 down"}}, // a restart forgets held keys
        {false, "d36 d36 u36", {"k 36 down", "k 36 up"}},
    };
    for (const auto& c : cases) {
        Fixture f(c.primary);
        EXPECT_EQ(f.service->backend(), c.primary ? KeyEventService::Backend::primary
                                                  : KeyEventService::Backend::fallback);
        CaptureSink& sink = *(c.primary ? f.keyboard : f.fallback)->sink; // the service itself
        const auto media = [&](int n, int state, int repeat, int subtype = 8) {
            f.media->sink->systemDefined(subtype, (n << 16) | state | repeat, {});
        };
        const std::map<char, std::function<void(int)>> steps = {
            {'d', [&](int n) { sink.keyDown(n, false, {}); }},
            {'r', [&](int n) { sink.keyDown(n, true, {}); }},
            {'u', [&](int n) { sink.keyUp(n, {}); }},
            {'f', [&](int n) { sink.flagsChanged(n, {}); }},
            {'m', [&](int n) { media(n, 0x0A00, 0); }},
            {'M', [&](int n) { media(n, 0x0B00, 0); }},
            {'R', [&](int n) { media(n, 0x0A00, 1); }},
            {'x', [&](int n) { media(n, 0x0A00, 0, 7); }},
            {'s', [&](int) { f.service->start(); }},
        };
        for (const QString& step : QString(c.script).split(' '))
            steps.at(step[0].toLatin1())(step.mid(1).toInt());
        f.service->drain();
        EXPECT_EQ(f.recorder.take(), c.out) << c.script;
    }
}

TEST(KeyEventService, StartPassesThroughStopAndMouseCaptureIsIndependent) {
    Fixture f;
    f.service->start();
    f.service->start();
    EXPECT_EQ(f.keyboard->starts, 3);
    EXPECT_EQ(f.keyboard->running + f.media->running, 2);
    EXPECT_FALSE(f.fallback->sink);
    f.service->setMouseCapture(true);
    f.service->setMouseCapture(true);
    EXPECT_EQ(f.mouse->starts, 1);
    f.service->stop();
    EXPECT_FALSE(f.keyboard->sink || f.media->sink);
    EXPECT_EQ(f.service->backend(), KeyEventService::Backend::stopped);
    EXPECT_TRUE(f.mouse->sink); // delivering, under X11 too (X11Capture)
    f.service->setMouseCapture(false);
    EXPECT_FALSE(f.mouse->sink || f.service->isMouseCaptureOn());
}

// A new callback takes effect after the events already accepted. An event reaching an idle
// queue runs on the capture thread that brought it, with no handoff. A burst that outruns
// delivery cannot grow the queue without limit: beyond its capacity events are dropped and
// counted, and delivery goes on after, in order.
TEST(KeyEventService, CallbacksChangeInDeliveryOrderAndTheQueueHasABound) {
    Fixture f;
    std::promise<void> entered, open;
    std::shared_future<void> opened = open.get_future().share();
    std::atomic<int> delivered{0};
    std::thread::id firstRanOn;
    f.keyboard->sink->keyDown(keys::s, false, {});
    f.service->setOnKeyEvent([&](KeyCode, bool, KeyTime) {
        if (delivered++ == 0) {
            firstRanOn = std::this_thread::get_id();
            entered.set_value();
            opened.wait(); // delivery stuck on the first event
        }
    });
    f.service->drain();
    std::thread capture([&] { f.keyboard->sink->keyDown(keys::a, false, {}); });
    entered.get_future().wait();
    EXPECT_EQ(firstRanOn, capture.get_id()) << "an idle queue handed the key to its thread";
    constexpr int kBurst = 1000;
    for (int i = 0; i < kBurst / 2; ++i) {
        f.keyboard->sink->keyUp(keys::a, {});
        f.keyboard->sink->keyDown(keys::a, false, {});
    }
    EXPECT_EQ(f.service->droppedEvents(), kBurst - KeyEventService::kQueueCapacity);
    open.set_value();
    capture.join();
    f.service->drain();
    EXPECT_EQ(f.recorder.take(), (Events{"k 1 down"}));
    EXPECT_EQ(delivered.load(), 1 + static_cast<int>(KeyEventService::kQueueCapacity));
}
