#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <map>
#include <optional>
#include <vector>

namespace tappix {

/// What voices one keyboard region in a mix: a kit, and optionally one of its sounds.
struct MixVoice {
    /// The kit; none means the main kit.
    std::optional<QString> packId;
    /// The kit's sound every key of the region uses; none means the key picks ("Auto").
    std::optional<QString> sound;

    /// Whether neither field is set (such a voice is never stored).
    bool isEmpty() const { return !packId && !sound; }

    /// The JSON object, absent fields left out.
    QJsonObject toJson() const;

    /// Decoding: both members optional (null counts as absent), strings when present.
    static std::optional<MixVoice> fromJson(const QJsonValue& value);

    friend bool operator==(const MixVoice&, const MixVoice&) = default;
};

/// A named set of per-region voices.
struct SoundMix {
    /// Stable identifier, a slug of the name at creation.
    QString id;
    /// The name shown to the user.
    QString name;
    /// Voices keyed by region raw value ("letters", "enter", …). Keys the program
    /// does not know are kept so an edit never drops them.
    std::map<QString, MixVoice> assignments;

    /// The JSON object {"assignments", "id", "name"}.
    QJsonObject toJson() const;

    /// Strict decoding: all three members required.
    static std::optional<SoundMix> fromJson(const QJsonValue& value);

    /// Encodes a list of mixes as a JSON array.
    static QJsonArray toJsonArray(const std::vector<SoundMix>& mixes);

    /// Decodes a JSON array of mixes; any bad element fails the whole array.
    static std::optional<std::vector<SoundMix>> fromJsonArray(const QJsonValue& value);

    friend bool operator==(const SoundMix&, const SoundMix&) = default;
};

} // namespace tappix
