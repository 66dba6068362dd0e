#include "kits/kit_catalog.h"

#include <gtest/gtest.h>

using namespace tappix;

namespace {

Soundpack pack(const char* id, const char* name, std::optional<std::string> family = std::nullopt) {
    Soundpack p;
    p.config.id = id;
    p.config.metadata.name = name;
    p.config.metadata.family = std::move(family);
    return p;
}

} // namespace

TEST(KitCatalog, FamiliesFeaturedOrderAndBlurbs) {
    const std::vector<Soundpack> packs{pack("holy-panda-v2", "Holy Panda V2"),
                                       pack("cherry-mx-brown-abs", "Cherry MX Brown"),
                                       pack("everglide-crystal-purple", "Everglide Crystal Purple"),
                                       pack("drop-holy-panda", "Drop Holy Panda"),
                                       pack("mine", "Mine", "Clicky"),
                                       pack("ours", "Ours", "tactile")};
    std::vector<std::string> tactile;
    for (const Soundpack* p : KitCatalog::kits(packs, KitCatalog::Family::tactile))
        tactile.push_back(p->config.id);
    EXPECT_EQ(tactile, (std::vector<std::string>{"drop-holy-panda", "everglide-crystal-purple",
                                                 "cherry-mx-brown-abs", "holy-panda-v2", "ours"}));
    EXPECT_FALSE(KitCatalog::family(packs[4])); // "Clicky" is not a family
    EXPECT_TRUE(KitCatalog::blurb(packs[3]));   // from the catalogue: the manifest has none
}

TEST(KitCatalog, SoundLabels) {
    SoundpackConfig config;
    config.id = "gun-shotgun";
    config.labels["space"] = "Big one";
    EXPECT_EQ(KitCatalog::soundLabel(config, "space"), "Big one");
    EXPECT_EQ(KitCatalog::soundLabel(config, "enter"), "Pump reload");
    EXPECT_EQ(KitCatalog::soundLabel(config, "alpha"), "Ordinary keys");
    EXPECT_EQ(KitCatalog::soundLabel(config, "ctrlLeft"), "Ctrl Left");
    EXPECT_EQ(KitCatalog::soundLabel(config, "f5"), "F5");
}

TEST(MouseSoundOption, ParsesAndPrintsItsStoredForm) {
    for (const char* text :
         {"synth-tick", "match-keyboard", "synth-loud", "Match-Keyboard", "razer-orochi-v2"})
        EXPECT_EQ(MouseSoundOption::parse(text).toString(), text);
    EXPECT_EQ(MouseSoundOption::parse("synth-tick").choice,
              (decltype(MouseSoundOption::choice){SynthEngine::MouseProfile::tick}));
    EXPECT_TRUE(std::holds_alternative<std::string>(MouseSoundOption::parse("synth-loud").choice));
    EXPECT_TRUE(
        std::holds_alternative<std::string>(MouseSoundOption::parse("Match-Keyboard").choice));
    EXPECT_TRUE(std::holds_alternative<MouseSoundOption::MatchKeyboard>(
        MouseSoundOption::parse("match-keyboard").choice));
}
