#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tappix {

/// A kit's manifest (`config.json`): identity, description, licence and the sample
/// files offered for each sound key ("a", "enter", "alpha", "default", …).
struct SoundpackConfig {
    /// Descriptive fields.
    struct Metadata {
        /// Display name.
        std::string name;
        /// Maker of the switch or recording.
        std::string brand;
        /// Who recorded or made the kit.
        std::string author;
        /// Whether the `up` lists hold release sounds worth playing.
        bool supportsKeyUp = false;
        /// "keyboard" or "mouse".
        std::string category = "keyboard";
        /// Family in the catalogue's vocabulary, for kits the catalogue does not list.
        std::optional<std::string> family;
        /// One-line description, for kits the catalogue does not list.
        std::optional<std::string> blurb;
        /// Optional list of key names, carried with the manifest.
        std::optional<std::vector<std::string>> keys;

        friend bool operator==(const Metadata&, const Metadata&) = default;
    };

    /// Where the recordings come from.
    struct License {
        /// E.g. "GPL-2.0-or-later" or "user-created".
        std::string type;
        /// Where to read more; may be empty.
        std::string url;

        friend bool operator==(const License&, const License&) = default;
    };

    /// Interchangeable sample files (relative to `sounds/`) for a key going down and up.
    struct KeySound {
        /// Press variants.
        std::vector<std::string> down;
        /// Release variants.
        std::vector<std::string> up;

        friend bool operator==(const KeySound&, const KeySound&) = default;
    };

    /// Identifier used everywhere else (selection, mixes, tunings, catalogue).
    std::string id;
    /// Descriptive fields.
    Metadata metadata;
    /// Licence of the recordings.
    License license;
    /// Sound sets by sound key. `std::less<>` allows lookup by `string_view` without allocating.
    std::map<std::string, KeySound, std::less<>> sounds;
    /// Display labels of sound keys (e.g. "enter" → "Reload").
    std::map<std::string, std::string, std::less<>> labels;

    /// Decodes a manifest strictly: required fields present with their types, optional
    /// ones absent, null or of their type; unknown fields ignored. On failure `error`
    /// gets a plain-words reason.
    static std::optional<SoundpackConfig> decode(const QByteArray& json,
                                                 std::string* error = nullptr);

    /// The manifest as a JSON object, optional fields left out when unset.
    QJsonObject toJson() const;

    /// The keys whose `down` list is non-empty: "default", "alpha", "space", "enter",
    /// "backspace", "modifier" first (those present, in that order), then the rest sorted.
    std::vector<std::string> orderedSoundKeys() const;

    /// Every distinct sample file the manifest names, in first-mention order.
    std::vector<std::string> allFiles() const;

    friend bool operator==(const SoundpackConfig&, const SoundpackConfig&) = default;
};

} // namespace tappix
