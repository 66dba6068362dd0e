#pragma once

#include "core/clock.h"
#include "core/spsc_queue.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace tappix {

/// Tappix's own audio graph, rendered in one real-time callback: sixteen voices
/// (varispeed read with interpolation, equal-power pan, gain) → submix → second-order
/// low-pass (tone brightness) → small-room reverb → master volume × duck, as 48000 Hz
/// float stereo.
///
/// Plays arrive through a fixed lock-free queue from one producer at a time (the
/// "tappix-audio" queue's tasks, whichever thread runs them). Levels are atomics smoothed per
/// block. `render` never locks, allocates, logs or calls the system (the clock is read through the
/// vDSO). The buffers a command points at must stay alive until `safeSequence()` passes the
/// command's sequence number.
///
/// A sound is on time or not at all: one that reaches the render more than
/// `kLateAfter` after it was asked for (the output was away, or its stream stalled) is
/// dropped and counted, and sounds still ringing when the stream resumes after a stall
/// fade out rather than carry on late.
class Mixer {
public:
    /// Voices in the pool; the seventeenth quick sound takes the first voice again.
    static constexpr int kVoiceCount = 16;
    /// Output rate.
    static constexpr int kSampleRate = 48000;
    /// Frames rendered per internal block (any request size is split into these).
    static constexpr std::size_t kBlockFrames = 256;
    /// A block peaking below this (-80 dBFS) is silence: a level change there cannot click.
    static constexpr float kSilentPeak = 1e-4f;
    /// A voice cut by a new sound fades out over this many frames (3 ms) instead of clicking.
    static constexpr int kStealFadeFrames = 144;
    /// Largest gain a voice plays at: a deliberate 50 % boost.
    static constexpr float kMaxGain = 1.5f;
    /// Reverb wet/dry mix in per cent when the room is on.
    static constexpr float kRoomWetPercent = 14.0f;
    /// A sound that starts later than this after it was asked for is dropped. A key is
    /// normally rendered within a few milliseconds and the slowest regular refill
    /// (PipeWire set up for large requests) comes every 43 ms, while a click heard 50 ms
    /// after the finger, plus the output's buffer, is already a separate event.
    static constexpr std::chrono::milliseconds kLateAfter{50};
    /// A render this long after the previous one, with sounds ringing, means the stream
    /// stalled: what is left of those sounds would be heard late, so they fade out. Well
    /// above the slowest refill while sounds play; an idle stream has nothing ringing.
    static constexpr std::chrono::milliseconds kStallAfter{250};

    /// One sound to start.
    struct PlayCommand {
        /// Mono 48 kHz samples, kept alive by the producer (see `safeSequence`).
        const float* data = nullptr;
        /// Number of samples.
        std::uint32_t frames = 0;
        /// Playback rate, 1 = recorded pitch.
        float rate = 1.0f;
        /// -1 full left … +1 full right.
        float pan = 0.0f;
        /// Linear gain, clamped to [0, 1.5].
        float gain = 1.0f;
        /// Increasing number given by the producer.
        std::uint64_t sequence = 0;
        /// When the sound was asked for, on the mixer's clock.
        Clock::Duration askedAt{};
    };

    /// Allocates every voice, filter and reverb buffer up front; times sounds on `clock`,
    /// which must outlive the mixer. Any thread.
    explicit Mixer(const Clock& clock);

    /// Queues a sound; false (and nothing plays) when the queue is full. Producer thread.
    bool enqueue(const PlayCommand& command) noexcept;

    /// The user's volume, 0 to 1. Any thread.
    void setMasterVolume(float volume) noexcept { masterVolume_.store(volume); }
    /// Ducking: while active the output is further scaled by `volume`. Any thread.
    void setDuck(bool active, float volume) noexcept;
    /// Brightness 0 … 1: ≥ 0.98 bypasses the low-pass, else its corner is 2200 × 5^b Hz. Any
    /// thread.
    void setToneBrightness(float brightness) noexcept { brightness_.store(brightness); }
    /// The small-room reverb on (14 % wet) or off. Any thread.
    void setRoom(bool on) noexcept { roomOn_.store(on); }

    /// The output gain the levels ask for: master × (duck volume while ducking). Any thread.
    float targetOutputGain() const noexcept;
    /// The low-pass corner for a brightness, or 0 when bypassed.
    static float cutoffFor(float brightness) noexcept;

    /// What a render does with sounds queued since the last render or re-send.
    enum class NewSounds {
        /// Starts them at the beginning of what it renders.
        start,
        /// Leaves them queued: the output is about to start them at its read position (a
        /// re-send through `mixNewSoundsInto`, or a render placed there), which is sooner
        /// than where this render lands.
        hold,
    };

    /// Renders `frames` of interleaved stereo into `out`. Render callback only.
    void render(float* out, std::size_t frames, NewSounds newSounds = NewSounds::start) noexcept;

