#include "audio/mixer.h"

#include "support/fake_time.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace tappix;
using namespace std::chrono_literals;

namespace {

// Time stands still unless a test moves it: every sound is asked for "now".
test::FakeTime stillTime;

/// A mixer at full volume.
struct Loud : Mixer {
    explicit Loud(const Clock& clock = stillTime) : Mixer(clock) { setMasterVolume(1.0f); }
};

struct Rendered {
    std::vector<float> stereo;
    float left(std::size_t frame) const { return stereo[2 * frame]; }
    float right(std::size_t frame) const { return stereo[2 * frame + 1]; }
    bool silent() const {
        return std::all_of(stereo.begin(), stereo.end(), [](float x) { return x == 0; });
    }
};

Rendered run(Mixer& mixer, std::size_t frames) {
    Rendered out{std::vector<float>(2 * frames)};
    mixer.render(out.stereo.data(), frames);
    return out;
}

Mixer::PlayCommand play(const std::vector<float>& samples, std::uint64_t sequence, float pan = 0,
                        float gain = 1, float rate = 1) {
    return Mixer::PlayCommand{
        samples.data(), static_cast<std::uint32_t>(samples.size()), rate, pan, gain, sequence};
}

const std::vector<float> kDc(4800, 0.5f); // 100 ms of a constant level

} // namespace

TEST(Mixer, PanIsEqualPowerGainIsClampedRateAndDuckApply) {
    const struct {
        float pan, gain, left, right;
    } cases[] = {
        {-1.0f, 1.0f, 0.5f, 0.0f},
        {0.0f, 2.0f, 0.5f * 1.5f * std::sqrt(0.5f), 0.5f * 1.5f * std::sqrt(0.5f)}, // at most 1.5
        {0.0f, -1.0f, 0.0f, 0.0f}, // silent, but the voice is still taken
    };
    for (const auto& c : cases) {
        Loud mixer;
        mixer.enqueue(play(kDc, 1, c.pan, c.gain));
        const auto out = run(mixer, 64);
        EXPECT_NEAR(out.left(10), c.left, 1e-5f) << c.pan << " " << c.gain;
        EXPECT_NEAR(out.right(10), c.right, 1e-5f) << c.pan << " " << c.gain;
        EXPECT_EQ(mixer.activeVoices(), 1);
    }

    Mixer mixer(stillTime);
    mixer.setMasterVolume(0.8f);
    mixer.setDuck(true, 0.3f);
    EXPECT_FLOAT_EQ(mixer.targetOutputGain(), 0.24f);
    mixer.setDuck(false, 0.3f);
    EXPECT_FLOAT_EQ(mixer.targetOutputGain(), 0.8f);

    const std::vector<float> short100(100, 0.25f);
    mixer.enqueue(play(short100, 1, -1.0f, 1.0f, 2.0f));
    EXPECT_EQ(mixer.safeSequence(), 1u);
    auto out = run(mixer, 256);
    EXPECT_GT(std::fabs(out.left(40)), 0.0f);
    EXPECT_EQ(out.left(60), 0.0f);       // twice as fast: done after 50 frames
    EXPECT_EQ(mixer.safeSequence(), 2u); // sequence 1 no longer read
    EXPECT_GT(mixer.takePeak(), 0.19f);
    EXPECT_EQ(mixer.takePeak(), 0.0f);
}

TEST(Mixer, TheSeventeenthSoundCutsTheFirstWithAFade) {
    const std::vector<float> silence(4800, 0.0f);
    for (int extra : {15, 16}) {
        Loud mixer;
        mixer.enqueue(play(kDc, 1, -1.0f));
        for (int i = 0; i < extra; ++i)
            mixer.enqueue(play(silence, 2 + i, 1.0f));
        const auto out = run(mixer, 1024);
        if (extra == 15) {
            EXPECT_NEAR(out.left(1000), 0.5f, 1e-6f); // sixteen sounds: nothing cut
        } else {
            EXPECT_GT(out.left(10), 0.4f); // fading, not cut dead
            EXPECT_LT(out.left(Mixer::kStealFadeFrames - 20), 0.1f);
            EXPECT_EQ(out.left(Mixer::kStealFadeFrames + 1), 0.0f);
        }
    }
}

TEST(Mixer, BrightnessFiltersHighsAndRoomLeavesATail) {
    EXPECT_EQ(Mixer::cutoffFor(0.98f), 0.0f);
    EXPECT_NEAR(Mixer::cutoffFor(0.97f), 10480.0f, 15.0f);
    EXPECT_NEAR(Mixer::cutoffFor(0.0f), 2200.0f, 0.01f);

    std::vector<float> high(4800);
    for (std::size_t i = 0; i < high.size(); ++i)
        high[i] = std::sin(2.0f * 3.14159265f * 12000.0f * i / 48000.0f) * 0.5f;
    auto energy = [&](float brightness) {
        Loud mixer;
        mixer.setToneBrightness(brightness);
        mixer.enqueue(play(high, 1));
        const auto out = run(mixer, 2048);
        double sum = 0;
        for (std::size_t i = 512; i < 2048; ++i)
            sum += out.left(i) * out.left(i);
        return sum;
    };
    EXPECT_LT(energy(0.0f), energy(1.0f) * 0.05);

    // A tone change while a sound plays carries the filter's memory on: no click.
    Loud toned;
    toned.setToneBrightness(0.3f);
    toned.enqueue(play(kDc, 1));
    const float settled = run(toned, 2048).left(2047);
    toned.setToneBrightness(0.5f);
    EXPECT_NEAR(run(toned, 64).left(0), settled, 0.02f) << "the filter started afresh";

    const std::vector<float> click(480, 0.5f);
    for (bool room : {false, true}) {
        Loud mixer;
        mixer.setRoom(room);
        mixer.enqueue(play(click, 1));
        const auto out = run(mixer, 9600);
        double tail = 0;
        for (std::size_t i = 2400; i < 9600; ++i)
            tail += std::fabs(out.left(i));
        if (room)
            EXPECT_GT(tail, 1.0);
        else
            EXPECT_EQ(tail, 0.0);
    }
}

