#include "audio/mixer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace tappix {
namespace {

constexpr float kPi = 3.14159265358979f;

/// Flushes denormals to zero while rendering: decaying filter and reverb tails would
/// otherwise crawl through denormal arithmetic, which is very slow on some CPUs.
class FlushDenormals {
public:
    FlushDenormals() noexcept {
#if defined(__SSE__)
        saved_ = _mm_getcsr();
        _mm_setcsr(saved_ | 0x8040); // FTZ and DAZ
#elif defined(__aarch64__)
        saved_ = __builtin_aarch64_get_fpcr64();
        __builtin_aarch64_set_fpcr64(saved_ | (1ull << 24)); // FZ
#endif
    }
    ~FlushDenormals() {
#if defined(__SSE__)
        _mm_setcsr(saved_);
#elif defined(__aarch64__)
        __builtin_aarch64_set_fpcr64(saved_);
#endif
    }

private:
#if defined(__aarch64__)
    unsigned long long saved_ = 0;
#else
    unsigned int saved_ = 0;
#endif
};

// Freeverb's delay lengths at 44.1 kHz, scaled to 48 kHz; the right channel is
// spread by 23 samples for width.
constexpr int kCombTuning[8] = {1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617};
constexpr int kAllpassTuning[4] = {556, 441, 341, 225};
constexpr int kStereoSpread = 23;
constexpr float kReverbInputGain = 0.015f;
constexpr float kRoomFeedback = 0.55f * 0.28f + 0.7f; // a medium room
constexpr float kRoomDamping = 0.4f;
constexpr float kWetScale = 3.0f; // brings the network's output to the dry level

std::size_t scaled(int samples) {
    return static_cast<std::size_t>(std::lround(samples * 48000.0 / 44100.0));
}

float finiteOr(float value, float fallback) {
    return std::isfinite(value) ? value : fallback;
}

} // namespace

Mixer::Mixer(const Clock& clock) : clock_(clock) {
    for (int channel = 0; channel < 2; ++channel) {
        const int spread = channel * kStereoSpread;
        for (int i = 0; i < 8; ++i)
            combs_[channel][i].buffer.assign(scaled(kCombTuning[i] + spread), 0.0f);
        for (int i = 0; i < 4; ++i)
            allpasses_[channel][i].buffer.assign(scaled(kAllpassTuning[i] + spread), 0.0f);
    }
}

bool Mixer::enqueue(const PlayCommand& command) noexcept {
    return commands_.push(command);
}

void Mixer::setDuck(bool active, float volume) noexcept {
    duckVolume_.store(volume);
    duckActive_.store(active);
}

float Mixer::targetOutputGain() const noexcept {
    const float duck = duckActive_.load() ? duckVolume_.load() : 1.0f;
    return masterVolume_.load() * duck;
}

void Mixer::settleGainWhileQuiet() noexcept {
    // The gain glides only to spare a sounding signal a click. After silence (the stream
    // may have been corked since) a volume or quiet level set meanwhile holds from the
    // first frame: gliding from the old level would let the next sound through.
    if (lastPeak_ < kSilentPeak)
        currentGain_ = targetOutputGain();
}

float Mixer::cutoffFor(float brightness) noexcept {
    if (brightness >= 0.98f)
        return 0.0f;
    return 2200.0f * std::pow(5.0f, std::max(brightness, 0.0f));
}

void Mixer::render(float* out, std::size_t frames, NewSounds newSounds) noexcept {
    FlushDenormals flush;
    const Clock::Duration now = clock_.now();
    if (lastRenderAt_ && now - *lastRenderAt_ > kStallAfter) {
        // The stream stalled: what is left of the sounds ringing then would be late.
        for (Voice& voice : voices_) {
            if (!voice.current.active())
                continue;
            voice.fading = voice.current;
            voice.fading.fadeRemaining = kStealFadeFrames;
            voice.current = Sound{};
        }
    }
    lastRenderAt_ = now;
    settleGainWhileQuiet();
    if (newSounds == NewSounds::start)
        startQueued(now, nullptr);
    updateFilter();
    for (std::size_t done = 0; done < frames;) {
        const std::size_t block = std::min(kBlockFrames, frames - done);
        renderBlock(out + 2 * done, block);
        done += block;
    }
    publishSafeSequence();
    quiet_.store(activeVoices_.load(std::memory_order_relaxed) == 0 && !reverbHasTail_,
                 std::memory_order_relaxed);
}