    /// Starts every queued sound now and mixes its first `frames` frames (panned, at its
    /// gain, through the tone filter and at the output gain) into `out`, interleaved
    /// stereo that already holds what the last renders produced for those frames. The
    /// sounds then go on from there at the next `render`, and the filter carries on as
    /// if it had rendered them all along. This lets an output re-send the part of its
    /// buffer the server has not played yet with a new sound in it, so the sound does
    /// not wait behind that buffer; only the room reverb hears the new sound from the
    /// end of the re-sent part. Returns whether any sound started. Same thread as
    /// `render`, never at the same time.
    bool mixNewSoundsInto(float* out, std::size_t frames) noexcept;

    /// Stops every voice and drops every queued sound (counted as late), so no sample is
    /// read any more: the output calls it when its stream goes away, so nothing queued
    /// for it sounds late when it is back, and every replaced sample may be freed. Same
    /// thread as `render`, never at the same time.
    void stopAll() noexcept;

    /// Sounds dropped rather than played late since the start. Any thread.
    std::uint64_t lateSounds() const noexcept {
        return lateSounds_.load(std::memory_order_relaxed);
    }

    /// Every command numbered below this has been consumed and no voice reads its
    /// samples any more, so they may be freed. Any thread.
    std::uint64_t safeSequence() const noexcept {
        return safeSequence_.load(std::memory_order_acquire);
    }

    /// The largest output sample since the last call, then resets it. Any thread.
    float takePeak() noexcept { return peak_.exchange(0.0f); }

    /// Whether the last render was silent with nothing left to sound (no voice, no
    /// reverb tail), so the output may idle. Any thread.
    bool isQuiet() const noexcept { return quiet_.load(std::memory_order_relaxed); }

    /// Voices sounding after the last block (for diagnostics and tests). Any thread.
    int activeVoices() const noexcept { return activeVoices_.load(std::memory_order_relaxed); }

private:
    struct Sound {
        const float* data = nullptr;
        std::uint32_t frames = 0;
        double position = 0;
        float rate = 1;
        float left = 0, right = 0;
        std::uint64_t sequence = 0;
        int fadeRemaining = 0; // > 0 while fading out after being cut
        bool active() const { return data != nullptr; }
    };
    struct Voice {
        Sound current;
        Sound fading;
    };
    struct Biquad {
        float b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
        float z1[2]{}, z2[2]{};
    };
    struct Comb {
        std::vector<float> buffer;
        std::size_t index = 0;
        float store = 0;
    };
    struct Allpass {
        std::vector<float> buffer;
        std::size_t index = 0;
    };

    bool startQueued(Clock::Duration now, std::array<bool, kVoiceCount>* fresh) noexcept;
    void startSound(const PlayCommand& command) noexcept;
    void renderBlock(float* out, std::size_t frames) noexcept;
    void mixSound(Sound& sound, float* left, float* right, std::size_t frames,
                  bool fading) noexcept;
    void updateFilter() noexcept;
    static void applyFilter(Biquad& filter, float* left, float* right, std::size_t frames) noexcept;
    void processReverb(float* left, float* right, std::size_t frames, float wetFrom,
                       float wetTo) noexcept;
    void clearRoom() noexcept;
    /// After silent output, takes the gain the levels ask for at once instead of gliding.
    void settleGainWhileQuiet() noexcept;
    void publishSafeSequence() noexcept;

    const Clock& clock_;
    SpscQueue<PlayCommand, 256> commands_;
    std::array<Voice, kVoiceCount> voices_{};
    int nextVoice_ = 0;
    std::uint64_t lastConsumed_ = 0;

    std::atomic<float> masterVolume_{0.6f};
    std::atomic<bool> duckActive_{false};
    std::atomic<float> duckVolume_{0.0f};
    std::atomic<float> brightness_{1.0f};
    std::atomic<bool> roomOn_{false};

    float currentGain_ = -1; // < 0: take the target at the first block
    float lastPeak_ = 0;     // the last block's peak: below kSilentPeak, nothing would click
    float currentWet_ = 0;
    float filterBrightness_ = -1;
    bool filterOn_ = false;
    Biquad filter_;
    std::array<std::array<Comb, 8>, 2> combs_;
    std::array<std::array<Allpass, 4>, 2> allpasses_;
    bool reverbHasTail_ = false;
    std::optional<Clock::Duration> lastRenderAt_;

    std::array<float, kBlockFrames> left_{};
    std::array<float, kBlockFrames> right_{};

    std::atomic<std::uint64_t> safeSequence_{1};
    std::atomic<float> peak_{0.0f};
    std::atomic<int> activeVoices_{0};
    std::atomic<bool> quiet_{true};
    std::atomic<std::uint64_t> lateSounds_{0};
};

} // namespace tappix
