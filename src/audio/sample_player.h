#pragma once

#include "core/sample_buffer.h"

#include <QString>
#include <functional>
#include <string>
#include <vector>

namespace tappix {

/// What the sound engine needs from a player: load kits' samples, and play them or
/// ready-made buffers. `AudioPlayer` is the real one; tests record the calls.
class SamplePlayer {
public:
    /// What to decode for one kit.
    struct SampleSet {
        /// The kit id its buffers are filed under.
        std::string id;
        /// The kit's sounds directory.
        QString directory;
        /// Sample file names relative to `directory`.
        std::vector<std::string> files;

        bool operator==(const SampleSet&) const = default;
    };

    virtual ~SamplePlayer() = default;

    /// Replaces every keyboard sample with those of `sets`. Returns at once: until the
    /// new samples are in, plays hear the ones loaded before. `loaded` (may be empty)
    /// runs once they are in, on a thread of the player's, in the order of the loads;
    /// plays asked for from then on hear them. Main or key queue.
    virtual void loadSampleSets(std::vector<SampleSet> sets, std::function<void()> loaded) = 0;
    /// Replaces the mouse samples, as `loadSampleSets` does. Main or key queue.
    virtual void loadMouseKit(const QString& directory, std::vector<std::string> files) = 0;
    /// Plays a kit's sample. Any thread.
    virtual void play(std::string packId, std::string name, float rate, float pan, float gain) = 0;
    /// Plays a mouse sample. Any thread.
    virtual void playMouse(std::string name, float rate, float pan, float gain) = 0;
    /// Plays a buffer made elsewhere. Any thread.
    virtual void playBuffer(SampleRef buffer, float rate, float pan, float gain) = 0;
};

} // namespace tappix
