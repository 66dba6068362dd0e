#include "platform/dbus/file_manager.h"

#include "core/log.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QUrl>

namespace tappix {
namespace {

// A file manager started by the call itself needs a moment to come up.
constexpr int kTimeoutMs = 5000;

} // namespace

void showInFileManager(const QString& path, std::function<void()> otherwise) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        qCInfo(lcApp, "no session bus to ask a file manager: opening the folder instead");
        otherwise();
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
    auto* watcher =
        new QDBusPendingCallWatcher(bus.asyncCall(call, kTimeoutMs), QCoreApplication::instance());
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [otherwise = std::move(otherwise), path](QDBusPendingCallWatcher* w) {
                         const QDBusPendingReply<> reply = *w;
                         w->deleteLater();
                         if (!reply.isError()) {
                             qCInfo(lcApp, "the file manager shows %s", qPrintable(path));
                             return;
                         }
                         qCInfo(lcApp, "no file manager showed %s (%s): opening its folder",
                                qPrintable(path), qPrintable(reply.error().message()));
                         otherwise();
                     });
}

} // namespace tappix
