#pragma once

#include "input/keyboard_access.h"

#include <QObject>
#include <QPointer>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <functional>

namespace tappix {

/// Joining the group that may read the keyboards, and having it before the next login.
/// Joining asks polkit (`pkexec`, which shows the desktop's own password prompt) to run
/// `gpasswd -a USER GROUP` as root: one user added to one group, nothing else. Tappix
/// itself never runs as root and never changes a device. Main thread only.
class KeyboardGroup final : public QObject {
    Q_OBJECT
public:
    /// What the join reports: how it ended, and what the system said when it failed.
    using Done = std::function<void(GroupJoinResult result, const QString& detail)>;

    explicit KeyboardGroup(QObject* parent = nullptr);
    ~KeyboardGroup() override;

    /// Whether the system can be asked: pkexec and gpasswd are installed and this
    /// process does not run as root.
    static bool canAsk();

    /// Asks for this user to be added to `group`; `done` is called once it is answered,
    /// however long the user takes over the prompt. False, and no call, when a request
    /// is still open or the system cannot be asked.
    bool askToJoin(const QString& group, Done done);

    /// Starts `program` with `arguments` as a process of its own that holds `group`
    /// too, through `sg` (which lets a member in without a password); `group` becomes
    /// its primary group, the session's other groups stay. False when sg is missing or
    /// could not be started.
    static bool startWithGroup(const QString& group, const QString& program,
                               const QStringList& arguments);

    /// `text` as one word for /bin/sh.
    static QString shellQuote(const QString& text);

private:
    void finished(int exitCode, QProcess::ExitStatus status);

    QPointer<QProcess> process_;
    Done done_;
};

} // namespace tappix
