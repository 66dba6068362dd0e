#include "input/key_codes.h"
#include "input/key_event_service.h"

#include "support/event_recorder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

using namespace tappix;
using Events = std::vector<std::string>;

namespace {

/// A capture backend at the platform boundary: tests drive the sink it was given.
class FakeSource final : public CaptureSource {
public:
    explicit FakeSource(bool available = true) : available_(available) {}
    bool start(CaptureSink& sink) override {
        if (!available_)
            return false;
        ++starts;
        ++running;
        sink_ = &sink;
        return true;
    }
    void stop() override {
        if (sink_)
            --running;
        sink_ = nullptr;
    }
    CaptureSink& sink() { return *sink_; }
    bool isRunning() const { return sink_ != nullptr; }

    int starts = 0;
    int running = 0;

private:
    bool available_;
    CaptureSink* sink_ = nullptr;
};

struct Fixture {
    FakeSource* keyboard;
    FakeSource* media;
    FakeSource* fallback;
    FakeSource* mouse;
    std::unique_ptr<KeyEventService> service;
    test::EventRecorder recorder;

    explicit Fixture(bool keyboardAvailable = true) {
        CaptureBackends backends;
        backends.keyboard = std::make_unique<FakeSource>(keyboardAvailable);
        backends.media = std::make_unique<FakeSource>();
        backends.fallback = std::make_unique<FakeSource>();
        backends.mice.push_back(std::make_unique<FakeSource>());
        keyboard = static_cast<FakeSource*>(backends.keyboard.get());
        media = static_cast<FakeSource*>(backends.media.get());
        fallback = static_cast<FakeSource*>(backends.fallback.get());
        mouse = static_cast<FakeSource*>(backends.mice.front().get());
        service = std::make_unique<KeyEventService>(std::move(backends));
        recorder.attach(*service);
        service->start();
    }

    Events events() {
        service->drain();
        return recorder.take();
    }
};

} // namespace

TEST(KeyEventService, RepeatsAndHeldKeysNeverDeliverTwice) {
    Fixture f;
    CaptureSink& in = f.keyboard->sink();
    in.keyDown(keys::a, false);
    in.keyDown(keys::a, true);  // marked repeat
    in.keyDown(keys::a, false); // unmarked repeat of a held key
    in.keyUp(keys::a);
    in.keyUp(keys::q); // never seen down: still delivered
    in.keyDown(keys::a, false);
    EXPECT_EQ(f.events(), (Events{"k 0 down", "k 0 up", "k 12 up", "k 0 down"}));
}

TEST(KeyEventService, ModifiersAsPressesAndAsFlagToggles) {
    Fixture f;
    CaptureSink& in = f.keyboard->sink();
    in.keyDown(keys::shift, false);
    in.keyDown(keys::rightShift, false);
    in.keyUp(keys::shift);
    in.keyUp(keys::rightShift);
    EXPECT_EQ(f.events(), (Events{"k 56 down", "k 60 down", "k 56 up", "k 60 up"}));

    // Producers with only "flags changed": each code toggles on its own.
    in.flagsChanged(57);
    in.flagsChanged(57);
    in.flagsChanged(56);
    in.flagsChanged(60);
    in.flagsChanged(56);
    in.flagsChanged(60);
    EXPECT_EQ(f.events(),
              (Events{"k 57 down", "k 57 up", "k 56 down", "k 60 down", "k 56 up", "k 60 up"}));
}

TEST(KeyEventService, SystemDefinedMediaKeys) {
    Fixture f;
    CaptureSink& in = f.media->sink();
    auto data1 = [](int type, int state, bool repeat) {
        return (type << 16) | state | (repeat ? 1 : 0);
    };
    in.systemDefined(8, data1(0, 0x0A00, false));
    in.systemDefined(8, data1(0, 0x0A00, true)); // repeat flag
    in.systemDefined(8, data1(0, 0x0B00, false));
    in.systemDefined(8, data1(4, 0x0A00, false)); // not a listed key type
    in.systemDefined(8, data1(15, 0x0A00, false));
    in.systemDefined(7, data1(1, 0x0A00, false)); // not auxiliary buttons
    in.systemDefined(8, data1(22, 0x0A00, false));
    in.systemDefined(8, data1(22, 0x0A00, false)); // already held
    EXPECT_EQ(f.events(), (Events{"k 1000 down", "k 1000 up", "k 1022 down"}));
}

