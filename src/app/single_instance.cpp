#include "app/single_instance.h"

#include "core/log.h"

#include <QDir>
#include <QLocalSocket>
#include <QLockFile>
#include <QStandardPaths>

namespace tappix {
namespace {

const QByteArray kReopen = QByteArrayLiteral("reopen\n");
const QByteArray kDone = QByteArrayLiteral("ok\n");
// A request is one short line; anything longer is not a Tappix talking.
constexpr qint64 kMaxRequest = 64;
// Two launches at the same moment take turns at deciding who runs.
constexpr int kLockTimeoutMs = 3000;

} // namespace

QString SingleInstance::defaultSocketPath() {
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty())
        dir = QDir::tempPath();
    return dir + QStringLiteral("/app.morvane.tappix.socket");
}

SingleInstance::SingleInstance(QString socketPath, QObject* parent)
    : QObject(parent), socketPath_(std::move(socketPath)) {
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&server_, &QLocalServer::newConnection, this, &SingleInstance::accept);
}

SingleInstance::~SingleInstance() {
    if (server_.isListening())
        server_.close(); // removes the socket file
}

SingleInstance::Role SingleInstance::claim() {
    QLockFile lock(socketPath_ + QStringLiteral(".lock"));
    if (!lock.tryLock(kLockTimeoutMs))
        qCWarning(lcApp, "could not lock %s.lock; deciding without it", qPrintable(socketPath_));

    if (askRunningToReopen())
        return Role::handedOff;

    // Nobody answers (and the lock keeps other launches from starting meanwhile): any
    // file there was left by a process that died.
    if (QFileInfo::exists(socketPath_)) {
        qCInfo(lcApp, "removing a stale instance socket at %s", qPrintable(socketPath_));
        QLocalServer::removeServer(socketPath_);
    }
    if (!server_.listen(socketPath_))
        qCWarning(lcApp, "cannot listen on %s (%s): a second launch will start a second Tappix",
                  qPrintable(socketPath_), qPrintable(server_.errorString()));
    return Role::first;
}

bool SingleInstance::askRunningToReopen() {
    QLocalSocket socket;
    socket.connectToServer(socketPath_);
    if (!socket.waitForConnected(kAnswerTimeoutMs))
        return false;
    socket.write(kReopen);
    if (!socket.waitForBytesWritten(kAnswerTimeoutMs))
        return false;
    // The answer only confirms it; the request is delivered either way.
    if (!socket.waitForReadyRead(kAnswerTimeoutMs) || !socket.readAll().startsWith(kDone))
        qCWarning(lcApp, "the running Tappix did not confirm the reopen request");
    else
        qCInfo(lcApp, "Tappix is already running; asked it to reopen");
    socket.disconnectFromServer();
    return true;
}

void SingleInstance::accept() {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (!socket->canReadLine()) {
                if (socket->bytesAvailable() > kMaxRequest)
                    socket->abort();
                return;
            }
            const QByteArray line = socket->readLine(kMaxRequest);
            if (line == kReopen) {
                socket->write(kDone);
                socket->flush();
                qCInfo(lcApp, "a second launch asked to reopen");
                Q_EMIT reopenRequested();
            } else {
                qCWarning(lcApp, "ignoring an unknown request on the instance socket");
            }
            socket->disconnectFromServer();
        });
    }
}

} // namespace tappix
