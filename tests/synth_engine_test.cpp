#include "kits/synth_engine.h"
#include "support/sound_analysis.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace tappix;
using namespace tappix::SynthEngine;

namespace {

const SynthParams kKey{420, 0.9f, 10, 8000, false};

} // namespace

TEST(SynthEngine, RendersAreNormalisedWhateverTheClickAndMiceAreNeverClicky) {
    for (float click : {0.0f, 0.2f, 0.9f, 5.0f}) {
        SynthParams p = kKey;
        p.click = click;
        const auto [low, high] = std::ranges::minmax(render(p, 1, false));
        EXPECT_NEAR(std::max(-low, high), 0.85f, 1e-6f) << click;
    }
    SynthParams silent = kKey;
    silent.decayMs = 0;
    EXPECT_TRUE(render(silent, 1, false).empty());
    for (MouseProfile profile : kMouseProfiles) {
        const auto preset = mousePreset(profile, true);
        EXPECT_FALSE(preset.params.clicky);
        EXPECT_FALSE(render(preset.params, preset.seed, false).empty());
    }
}

// Every designed kit a user ever made is a function of these draws (a bound of 3e9 rejects
// about three in ten), so the draws, renders and the bell are pinned bit for bit.
TEST(SynthEngine, GoldenDrawsAndSamples) {
    Random plain(0), bounded(1);
    std::vector<std::uint32_t> draws;
    for (int i = 0; i < 16; ++i)
        draws.push_back(plain.next32()), draws.push_back(bounded.uniform(3000000000u));
    const auto press = render(kKey, 42, false);
    const auto release = render(kKey, 42, true);
    SynthParams clicky = kKey;
    clicky.clicky = true;
    const auto bell = ding();
    const std::uint64_t pinned[] = {0xe3362954b94f994fULL, 0xb8868ba5e3b0f5e0ULL,
                                    0x2215508f6f707eadULL, 0x8684ebb2fa52c35dULL,
                                    0xbffa9a9374748247ULL};
    const std::uint64_t now[] = {test::fingerprint(draws), test::fingerprint(press),
                                 test::fingerprint(release), test::fingerprint(bell),
                                 test::fingerprint(render(clicky, 42, false))};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(now[i], pinned[i]) << std::hex << "0x" << now[i];
}
