#pragma once

#include "input/key_group.h"
#include "kits/soundpack_config.h"

#include <QString>
#include <string>
#include <vector>

namespace tappix {

/// One key that moved while the microphone recorded, on the recording's clock.
struct RecordedKeyEvent {
    /// The key.
    KeyCode code = 0;
    /// Whether it went down (a press) or up (a release).
    bool down = true;
    /// When it moved, in seconds on the clock the recording's start is given on.
    double seconds = 0;
};

/// A microphone recording of someone typing, with the keys they typed, cut into one
/// sound per press and release: a user's own keyboard made into a kit.
///
/// The cutter trusts the audio, not the clocks: it measures how far the sounds lag
/// the key events (the capture-to-recording offset) by cross-correlating the key
/// events with the recording's onsets, then looks for each press and release only
/// in a short window around where that offset puts it. The quiet before the first
/// key gives the noise floor, which is gated out of every take; silence after the
/// sound has decayed is trimmed. Takes that are too quiet, clipped, or run into by
/// the next key's sound are dropped with a message naming the key, and the rest are
/// brought to one level across the kit. Pure functions; any thread.
class KeyboardRecording {
public:
    /// The rate of every recording and take: mono 48 kHz float.
    static constexpr int kSampleRate = 48000;
    /// Envelope frames the onset detector works on.
    static constexpr double kFrameMs = 1.0;
    /// Largest capture-to-recording offset searched for, either way.
    static constexpr double kMaxOffsetMs = 250.0;
    /// How far from where the measured offset puts it a key's sound may start.
    static constexpr double kSearchMs = 60.0;
    /// The smallest rise in level, in dB above what came just before, that counts as an onset.
    static constexpr double kMinOnsetRiseDb = 12.0;
    /// A take must peak this far above the noise floor.
    static constexpr double kMinSnrDb = 20.0;
    /// ... and at least this loud (dBFS).
    static constexpr double kMinPeakDbfs = -50.0;
    /// A sound has decayed once it is this far below its peak; a key whose next sound
    /// starts before then is overlapped.
    static constexpr double kDecayedDb = 30.0;
    /// A take ends where it falls this far below its peak (or into the gated noise).
    static constexpr double kTailDb = 45.0;
    /// Longest take kept.
    static constexpr double kMaxTakeMs = 350.0;
    /// Silence kept before each onset, so the attack is whole.
    static constexpr double kPreRollMs = 2.0;
    /// Fade at the end of each take.
    static constexpr double kFadeOutMs = 5.0;
    /// The gate opens this far above the noise floor.
    static constexpr double kGateAboveFloorDb = 10.0;
    /// Samples at or beyond this magnitude count as clipped.
    static constexpr float kClipLevel = 0.99f;
    /// A take with this many clipped samples is dropped.
    static constexpr int kMaxClippedSamples = 3;
    /// Quiet needed before the first key to measure the noise floor from it.
    static constexpr double kMinQuietMs = 200.0;
    /// Noise floors above this (dBFS RMS) make a recording too noisy when nothing survives.
    static constexpr double kLoudFloorDbfs = -40.0;
    /// A recording that never peaks above this (dBFS) is silence.
    static constexpr double kSilenceDbfs = -60.0;
    /// The loudest take of the kit peaks here after levelling.
    static constexpr float kTargetPeak = 0.7f;
    /// Repeats of one key are levelled toward their median by at most this factor.
    static constexpr float kMaxTakeGain = 2.0f;
    /// Most variants a key keeps in each direction.
    static constexpr int kMaxVariants = 8;

    /// Why a take was not kept: `unmatched` is an event that moved no key (a release
    /// without its press, a second press of a key held down) and is not a take at all.
    enum class Flaw { none, missing, tooQuiet, clipped, overlapped, unmatched };

    /// One press or release cut out of the recording.
    struct Take {
        /// The key.
        KeyCode code = 0;
        /// Press (true) or release.
        bool down = true;
        /// Where its sound starts in the recording, in seconds from the first sample.
        double onsetSeconds = 0;
        /// Its sound, `kPreRollMs` before the onset to where it has decayed, gated,
        /// faded and levelled (empty for a dropped take).
        std::vector<float> samples;
        /// Peak magnitude in the recording, before levelling.
        float peak = 0;
        /// Why it was dropped; `none` for a kept take.
        Flaw flaw = Flaw::none;
    };

    /// What cutting a recording found.
    struct Cut {
        /// Every key event's take, kept and dropped, in the order of the events.
        std::vector<Take> takes;
        /// The sounds lagged the key events by this much, measured (seconds).
        double offsetSeconds = 0;
        /// The onsets' spread around that lag: the median distance (seconds).
        double onsetSpreadSeconds = 0;
        /// The noise floor, RMS in dBFS.
        double noiseFloorDbfs = -120;
        /// One line per key to record again, naming it and saying why.
        std::vector<std::string> retakes;
        /// Why nothing could be made of the recording (silence, noise, no keys); empty
        /// when it was usable.
        std::string error;

        /// Kept takes.
        std::size_t keptCount() const;
    };

    /// A kit made from a cut: its manifest and sample files, ready to write.
    struct Kit {
        /// The manifest: per-key and per-group press and release variants.
        SoundpackConfig config;
        /// File names inside `sounds/` with their samples.
        std::vector<std::pair<std::string, std::vector<float>>> files;
        /// Why no kit could be made; empty on success.
        std::string error;
    };

    /// Cuts `samples` (mono, 48 kHz, the first taken at `startSeconds`) at the sounds
    /// of `events`, whose times are on the same clock. Events need not be sorted.
    static Cut cut(const std::vector<float>& samples, double startSeconds,
                   const std::vector<RecordedKeyEvent>& events);

    /// The kit `name` made of the kept takes: "recorded-" and the name's slug as id,
    /// each recorded key's presses and releases under its key name, and the same files
    /// pooled under its group ("alpha", "space", "enter", "backspace", "modifier").
    /// Refused when no letter press survived, since every key falls back on letters.
    static Kit makeKit(const Cut& cut, const QString& name);

    /// "recorded-" and the slug of `name`.
    static QString kitId(const QString& name);

    /// How a key is named to the user: its key-cap label, else its kit name.
    static std::string keyTitle(KeyCode code);
};

} // namespace tappix