bool Mixer::startQueued(Clock::Duration now, std::array<bool, kVoiceCount>* fresh) noexcept {
    bool started = false;
    while (auto command = commands_.pop()) {
        if (now - command->askedAt > kLateAfter) {
            // Asked for while the output was away or stalled: never played late.
            lastConsumed_ = command->sequence;
            lateSounds_.fetch_add(1, std::memory_order_relaxed);
            continue;
        }
        if (fresh)
            (*fresh)[static_cast<std::size_t>(nextVoice_)] = true;
        startSound(*command);
        started = true;
    }
    return started;
}

void Mixer::stopAll() noexcept {
    while (auto command = commands_.pop()) {
        lastConsumed_ = command->sequence;
        lateSounds_.fetch_add(1, std::memory_order_relaxed);
    }
    for (Voice& voice : voices_)
        voice = Voice{};
    // The room and the filter would otherwise ring on with what played before.
    clearRoom();
    std::fill(std::begin(filter_.z1), std::end(filter_.z1), 0.0f);
    std::fill(std::begin(filter_.z2), std::end(filter_.z2), 0.0f);
    lastRenderAt_.reset();
    activeVoices_.store(0, std::memory_order_relaxed);
    quiet_.store(true, std::memory_order_relaxed);
    publishSafeSequence();
}

void Mixer::startSound(const PlayCommand& command) noexcept {
    lastConsumed_ = command.sequence;
    Voice& voice = voices_[static_cast<std::size_t>(nextVoice_)];
    nextVoice_ = (nextVoice_ + 1) % kVoiceCount;
    if (voice.current.active()) {
        voice.fading = voice.current;
        voice.fading.fadeRemaining = kStealFadeFrames;
    }
    Sound sound;
    if (command.data && command.frames > 0) {
        const float gain = std::clamp(finiteOr(command.gain, 0.0f), 0.0f, kMaxGain);
        const float pan = std::clamp(finiteOr(command.pan, 0.0f), -1.0f, 1.0f);
        const float angle = (pan + 1.0f) * kPi / 4.0f; // equal power
        sound.data = command.data;
        sound.frames = command.frames;
        sound.rate = std::clamp(finiteOr(command.rate, 1.0f), 0.25f, 4.0f);
        sound.left = std::cos(angle) * gain;
        sound.right = std::sin(angle) * gain;
        sound.sequence = command.sequence;
    }
    // The voice is taken even by an empty sound: round robin is strict.
    voice.current = sound;
}

void Mixer::mixSound(Sound& sound, float* left, float* right, std::size_t frames,
                     bool fading) noexcept {
    const float* data = sound.data;
    const std::size_t length = sound.frames;
    double position = sound.position;
    if (!fading && sound.rate == 1.0f && position == std::floor(position)) {
        // At its own pitch every sample falls on a frame: a plain scaled add (the
        // interpolating loop below costs several times as much). The gains are read once,
        // not through `sound` on every frame.
        const auto start = static_cast<std::size_t>(position);
        const std::size_t count = start < length ? std::min(frames, length - start) : 0;
        const float* from = data + start;
        const float gainLeft = sound.left;
        const float gainRight = sound.right;
        for (std::size_t i = 0; i < count; ++i) {
            left[i] += from[i] * gainLeft;
            right[i] += from[i] * gainRight;
        }
        sound.position = position + static_cast<double>(count);
        if (count < frames)
            sound.data = nullptr;
        return;
    }
    for (std::size_t i = 0; i < frames; ++i) {
        const auto index = static_cast<std::size_t>(position);
        if (index >= length) {
            sound.data = nullptr;
            break;
        }
        const float a = data[index];
        const float b = index + 1 < length ? data[index + 1] : 0.0f;
        float s = a + (b - a) * static_cast<float>(position - static_cast<double>(index));
        if (fading) {
            s *= static_cast<float>(sound.fadeRemaining) / kStealFadeFrames;
            if (--sound.fadeRemaining <= 0) {
                sound.data = nullptr;
                break;
            }
        }
        left[i] += s * sound.left;
        right[i] += s * sound.right;
        position += sound.rate;
    }
    sound.position = position;
}

