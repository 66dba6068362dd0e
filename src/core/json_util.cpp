#include "core/json_util.h"

#include <charconv>
#include <cstdlib>

namespace tappix {

double jsonFloat(float value) {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer - 1, value);
    *result.ptr = '\0';
    return std::strtod(buffer, nullptr);
}

bool readOptionalString(const QJsonObject& object, const QString& key,
                        std::optional<QString>& out) {
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) {
        out.reset();
        return true;
    }
    if (!value.isString())
        return false;
    out = value.toString();
    return true;
}

bool readRequiredFloat(const QJsonObject& object, const QString& key, float& out) {
    const QJsonValue value = object.value(key);
    if (!value.isDouble())
        return false;
    out = static_cast<float>(value.toDouble());
    return true;
}

bool readRequiredString(const QJsonObject& object, const QString& key, QString& out) {
    const QJsonValue value = object.value(key);
    if (!value.isString())
        return false;
    out = value.toString();
    return true;
}

} // namespace tappix
