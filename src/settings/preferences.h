#pragma once

#include <QJsonValue>
#include <QString>

namespace tappix {

/// A per-user key–value store with typed values: booleans, numbers (64-bit integers
/// and doubles kept apart), strings, and JSON arrays or objects. Main thread only.
class Preferences {
public:
    virtual ~Preferences() = default;

    /// The value under `key`, or an undefined value when the key holds nothing.
    virtual QJsonValue value(const QString& key) const = 0;

    /// Whether the key holds any value.
    virtual bool contains(const QString& key) const = 0;

    /// Stores `value` under `key`; an undefined value removes the key.
    virtual void setValue(const QString& key, const QJsonValue& value) = 0;

    /// Removes the key.
    virtual void remove(const QString& key) = 0;

    /// Writes any pending change to durable storage now.
    virtual void sync() = 0;
};

} // namespace tappix
