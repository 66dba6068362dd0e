#include "input/key_event_service.h"

#include "core/log.h"

namespace tappix {

std::string_view mouseButtonName(MouseButton button) {
    switch (button) {
    case MouseButton::left:
        return "left";
    case MouseButton::right:
        return "right";
    case MouseButton::other:
        return "other";
    }
    return "other";
}

KeyEventService::KeyEventService(CaptureBackends backends) : backends_(std::move(backends)) {
    if (backends_.onKeyQueueThread)
        queue_.post(backends_.onKeyQueueThread);
}

KeyEventService::~KeyEventService() {
    stop();
    setMouseCapture(false);
}

void KeyEventService::setOnKeyEvent(KeyCallback callback) {
    // Callbacks are only touched on the queue, so they need no lock of their own.
    queue_.post(
        [this, callback = std::move(callback)]() mutable { onKeyEvent_ = std::move(callback); });
}

void KeyEventService::setOnMouseEvent(MouseCallback callback) {
    queue_.post(
        [this, callback = std::move(callback)]() mutable { onMouseEvent_ = std::move(callback); });
}

void KeyEventService::start() {
    stop();

    if (backends_.media && backends_.media->start(*this))
        qCInfo(lcEvents, "media tap: evdev, media keys only, own thread");
    else
        qCWarning(lcEvents, "media tap refused — the F-row will be silent");

    if (backends_.keyboard && backends_.keyboard->start(*this)) {
        backend_ = Backend::primary;
        qCInfo(lcEvents, "global backend: evdev under input-group access");
        return;
    }
    qCWarning(lcEvents, "tap creation refused — falling back to the X11 global monitor");
    if (backends_.fallback && backends_.fallback->start(*this)) {
        backend_ = Backend::fallback;
        qCInfo(lcEvents, "global backend: X11 raw events");
    }
}

void KeyEventService::stop() {
    for (auto* source :
         {backends_.keyboard.get(), backends_.media.get(), backends_.fallback.get()}) {
        if (source)
            source->stop();
    }
    backend_ = Backend::stopped;
    std::lock_guard lock(stateLock_);
    pressedKeys_.reset();
    pressedModifiers_.reset();
}

void KeyEventService::setMouseCapture(bool enabled) {
    if (!enabled) {
        if (activeMouse_)
            activeMouse_->stop();
        activeMouse_ = nullptr;
        return;
    }
    if (activeMouse_)
        return;
    for (auto& source : backends_.mice) {
        if (source && source->start(*this)) {
            activeMouse_ = source.get();
            return;
        }
    }
    qCWarning(lcEvents, "mouse capture unavailable: no readable pointer device and no X11 display");
}

void KeyEventService::keyDown(KeyCode code, bool isRepeat, KeyTime at) {
    if (isRepeat)
        return;
    if (tracked(code)) {
        std::lock_guard lock(stateLock_);
        if (pressedKeys_.test(static_cast<std::size_t>(code)))
            return;
        pressedKeys_.set(static_cast<std::size_t>(code));
    }
    deliverKey(code, true, at);
}

void KeyEventService::keyUp(KeyCode code, KeyTime at) {
    if (tracked(code)) {
        std::lock_guard lock(stateLock_);
        pressedKeys_.reset(static_cast<std::size_t>(code));
    }
    deliverKey(code, false, at);
}

void KeyEventService::flagsChanged(KeyCode code, KeyTime at) {
    // Direction comes only from toggling: Caps Lock alternates down and up per press.
    bool down = true;
    if (tracked(code)) {
        std::lock_guard lock(stateLock_);
        const auto index = static_cast<std::size_t>(code);
        down = !pressedModifiers_.test(index);
        pressedModifiers_.flip(index);
    }
    deliverKey(code, down, at);
}

void KeyEventService::systemDefined(std::int64_t subtype, std::int64_t data1, KeyTime at) {
    static constexpr std::int64_t kAuxiliaryControlButtons = 8;
    static constexpr std::int64_t kStateDown = 0x0A00;
    if (subtype != kAuxiliaryControlButtons || (data1 & 1) != 0)
        return;
    const std::int64_t type = (data1 >> 16) & 0xFFFF;
    switch (type) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 7:
    case 16:
    case 17:
    case 18:
    case 19:
    case 20:
    case 21:
    case 22:
        break;
    default:
        return;
    }
    const KeyCode code = 1000 + type;
    if ((data1 & 0xFF00) == kStateDown)
        keyDown(code, false, at);
    else
        keyUp(code, at);
}

void KeyEventService::mouse(MouseButton button, bool down) {
    deliver([this, button, down] {
        if (onMouseEvent_)
            onMouseEvent_(button, down);
    });
}

void KeyEventService::deliverKey(KeyCode code, bool down, KeyTime at) {
    qCDebug(lcEvents, "key %lld down=%d", static_cast<long long>(code), down);
    deliver([this, code, down, at] {
        if (onKeyEvent_)
            onKeyEvent_(code, down, at);
    });
}

void KeyEventService::deliver(std::function<void()> task) {
    // On the capture thread itself while the queue is idle: no handoff to wait through.
    if (queue_.tryRunOrPost(std::move(task)))
        return;
    // Logged at the first drop and then ever more rarely (2, 4, 8 …).
    const std::uint64_t dropped = queue_.dropped();
    if ((dropped & (dropped - 1)) == 0)
        qCWarning(lcEvents, "the key queue is full: %llu events dropped since start",
                  static_cast<unsigned long long>(dropped));
}

} // namespace tappix
