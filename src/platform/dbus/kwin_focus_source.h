#pragma once

#include "monitors/focus_source.h"
#include "platform/xdg/desktop_apps.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusServiceWatcher>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <vector>

namespace tappix {

/// The window in front in a KDE Plasma Wayland session, told by KWin itself: Tappix
/// loads a small KWin script over D-Bus (`org.kde.KWin`, `/Scripting`) that follows
/// the active window, its full-screen state and the list of windows, and calls back
/// into this object on Tappix's own bus connection at each change; nothing is polled.
/// An app is known by the window's desktop file name where KWin has one, else by its
/// resource class. The script is unloaded when the source goes; if KWin leaves the bus,
/// nothing is in front from then on, with one log line. Lives on the main thread.
class KWinFocusSource final : public FocusSource, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.morvane.tappix.KWinFocus")
public:
    /// KWin's name on the session bus.
    static constexpr const char* kKWinService = "org.kde.KWin";
    /// Where the script's reports arrive on Tappix's connection.
    static constexpr const char* kObjectPath = "/app/morvane/tappix/KWinFocus";

    /// Whether KWin's scripting is on `bus` now. Main thread.
    static bool kwinRunning(const QDBusConnection& bus);

    /// Registers the report object on `bus`, then loads and runs the script in KWin and
    /// takes in its first report; `unavailableReason` says why when any step fails.
    /// Main thread.
    explicit KWinFocusSource(QDBusConnection bus, QObject* parent = nullptr);
    /// Unloads the script from KWin (a blocking call of a few milliseconds). Main thread.
    ~KWinFocusSource() override;

    /// Empty while KWin reports; else why no window can be seen. Main thread.
    QString unavailableReason() const override { return unavailableReason_; }
    /// The applications of the normal windows KWin last listed. Main thread.
    std::vector<AppIdentity> runningApps() override;
    /// From the desktop files. Main thread.
    AppIdentity describe(const QString& id) const override;

    /// The script's name in KWin, unique to this process.
    QString pluginName() const { return pluginName_; }

public Q_SLOTS:
    /// Called by the script over D-Bus with a JSON object: `active` (a window or null)
    /// and `windows` (the normal windows), each window with `desktopFile`,
    /// `resourceClass`, `resourceName`, `fullScreen` and `pid`. Calls from anyone but
    /// KWin are refused. Main thread (the bus delivers it there).
    Q_SCRIPTABLE void Report(const QString& json);

private:
    bool loadScript();
    void unloadScript();
    void fail(const QString& reason);
    FocusedWindow windowOf(const QJsonObject& object) const;

    QDBusConnection bus_;
    QDBusServiceWatcher watcher_;
    QTemporaryDir scriptDir_;
    QString pluginName_;
    QString kwinOwner_;
    bool registered_ = false;
    bool loaded_ = false;
    QString unavailableReason_;
    QJsonArray windows_;
    DesktopApps apps_;
};

} // namespace tappix
