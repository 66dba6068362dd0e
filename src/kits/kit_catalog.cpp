#include "kits/kit_catalog.h"

#include <QRegularExpression>
#include <QString>
#include <algorithm>

namespace tappix {
namespace KitCatalog {
namespace {

struct Row {
    std::string_view id;
    Entry entry;
};

constexpr Row kRows[] = {
    {"drop-holy-panda",
     {Family::tactile, true, "The community favourite: full, poppy, unmistakable"}},
    {"everglide-crystal-purple",
     {Family::tactile, true,
      "Bright and pronounced, the sound most keyboard apps ship as default"}},
    {"holy-panda-v2", {Family::tactile, false, "Holy Panda again, recorded row by row"}},
    {"cherry-mx-brown-abs",
     {Family::tactile, false, "The office classic: mild, slightly scratchy"}},
    {"purple-dome",
     {Family::linear, true,
      "Deep, hollow thock from a rubber dome, with every key recorded separately"}},
    {"novelkeys-cream", {Family::linear, true, "Famous for its dry, woody clack"}},
    {"velvet", {Family::linear, false, "Softer and rounder, a little muted"}},
    {"everglide-oreo", {Family::linear, false, "Muted and creamy, easy to live with all day"}},
    {"silk-linear", {Family::linear, false, "Smooth and rounded, with almost no rattle"}},
    {"deep-linear", {Family::linear, false, "Premium smoothness, higher pitched"}},
    {"cherry-mx-black-pbt", {Family::linear, false, "Firm and dark, a little muted"}},
    {"cherry-mx-blue-abs", {Family::clicky, true, "The archetypal loud clicky switch"}},
    {"crisp-click", {Family::clicky, false, "Sharper and tighter than the classic clicky"}},
    {"ibm-buckling-spring",
     {Family::retro, true, "1984 Model M: heavy, metallic, gloriously loud"}},
    {"gun-pistol", {Family::fun, false, "A sharp crack per key, and a full reload on return"}},
    {"gun-suppressed", {Family::fun, false, "Muted thumps, quiet enough to actually type with"}},
    {"gun-shotgun", {Family::fun, false, "A deep boom and a long tail; space hits hardest"}},
    {"razer-orochi-v2", {Family::mouse, true, "Real recorded mouse switch, left and right"}},
};

struct KitLabels {
    std::string_view id;
    std::array<std::string_view, 5> labels; // default, space, enter, backspace, modifier
};

constexpr KitLabels kKitLabels[] = {
    {"gun-pistol", {"Shot", "Heavy shot", "Reload", "Casing", "Trigger click"}},
    {"gun-suppressed", {"Muted shot", "Heavy muted shot", "Reload", "Casing", "Trigger click"}},
    {"gun-shotgun", {"Blast", "Heavy blast", "Pump reload", "Shell", "Trigger click"}},
};
constexpr std::array<std::string_view, 5> kLabelKeys{"default", "space", "enter", "backspace",
                                                     "modifier"};

constexpr std::pair<std::string_view, std::string_view> kGenericLabels[] = {
    {"default", "Every other key"},
    {"alpha", "Ordinary keys"},
    {"space", "Space"},
    {"enter", "Return"},
    {"backspace", "Backspace"},
    {"modifier", "Modifiers"},
};

} // namespace

std::string_view rawValue(Family family) {
    switch (family) {
    case Family::tactile:
        return "tactile";
    case Family::linear:
        return "linear";
    case Family::clicky:
        return "clicky";
    case Family::retro:
        return "retro";
    case Family::fun:
        return "fun";
    case Family::meme:
        return "meme";
    case Family::mouse:
        return "mouse";
    }
    return "tactile";
}

std::string title(Family family) {
    std::string text(rawValue(family));
    text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
}

std::optional<Family> familyFrom(std::string_view raw) {
    for (Family family : kFamilies) {
        if (rawValue(family) == raw)
            return family;
    }
    return std::nullopt;
}

std::optional<Entry> entry(std::string_view kitId) {
    for (const Row& row : kRows) {
        if (row.id == kitId)
            return row.entry;
    }
    return std::nullopt;
}

const std::vector<std::string_view>& ids() {
    static const std::vector<std::string_view> all = [] {
        std::vector<std::string_view> out;
        for (const Row& row : kRows)
            out.push_back(row.id);
        return out;
    }();
    return all;
}

std::optional<Family> family(const Soundpack& pack) {
    if (auto found = entry(pack.config.id))
        return found->family;
    if (pack.config.metadata.family)
        return familyFrom(*pack.config.metadata.family);
    return std::nullopt;
}

bool featured(const Soundpack& pack) {
    const auto found = entry(pack.config.id);
    return found && found->featured;
}

std::optional<std::string> blurb(const Soundpack& pack) {
    if (auto found = entry(pack.config.id))
        return std::string(found->blurb);
    return pack.config.metadata.blurb;
}

bool listsBefore(const Soundpack& a, const Soundpack& b) {
    const bool fa = featured(a), fb = featured(b);
    if (fa != fb)
        return fa;
    return a.config.metadata.name < b.config.metadata.name;
}

std::vector<const Soundpack*> kits(const std::vector<Soundpack>& packs, Family wanted) {
    std::vector<const Soundpack*> out;
    for (const Soundpack& pack : packs) {
        if (family(pack) == wanted)
            out.push_back(&pack);
    }
    std::stable_sort(out.begin(), out.end(),
                     [](const Soundpack* a, const Soundpack* b) { return listsBefore(*a, *b); });
    return out;
}

std::string soundLabel(const SoundpackConfig& config, std::string_view soundKey) {
    if (auto it = config.labels.find(soundKey); it != config.labels.end())
        return it->second;
    for (const KitLabels& kit : kKitLabels) {
        if (kit.id != config.id)
            continue;
        for (std::size_t i = 0; i < kLabelKeys.size(); ++i) {
            if (kLabelKeys[i] == soundKey)
                return std::string(kit.labels[i]);
        }
    }
    for (const auto& [key, label] : kGenericLabels) {
        if (key == soundKey)
            return std::string(label);
    }
    static const QRegularExpression kCamel(QStringLiteral("([a-z])([A-Z])"));
    QString readable = QString::fromUtf8(soundKey.data(), static_cast<qsizetype>(soundKey.size()));
    readable.replace(kCamel, QStringLiteral("\\1 \\2"));
    if (!readable.isEmpty())
        readable[0] = readable[0].toUpper();
    return readable.toStdString();
}

} // namespace KitCatalog

MouseSoundOption MouseSoundOption::parse(std::string_view text) {
    if (text == "match-keyboard")
        return {MatchKeyboard{}};
    constexpr std::string_view kSynth = "synth-";
    if (text.substr(0, kSynth.size()) == kSynth) {
        if (auto profile = SynthEngine::mouseProfileFrom(text.substr(kSynth.size())))
            return {*profile};
    }
    return {std::string(text)};
}

std::string MouseSoundOption::toString() const {
    if (const auto* profile = std::get_if<SynthEngine::MouseProfile>(&choice))
        return "synth-" + std::string(SynthEngine::rawValue(*profile));
    if (const auto* kit = std::get_if<std::string>(&choice))
        return *kit;
    return "match-keyboard";
}

} // namespace tappix
