#pragma once

#include "monitors/focus_source.h"
#include "platform/xdg/desktop_apps.h"

#include <QSocketNotifier>
#include <cstdint>
#include <memory>

struct xcb_connection_t;

namespace tappix::x11 {

/// The window in front on an X11 display, from the window manager's
/// `_NET_ACTIVE_WINDOW`, the window's `WM_CLASS` and its `_NET_WM_STATE_FULLSCREEN`.
/// Listens for PropertyNotify on the root window and on the active window through its
/// own connection, whose socket the Qt event loop watches: nothing is polled, and
/// nothing wakes while the focus stays put. A window that vanishes before it is read,
/// a window without a class, and a display that goes away each leave "nothing in
/// front" with one log line. Lives on the main thread.
class X11FocusSource final : public FocusSource {
    Q_OBJECT
public:
    /// Connects to the display DISPLAY names (not in a Wayland session, where X11 only
    /// sees XWayland's windows) and reads what is in front now. Main thread.
    explicit X11FocusSource(QObject* parent = nullptr);
    ~X11FocusSource() override;

    /// Empty while connected; else why no window can be seen. Main thread.
    QString unavailableReason() const override { return unavailableReason_; }
    /// The applications of the windows in `_NET_CLIENT_LIST`. Main thread.
    std::vector<AppIdentity> runningApps() override;
    /// From the desktop files. Main thread.
    AppIdentity describe(const QString& id) const override;

private:
    struct Atoms;
    void readEvents();
    void activeWindowChanged();
    void readActiveWindow();
    std::optional<FocusedWindow> readWindow(std::uint32_t window, bool* vanished);
    bool checkConnection();
    void disconnectDisplay();

    xcb_connection_t* connection_ = nullptr;
    std::unique_ptr<Atoms> atoms_;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::uint32_t root_ = 0;
    std::uint32_t active_ = 0;
    std::uint32_t unnamedLogged_ = 0;
    QString unavailableReason_;
    DesktopApps apps_;
};

} // namespace tappix::x11