void Mixer::updateFilter() noexcept {
    const float brightness = brightness_.load();
    if (brightness == filterBrightness_)
        return;
    filterBrightness_ = brightness;
    const float cutoff = cutoffFor(brightness);
    const bool wasOn = filterOn_;
    filterOn_ = cutoff > 0.0f;
    if (!filterOn_)
        return;
    // Second-order Butterworth low-pass (Q = 1/√2).
    const float w0 = 2.0f * kPi * cutoff / kSampleRate;
    const float alpha = std::sin(w0) / (2.0f * 0.70710678f);
    const float cosw = std::cos(w0);
    const float a0 = 1.0f + alpha;
    filter_.b0 = (1.0f - cosw) / 2.0f / a0;
    filter_.b1 = (1.0f - cosw) / a0;
    filter_.b2 = filter_.b0;
    filter_.a1 = -2.0f * cosw / a0;
    filter_.a2 = (1.0f - alpha) / a0;
    if (!wasOn) {
        std::fill(std::begin(filter_.z1), std::end(filter_.z1), 0.0f);
        std::fill(std::begin(filter_.z2), std::end(filter_.z2), 0.0f);
    }
}

void Mixer::applyFilter(Biquad& filter, float* left, float* right, std::size_t frames) noexcept {
    for (int channel = 0; channel < 2; ++channel) {
        float* samples = channel == 0 ? left : right;
        float z1 = filter.z1[channel], z2 = filter.z2[channel];
        for (std::size_t i = 0; i < frames; ++i) {
            const float x = samples[i];
            const float y = filter.b0 * x + z1;
            z1 = filter.b1 * x - filter.a1 * y + z2;
            z2 = filter.b2 * x - filter.a2 * y;
            samples[i] = y;
        }
        filter.z1[channel] = z1;
        filter.z2[channel] = z2;
    }
}

bool Mixer::mixNewSoundsInto(float* out, std::size_t frames) noexcept {
    FlushDenormals flush;
    std::array<bool, kVoiceCount> fresh{};
    settleGainWhileQuiet();
    if (!startQueued(clock_.now(), &fresh)) {
        publishSafeSequence(); // late sounds may have been dropped
        return false;
    }
    updateFilter();
    // The new sounds alone, through their own copy of the filter: the filter is linear,
    // so adding that copy's state to the main one afterwards leaves the main filter
    // exactly where it would be had it rendered old and new sounds together.
    Biquad solo = filter_;
    std::fill(std::begin(solo.z1), std::end(solo.z1), 0.0f);
    std::fill(std::begin(solo.z2), std::end(solo.z2), 0.0f);
    // Matches the output stage: the reverb's dry share and the output gain.
    const float level =
        (currentGain_ < 0.0f ? targetOutputGain() : currentGain_) * (1.0f - currentWet_ / 100.0f);
    float* left = left_.data();
    float* right = right_.data();
    float peak = 0.0f;
    for (std::size_t done = 0; done < frames;) {
        const std::size_t block = std::min(kBlockFrames, frames - done);
        std::fill_n(left, block, 0.0f);
        std::fill_n(right, block, 0.0f);
        for (std::size_t v = 0; v < voices_.size(); ++v) {
            if (fresh[v] && voices_[v].current.active())
                mixSound(voices_[v].current, left, right, block, false);
        }
        if (filterOn_)
            applyFilter(solo, left, right, block);
        float* frame = out + 2 * done;
        for (std::size_t i = 0; i < block; ++i) {
            frame[2 * i] += left[i] * level;
            frame[2 * i + 1] += right[i] * level;
            peak = std::max(peak, std::max(std::fabs(frame[2 * i]), std::fabs(frame[2 * i + 1])));
        }
        done += block;
    }
    if (filterOn_) {
        for (int channel = 0; channel < 2; ++channel) {
            filter_.z1[channel] += solo.z1[channel];
            filter_.z2[channel] += solo.z2[channel];
        }
    }
    int active = 0;
    for (const Voice& voice : voices_)
        active += voice.current.active() || voice.fading.active();
    activeVoices_.store(active, std::memory_order_relaxed);
    quiet_.store(false, std::memory_order_relaxed);
    lastPeak_ = std::max(lastPeak_, peak);
    publishSafeSequence();
    float previous = peak_.load(std::memory_order_relaxed);
    while (peak > previous && !peak_.compare_exchange_weak(previous, peak)) {
    }
    return true;
}