TEST(KeyEventService, StartAlwaysPassesThroughStop) {
    Fixture f;
    f.service->start();
    f.service->start();
    EXPECT_EQ(f.keyboard->running, 1);
    EXPECT_EQ(f.media->running, 1);
    EXPECT_EQ(f.keyboard->starts, 3);
    EXPECT_EQ(f.service->backend(), KeyEventService::Backend::primary);
    EXPECT_FALSE(f.fallback->isRunning());

    // Held keys are forgotten by stop, so a held key sounds again after a restart.
    f.keyboard->sink().keyDown(keys::f, false);
    f.service->stop();
    EXPECT_FALSE(f.keyboard->isRunning());
    EXPECT_EQ(f.service->backend(), KeyEventService::Backend::stopped);
    f.service->start();
    f.keyboard->sink().keyDown(keys::f, false);
    EXPECT_EQ(f.events(), (Events{"k 3 down", "k 3 down"}));
}

TEST(KeyEventService, KeysHeldAcrossARestartRepeatSilently) {
    Fixture f;
    auto media = [](KeyCode code, int state, bool repeat) {
        return ((code - keys::mediaBase) << 16) | state | (repeat ? 1 : 0);
    };
    f.keyboard->sink().keyDown(keys::j, false);
    f.media->sink().systemDefined(8, media(keys::volumeUp, 0x0A00, false));
    EXPECT_EQ(f.events(), (Events{"k 38 down", "k 1000 down"}));

    // Capture restarts with both keys still held: the service no longer knows them,
    // so only the repeat marks keep their auto-repeat silent.
    f.service->start();
    for (int i = 0; i < 3; ++i) {
        f.keyboard->sink().keyDown(keys::j, true);
        f.media->sink().systemDefined(8, media(keys::volumeUp, 0x0A00, true));
    }
    EXPECT_EQ(f.events(), Events{});
    f.keyboard->sink().keyUp(keys::j);
    f.media->sink().systemDefined(8, media(keys::volumeUp, 0x0B00, false));
    EXPECT_EQ(f.events(), (Events{"k 38 up", "k 1000 up"}));

    // Pressed anew, the key sounds again.
    f.keyboard->sink().keyDown(keys::j, false);
    EXPECT_EQ(f.events(), (Events{"k 38 down"}));
}

TEST(KeyEventService, FallsBackWhenThePrimaryCaptureIsRefused) {
    Fixture f(/*keyboardAvailable=*/false);
    EXPECT_EQ(f.service->backend(), KeyEventService::Backend::fallback);
    ASSERT_TRUE(f.fallback->isRunning());
    f.fallback->sink().keyDown(keys::returnKey, false);
    f.fallback->sink().keyDown(keys::returnKey, false);
    f.fallback->sink().keyUp(keys::returnKey);
    EXPECT_EQ(f.events(), (Events{"k 36 down", "k 36 up"}));
}

TEST(KeyEventService, MouseCaptureIsIndependentOfStartAndStop) {
    Fixture f;
    f.service->setMouseCapture(true);
    f.service->setMouseCapture(true);
    EXPECT_EQ(f.mouse->starts, 1);
    f.service->stop();
    ASSERT_TRUE(f.mouse->isRunning());
    f.mouse->sink().mouse(MouseButton::other, true);
    f.mouse->sink().mouse(MouseButton::other, false);
    EXPECT_EQ(f.events(), (Events{"m other down", "m other up"}));
    f.service->setMouseCapture(false);
    EXPECT_FALSE(f.mouse->isRunning());
    EXPECT_FALSE(f.service->isMouseCaptureOn());
}

TEST(KeyEventService, CallbacksChangeInDeliveryOrder) {
    Fixture f;
    std::atomic<int> late{0};
    f.keyboard->sink().keyDown(keys::s, false);
    f.service->setOnKeyEvent([&late](KeyCode, bool) { ++late; });
    f.keyboard->sink().keyUp(keys::s);
    f.service->drain();
    EXPECT_EQ(f.recorder.take(), (Events{"k 1 down"}));
    EXPECT_EQ(late.load(), 1);

    f.service.reset(); // joins cleanly with a callback set
    EXPECT_EQ(late.load(), 1);
}

// A burst that outruns delivery cannot grow the queue without limit: beyond its
// capacity events are dropped and counted, and delivery goes on after.
TEST(KeyEventService, TheQueueHasABound) {
    Fixture f;
    std::promise<void> entered, open;
    std::shared_future<void> opened = open.get_future().share();
    std::atomic<int> delivered{0};
    f.service->setOnKeyEvent([&](KeyCode, bool) {
        if (delivered++ == 0) {
            entered.set_value();
            opened.wait(); // delivery stuck on the first event
        }
    });
    f.keyboard->sink().keyDown(keys::a, false);
    entered.get_future().wait();
    constexpr int kBurst = 1000;
    for (int i = 0; i < kBurst / 2; ++i) {
        f.keyboard->sink().keyUp(keys::a);
        f.keyboard->sink().keyDown(keys::a, false);
    }
    EXPECT_EQ(f.service->droppedEvents(), kBurst - KeyEventService::kQueueCapacity);
    open.set_value();
    f.service->drain();
    EXPECT_EQ(delivered.load(), 1 + static_cast<int>(KeyEventService::kQueueCapacity));
}
