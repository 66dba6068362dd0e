#include "analysis/kit_figures.h"
#include "input/key_codes.h"
#include "input/key_group.h"
#include "kits/bundled_kits.h"
#include "kits/kit_catalog.h"
#include "kits/switch_model.h"
#include "support/sound_analysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <set>

using namespace tappix;

namespace {

/// Level (dB) of `n` samples from `from`.
double rmsDb(const std::vector<float>& x, std::size_t n = 1920, std::size_t from = 0) {
    double e = 0;
    for (std::size_t i = from; i < std::min(from + n, x.size()); ++i)
        e += double(x[i]) * x[i];
    return 10 * std::log10(e / double(n) + 1e-30);
}

/// Share of the energy of the first 40 ms below about 500 Hz (a two-pole low-pass).
double lowShare(const std::vector<float>& x, std::size_t n = 1920) {
    const double a = 1 - std::exp(-2 * M_PI * 500 / 48000.0);
    double l1 = 0, l2 = 0, low = 0, all = 0;
    for (std::size_t i = 0; i < std::min(n, x.size()); ++i) {
        l1 += a * (x[i] - l1);
        l2 += a * (l1 - l2);
        low += l2 * l2;
        all += double(x[i]) * x[i];
    }
    return low / all;
}

/// Start (ms) of the loudest 2 ms block.
double loudestMs(const std::vector<float>& x) {
    std::size_t at = 0;
    for (std::size_t b = 0; b + 96 <= x.size(); b += 96)
        at = rmsDb(x, 96, b) > rmsDb(x, 96, at) ? b : at;
    return double(at) / 48.0;
}

const SwitchProfile kProfile{};

/// What recordings of real keyboards measure, family by family: over nine packs recorded
/// from real switches (bench/kit_features --recordings --envelopes), the range of each
/// family's figures and the median of their spectral envelopes.
struct Recorded {
    const char* family;
    double centroidHz[2], flatness[2], decayMs[2];
    KitFigures::Envelope envelope;
};
// clang-format off
const Recorded kRecorded[] = {
    {"clicky", {2984, 4520}, {0.066, 0.213}, {48, 161},
     {-12.2, -9.7, -11.5, -11.8, -15.3, -9.1, -2.5, 0.2, 3.7, 7.1, 11.5, 12.4, 13.0, 10.2, 4.2, 2.8, 2.9, 4.2}},
    {"linear", {1801, 3424}, {0.006, 0.188}, {41, 160},
     {-22.6, -23.2, -15.6, -8.1, -9.1, -2.5, 3.6, 10.1, 12.6, 9.9, 10.0, 11.7, 12.5, 5.1, -0.3, 2.1, 2.2, 1.4}},
    {"tactile", {1524, 2678}, {0.035, 0.104}, {42, 160},
     {-4.5, -2.9, 1.5, -7.8, -8.5, -5.3, -2.6, 4.5, 7.5, 4.2, 7.0, 10.6, 8.9, 1.2, -2.9, -3.1, -4.4, -3.2}},
    {"topre", {1086, 1086}, {0.023, 0.023}, {156, 156},
     {-26.6, -23.2, -15.2, -1.8, 8.7, 15.7, 13.3, 12.9, 10.3, 11.1, 7.2, 4.4, 1.4, 1.1, -1.0, -5.5, -5.5, -7.5}},
};
// clang-format on

} // namespace

// The same bits on every build and machine (the model's own exp, sin and log): the value
// below was rendered by an optimised build and must come out of the sanitised debug build
// unchanged. Each stroke, key, place, release and switch sounds its own.
TEST(SwitchModel, RendersAreBitIdenticalAcrossBuildsAndDifferByStrokeKeyAndSwitch) {
    const KeyPlacement g = *SwitchModel::placementOf("g");
    const auto press = SwitchModel::render(kProfile, g, 1, 2, false);
    EXPECT_EQ(test::fingerprint(press), 0x8ecc048f0b3eb072ULL)
        << std::hex << test::fingerprint(press);
    EXPECT_NE(press, SwitchModel::render(kProfile, g, 1, 3, false)); // another stroke
    EXPECT_NE(press, SwitchModel::render(kProfile, g, 4, 2, false)); // another key seed
    // Another place on the board, same seeds: other plate modes ring.
    EXPECT_NE(press, SwitchModel::render(kProfile, *SwitchModel::placementOf("q"), 1, 2, false));

    const auto release = SwitchModel::render(kProfile, g, 1, 2, true);
    const double quieter = rmsDb(press) - rmsDb(release);
    EXPECT_GT(quieter, 4.0);
    EXPECT_LT(quieter, 18.0);
    EXPECT_LT(lowShare(release), lowShare(press)); // a top-out rings the case less

    // A stabilised Space: lower, longer, and louder in the low case modes.
    const auto space =
        SwitchModel::render(kProfile, *SwitchModel::placementOf("space"), 1, 2, false);
    EXPECT_GT(lowShare(space), lowShare(press));
    EXPECT_GT(space.size(), press.size());

    // A linear switch is loudest as it lands; a clicky one clicks at once and bottoms
    // out about 10 ms later, the loudest moment.
    SwitchProfile clicky = kProfile;
    clicky.clickDb = 0;
    clicky.clickLeadMs = 10;
    const auto click = SwitchModel::render(clicky, g, 1, 2, false);
    EXPECT_LT(loudestMs(press), 3.0);
    EXPECT_GT(loudestMs(click), 8.0);
    EXPECT_GT(rmsDb(click, 96), rmsDb(click) - 25); // the click itself is clearly there
    // Tails are faded out, never cut off mid-swing.
    EXPECT_LT(std::fabs(click.back()), 1e-4f);
}

