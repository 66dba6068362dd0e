#pragma once

#include "core/serial_queue.h"
#include "input/capture_source.h"

#include <bitset>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace tappix {

/// The capture backends a `KeyEventService` chooses among. Any may be null.
struct CaptureBackends {
    /// The primary keyboard capture (evdev keyboards).
    std::unique_ptr<CaptureSource> keyboard;
    /// Media keys, beside either keyboard capture (evdev devices with media keys).
    std::unique_ptr<CaptureSource> media;
    /// Keyboard capture used when the primary one cannot start (X11 raw events).
    std::unique_ptr<CaptureSource> fallback;
    /// Mouse capture, tried in order until one starts (evdev pointers, then X11).
    std::vector<std::unique_ptr<CaptureSource>> mice;
    /// Runs once on the key queue's thread before any event: where the platform gives
    /// the key path its priority. None leaves the thread as it starts.
    std::function<void()> onKeyQueueThread;
};

/// Captures every key that goes down or up, system-wide, and on request every mouse
/// button, and hands each key as a plain (code, down, time it moved) event to a callback
/// on one serial queue, "tappix-keys" (run by the capture thread itself while the queue is
/// idle, so a key crosses no thread on its way to the sound). Auto-repeat is dropped; a key already
/// held is never delivered down twice; a key-up is always delivered. It never alters or swallows
/// input.
///
/// Held keys live in two sets guarded by `stateLock_`, which is never held while a
/// callback runs. Backends report on their own threads through `CaptureSink`.
///
/// At most `kQueueCapacity` events wait for delivery: a burst that outruns the callback
/// drops the newest events (they would sound late anyway) and counts them.
class KeyEventService final : private CaptureSink {
public:
    /// Callback for key events: (key code, down, when it moved).
    using KeyCallback = std::function<void(KeyCode, bool, KeyTime)>;
    /// Callback for mouse events: (button, down).
    using MouseCallback = std::function<void(MouseButton, bool)>;

    /// Which keyboard capture is running.
    enum class Backend { stopped, primary, fallback };

    /// Events that may wait for delivery; beyond this they are dropped.
    static constexpr std::size_t kQueueCapacity = 256;

    /// Takes the backends; nothing is captured until `start`. Main thread.
    explicit KeyEventService(CaptureBackends backends);

    /// Stops every capture, drops queued deliveries and joins the queue. Main thread.
    ~KeyEventService() override;

    KeyEventService(const KeyEventService&) = delete;
    KeyEventService& operator=(const KeyEventService&) = delete;

    /// Sets the key callback; takes effect for events delivered after it. Main thread.
    void setOnKeyEvent(KeyCallback callback);
    /// Sets the mouse callback; same rule. Main thread.
    void setOnMouseEvent(MouseCallback callback);

    /// (Re)starts keyboard and media capture, always through `stop`, so one set of
    /// threads runs however often it is called. Main thread.
    void start();

    /// Stops keyboard and media capture and forgets every held key; mouse capture
    /// stays as it is. Main thread.
    void stop();

    /// Turns mouse capture on or off, independently of `start` and `stop`. Main thread.
    void setMouseCapture(bool enabled);

    /// The keyboard capture in use. Main thread.
    Backend backend() const { return backend_; }

    /// Whether mouse capture is on. Main thread.
    bool isMouseCaptureOn() const { return activeMouse_ != nullptr; }

    /// Blocks until every event accepted so far has been delivered (tests, shutdown).
    /// Main thread.
    void drain() { queue_.drain(); }

    /// The side backends report into; for sources driven outside `start` (benchmarks,
    /// tests of a single backend). Any thread may call its methods.
    CaptureSink& captureSink() { return *this; }

    /// Runs `task` on the delivery queue after the events accepted so far. Any thread.
    void post(std::function<void()> task) { queue_.post(std::move(task)); }

    /// Key and mouse events dropped because the queue was full. Any thread.
    std::uint64_t droppedEvents() const { return queue_.dropped(); }

private:
    // CaptureSink, called on the backends' threads.
    void keyDown(KeyCode code, bool isRepeat, KeyTime at) override;
    void keyUp(KeyCode code, KeyTime at) override;
    void flagsChanged(KeyCode code, KeyTime at) override;
    void systemDefined(std::int64_t subtype, std::int64_t data1, KeyTime at) override;
    void mouse(MouseButton button, bool down) override;

    void deliverKey(KeyCode code, bool down, KeyTime at);
    void deliver(std::function<void()> task);

    // Held keys are tracked for codes 0 to kTrackedCodes - 1, which covers every code
    // a backend produces; a fixed bitset keeps the producer path free of allocation.
    static constexpr std::size_t kTrackedCodes = 2048;
    static bool tracked(KeyCode code) { return code >= 0 && code < KeyCode(kTrackedCodes); }

    CaptureBackends backends_;
    CaptureSource* activeMouse_ = nullptr;
    Backend backend_ = Backend::stopped;

    std::mutex stateLock_;
    std::bitset<kTrackedCodes> pressedKeys_;
    std::bitset<kTrackedCodes> pressedModifiers_;

    // Touched only on the delivery queue.
    KeyCallback onKeyEvent_;
    MouseCallback onMouseEvent_;

    // Last member: destroyed first, so no delivery runs against a half-destroyed service.
    SerialQueue queue_{QStringLiteral("tappix-keys"), QThread::HighPriority, kQueueCapacity};
};

} // namespace tappix
