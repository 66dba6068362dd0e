#include "settings/sound_mix.h"

#include "core/json_util.h"

namespace tappix {

QJsonObject MixVoice::toJson() const {
    QJsonObject object;
    if (packId)
        object.insert(QStringLiteral("packId"), *packId);
    if (sound)
        object.insert(QStringLiteral("sound"), *sound);
    return object;
}

std::optional<MixVoice> MixVoice::fromJson(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    MixVoice voice;
    if (!readOptionalString(object, QStringLiteral("packId"), voice.packId) ||
        !readOptionalString(object, QStringLiteral("sound"), voice.sound))
        return std::nullopt;
    return voice;
}

QJsonObject SoundMix::toJson() const {
    QJsonObject voices;
    for (const auto& [group, voice] : assignments)
        voices.insert(group, voice.toJson());
    return QJsonObject{
        {QStringLiteral("id"), id},
        {QStringLiteral("name"), name},
        {QStringLiteral("assignments"), voices},
    };
}

std::optional<SoundMix> SoundMix::fromJson(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    SoundMix mix;
    if (!readRequiredString(object, QStringLiteral("id"), mix.id) ||
        !readRequiredString(object, QStringLiteral("name"), mix.name))
        return std::nullopt;
    const QJsonValue voices = object.value(QStringLiteral("assignments"));
    if (!voices.isObject())
        return std::nullopt;
    const QJsonObject voiceObject = voices.toObject();
    for (auto it = voiceObject.begin(); it != voiceObject.end(); ++it) {
        auto voice = MixVoice::fromJson(it.value());
        if (!voice)
            return std::nullopt;
        mix.assignments.emplace(it.key(), std::move(*voice));
    }
    return mix;
}

QJsonArray SoundMix::toJsonArray(const std::vector<SoundMix>& mixes) {
    QJsonArray array;
    for (const SoundMix& mix : mixes)
        array.append(mix.toJson());
    return array;
}

std::optional<std::vector<SoundMix>> SoundMix::fromJsonArray(const QJsonValue& value) {
    if (!value.isArray())
        return std::nullopt;
    std::vector<SoundMix> mixes;
    for (const QJsonValue& element : value.toArray()) {
        auto mix = fromJson(element);
        if (!mix)
            return std::nullopt;
        mixes.push_back(std::move(*mix));
    }
    return mixes;
}

} // namespace tappix