// After a key and a silence (the stream may be corked), quiet holds from the first frame.
TEST(Mixer, AQuietLevelSetDuringSilenceHoldsFromTheFirstFrame) {
    const std::vector<float> click(100, 0.5f);
    for (bool resent : {false, true}) {
        Loud mixer;
        mixer.enqueue(play(click, 1));
        run(mixer, 2 * Mixer::kBlockFrames); // heard, then a silent block
        mixer.setDuck(true, 0.0f);
        mixer.enqueue(play(kDc, 2));
        Rendered out{std::vector<float>(2 * Mixer::kBlockFrames)};
        if (resent)
            mixer.mixNewSoundsInto(out.stereo.data(), Mixer::kBlockFrames);
        else
            out = run(mixer, Mixer::kBlockFrames);
        EXPECT_TRUE(out.silent()) << (resent ? "mixed into sent frames" : "rendered");
    }
}

// Mixing a new sound into frames already rendered gives, sample for sample, what rendering
// it from that frame on would have given, the tone filter carrying on without a step.
TEST(Mixer, ANewSoundMixedIntoRenderedFramesMatchesRenderingIt) {
    std::vector<float> sweep(9600);
    for (std::size_t i = 0; i < sweep.size(); ++i)
        sweep[i] = 0.4f * std::sin(0.002f * static_cast<float>(i * i) / 48.0f);
    std::vector<float> hit(2400);
    for (std::size_t i = 0; i < hit.size(); ++i)
        hit[i] = 0.6f * std::sin(2.0f * 3.14159265f * 3000.0f * i / 48000.0f);
    constexpr std::size_t kBefore = 700, kBack = 480, kAfter = 1500;

    for (float brightness : {1.0f, 0.3f}) {
        auto setUp = [&](Mixer& mixer) {
            mixer.setMasterVolume(0.8f);
            mixer.setToneBrightness(brightness);
            mixer.enqueue(play(sweep, 1, -0.5f));
        };
        // As if the sound had been queued at the start of the last kBack frames.
        Mixer direct(stillTime);
        setUp(direct);
        auto expected = run(direct, kBefore - kBack).stereo;
        direct.enqueue(play(hit, 2, 0.7f, 1.2f, 1.3f));
        const auto rest = run(direct, kBack + kAfter).stereo;
        expected.insert(expected.end(), rest.begin(), rest.end());

        Mixer resent(stillTime);
        setUp(resent);
        auto actual = run(resent, kBefore).stereo;
        EXPECT_FALSE(resent.mixNewSoundsInto(actual.data(), kBack)) << "nothing was queued";
        resent.enqueue(play(hit, 2, 0.7f, 1.2f, 1.3f));
        ASSERT_TRUE(resent.mixNewSoundsInto(actual.data() + 2 * (kBefore - kBack), kBack));
        const auto after = run(resent, kAfter).stereo;
        actual.insert(actual.end(), after.begin(), after.end());

        EXPECT_TRUE(std::equal(actual.begin(), actual.end(), expected.begin(), expected.end(),
                               [](float a, float b) { return std::fabs(a - b) < 1e-4f; }))
            << "brightness " << brightness;
    }
}

// A sound is on time or not at all; after a stall they fade; a dropped stream's never return.
TEST(Mixer, SoundsThatWouldBeLateAreDroppedAndCounted) {
    struct Case {
        const char* what;
        std::chrono::milliseconds waited; // from asking to the render
        bool heard;
    };
    for (const Case& c :
         {Case{"at once", 0ms, true}, Case{"within the deadline", 40ms, true},
          Case{"after an outage", 60ms, false}, Case{"after a restart", 3000ms, false}}) {
        test::FakeTime time;
        Loud mixer(time);
        run(mixer, 256);
        Mixer::PlayCommand command = play(kDc, 1);
        command.askedAt = time.now();
        mixer.enqueue(command);
        time.advance(c.waited);
        const auto out = run(mixer, 256);
        EXPECT_EQ(out.left(100) != 0.0f, c.heard) << c.what;
        EXPECT_EQ(mixer.lateSounds(), c.heard ? 0u : 1u) << c.what;
        EXPECT_EQ(mixer.safeSequence(), c.heard ? 1u : 2u) << c.what << ": its samples are free";
    }

    test::FakeTime time;
    Loud stalled(time);
    stalled.enqueue(play(kDc, 1, -1.0f));
    run(stalled, 256);
    time.advance(Mixer::kStallAfter + 1ms);
    auto out = run(stalled, 512);
    EXPECT_GT(out.left(0), 0.4f) << "fades, not cut dead";
    EXPECT_EQ(out.left(Mixer::kStealFadeFrames + 1), 0.0f) << "went on after a stall";

    Loud dropped;
    dropped.setRoom(true);
    dropped.enqueue(play(kDc, 1));
    run(dropped, 256);
    dropped.enqueue(play(kDc, 2));
    dropped.stopAll();
    EXPECT_EQ(dropped.lateSounds(), 1u);
    EXPECT_EQ(dropped.safeSequence(), 3u);
    out = run(dropped, 256);
    EXPECT_TRUE(out.silent()) << "a sound or the room rang on after the stream went away";
}
