#pragma once

#include "audio/audio_device_manager.h"
#include "platform/camera_watch.h"
#include "platform/pulse/pulse_connection.h"

#include <functional>
#include <mutex>
#include <string>

namespace tappix {

/// Device queries over one kept-open PulseAudio connection: sinks with a description
/// are the output devices (uid = sink name); Bluetooth and built-in come from the
/// sink's `device.bus` and `device.form_factor`; the microphone is in use when the
/// default source (never a monitor) is running or has a recording client. Each query
/// waits at most `kTimeoutMs` and answers none or false on any failure.
///
/// The connection subscribes to the server's events: sinks coming and going, the server's
/// defaults changing, and playback streams coming and going (a remade stream reports a
/// new latency) call the change callback on the loop thread "tappix-devices", as do
/// reaching the server (again) and losing it.
class PulseDeviceManager final : public AudioDeviceManager {
public:
    /// Longest wait for the server's answers to one query, all its requests together,
    /// so a hung server holds up the asking thread (the sleep monitor's) only briefly.
    static constexpr int kTimeoutMs = 40;

    /// Connects in the background.
    PulseDeviceManager();
    ~PulseDeviceManager() override;

    std::vector<Device> outputDevices() override;
    std::optional<std::uint32_t> deviceID(const std::string& uid) override;
    std::optional<Device> defaultOutput() override;
    bool isDefaultOutputBuiltIn() override;
    bool isDefaultOutputBluetooth() override;
    bool isMicrophoneInUse() override;
    bool isCameraInUse() override;
    bool isServerReachable() override;
    std::string serverDescription() override;
    std::optional<OutputLatency> outputLatency(const std::string& uid) override;
    void setOnDevicesChanged(std::function<void()> onChanged) override;

private:
    struct SinkFacts {
        bool found = false;
        std::string bus;
        std::string formFactor;
    };
    struct ServerFacts {
        bool ok = false;
        std::string defaultSink, defaultSource, description;
    };

    /// Runs one operation and waits for it with the lock held, until the query's
    /// deadline; false on timeout or loss.
    bool await(pa_operation* operation, const bool& done);
    /// Starts a query's time budget and returns the ready context, or null.
    pa_context* begin();
    ServerFacts server();
    SinkFacts defaultSinkFacts();
    /// Subscribes to the events that change the answers. Loop thread.
    void onConnected(pa_context* context);
    static void onEvent(pa_context* context, pa_subscription_event_type_t type, std::uint32_t index,
                        void* self);
    /// Calls the change callback. Loop thread.
    void reportChange();

    // The change callback; held while it runs, so replacing it waits for a running call.
    std::mutex onChangedMutex_;
    std::function<void()> onChanged_;
    PulseConnection connection_;
    CameraWatch camera_;
    pa_usec_t deadline_ = 0;
};

} // namespace tappix
