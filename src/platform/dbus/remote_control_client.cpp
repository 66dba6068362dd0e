#include "platform/dbus/remote_control_client.h"

#include "platform/dbus/remote_control_service.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>

namespace tappix {

RemoteControlClient::RemoteControlClient(QDBusConnection bus) : bus_(std::move(bus)) {}

bool RemoteControlClient::isRunning() const {
    if (!bus_.isConnected() || !bus_.interface())
        return false;
    return bus_.interface()->isServiceRegistered(
        QString::fromLatin1(RemoteControlService::kServiceName));
}

RemoteControlClient::Result RemoteControlClient::call(const QString& method,
                                                      const QVariantList& arguments) const {
    return send(QString::fromLatin1(RemoteControlService::kInterface), method, arguments);
}

RemoteControlClient::Result RemoteControlClient::properties() const {
    Result result =
        send(QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"),
             {QString::fromLatin1(RemoteControlService::kInterface)});
    if (result.ok)
        result.value = QVariant::fromValue(qdbus_cast<QVariantMap>(result.value));
    return result;
}

RemoteControlClient::Result RemoteControlClient::setProperty(const QString& name,
                                                             const QVariant& value) const {
    return send(QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"),
                {QString::fromLatin1(RemoteControlService::kInterface), name,
                 QVariant::fromValue(QDBusVariant(value))});
}

RemoteControlClient::Result RemoteControlClient::send(const QString& interface,
                                                      const QString& method,
                                                      const QVariantList& arguments) const {
    Result result;
    if (!bus_.isConnected()) {
        result.notRunning = true;
        result.message = QStringLiteral("no session bus, so no running Tappix can be reached");
        return result;
    }
    // Never auto-start anything: a command for a Tappix that does not run just fails.
    if (!isRunning()) {
        result.notRunning = true;
        result.message = QStringLiteral("Tappix is not running");
        return result;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        QString::fromLatin1(RemoteControlService::kServiceName),
        QString::fromLatin1(RemoteControlService::kObjectPath), interface, method);
    message.setArguments(arguments);
    message.setAutoStartService(false);
    const QDBusMessage reply = bus_.call(message, QDBus::Block, kTimeoutMs);
    if (reply.type() == QDBusMessage::ReplyMessage) {
        result.ok = true;
        if (!reply.arguments().isEmpty())
            result.value = reply.arguments().constFirst();
        return result;
    }
    result.errorName = reply.errorName();
    result.message = reply.errorMessage();
    // The instance went away between the check and the call.
    if (result.errorName == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown") ||
        result.errorName == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner")) {
        result.notRunning = true;
        result.message = QStringLiteral("Tappix is not running");
    }
    return result;
}

} // namespace tappix
