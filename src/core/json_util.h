#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <optional>

namespace tappix {

/// A 32-bit float as the JSON number with the fewest digits that reads back as the
/// same float, so files say 0.04 rather than 0.03999999910593033.
double jsonFloat(float value);

/// Reads an optional string member: absent and null both give none. Returns false
/// when the member is present with another type (the record then fails to decode).
bool readOptionalString(const QJsonObject& object, const QString& key, std::optional<QString>& out);

/// Reads a required number member as a 32-bit float; false when absent or not a number.
bool readRequiredFloat(const QJsonObject& object, const QString& key, float& out);

/// Reads a required string member; false when absent or not a string.
bool readRequiredString(const QJsonObject& object, const QString& key, QString& out);

} // namespace tappix
