#pragma once

#include "ui/shell_services.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

namespace tappix {

/// What the Behaviour page does beyond binding settings: starting at login, asking for
/// a new version, showing a test notification, and turning a pressed key combination
/// into the sounds shortcut. Main thread only.
class BehaviourViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin NOTIFY launchAtLoginChanged)
    Q_PROPERTY(QString launchAtLoginProblem READ launchAtLoginProblem NOTIFY launchAtLoginChanged)
    Q_PROPERTY(QString updateStatus READ updateStatus NOTIFY updateStatusChanged)

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
    /// What the last update check asked, else empty.
    QString updateStatus() const { return updateStatus_; }

    /// Starts Tappix at login, or stops doing so.
    Q_INVOKABLE void setLaunchAtLogin(bool enabled);
    /// Asks the release feed now ("Check Now").
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

private:
    ShellServices services_;
    QString launchAtLoginProblem_;
    QString updateStatus_;
};

} // namespace tappix
