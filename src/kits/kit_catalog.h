#pragma once

#include "kits/soundpack_store.h"
#include "kits/synth_engine.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tappix {

/// What Tappix knows about the kits it ships: each one's shelf (family), whether it
/// is featured, its one-line description, and the labels of kits' sounds.
namespace KitCatalog {

/// The shelves kits are shown on, in listing order.
enum class Family { tactile, linear, clicky, retro, fun, meme, mouse };

/// Every family in listing order.
inline constexpr std::array<Family, 7> kFamilies{Family::tactile, Family::linear, Family::clicky,
                                                 Family::retro,   Family::fun,    Family::meme,
                                                 Family::mouse};

/// "tactile", "linear", …
std::string_view rawValue(Family family);
/// "Tactile", "Linear", …
std::string title(Family family);
/// Exact raw value to family; anything else (e.g. "Clicky") is none.
std::optional<Family> familyFrom(std::string_view raw);

/// The catalogue's record of one kit.
struct Entry {
    /// Its shelf.
    Family family;
    /// Shown first on its shelf.
    bool featured;
    /// One-line description.
    std::string_view blurb;
};

/// The entry for a kit id, or none.
std::optional<Entry> entry(std::string_view kitId);
/// Every catalogued kit id, in catalogue order.
const std::vector<std::string_view>& ids();

/// The kit's family: the catalogue's, else its manifest's when it is an exact raw value.
std::optional<Family> family(const Soundpack& pack);
/// Whether the catalogue features the kit.
bool featured(const Soundpack& pack);
/// The catalogue's blurb, else the manifest's.
std::optional<std::string> blurb(const Soundpack& pack);
/// Whether `a` lists before `b`: featured first, then by name.
bool listsBefore(const Soundpack& a, const Soundpack& b);
/// The kits of one family among `packs`, in listing order.
std::vector<const Soundpack*> kits(const std::vector<Soundpack>& packs, Family family);
/// The label of one of a kit's sound keys: the manifest's label, the kit's built-in
/// label, the generic label, or the key made readable ("shiftLeft" → "Shift Left").
std::string soundLabel(const SoundpackConfig& config, std::string_view soundKey);

} // namespace KitCatalog

/// What a mouse click sounds like: a synthesised profile, a kit's sounds, or the
/// keyboard's kit.
struct MouseSoundOption {
    /// Follow the keyboard's current kit.
    struct MatchKeyboard {
        friend bool operator==(const MatchKeyboard&, const MatchKeyboard&) = default;
    };
    /// The choice: a profile, a kit id, or the keyboard's kit.
    std::variant<SynthEngine::MouseProfile, std::string, MatchKeyboard> choice;

    /// Parses the stored form: "match-keyboard", "synth-<profile>", or else a kit id.
    static MouseSoundOption parse(std::string_view text);
    /// The stored form.
    std::string toString() const;

    friend bool operator==(const MouseSoundOption&, const MouseSoundOption&) = default;
};

} // namespace tappix
