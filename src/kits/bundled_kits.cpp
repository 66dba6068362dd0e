#include "kits/bundled_kits.h"

#include "input/key_group.h"
#include "kits/synth_engine.h"

#include <QDir>
#include <algorithm>
#include <cmath>

namespace tappix {
namespace {

using Samples = std::vector<float>;
constexpr float kRate = 48000.0f;
constexpr float kTwoPi = 6.283185f;

/// Groups every bundled kit fills, with how a group differs from ordinary keys.
struct GroupShape {
    const char* key;
    float body, decay, click;
};
constexpr GroupShape kGroups[] = {
    {"alpha", 1.0f, 1.0f, 1.0f},     {"space", 0.68f, 1.45f, 1.1f},
    {"enter", 0.82f, 1.25f, 1.05f},  {"backspace", 0.9f, 1.1f, 1.0f},
    {"modifier", 1.12f, 0.9f, 0.8f},
};
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

/// A switch kit: every group rendered from one set of parameters, varied per variant.
BundledKit switchKit(const char* id, const char* name, const char* blurb, SynthParams base,
                     std::uint64_t seed) {
    BundledKit kit{manifest(id, name, blurb), {}};
    for (const GroupShape& group : kGroups) {
        for (int v = 0; v < kDownVariants + kUpVariants; ++v) {
            const bool down = v < kDownVariants;
            SynthParams p = base;
            const float spread = 1.0f + 0.025f * static_cast<float>((v % 4) - 1.5f);
            p.bodyHz = base.bodyHz * group.body * spread;
            p.decayMs = base.decayMs * group.decay;
            p.click = base.click * group.click;
            const std::string file = std::string(group.key) + (down ? "_down_" : "_up_") +
                                     std::to_string(down ? v : v - kDownVariants) + ".wav";
            add(kit, group.key, down, file,
                SynthEngine::render(p, seed + static_cast<std::uint64_t>(v * 7919), !down));
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

BundledKit gunKit(const char* id, const char* name, const char* blurb, const GunStyle& style,
                  Samples (*reload)(std::uint64_t), float spaceHeaviness, std::uint64_t seed) {
    BundledKit kit{manifest(id, name, blurb), {}};
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

std::vector<BundledKit> synthesizedKits() {
    std::vector<BundledKit> kits;
    kits.push_back(switchKit("crisp-click", "Crisp Click",
                             "Sharper and tighter than the classic clicky",
                             {640, 1.0f, 7.0f, 12000, true}, 11));
    kits.push_back(switchKit("silk-linear", "Silk Linear",
                             "Smooth and rounded, with almost no rattle",
                             {300, 0.3f, 12.0f, 4500, false}, 23));
    kits.push_back(switchKit("deep-linear", "Deep Linear", "Premium smoothness, higher pitched",
                             {540, 0.35f, 9.0f, 7000, false}, 37));
    kits.push_back(switchKit("velvet", "Velvet", "Softer and rounder, a little muted",
                             {230, 0.2f, 15.0f, 2800, false}, 41));
    const GunStyle pistol{1.0f, 9000, 140, 0.02f, 0.5f, 0.06f, 2500, 0.35f, 0.85f};
    const GunStyle suppressed{0.25f, 1800, 95, 0.018f, 0.3f, 0.04f, 900, 0.25f, 0.45f};
    const GunStyle shotgun{0.9f, 6000, 62, 0.09f, 0.8f, 0.28f, 1400, 0.9f, 0.8f};
    kits.push_back(gunKit("gun-pistol", "Pistol",
                          "A sharp crack per key, and a full reload on return", pistol,
                          pistolReload, 1.15f, 101));
    kits.push_back(gunKit("gun-suppressed", "Suppressed",
                          "Muted thumps, quiet enough to actually type with", suppressed,
                          pistolReload, 1.1f, 202));
    kits.push_back(gunKit("gun-shotgun", "Shotgun",
                          "A deep boom and a long tail; space hits hardest", shotgun, pumpReload,
                          1.2f, 303));
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
