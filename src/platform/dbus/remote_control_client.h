#pragma once

#include <QDBusConnection>
#include <QString>
#include <QVariant>
#include <QVariantMap>

namespace tappix {

/// The other end of `RemoteControlService`: blocking calls to the running Tappix
/// on the session bus, each answered within a few seconds. Main thread of a
/// short-lived command-line process.
class RemoteControlClient {
public:
    /// How long one call may take before it counts as failed.
    static constexpr int kTimeoutMs = 5000;

    /// The outcome of one call.
    struct Result {
        /// The call was answered without an error.
        bool ok = false;
        /// No session bus, or no Tappix on it.
        bool notRunning = false;
        /// The D-Bus error name when `ok` is false and Tappix answered.
        QString errorName;
        /// A sentence for the user when `ok` is false.
        QString message;
        /// The returned value, when there is one.
        QVariant value;
    };

    /// A client on `bus` (the session bus by default).
    explicit RemoteControlClient(QDBusConnection bus = QDBusConnection::sessionBus());

    /// Whether a Tappix holds the name on the bus.
    bool isRunning() const;

    /// Calls a method of the control interface.
    Result call(const QString& method, const QVariantList& arguments = {}) const;

    /// Reads every property.
    Result properties() const;

    /// Writes one property.
    Result setProperty(const QString& name, const QVariant& value) const;

private:
    Result send(const QString& interface, const QString& method,
                const QVariantList& arguments) const;

    QDBusConnection bus_;
};

} // namespace tappix
