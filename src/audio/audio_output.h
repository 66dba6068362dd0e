#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tappix {

class Mixer;

/// Where the mixer's output goes: a sound-server stream that calls `Mixer::render`
/// from its own real-time thread. Implementations keep the stream running while idle
/// (no suspended sink, no drained stream), so the first key after a silence starts as
/// fast as any other, and reconnect by themselves after the server or device goes away.
class AudioOutput {
public:
    virtual ~AudioOutput() = default;

    /// Connects and starts rendering `mixer`; false when no output can be had now
    /// (the output keeps retrying in the background). Controlling thread.
    virtual bool start(Mixer& mixer) = 0;

    /// Stops rendering and disconnects. Controlling thread.
    virtual void stop() = 0;

    /// Plays on the named device from now on; none follows the system default. A
    /// device that is not present plays on the default until it appears, then the
    /// output moves to it by itself. Asynchronous, never waits on the server; any thread.
    virtual void setDevice(const std::optional<std::string>& deviceName) = 0;

    /// A sound was just queued on the mixer: leave any idle mode and start it at once.
    /// Any thread but the output's own.
    virtual void wake() {}

    /// Whether the stream is connected and rendering. Any thread.
    virtual bool isPlaying() const = 0;

    /// How long a new sound waits before the device plays it, as the server's
    /// configuration says, in seconds (0 when unknown). Any thread.
    virtual double latencySeconds() const = 0;

    /// The buffer the output asks the server for while sounds play, in seconds (0 when
    /// it asks for none in particular). Any thread.
    virtual double requestedBufferSeconds() const { return 0; }

    /// The buffer the server granted for that, in seconds (0 when unknown): a server
    /// that refuses small buffers grants more than was asked, and the output plays with
    /// what it is given. Any thread.
    virtual double bufferSeconds() const { return 0; }

    /// Times the server ran out of sound to play since the output started (each one
    /// an audible gap). Any thread.
    virtual std::uint64_t underruns() const { return 0; }
};

} // namespace tappix
