#pragma once

#include <string>
#include <vector>

namespace tappix {

/// A recording from the user's microphone: mono 48 kHz float samples placed on the
/// monotonic clock (the clock key events are stamped with), so each sample's time can
/// be compared with a key event's.
class Microphone {
public:
    /// The rate of every recording.
    static constexpr int kSampleRate = 48000;

    /// What was recorded.
    struct Recording {
        /// The samples, mono 48 kHz.
        std::vector<float> samples;
        /// When the first sample was captured, in seconds on the monotonic clock.
        double startSeconds = 0;
        /// Set when the recording stopped early (the microphone went away); the
        /// samples up to then are kept, but the take is not whole.
        std::string error;
    };

    virtual ~Microphone() = default;

    /// Starts recording from the default microphone (never an output's monitor).
    /// False, with a sentence for the user in `error`, when there is no sound server
    /// or no microphone. Controlling thread.
    virtual bool start(std::string& error) = 0;

    /// Stops recording and hands over what was recorded. Controlling thread.
    virtual Recording stop() = 0;

    /// What was recorded so far, while the recording goes on. Controlling thread.
    virtual Recording snapshot() = 0;

    /// The last `count` samples recorded (fewer at the start), for drawing the take
    /// under way. Any thread.
    virtual std::vector<float> tail(std::size_t count) = 0;

    /// The microphone's name as the sound server describes it. Controlling thread,
    /// after a successful `start`.
    virtual std::string name() const = 0;

    /// The loudest sample magnitude since the last call, 0 … 1, for a level meter.
    /// Any thread.
    virtual float takePeak() = 0;

    /// Why the recording broke off (the microphone vanished, the server went away),
    /// or empty while it runs. Any thread.
    virtual std::string failure() const = 0;
};

} // namespace tappix
