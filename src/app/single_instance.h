#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

namespace tappix {

/// One Tappix per user: the first process listens on a local socket in the user's
/// runtime directory; a later one finds it there, asks it to reopen and steps
/// aside. A socket file left behind by a crash is recognised (nobody answers on
/// it) and replaced, so it never keeps Tappix from starting. Main thread only.
class SingleInstance final : public QObject {
    Q_OBJECT
public:
    /// How long a later process waits for the running one to acknowledge.
    static constexpr int kAnswerTimeoutMs = 1000;

    /// What `claim` found.
    enum class Role {
        /// No other Tappix runs: this process is the one, and listens.
        first,
        /// Another Tappix runs and was asked to reopen: this process should exit.
        handedOff,
    };

    /// `$XDG_RUNTIME_DIR/app.morvane.tappix.socket` (Qt's fallback runtime
    /// directory when the variable is unset).
    static QString defaultSocketPath();

    /// An instance guard on `socketPath`; nothing happens until `claim`.
    explicit SingleInstance(QString socketPath = defaultSocketPath(), QObject* parent = nullptr);
    ~SingleInstance() override;

    /// Asks a running Tappix to reopen, or becomes the running one. When listening
    /// fails (an unwritable directory), logs it and still answers `first`: start-up
    /// is never blocked by this guard. Main thread.
    Role claim();

    /// The socket path. Main thread.
    const QString& socketPath() const { return socketPath_; }

Q_SIGNALS:
    /// A later launch asked this instance to reopen.
    void reopenRequested();

private:
    bool askRunningToReopen();
    void accept();

    QString socketPath_;
    QLocalServer server_;
};

} // namespace tappix
