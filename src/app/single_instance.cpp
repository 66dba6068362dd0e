#include "app/single_instance.h"

#include "core/log.h"

#include <QDir>
#include <QLocalSocket>
#include <QLockFile>
#include <QStandardPaths>

namespace tappix {
namespace {

const QByteArray kReopen = QByteArrayLiteral("reopen\n");
const QByteArray kTakeOver = QByteArrayLiteral("take-over\n");
const QByteArray kDone = QByteArrayLiteral("ok\n");
const QByteArray kRefused = QByteArrayLiteral("no\n");
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

SingleInstance::Role SingleInstance::claim(bool takeOver) {
    QLockFile lock(socketPath_ + QStringLiteral(".lock"));
    if (!lock.tryLock(kLockTimeoutMs))
        qCWarning(lcApp, "could not lock %s.lock; deciding without it", qPrintable(socketPath_));

    switch (ask(takeOver ? kTakeOver : kReopen, takeOver)) {
    case Answer::none:
        break;
    case Answer::agreed:
        if (!takeOver)
            return Role::handedOff;
        break;
    case Answer::refused:
        return Role::handedOff;
    }

    // Nobody answers (and the lock keeps other launches from starting meanwhile): any
    // file there was left by a process that died, or one that just made way.
    if (QFileInfo::exists(socketPath_)) {
        qCInfo(lcApp, "removing a stale instance socket at %s", qPrintable(socketPath_));
        QLocalServer::removeServer(socketPath_);
    }
    if (!server_.listen(socketPath_))
        qCWarning(lcApp, "cannot listen on %s (%s): a second launch will start a second Tappix",
                  qPrintable(socketPath_), qPrintable(server_.errorString()));
    return Role::first;
}

SingleInstance::Answer SingleInstance::ask(const QByteArray& request, bool waitForExit) {
    QLocalSocket socket;
    socket.connectToServer(socketPath_);
    if (!socket.waitForConnected(kAnswerTimeoutMs))
        return Answer::none;
    socket.write(request);
    if (!socket.waitForBytesWritten(kAnswerTimeoutMs))
        return Answer::none;
    // A late yes to a take-over would leave no Tappix running: wait as long as it takes.
    const bool answered =
        socket.waitForReadyRead(waitForExit ? kTakeOverTimeoutMs : kAnswerTimeoutMs);
    const QByteArray answer = answered ? socket.readAll() : QByteArray();
    if (!waitForExit) {
        // The answer only confirms it; the request is delivered either way.
        if (!answer.startsWith(kDone))
            qCWarning(lcApp, "the running Tappix did not confirm the reopen request");
        else
            qCInfo(lcApp, "Tappix is already running; asked it to reopen");
        socket.disconnectFromServer();
        return Answer::agreed;
    }
    if (!answer.startsWith(kDone)) {
        qCWarning(lcApp, "the running Tappix would not be taken over; leaving it running");
        return Answer::refused;
    }
    // It quits, and its end closes the connection.
    if (socket.state() != QLocalSocket::UnconnectedState &&
        !socket.waitForDisconnected(kTakeOverTimeoutMs)) {
        qCWarning(lcApp, "the running Tappix agreed to make way but did not quit within %d s",
                  kTakeOverTimeoutMs / 1000);
        return Answer::refused;
    }
    qCInfo(lcApp, "took over from the Tappix that started this one");
    return Answer::agreed;
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
            } else if (line == kTakeOver) {
                if (agreeToTakeOver_ && agreeToTakeOver_()) {
                    socket->write(kDone);
                    socket->flush();
                    qCInfo(lcApp, "the Tappix started with the new group takes over; quitting");
                    // Left open: it closes when this process ends, which the new one waits for.
                    Q_EMIT takenOver();
                    return;
                }
                qCWarning(lcApp, "refused a request to take over that this Tappix did not ask for");
                socket->write(kRefused);
                socket->flush();
            } else {
                qCWarning(lcApp, "ignoring an unknown request on the instance socket");
            }
            socket->disconnectFromServer();
        });
    }
}

} // namespace tappix
