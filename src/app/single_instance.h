#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>
#include <functional>

namespace tappix {

/// One Tappix per user: the first process listens on a local socket in the user's
/// runtime directory; a later one finds it there, asks it to reopen and steps
/// aside. A socket file left behind by a crash is recognised (nobody answers on
/// it) and replaced, so it never keeps Tappix from starting. A Tappix that starts
/// itself again (with a group it just joined) hands over the same way: the new process
/// asks to take over, the running one agrees and quits, and the new one listens once
/// it has gone. Main thread only.
class SingleInstance final : public QObject {
    Q_OBJECT
public:
    /// How long a later process waits for the running one to acknowledge.
    static constexpr int kAnswerTimeoutMs = 1000;
    /// How long a process taking over waits for the running one to answer, and to quit.
    static constexpr int kTakeOverTimeoutMs = 30000;

    /// What `claim` found.
    enum class Role {
        /// No other Tappix runs: this process is the one, and listens.
        first,
        /// Another Tappix runs and was asked to reopen (or would not be taken over, or
        /// did not quit in time): this process should exit.
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
    /// is never blocked by this guard. With `takeOver`, asks the running Tappix to make
    /// way instead and waits until it has quit. Main thread.
    Role claim(bool takeOver = false);

    /// Decides whether a request to take over is agreed to (the running Tappix started
    /// the new one); refused without. Main thread.
    void setTakeOverPolicy(std::function<bool()> agree) { agreeToTakeOver_ = std::move(agree); }

    /// The socket path. Main thread.
    const QString& socketPath() const { return socketPath_; }

Q_SIGNALS:
    /// A later launch asked this instance to reopen.
    void reopenRequested();
    /// The process this one started agreed to take over: time to quit. Its connection
    /// stays open until this process ends, which is how it knows.
    void takenOver();

private:
    enum class Answer { none, agreed, refused };
    Answer ask(const QByteArray& request, bool waitForExit);
    void accept();

    QString socketPath_;
    QLocalServer server_;
    std::function<bool()> agreeToTakeOver_;
};

} // namespace tappix
