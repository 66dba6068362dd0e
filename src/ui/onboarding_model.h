#pragma once

#include "core/scheduler.h"
#include "input/keyboard_access.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <chrono>
#include <functional>
#include <optional>

namespace tappix {

/// The first-run window's state: which step shows, worked out again every second from
/// where Tappix runs from and whether keys can be heard, and the window's commands.
/// "move" while Tappix runs from a temporary or removable place, else "permission"
/// while keys cannot be captured, else "ready". On the permission step, whether the
/// user is in the keyboards' group (by the group database and in this process) decides
/// what is offered: asking the system to add them, or Tappix starting again with the
/// group. Main thread only.
class OnboardingModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString step READ step NOTIFY stepChanged)
    Q_PROPERTY(bool trayAvailable READ trayAvailable NOTIFY trayAvailableChanged)
    Q_PROPERTY(bool copied READ copied NOTIFY copiedChanged)
    Q_PROPERTY(QString command READ command NOTIFY accessChanged)
    Q_PROPERTY(QString access READ access NOTIFY accessChanged)
    Q_PROPERTY(QString group READ group NOTIFY accessChanged)
    Q_PROPERTY(bool canAskForAccess READ canAskForAccess NOTIFY accessChanged)
    Q_PROPERTY(bool asking READ asking NOTIFY accessChanged)
    Q_PROPERTY(QString accessNote READ accessNote NOTIFY accessChanged)

public:
    /// How often the step is worked out again while the window shows.
    static constexpr std::chrono::milliseconds kRecheckInterval{1000};
    /// The group the keyboards belong to on most systems, named until the nodes say.
    static constexpr const char* kUsualGroup = "input";

    /// Where Tappix stands with starting itself again with a group just joined.
    enum class Restart {
        /// Not needed, or not yet begun.
        none,
        /// The new Tappix is starting.
        starting,
        /// It could not be started, or did not take over: the next login brings the group.
        failed,
    };
    /// Asks the system to add the user to a group; calls back once answered. False when
    /// it cannot be asked now.
    using AskToJoin =
        std::function<bool(const QString& group, std::function<void(GroupJoinResult)> done)>;

    /// The facts the step is made of; empty calls fall back to the system's.
    struct Probes {
        /// The running program's file, symbolic links followed.
        std::function<QString()> executablePath = {};
        /// Whether keys can be captured now.
        std::function<bool()> captureIsPossible = {};
        /// Whether the desktop shows tray icons.
        std::function<bool()> trayAvailable = {};
        /// Opens a folder in the desktop's file manager.
        std::function<void(const QUrl&)> openUrl = {};
        /// Shows a file selected in the desktop's file manager, or calls `otherwise`
        /// when no file manager takes that request.
        std::function<void(const QString& path, std::function<void()> otherwise)> showFile = {};
        /// Whether the user may read the keyboards, and which group would let them.
        std::function<KeyboardAccess()> keyboardAccess = {};
        /// Whether the system can be asked to add the user to a group.
        std::function<bool()> canAskToJoin = {};
        /// Asks the system to add the user to a group.
        AskToJoin askToJoin = {};
    };

    /// Asks nothing until `start` or `refresh`, so a launch to the tray pays nothing.
    OnboardingModel(Scheduler& scheduler, Probes probes, QObject* parent = nullptr);
    ~OnboardingModel() override;

    /// "move", "permission" or "ready"; empty until first worked out.
    QString step() const { return step_; }
    /// Whether the desktop shows tray icons, as of the last check.
    bool trayAvailable() const { return trayAvailable_; }
    /// Whether the command was copied since the window last opened.
    bool copied() const { return copied_; }
    /// The command the permission step shows and copies, for the keyboards' group.
    QString command() const;
    /// "readable", "notMember", "memberNotInSession" or "unavailable", as of the last
    /// check.
    QString access() const;
    /// The group that may read the keyboards ("input" until the nodes say otherwise).
    QString group() const;
    /// Whether "Allow Keyboard Access…" can ask for the group now.
    bool canAskForAccess() const;
    /// Whether the system's password prompt is open now.
    bool asking() const { return asking_; }
    /// One line on where the request for access stands; empty when there is nothing to
    /// say.
    QString accessNote() const;

    /// Where starting again with the group stands (the application says).
    void setRestart(Restart restart);

    /// Whether `path` (already resolved) lies in a place the desktop forgets: a
    /// temporary folder or a removable drive.
    static bool isTemporaryPlace(const QString& path);
    /// The running program as the user launched it: the AppImage file when run as one,
    /// else the executable, symbolic links followed.
    static QString runningExecutable();

    /// Works the step out now and every second until `stop`. The window opening.
    void start();
    /// Stops checking. The window closing.
    void stop();
    /// Works the step out now.
    void refresh();

    /// Puts the command on the clipboard.
    Q_INVOKABLE void copyCommand();
    /// Opens the user's home folder.
    Q_INVOKABLE void openHome();
    /// Shows the running program in the file manager, selected; opens its folder where
    /// no file manager takes that request.
    Q_INVOKABLE void showTappix();
    /// Asks the system to add the user to the keyboards' group ("Allow Keyboard Access…").
    Q_INVOKABLE void allowAccess();
    /// The user is done with the window (its button or its close box).
    Q_INVOKABLE void finish();

Q_SIGNALS:
    void stepChanged();
    void trayAvailableChanged();
    void copiedChanged();
    void accessChanged();
    /// The first run is over.
    void finished();
    /// The system added the user to the keyboards' group.
    void joinedGroup();

private:
    void tick();
    QString executablePath() const;
    void open(const QUrl& url) const;

    Scheduler& scheduler_;
    Probes probes_;
    Scheduler::TaskId tick_ = 0;
    QString step_;
    bool trayAvailable_ = false;
    bool copied_ = false;
    KeyboardAccess access_;
    bool canAsk_ = false;
    bool asking_ = false;
    std::optional<GroupJoinResult> answer_;
    Restart restart_ = Restart::none;
};

} // namespace tappix
