#pragma once

#include "core/scheduler.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <chrono>
#include <functional>

namespace tappix {

/// The first-run window's state: which step shows, worked out again every second from
/// where Tappix runs from and whether keys can be heard, and the window's commands.
/// "move" while Tappix runs from a temporary or removable place, else "permission"
/// while keys cannot be captured, else "ready". Main thread only.
class OnboardingModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString step READ step NOTIFY stepChanged)
    Q_PROPERTY(bool trayAvailable READ trayAvailable NOTIFY trayAvailableChanged)
    Q_PROPERTY(bool copied READ copied NOTIFY copiedChanged)
    Q_PROPERTY(QString command READ command CONSTANT)

public:
    /// How often the step is worked out again while the window shows.
    static constexpr std::chrono::milliseconds kRecheckInterval{1000};
    /// The command that lets the user's account read the keyboards.
    static constexpr const char* kPermissionCommand = "sudo usermod -aG input $USER";

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
    /// The command the permission step shows and copies.
    static QString command() { return QString::fromLatin1(kPermissionCommand); }

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
    /// Opens the folder holding the running program.
    Q_INVOKABLE void showTappix();
    /// The user is done with the window (its button or its close box).
    Q_INVOKABLE void finish();

Q_SIGNALS:
    void stepChanged();
    void trayAvailableChanged();
    void copiedChanged();
    /// The first run is over.
    void finished();

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
};

} // namespace tappix
