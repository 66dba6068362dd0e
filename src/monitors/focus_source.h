#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

namespace tappix {

/// An application as the user knows it: how Tappix stores it and how it shows it.
struct AppIdentity {
    /// The desktop application id ("org.gnome.Terminal") where one is known, else the
    /// window's X11 class ("XTerm"). What the sleep list stores.
    QString id;
    /// The name the desktop shows ("Terminal"); the id when nothing better is known.
    QString name;
    /// An icon-theme name or an absolute file path; empty when unknown.
    QString icon;

    bool operator==(const AppIdentity&) const = default;
};

/// The window in front.
struct FocusedWindow {
    /// Its application.
    AppIdentity app;
    /// Its X11 class and instance names (either may be missing), which a stored id
    /// also matches, so an entry saved before its desktop file appeared still holds.
    QStringList classes;
    /// Whether it covers the screen (`_NET_WM_STATE_FULLSCREEN`).
    bool fullScreen = false;
    /// Whether it is one of Tappix's own windows.
    bool ownWindow = false;

    bool operator==(const FocusedWindow&) const = default;
};

/// Tells which window is in front, pushed by the desktop rather than polled. An
/// implementation calls `report` whenever what it sees changes; this base keeps the
/// last state and the last application in front that was not Tappix itself (the user
/// who clicks in Tappix's settings window means the app before it). Main thread only.
class FocusSource : public QObject {
    Q_OBJECT
public:
    explicit FocusSource(QObject* parent = nullptr) : QObject(parent) {}
    ~FocusSource() override = default;

    /// Why no window can be seen in this session, in one sentence for the user; empty
    /// when the source works. Main thread.
    virtual QString unavailableReason() const = 0;
    /// Applications with a top-level window now, each once, Tappix left out; asks the
    /// desktop (a few round trips). Main thread.
    virtual std::vector<AppIdentity> runningApps() = 0;
    /// The name and icon of a stored id; the id itself as the name when nothing is
    /// known of it. Main thread.
    virtual AppIdentity describe(const QString& id) const = 0;

    /// The window in front, or none (nothing focused, no source, the display gone).
    /// Main thread.
    const std::optional<FocusedWindow>& focused() const { return focused_; }
    /// The last application in front that was not Tappix, or none yet. Main thread.
    const std::optional<AppIdentity>& lastOtherApp() const { return lastOtherApp_; }

    /// Whether `window` belongs to one of the stored `ids` (its app id or one of its
    /// class names, letter case aside).
    static bool matches(const FocusedWindow& window, const QStringList& ids);

Q_SIGNALS:
    /// The window in front, or what it is, changed.
    void focusChanged();
    /// `lastOtherApp` changed.
    void lastOtherAppChanged();

protected:
    /// Stores what is in front now and signals when it differs. Main thread.
    void report(std::optional<FocusedWindow> window);

private:
    std::optional<FocusedWindow> focused_;
    std::optional<AppIdentity> lastOtherApp_;
};

} // namespace tappix