void Mixer::processReverb(float* left, float* right, std::size_t frames, float wetFrom,
                          float wetTo) noexcept {
    for (std::size_t i = 0; i < frames; ++i) {
        const float input = (left[i] + right[i]) * kReverbInputGain;
        float wet[2] = {0.0f, 0.0f};
        for (int channel = 0; channel < 2; ++channel) {
            float sum = 0.0f;
            for (Comb& comb : combs_[channel]) {
                const float output = comb.buffer[comb.index];
                comb.store = output * (1.0f - kRoomDamping) + comb.store * kRoomDamping;
                comb.buffer[comb.index] = input + comb.store * kRoomFeedback;
                if (++comb.index == comb.buffer.size())
                    comb.index = 0;
                sum += output;
            }
            for (Allpass& allpass : allpasses_[channel]) {
                const float buffered = allpass.buffer[allpass.index];
                allpass.buffer[allpass.index] = sum + buffered * 0.5f;
                if (++allpass.index == allpass.buffer.size())
                    allpass.index = 0;
                sum = buffered - sum;
            }
            wet[channel] = sum;
        }
        const float mix = (wetFrom + (wetTo - wetFrom) * static_cast<float>(i) / frames) / 100.0f;
        left[i] = left[i] * (1.0f - mix) + wet[0] * mix * kWetScale;
        right[i] = right[i] * (1.0f - mix) + wet[1] * mix * kWetScale;
    }
}

void Mixer::clearRoom() noexcept {
    for (auto& channel : combs_)
        for (Comb& comb : channel) {
            std::fill(comb.buffer.begin(), comb.buffer.end(), 0.0f);
            comb.store = 0.0f;
        }
    for (auto& channel : allpasses_)
        for (Allpass& allpass : channel)
            std::fill(allpass.buffer.begin(), allpass.buffer.end(), 0.0f);
    reverbHasTail_ = false;
}

void Mixer::renderBlock(float* out, std::size_t frames) noexcept {
    float* left = left_.data();
    float* right = right_.data();
    std::fill_n(left, frames, 0.0f);
    std::fill_n(right, frames, 0.0f);

    int active = 0;
    for (Voice& voice : voices_) {
        if (voice.fading.active())
            mixSound(voice.fading, left, right, frames, true);
        if (voice.current.active())
            mixSound(voice.current, left, right, frames, false);
        active += voice.current.active() || voice.fading.active();
    }
    activeVoices_.store(active, std::memory_order_relaxed);

    if (filterOn_)
        applyFilter(filter_, left, right, frames);

    const float wetTarget = roomOn_.load() ? kRoomWetPercent : 0.0f;
    if (wetTarget > 0.0f || currentWet_ > 0.0f) {
        processReverb(left, right, frames, currentWet_, wetTarget);
        currentWet_ = wetTarget;
        reverbHasTail_ = true;
    } else if (reverbHasTail_) {
        // Faded out completely: clear the tail so a later "on" starts clean.
        clearRoom();
    }

    const float gainTarget = targetOutputGain();
    const float gainFrom = currentGain_ < 0.0f ? gainTarget : currentGain_;
    float peak = 0.0f;
    // A steady gain (the usual case) needs no division per frame.
    const bool ramp = gainFrom != gainTarget;
    for (std::size_t i = 0; i < frames; ++i) {
        const float gain =
            ramp ? gainFrom + (gainTarget - gainFrom) * static_cast<float>(i + 1) / frames
                 : gainTarget;
        const float l = left[i] * gain;
        const float r = right[i] * gain;
        out[2 * i] = l;
        out[2 * i + 1] = r;
        peak = std::max(peak, std::max(std::fabs(l), std::fabs(r)));
    }
    currentGain_ = gainTarget;
    lastPeak_ = peak;

    float previous = peak_.load(std::memory_order_relaxed);
    while (peak > previous && !peak_.compare_exchange_weak(previous, peak)) {
    }
}

void Mixer::publishSafeSequence() noexcept {
    std::uint64_t safe = lastConsumed_ + 1;
    for (const Voice& voice : voices_) {
        if (voice.current.active())
            safe = std::min(safe, voice.current.sequence);
        if (voice.fading.active())
            safe = std::min(safe, voice.fading.sequence);
    }
    safeSequence_.store(safe, std::memory_order_release);
}

} // namespace tappix
