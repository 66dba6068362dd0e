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

// A kit's own label first, then the catalogue's, then the key's name in words.
TEST(KitCatalog, SoundLabels) {
    SoundpackConfig config;
    config.id = "gun-shotgun";
    config.labels["space"] = "Big one";
    EXPECT_EQ(KitCatalog::soundLabel(config, "space"), "Big one");
    EXPECT_EQ(KitCatalog::soundLabel(config, "enter"), "Pump reload");
    EXPECT_EQ(KitCatalog::soundLabel(config, "ctrlLeft"), "Ctrl Left");
}

// A synthesised profile and "match-keyboard" by their exact names; anything else a kit id.
TEST(MouseSoundOption, ParsesAndPrintsItsStoredForm) {
    const std::pair<const char*, std::size_t> cases[] = {{"synth-tick", 0},
                                                         {"synth-loud", 1},
                                                         {"Match-Keyboard", 1},
                                                         {"razer-orochi-v2", 1},
                                                         {"match-keyboard", 2}};
    for (const auto& [text, kind] : cases) {
        EXPECT_EQ(MouseSoundOption::parse(text).toString(), text);
        EXPECT_EQ(MouseSoundOption::parse(text).choice.index(), kind) << text;
    }
    EXPECT_EQ(std::get<0>(MouseSoundOption::parse("synth-tick").choice),
              SynthEngine::MouseProfile::tick);
}
