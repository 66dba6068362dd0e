#pragma once

#include "ui/app_list_model.h"
#include "ui/shell_services.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

namespace tappix {

/// What the Behaviour page does beyond binding settings: starting at login, asking for
/// a new version, showing a test notification, turning a pressed key combination into
/// the sounds shortcut, and keeping the list of applications that quiet Tappix while in
/// front. Main thread only.
class BehaviourViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin NOTIFY launchAtLoginChanged)
    Q_PROPERTY(QString launchAtLoginProblem READ launchAtLoginProblem NOTIFY launchAtLoginChanged)
    Q_PROPERTY(QString updateStatus READ updateStatus NOTIFY updateStatusChanged)
    Q_PROPERTY(bool windowTriggersAvailable READ windowTriggersAvailable NOTIFY windowSourceChanged)
    Q_PROPERTY(QString windowTriggersProblem READ windowTriggersProblem NOTIFY windowSourceChanged)
    Q_PROPERTY(QObject* sleepApps READ sleepApps CONSTANT)
    Q_PROPERTY(QObject* runningApps READ runningApps CONSTANT)
    Q_PROPERTY(QString frontAppName READ frontAppName NOTIFY frontAppChanged)
    Q_PROPERTY(bool frontAppListed READ frontAppListed NOTIFY frontAppChanged)

public:
    /// The hint for a combination without a modifier.
    static inline const QString kNeedsModifier =
        QStringLiteral("Hold Ctrl, Alt or Super with the key, so typing never sets it off.");
    /// The hint for a key Tappix cannot listen for.
    static inline const QString kUnknownKey =
        QStringLiteral("Tappix can't listen for that key. Try a letter, a digit or an F-key.");

    explicit BehaviourViewModel(const ShellServices& services, QObject* parent = nullptr);

    /// Whether the desktop starts Tappix at login.
    bool launchAtLogin() const;
    /// Why the last change of the login start failed, else empty.
    QString launchAtLoginProblem() const { return launchAtLoginProblem_; }
    /// What the update check is doing or last found, or why it failed; empty before the
    /// first check.
    QString updateStatus() const;

    /// Whether this session can tell which window is in front.
    bool windowTriggersAvailable() const;
    /// Why it cannot, in one sentence; empty when it can.
    QString windowTriggersProblem() const;
    /// The applications that quiet Tappix while in front (an `AppListModel`).
    QObject* sleepApps() { return &sleepApps_; }
    /// The applications with a window now, as last asked by `refreshRunningApps`, less
    /// those on the list.
    QObject* runningApps() { return &runningApps_; }
    /// The name of the last application in front other than Tappix, or empty.
    QString frontAppName() const;
    /// Whether that application is on the list already.
    bool frontAppListed() const;

    /// Puts the last application in front other than Tappix on the list.
    Q_INVOKABLE void addFrontApp();
    /// Asks the desktop which applications have a window now.
    Q_INVOKABLE void refreshRunningApps();
    /// Puts the running application in `row` on the list.
    Q_INVOKABLE void addRunningApp(int row);
    /// Takes the application in `row` off the list.
    Q_INVOKABLE void removeSleepApp(int row);

    /// Starts Tappix at login, or stops doing so.
    Q_INVOKABLE void setLaunchAtLogin(bool enabled);
    /// Asks the release feed now ("Check Now"); the answer shows in `updateStatus`.
    Q_INVOKABLE void checkForUpdates();
    /// Shows a notification like those Tappix sends when it sleeps and wakes.
    Q_INVOKABLE void sendTestNotification();
    /// While true the sounds shortcut does not fire, so recording one never sets it off.
    Q_INVOKABLE void setRecording(bool recording);
    /// Turns a pressed key (Qt key and modifier codes) into the sounds shortcut. Returns
    /// {"text": the stored combination} when taken, {"problem": a hint} when refused,
    /// and an empty map for a modifier alone (the user is still pressing).
    Q_INVOKABLE QVariantMap recordShortcut(int key, int modifiers);

    /// The readable combination for a Qt key and modifiers ("Ctrl+Super+K"), or empty
    /// when the key has no name Tappix reads.
    static QString combinationText(int key, int modifiers);

Q_SIGNALS:
    void launchAtLoginChanged();
    void updateStatusChanged();
    void windowSourceChanged();
    void frontAppChanged();

private:
    void addApp(const QString& id);
    void listChanged();
    void showRunning();

    ShellServices services_;
    AppListModel sleepApps_;
    AppListModel runningApps_;
    std::vector<AppIdentity> running_;
    QString launchAtLoginProblem_;
};

} // namespace tappix
