#include "kits/synth_engine.h"
#include "support/sound_analysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace tappix;
using namespace tappix::SynthEngine;

namespace {

float peak(const std::vector<float>& samples) {
    float p = 0;
    for (float s : samples)
        p = std::max(p, std::fabs(s));
    return p;
}

const SynthParams kKey{420, 0.9f, 10, 8000, false};

} // namespace

TEST(SynthEngine, RendersDependOnTheSeedAndAreNormalised) {
    // Sizes and exact samples are pinned by GoldenDrawsAndSamples.
    const auto a = render(kKey, 42, false);
    EXPECT_NE(a, render(kKey, 43, false));
    EXPECT_NEAR(peak(a), 0.85f, 1e-6f);
    for (float click : {0.0f, 0.2f, 5.0f}) {
        SynthParams p = kKey;
        p.click = click;
        EXPECT_NEAR(peak(render(p, 1, false)), 0.85f, 1e-6f) << click;
    }
    SynthParams silent = kKey;
    silent.decayMs = 0;
    EXPECT_TRUE(render(silent, 1, false).empty());
}

TEST(SynthEngine, ClickyOnlyChangesTheFirstTwentyMilliseconds) {
    SynthParams p{300, 0.9f, 40, 48000, false}; // same seed: identical noise in both
    const auto plain = render(p, 5, false);
    p.clicky = true;
    const auto clicky = render(p, 5, false);
    ASSERT_EQ(plain.size(), clicky.size());
    // Normalisation rescales everything, so compare shapes after undoing it.
    EXPECT_NE(plain[100], clicky[100]);
    const float ratio = clicky[2000] / plain[2000];
    for (std::size_t i = 1200; i < plain.size(); i += 97) {
        if (std::fabs(plain[i]) > 1e-3f) {
            EXPECT_NEAR(clicky[i] / plain[i], ratio, 2e-2f) << i;
        }
    }
}

TEST(SynthEngine, BellAndMousePresets) {
    const auto bell = ding();
    EXPECT_EQ(bell[0], 0.0f);
    EXPECT_LT(std::fabs(bell[10]), 0.02f); // still fading in
    EXPECT_GT(peak({bell.begin() + 192, bell.begin() + 400}), 0.2f);

    EXPECT_EQ(mouseProfileFrom("deep"), MouseProfile::deep);
    EXPECT_FALSE(mouseProfileFrom("Deep"));
    for (MouseProfile profile : kMouseProfiles) {
        const auto preset = mousePreset(profile, true);
        EXPECT_FALSE(preset.params.clicky);
        EXPECT_FALSE(render(preset.params, preset.seed, false).empty());
    }
}

// Every designed kit is a function of these draws: a change in the generator, in the
// order of draws or in a rejection step (a bound of 3e9 rejects about three draws in ten)
// changes every kit a user ever made, so the draws and renders are pinned bit for bit.
TEST(SynthEngine, GoldenDrawsAndSamples) {
    Random plain(0), bounded(1);
    std::vector<std::uint32_t> draws;
    for (int i = 0; i < 16; ++i)
        draws.push_back(plain.next32()), draws.push_back(bounded.uniform(3000000000u));
    const auto press = render(kKey, 42, false);
    const auto release = render(kKey, 42, true);
    const auto bell = ding();
    EXPECT_EQ(draws[0], 4150755663u);
    EXPECT_EQ(bell.size(), 26400u);
    const std::uint64_t pinned[] = {0xe3362954b94f994fULL, 0xb8868ba5e3b0f5e0ULL,
                                    0x2215508f6f707eadULL, 0x8684ebb2fa52c35dULL};
    const std::uint64_t now[] = {test::fingerprint(draws), test::fingerprint(press),
                                 test::fingerprint(release), test::fingerprint(bell)};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(now[i], pinned[i]) << std::hex << "0x" << now[i];
}