// Every modelled keyboard end to end (that its files load is the kit check's): a sound for
// every key name, enough variants, the groups filled, a family the catalogue understands and
// a level that never clips; and it measures inside the range of the recordings of its
// family, its spectrum shaped more like theirs than like any other family's. The thock is
// the darkest of them.
TEST(BundledKits, EachKeyboardCoversTheKeysAndSoundsLikeRecordingsOfItsFamily) {
    const auto ids = synthesizedKitIds();
    EXPECT_NE(std::find(ids.begin(), ids.end(), "gun-pistol"), ids.end());
    EXPECT_FALSE(synthesizedKit("no-such-kit"));
    std::map<double, std::string> byCentroid;
    for (const char* id :
         {"crisp-click", "silk-linear", "deep-linear", "velvet", "walnut-thock", "chalk-clack"}) {
        SCOPED_TRACE(id);
        EXPECT_NE(std::find(ids.begin(), ids.end(), id), ids.end());
        const auto kit = synthesizedKit(id);
        ASSERT_TRUE(kit);
        const SoundpackConfig& c = kit->config;
        ASSERT_TRUE(c.metadata.family && c.metadata.blurb);
        ASSERT_TRUE(KitCatalog::familyFrom(*c.metadata.family));
        for (KeyCode code = 0; code <= keys::mediaLast;
             code = code == 127 ? keys::mediaBase : code + 1) {
            const auto name = keyName(code);
            if (!name)
                continue;
            const auto found = c.sounds.find(*name);
            ASSERT_NE(found, c.sounds.end()) << *name;
            EXPECT_GE(found->second.down.size(), 3u) << *name;
            EXPECT_GE(found->second.up.size(), 2u) << *name;
        }
        for (const char* group : {"alpha", "default", "space", "enter", "backspace", "modifier"}) {
            const auto& sound = c.sounds.at(group);
            EXPECT_GE(std::set(sound.down.begin(), sound.down.end()).size(), 3u) << group;
            EXPECT_GE(std::set(sound.up.begin(), sound.up.end()).size(), 3u) << group;
        }
        // Space, Return, Backspace and the modifiers are sounds of their own.
        const auto& alpha = c.sounds.at("alpha").down;
        for (const char* special : {"space", "enter", "backspace", "modifier"}) {
            for (const std::string& file : c.sounds.at(special).down)
                EXPECT_EQ(std::find(alpha.begin(), alpha.end(), file), alpha.end()) << special;
        }
        float peak = 0;
        for (const auto& [file, samples] : kit->files) {
            for (float s : samples)
                peak = std::max(peak, std::fabs(s));
        }
        EXPECT_GT(peak, 0.8f);
        EXPECT_LE(peak, 0.9f);

        const KitFigures f = KitFigures::ofKit(
            c, [&](const std::string& file) { return std::optional(kit->files.at(file)); });
        const auto own =
            std::find_if(std::begin(kRecorded), std::end(kRecorded),
                         [&](const Recorded& r) { return r.family == *c.metadata.family; });
        ASSERT_NE(own, std::end(kRecorded));
        EXPECT_GE(f.presses, 200u);
        EXPECT_GE(f.centroidHz, own->centroidHz[0]);
        EXPECT_LE(f.centroidHz, own->centroidHz[1]);
        EXPECT_GE(f.flatness, own->flatness[0]);
        EXPECT_LE(f.flatness, own->flatness[1]);
        EXPECT_GE(f.decayMs, own->decayMs[0]);
        EXPECT_LE(f.decayMs, own->decayMs[1]);
        const double nearOwn = KitFigures::distance(f.envelope, own->envelope);
        for (const Recorded& other : kRecorded) {
            if (&other != own) {
                EXPECT_LT(nearOwn, KitFigures::distance(f.envelope, other.envelope))
                    << other.family;
            }
        }
        byCentroid[f.centroidHz] = id;
    }
    EXPECT_EQ(byCentroid.begin()->second, "walnut-thock");
}
