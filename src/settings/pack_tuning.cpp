#include "settings/pack_tuning.h"

#include "core/json_util.h"

namespace tappix {

QJsonObject PackTuning::toJson() const {
    return QJsonObject{
        {QStringLiteral("pitch"), jsonFloat(pitch)},
        {QStringLiteral("gain"), jsonFloat(gain)},
        {QStringLiteral("variation"), jsonFloat(variation)},
        {QStringLiteral("panWidth"), jsonFloat(panWidth)},
    };
}

std::optional<PackTuning> PackTuning::fromJson(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    PackTuning tuning;
    if (!readRequiredFloat(object, QStringLiteral("pitch"), tuning.pitch) ||
        !readRequiredFloat(object, QStringLiteral("gain"), tuning.gain) ||
        !readRequiredFloat(object, QStringLiteral("variation"), tuning.variation) ||
        !readRequiredFloat(object, QStringLiteral("panWidth"), tuning.panWidth))
        return std::nullopt;
    return tuning;
}

} // namespace tappix
