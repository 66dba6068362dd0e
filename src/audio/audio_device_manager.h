#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tappix {

/// Questions about the audio hardware: the output devices, the defaults, and whether
/// the output is built in or Bluetooth and the microphone or a camera is in use.
/// Every query asks afresh, answers none or false on any failure and never blocks
/// for longer than a short timeout. Any thread; not on the audio play path.
class AudioDeviceManager {
public:
    /// An output device.
    struct Device {
        /// The server's index for it (valid while it exists).
        std::uint32_t id = 0;
        /// Its persistent identifier (the sink name), kept in the settings.
        std::string uid;
        /// Its human-readable description.
        std::string name;

        friend bool operator==(const Device&, const Device&) = default;
    };

    /// What the server says about an output device's latency (for diagnostics).
    struct OutputLatency {
        /// The device's latency now, as the server reports it (a port's offset included).
        double currentSeconds = 0;
        /// The latency the device is configured to now (what the streams on it asked for).
        double configuredSeconds = 0;
        /// Whether the device can follow what the streams ask for (false: fixed).
        bool dynamic = false;
        /// Whether the device is suspended (it wakes with the first sound).
        bool suspended = false;
        /// The latency offset of the device's active port (Bluetooth headsets have one).
        double portOffsetSeconds = 0;
        /// The active port's name, or empty.
        std::string port;
    };

    virtual ~AudioDeviceManager() = default;

    /// Output devices in the server's order; nameless ones are left out.
    virtual std::vector<Device> outputDevices() = 0;
    /// The id of the output device whose uid matches exactly, or none.
    virtual std::optional<std::uint32_t> deviceID(const std::string& uid) = 0;
    /// The default output device, or none.
    virtual std::optional<Device> defaultOutput() = 0;
    /// Whether the default output is built in (internal speakers or the headphone jack).
    virtual bool isDefaultOutputBuiltIn() = 0;
    /// Whether the default output is a Bluetooth device.
    virtual bool isDefaultOutputBluetooth() = 0;
    /// Whether something is recording from the default input (a monitor never counts).
    virtual bool isMicrophoneInUse() = 0;
    /// Whether some process has a camera open.
    virtual bool isCameraInUse() = 0;
    /// Whether the sound server answers at all (for diagnostics).
    virtual bool isServerReachable() = 0;
    /// The server's name and version, when reachable (for diagnostics).
    virtual std::string serverDescription() = 0;
    /// What the server reports about the latency of the output device `uid`, or none.
    virtual std::optional<OutputLatency> outputLatency(const std::string& /*uid*/) {
        return std::nullopt;
    }

    /// Calls `onChanged` whenever the answers above may have changed: a device came or
    /// went, a default changed, the server was reached again or lost. It runs on a
    /// thread of the manager's own and must return quickly (post the work elsewhere).
    /// Replaces any earlier callback; an empty one stops the calls, and once this
    /// returns the earlier callback is no longer running. Managers that cannot tell
    /// never call it. Any thread but the callback's own.
    virtual void setOnDevicesChanged(std::function<void()> /*onChanged*/) {}
};

/// The answer when there is no audio system at all: nothing, false.
class NullAudioDeviceManager : public AudioDeviceManager {
public:
    std::vector<Device> outputDevices() override { return {}; }
    std::optional<std::uint32_t> deviceID(const std::string&) override { return std::nullopt; }
    std::optional<Device> defaultOutput() override { return std::nullopt; }
    bool isDefaultOutputBuiltIn() override { return false; }
    bool isDefaultOutputBluetooth() override { return false; }
    bool isMicrophoneInUse() override { return false; }
    bool isCameraInUse() override { return false; }
    bool isServerReachable() override { return false; }
    std::string serverDescription() override { return {}; }
};

} // namespace tappix
