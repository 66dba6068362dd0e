#pragma once

#include "ui/menu_panel_model.h"

#include <QElapsedTimer>
#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>
#include <functional>
#include <memory>
#include <optional>

#include <QQuickWindow>

namespace tappix {

class SettingsStore;

/// The tray icon and the panel that drops from it. The icon shows whether sounds are
/// on; activating it opens the panel or flips the sounds, as the user chose; its menu
/// holds the application's menu. While a click flips the sounds the panel stays one
/// click away: the right button opens it where the tray hands that click to Tappix, the
/// middle one always does, and the menu, which trays show on their own, leads to it. The panel
/// window is made by the caller's factory on first need (so a Tappix that stays in the tray never
/// loads the views) and kept. Main thread only.
class MenuBarController final : public QObject {
    Q_OBJECT
public:
    /// Where the panel should appear.
    enum class Placement {
        /// By the tray icon, or by the pointer when the tray gives no geometry.
        tray,
        /// The top-right corner of the screen (a command, a shortcut, no tray at all).
        corner,
    };

    /// Makes the panel window; called once, on first need.
    using PanelFactory = std::function<QQuickWindow*()>;

    /// Creates the tray icon (shown unless the settings hide it) and its menu.
    MenuBarController(SettingsStore& settings, MenuPanelModel& model, PanelFactory makePanel,
                      QObject* parent = nullptr);
    ~MenuBarController() override;

    /// Brings the icon up to date: shown or hidden, on or off, dimmed or not.
    void refresh();
    /// Opens the panel on its main page, or closes it when it is open.
    void togglePanel(Placement placement = Placement::tray);
    /// Opens the panel on its main page (already open: brings it forward).
    void showPanel(Placement placement = Placement::tray);
    /// Whether the panel shows now.
    bool isPanelVisible() const;
    /// Whether a tray host shows the icon.
    bool hasTray() const;
    /// The tray icon (tests).
    QSystemTrayIcon& trayIcon() { return tray_; }

Q_SIGNALS:
    /// "About Tappix" was chosen.
    void aboutRequested();
    /// "Check for Updates…" was chosen.
    void updateCheckRequested();
    /// "Settings…" was chosen.
    void settingsRequested();
    /// "Sound Studio…" was chosen.
    void studioRequested();
    /// "Quit Tappix" was chosen.
    void quitRequested();

private:
    void activated(QSystemTrayIcon::ActivationReason reason);
    void place(Placement placement);
    void keepInPlace();
    /// Closes the panel when it shows without the focus: the user went elsewhere.
    void hideIfInactive();
    QQuickWindow* panel();

    SettingsStore& settings_;
    MenuPanelModel& model_;
    PanelFactory makePanel_;
    QPointer<QQuickWindow> panel_;
    QMenu menu_;
    QAction* openPanel_ = nullptr;
    QAction* openPanelSeparator_ = nullptr;
    QSystemTrayIcon tray_;
    QElapsedTimer lastAutoHide_;
    QElapsedTimer shownAt_;
    bool anchoredBelow_ = true;
    bool loggedNoTray_ = false;
    // What the icon shows now; none before the first refresh.
    struct IconState {
        bool on = false;
        bool dimmed = false;
        friend bool operator==(const IconState&, const IconState&) = default;
    };
    std::optional<IconState> shownIcon_;
};

} // namespace tappix
