#include "kits/bundled_kits.h"

#include "input/key_codes.h"
#include "input/key_group.h"
#include "kits/switch_model.h"
#include "kits/synth_engine.h"

#include <QDir>
#include <algorithm>
#include <cmath>
#include <set>
#include <string_view>

namespace tappix {
namespace {

using Samples = std::vector<float>;
constexpr float kRate = 48000.0f;
constexpr float kTwoPi = 6.283185f;

constexpr int kDownVariants = 4;
constexpr int kUpVariants = 3;

SoundpackConfig manifest(const char* id, const char* name, const char* blurb) {
    SoundpackConfig config;
    config.id = id;
    config.metadata.name = name;
    config.metadata.brand = "Tappix";
    config.metadata.author = "Synthesised by Tappix";
    config.metadata.supportsKeyUp = true;
    config.metadata.blurb = blurb;
    config.license = {"GPL-3.0-or-later", ""};
    return config;
}

void add(BundledKit& kit, const std::string& key, bool down, const std::string& file,
         Samples samples) {
    auto& sound = kit.config.sounds[key];
    (down ? sound.down : sound.up).push_back(file);
    kit.files[file] = std::move(samples);
}

void normalise(Samples& samples, float peakTarget) {
    float peak = 0.0f;
    for (float s : samples)
        peak = std::max(peak, std::fabs(s));
    if (peak > 0.0f)
        for (float& s : samples)
            s = s / peak * peakTarget;
}

// --- Modelled keyboards ---------------------------------------------------------------
//
// Each keyboard kit is rendered key by key by the switch model (kits/switch_model.cpp,
// which describes the model and its sources) from one profile: the table below. Every
// key name Tappix knows gets its own presses and releases, placed where the key sits on
// the board; the group sounds reuse them.

struct ModelledKit {
    std::string_view id;
    const char* name;
    const char* blurb;
    const char* family;
    SwitchProfile profile;
    std::uint64_t seed;
};

// clang-format off
const ModelledKit kModelledKits[] = {
    // A clicky switch, tighter than the classic: hard contact, a loud bright leaf, a
    // housing that rings high, short-lived modes.
    {"crisp-click", "Crisp Click", "Sharper and tighter than the classic clicky", "clicky",
     {.contactMs = 0.3, .noiseDb = 2.5, .noiseDecayMs = 1.5, .noiseLowHz = 1200,
      .noiseHighHz = 12000, .buzzDb = -26, .tailDb = 11.8, .tailHz = 2340, .tailQ = 0.87,
      .tailDecayMs = 12.4, .plateHz = 520, .plateDecayMs = 18, .plateDb = -22.5, .caseHz = 230,
      .caseDecayMs = 18, .caseDb = -14, .capHz = 3340, .capDecayMs = 6, .capDb = 6,
      .housingHz = 4800, .housingDecayMs = 6, .housingDb = 15.8, .springHz = 3400,
      .springDecayMs = 40, .springDb = -26, .clickDb = -1.5, .clickHz = 4300,
      .clickDecayMs = 1.2, .clickLeadMs = 8, .rattleDb = -22, .releaseDb = -11,
      .releaseContactMs = 0.25, .radiateHz = 800},
     11},
    // A lubricated linear: soft contact, a thin board, little spring or wire.
    {"silk-linear", "Silk Linear", "Smooth and rounded, with almost no rattle", "linear",
     {.contactMs = 0.7, .noiseDb = 5, .noiseDecayMs = 2.5, .noiseLowHz = 500,
      .noiseHighHz = 7000, .buzzDb = -23, .tailDb = 10, .tailHz = 1090, .tailQ = 0.5,
      .tailDecayMs = 18, .plateHz = 380, .plateDecayMs = 16, .plateDb = -15.5, .caseHz = 170,
      .caseDecayMs = 30, .caseDb = -8.5, .capHz = 1700, .capDecayMs = 7, .capDb = 6,
      .housingHz = 3600, .housingDecayMs = 3, .housingDb = -8, .springHz = 4800,
      .springDecayMs = 40, .springDb = -34, .rattleDb = -34, .releaseDb = -8,
      .releaseContactMs = 0.45, .muteHz = 12000, .radiateHz = 1070},
     23},
    // A smooth linear with thin caps on a stiff plate: hard contact, caps and housing
    // ringing high.
    {"deep-linear", "Deep Linear", "Premium smoothness, higher pitched", "linear",
     {.contactMs = 0.29, .noiseDb = 4.5, .noiseDecayMs = 3.1, .noiseLowHz = 800,
      .noiseHighHz = 10000, .buzzDb = -15.5, .tailDb = 4, .tailHz = 1180, .tailQ = 0.47,
      .tailDecayMs = 19.5, .plateHz = 800, .plateDecayMs = 20, .plateDb = -16, .caseHz = 260,
      .caseDecayMs = 24, .caseDb = -18, .capHz = 3400, .capDecayMs = 12, .capDb = 6.7,
      .housingHz = 4600, .housingDecayMs = 3, .housingDb = -5.5, .springHz = 3600,
      .springDecayMs = 40, .springDb = -19.7, .rattleDb = -30, .releaseDb = -9,
      .releaseContactMs = 0.3, .radiateHz = 700, .keySpread = 0.06},
     37},
    // Soft contact on a dampened board: low caps, the highs filtered away.
    {"velvet", "Velvet", "Softer and rounder, a little muted", "linear",
     {.contactMs = 0.68, .noiseDb = 10, .noiseDecayMs = 1.2, .noiseLowHz = 300,
      .noiseHighHz = 6000, .buzzDb = -26, .tailDb = 13, .tailHz = 1500, .tailQ = 0.5,
      .tailDecayMs = 20.5, .plateHz = 300, .plateDecayMs = 12, .plateDb = -12.5, .caseHz = 150,
      .caseDecayMs = 32, .caseDb = -11.5, .capHz = 1230, .capDecayMs = 11, .capDb = 9,
      .housingHz = 3000, .housingDecayMs = 2, .housingDb = -6, .springHz = 4200,
      .springDecayMs = 25, .springDb = -39.5, .rattleDb = -32, .releaseDb = -8,
      .releaseContactMs = 0.6, .muteHz = 6200, .radiateHz = 530},
     41},
    // Thick caps over a heavy case with a deep cavity: the darkest board.
    {"walnut-thock", "Walnut Thock", "Deep, full thock from a heavy, dampened case", "linear",
     {.contactMs = 0.75, .noiseDb = 20, .noiseDecayMs = 1.0, .noiseLowHz = 400,
      .noiseHighHz = 6500, .buzzDb = -24, .tailDb = 18.5, .tailHz = 1300, .tailQ = 0.5,
      .tailDecayMs = 25, .plateHz = 260, .plateDecayMs = 18, .plateDb = -14.3, .caseHz = 180,
      .caseDecayMs = 45, .caseDb = -4, .capHz = 1100, .capDecayMs = 9, .capDb = 6.5,
      .housingHz = 3200, .housingDecayMs = 3, .housingDb = -12, .springHz = 4500,
      .springDecayMs = 35, .springDb = -38, .rattleDb = -26, .releaseDb = -7,
      .releaseContactMs = 0.5, .muteHz = 5000, .radiateHz = 620},
     53},
    // Hard thin caps on a bare plate in a hollow case, with a tactile bump before each
    // clack.
    {"chalk-clack", "Chalk Clack", "Bright, hollow clack with a crisp tactile bump", "tactile",
     {.contactMs = 0.25, .noiseDb = 6, .noiseDecayMs = 2.5, .noiseLowHz = 1500,
      .noiseHighHz = 13000, .buzzDb = -18.5, .tailDb = 2.5, .tailHz = 1180, .tailQ = 0.53,
      .tailDecayMs = 20, .plateHz = 700, .plateDecayMs = 16, .plateDb = -25, .caseHz = 300,
      .caseDecayMs = 15, .caseDb = -7.3, .capHz = 3400, .capDecayMs = 11.3, .capDb = 6,
      .housingHz = 5200, .housingDecayMs = 5, .housingDb = -2, .springHz = 3800,
      .springDecayMs = 45, .springDb = -26.3, .bumpDb = -14, .bumpLeadMs = 12,
      .rattleDb = -18, .releaseDb = -8, .releaseContactMs = 0.2, .radiateHz = 160},
     67},
};
// clang-format on

/// Presses and releases rendered for every key, and for the keys that are groups too.
constexpr int kKeyPresses = 3, kKeyReleases = 2;
constexpr int kGroupKeyPresses = kDownVariants, kGroupKeyReleases = kUpVariants;
/// The keys whose first press and release stand for the "alpha" (and "default") and
/// "modifier" groups.
constexpr std::string_view kAlphaKeys[] = {"a", "s", "d", "f", "j", "k", "l", ";"};
constexpr std::string_view kModifierKeys[] = {"shiftLeft", "ctrlLeft",   "optionLeft",
                                              "command",   "shiftRight", "optionRight"};
/// Peak of the loudest sound of a modelled kit.
constexpr float kKitPeak = 0.89f;

/// File-name stems of the key names that are not letters or digits.
constexpr std::pair<std::string_view, std::string_view> kFileStems[] = {
    {"`", "grave"},        {"-", "minus"},      {"=", "equal"},     {"[", "bracketLeft"},
    {"]", "bracketRight"}, {"\\", "backslash"}, {";", "semicolon"}, {"'", "quote"},
    {",", "comma"},        {".", "period"},     {"/", "slash"},
};

std::string fileStem(std::string_view keyName) {
    for (const auto& [name, stem] : kFileStems) {
        if (name == keyName)
            return std::string(stem);
    }
    return std::string(keyName);
}

/// FNV-1a: a stable hash of a key name, for its seed.
std::uint64_t nameHash(std::string_view name) {
    std::uint64_t h = 14695981039346656037ULL;
    for (char c : name) {
        h ^= static_cast<unsigned char>(c);
        h *= 1099511628211ULL;
    }
    return h;
}

/// Every key name a key can look up, in sorted order.
std::vector<std::string> allKeyNames() {
    std::set<std::string> names;
    const auto collect = [&](KeyCode code) {
        if (const auto name = keyName(code))
            names.emplace(*name);
    };
    for (KeyCode code = 0; code < 128; ++code)
        collect(code);
    for (KeyCode code = keys::mediaBase; code <= keys::mediaLast; ++code)
        collect(code);
    return {names.begin(), names.end()};
}

BundledKit modelledKit(const ModelledKit& model) {
    BundledKit kit{manifest(std::string(model.id).c_str(), model.name, model.blurb), {}};
    kit.config.metadata.family = model.family;
    for (const std::string& name : allKeyNames()) {
        const auto placement = SwitchModel::placementOf(name);
        if (!placement)
            continue; // every name has a place; a new one falls back to "alpha"
        const bool isGroup = name == "space" || name == "enter" || name == "backspace";
        const int presses = isGroup ? kGroupKeyPresses : kKeyPresses;
        const int releases = isGroup ? kGroupKeyReleases : kKeyReleases;
        const std::uint64_t keySeed = model.seed * 1000003ULL ^ nameHash(name);
        for (int v = 0; v < presses + releases; ++v) {
            const bool down = v < presses;
            const int variant = down ? v : v - presses;
            const std::uint64_t pressSeed =
                keySeed + static_cast<std::uint64_t>(v + 1) * 0x9E3779B97F4A7C15ULL;
            add(kit, name, down,
                "key-" + fileStem(name) + (down ? "-down-" : "-up-") + std::to_string(variant) +
                    ".wav",
                SwitchModel::render(model.profile, *placement, keySeed, pressSeed, !down));
        }
    }
    // The groups: the first press and release of the keys that stand for them.
    auto& sounds = kit.config.sounds;
    for (std::string_view key : kAlphaKeys) {
        for (const char* group : {"alpha", "default"}) {
            sounds[group].down.push_back(sounds[std::string(key)].down.front());
            sounds[group].up.push_back(sounds[std::string(key)].up.front());
        }
    }
    for (std::string_view key : kModifierKeys) {
        sounds["modifier"].down.push_back(sounds[std::string(key)].down.front());
        sounds["modifier"].up.push_back(sounds[std::string(key)].up.front());
    }
    // One gain for the whole kit keeps the differences between keys and between
    // presses and releases.
    float peak = 0.0f;
    for (const auto& [file, samples] : kit.files) {
        for (float s : samples)
            peak = std::max(peak, std::fabs(s));
    }
    if (peak > 0.0f) {
        const float gain = kKitPeak / peak;
        for (auto& [file, samples] : kit.files) {
            for (float& s : samples)
                s *= gain;
        }
    }
    return kit;
}

// Effects for the gun kits, built from noise and decaying partials.

Samples silence(float seconds) {
    return Samples(static_cast<std::size_t>(seconds * kRate), 0.0f);
}

void mixInto(Samples& target, const Samples& source, float atSeconds, float gain) {
    const auto offset = static_cast<std::size_t>(atSeconds * kRate);
    if (target.size() < offset + source.size())
        target.resize(offset + source.size(), 0.0f);
    for (std::size_t i = 0; i < source.size(); ++i)
        target[offset + i] += source[i] * gain;
}

/// Noise through a one-pole low-pass, with an exponential decay.
Samples noiseBurst(SynthEngine::Random& random, float seconds, float tauSeconds, float cornerHz) {
    Samples out = silence(seconds);
    const float a = 1.0f - std::exp(-kTwoPi * cornerHz / kRate);
    float y = 0.0f;
    for (std::size_t i = 0; i < out.size(); ++i) {
        const float t = static_cast<float>(i) / kRate;
        y += a * (random.noise() - y);
        out[i] = y * std::exp(-t / tauSeconds);
    }
    return out;
}

/// A low sine thump, for the body of a shot.
Samples thump(float seconds, float hz, float tauSeconds) {
    Samples out = silence(seconds);
    for (std::size_t i = 0; i < out.size(); ++i) {
        const float t = static_cast<float>(i) / kRate;
        out[i] = std::sin(kTwoPi * hz * t * (1.0f - 0.3f * t)) * std::exp(-t / tauSeconds);
    }
    return out;
}

/// Ringing metal: a few inharmonic partials.
Samples ring(float seconds, float hz, float tauSeconds) {
    Samples out = silence(seconds);
    for (std::size_t i = 0; i < out.size(); ++i) {
        const float t = static_cast<float>(i) / kRate;
        out[i] = (std::sin(kTwoPi * hz * t) + 0.6f * std::sin(kTwoPi * hz * 1.59f * t) +
                  0.35f * std::sin(kTwoPi * hz * 2.31f * t)) *
                 std::exp(-t / tauSeconds);
    }
    return out;
}

/// A short hard mechanical click.
Samples clack(std::uint64_t seed, float bodyHz, float gainScale = 1.0f) {
    Samples out = SynthEngine::render({bodyHz, 1.0f, 3.5f, 12000, true}, seed, false);
    for (float& s : out)
        s *= gainScale;
    return out;
}

struct GunStyle {
    float crack; // level of the bright crack
    float crackCorner;
    float thumpHz, thumpTau;
    float tail, tailTau, tailCorner;
    float length;
    float peak;
};

Samples shot(const GunStyle& style, std::uint64_t seed, float heaviness) {
    SynthEngine::Random random(seed);
    Samples out = silence(style.length * heaviness);
    mixInto(out, noiseBurst(random, 0.05f, 0.004f, style.crackCorner), 0.0f, style.crack);
    mixInto(out,
            thump(style.length * heaviness, style.thumpHz / heaviness, style.thumpTau * heaviness),
            0.0f, 1.0f);
    mixInto(
        out,
        noiseBurst(random, style.length * heaviness, style.tailTau * heaviness, style.tailCorner),
        0.002f, style.tail);
    normalise(out, std::min(0.95f, style.peak * heaviness));
    return out;
}

/// Magazine out, slide back, slide forward.
Samples pistolReload(std::uint64_t seed) {
    SynthEngine::Random random(seed);
    Samples out = silence(0.75f);
    mixInto(out, clack(seed, 900), 0.0f, 0.7f);
    mixInto(out, noiseBurst(random, 0.12f, 0.04f, 3000), 0.22f, 0.35f);
    mixInto(out, clack(seed + 1, 1400), 0.30f, 0.9f);
    mixInto(out, noiseBurst(random, 0.08f, 0.02f, 5000), 0.50f, 0.3f);
    mixInto(out, clack(seed + 2, 2100), 0.56f, 1.0f);
    normalise(out, 0.8f);
    return out;
}

/// The pump: back with a shuck, forward with a clack.
Samples pumpReload(std::uint64_t seed) {
    SynthEngine::Random random(seed);
    Samples out = silence(0.6f);
    mixInto(out, noiseBurst(random, 0.15f, 0.05f, 1800), 0.0f, 0.6f);
    mixInto(out, clack(seed, 700), 0.05f, 0.9f);
    mixInto(out, noiseBurst(random, 0.12f, 0.04f, 2200), 0.22f, 0.5f);
    mixInto(out, clack(seed + 1, 1100), 0.27f, 1.0f);
    normalise(out, 0.85f);
    return out;
}

/// A spent case bouncing: two tinks.
Samples casing(std::uint64_t seed) {
    Samples out = silence(0.35f);
    const float hz = 3100.0f + static_cast<float>(seed % 7) * 90.0f;
    mixInto(out, ring(0.2f, hz, 0.035f), 0.0f, 1.0f);
    mixInto(out, ring(0.15f, hz * 1.04f, 0.025f), 0.12f, 0.5f);
    normalise(out, 0.55f);
    return out;
}

struct GunKit {
    std::string_view id;
    const char* name;
    const char* blurb;
    GunStyle style;
    Samples (*reload)(std::uint64_t);
    float spaceHeaviness;
    std::uint64_t seed;
};

const GunKit kGunKits[] = {
    {"gun-pistol",
     "Pistol",
     "A sharp crack per key, and a full reload on return",
     {1.0f, 9000, 140, 0.02f, 0.5f, 0.06f, 2500, 0.35f, 0.85f},
     pistolReload,
     1.15f,
     101},
    {"gun-suppressed",
     "Suppressed",
     "Muted thumps, quiet enough to actually type with",
     {0.25f, 1800, 95, 0.018f, 0.3f, 0.04f, 900, 0.25f, 0.45f},
     pistolReload,
     1.1f,
     202},
    {"gun-shotgun",
     "Shotgun",
     "A deep boom and a long tail; space hits hardest",
     {0.9f, 6000, 62, 0.09f, 0.8f, 0.28f, 1400, 0.9f, 0.8f},
     pumpReload,
     1.2f,
     303},
};

BundledKit gunKit(const GunKit& gun) {
    const GunStyle& style = gun.style;
    const auto reload = gun.reload;
    const float spaceHeaviness = gun.spaceHeaviness;
    const std::uint64_t seed = gun.seed;
    BundledKit kit{manifest(std::string(gun.id).c_str(), gun.name, gun.blurb), {}};
    for (int v = 0; v < kDownVariants; ++v) {
        const auto s = seed + static_cast<std::uint64_t>(v) * 101;
        add(kit, "default", true, "shot_" + std::to_string(v) + ".wav", shot(style, s, 1.0f));
        add(kit, "space", true, "heavy_" + std::to_string(v) + ".wav",
            shot(style, s + 17, spaceHeaviness));
        add(kit, "backspace", true, "casing_" + std::to_string(v) + ".wav", casing(s));
        add(kit, "modifier", true, "trigger_" + std::to_string(v) + ".wav", clack(s, 2600, 0.6f));
    }
    for (int v = 0; v < 2; ++v)
        add(kit, "enter", true, "reload_" + std::to_string(v) + ".wav",
            reload(seed + 900 + static_cast<std::uint64_t>(v)));
    // Releases: the trigger resetting, soft and short.
    for (int v = 0; v < kUpVariants; ++v) {
        Samples reset = SynthEngine::render({1500, 0.5f, 3.0f, 9000, false},
                                            seed + 500 + static_cast<std::uint64_t>(v), true);
        for (float& x : reset)
            x *= 0.35f;
        for (const char* key : {"default", "space", "backspace", "modifier", "enter"})
            add(kit, key, false, "reset_" + std::to_string(v) + ".wav", reset);
    }
    return kit;
}

} // namespace

std::vector<std::string> synthesizedKitIds() {
    std::vector<std::string> ids;
    for (const ModelledKit& kit : kModelledKits)
        ids.emplace_back(kit.id);
    for (const GunKit& kit : kGunKits)
        ids.emplace_back(kit.id);
    return ids;
}

std::optional<BundledKit> synthesizedKit(std::string_view id) {
    for (const ModelledKit& kit : kModelledKits) {
        if (kit.id == id)
            return modelledKit(kit);
    }
    for (const GunKit& kit : kGunKits) {
        if (kit.id == id)
            return gunKit(kit);
    }
    return std::nullopt;
}

std::vector<BundledKit> synthesizedKits() {
    std::vector<BundledKit> kits;
    for (const std::string& id : synthesizedKitIds())
        kits.push_back(*synthesizedKit(id));
    return kits;
}

std::optional<BundledKit>
bucklingSpringKit(const QString& recordings, SampleDecoder& decoder,
                  const std::function<std::optional<KeyCode>(int)>& translate, std::string& error) {
    BundledKit kit;
    SoundpackConfig& c = kit.config;
    c.id = "ibm-buckling-spring";
    c.metadata.name = "Buckling Spring";
    c.metadata.brand = "IBM Model M";
    c.metadata.author = "Recorded key by key from a 1984 Model M (Debian's bucklespring-data)";
    c.metadata.supportsKeyUp = true;
    c.metadata.blurb = "1984 Model M: heavy, metallic, gloriously loud";
    c.license = {"GPL-2.0-or-later", "file:///usr/share/doc/bucklespring-data/copyright"};

    // Group sounds: a handful of home-row letters for ordinary keys, and the keys
    // themselves for space, Return, Backspace and the modifiers.
    const std::map<int, const char*> groupOf = {
        {0x1e, "alpha"},    {0x1f, "alpha"},    {0x20, "alpha"},     {0x21, "alpha"},
        {0x24, "alpha"},    {0x25, "alpha"},    {0x26, "alpha"},     {0x17, "alpha"},
        {0x39, "space"},    {0x1c, "enter"},    {0x0e, "backspace"}, {0x2a, "modifier"},
        {0x36, "modifier"}, {0x1d, "modifier"}, {0x38, "modifier"},
    };
    const QStringList presses =
        QDir(recordings).entryList({QStringLiteral("*-0.wav")}, QDir::Files, QDir::Name);
    for (const QString& press : presses) {
        bool ok = false;
        const int code = press.section(QLatin1Char('-'), 0, 0).toInt(&ok, 16);
        if (!ok)
            continue;
        const auto virtualCode = translate(code);
        // The key's own sound name, empty when Tappix has none for it.
        std::string name;
        if (virtualCode) {
            if (const auto known = keyName(*virtualCode))
                name.assign(known->data(), known->size());
        }
        const auto group = groupOf.find(code);
        if (name.empty() && group == groupOf.end())
            continue;
        const QString release = press.left(press.size() - 6) + QStringLiteral("-1.wav");
        char hex[8];
        std::snprintf(hex, sizeof hex, "%02x", code);
        for (const auto& [source, down] : {std::pair{press, true}, std::pair{release, false}}) {
            std::string problem;
            auto buffer = decoder.decode(recordings + QLatin1Char('/') + source, problem);
            if (!buffer)
                continue;
            const std::string file = std::string("key-") + hex + (down ? "-down.wav" : "-up.wav");
            kit.files[file] = std::move(buffer->samples);
            if (!name.empty()) {
                auto& sound = c.sounds[name];
                (down ? sound.down : sound.up).push_back(file);
            }
            if (group != groupOf.end() && name != group->second) {
                auto& sound = c.sounds[group->second];
                (down ? sound.down : sound.up).push_back(file);
                if (std::string_view(group->second) == "alpha") {
                    auto& fallback = c.sounds["default"];
                    (down ? fallback.down : fallback.up).push_back(file);
                }
            }
        }
    }
    if (!c.sounds.contains("alpha") || c.sounds["alpha"].down.empty()) {
        error = "no usable recordings in " + recordings.toStdString();
        return std::nullopt;
    }
    return kit;
}

} // namespace tappix
