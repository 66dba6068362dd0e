#include "platform/dbus/freedesktop_notifier.h"

#include "core/log.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace tappix {

FreedesktopNotifier::FreedesktopNotifier(QObject* parent) : QObject(parent) {}

void FreedesktopNotifier::post(const QString& identifier, const QString& title,
                               const QString& body) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        if (!reportedFailure_)
            qCWarning(lcApp, "no session bus: notifications are not shown");
        reportedFailure_ = true;
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Notifications"),
        QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    call << QStringLiteral("Tappix") << shown_.value(identifier, 0u)
         << QStringLiteral("input-keyboard") << title << body << QStringList()
         << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("app.morvane.tappix")}}
         << int(-1);
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 2000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, identifier](QDBusPendingCallWatcher* w) {
                QDBusPendingReply<uint> reply = *w;
                if (reply.isError()) {
                    if (!reportedFailure_)
                        qCWarning(lcApp, "notifications are not shown: %s",
                                  qPrintable(reply.error().message()));
                    reportedFailure_ = true;
                } else {
                    shown_.insert(identifier, reply.value());
                    reportedFailure_ = false;
                }
                w->deleteLater();
            });
}

} // namespace tappix
