#include "ui/menu_bar_controller.h"

#include "core/log.h"
#include "settings/settings_store.h"
#include "ui/symbol_icons.h"

#include <QCursor>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QScreen>
#include <QTimer>

namespace tappix {

namespace {

// A click on the icon while the panel shows first takes the panel's focus away, which
// closes it; the click that follows must not open it again at once.
constexpr qint64 kReopenGuardMs = 300;
// X11 toolkits report a window's loss of focus up to 400 ms late, after waiting for a focus
// that may follow: a loss reported this soon after opening may still be the last closing's.
constexpr qint64 kShowSettleMs = 500;
// Space between the panel and the icon or the screen's edge.
constexpr int kMargin = 8;

} // namespace

MenuBarController::MenuBarController(SettingsStore& settings, MenuPanelModel& model,
                                     PanelFactory makePanel, QObject* parent)
    : QObject(parent), settings_(settings), model_(model), makePanel_(std::move(makePanel)) {
    openPanel_ =
        menu_.addAction(QStringLiteral("Open Panel"), this, [this] { showPanel(Placement::tray); });
    openPanelSeparator_ = menu_.addSeparator();
    menu_.addAction(QStringLiteral("About Tappix"), this, &MenuBarController::aboutRequested);
    menu_.addAction(QStringLiteral("Check for Updates…"), this,
                    &MenuBarController::updateCheckRequested);
    menu_.addSeparator();
    menu_.addAction(QStringLiteral("Settings…"), this, &MenuBarController::settingsRequested);
    menu_.addAction(QStringLiteral("Sound Studio…"), this, &MenuBarController::studioRequested);
    menu_.addSeparator();
    menu_.addAction(QStringLiteral("Quit Tappix"), this, &MenuBarController::quitRequested);
    tray_.setContextMenu(&menu_);
    connect(&tray_, &QSystemTrayIcon::activated, this, &MenuBarController::activated);
    connect(&model_, &MenuPanelModel::dismissRequested, this, [this] {
        if (panel_)
            panel_->hide();
    });
    connect(&model_, &MenuPanelModel::panelHeightChanged, this, &MenuBarController::keepInPlace);
    lastAutoHide_.invalidate();
    refresh();
}

MenuBarController::~MenuBarController() {
    tray_.hide();
}

bool MenuBarController::hasTray() const {
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void MenuBarController::refresh() {
    const bool on = settings_.isEnabled();
    const bool dimmed = !on && !settings_.menuIconDimDisabled();
    // Refresh follows every settings change (a volume drag makes many): draw and send the
    // icon to the tray host only when what it shows changed.
    const IconState state{on, dimmed};
    if (state != shownIcon_) {
        shownIcon_ = state;
        tray_.setIcon(SymbolIcons::trayIcon(on, dimmed));
        tray_.setToolTip(on ? QStringLiteral("Tappix: sounds on")
                            : QStringLiteral("Tappix: sounds off"));
    }
    // The menu leads to the panel while the icon's click does not.
    openPanel_->setVisible(settings_.clickTogglesSound());
    openPanelSeparator_->setVisible(settings_.clickTogglesSound());
    const bool wanted = settings_.showMenuBarIcon();
    if (tray_.isVisible() != wanted)
        tray_.setVisible(wanted);
    if (wanted && !hasTray() && !loggedNoTray_) {
        loggedNoTray_ = true;
        qCWarning(lcApp, "no tray host is running: open the panel with `tappix --panel`, "
                         "or launch Tappix again for its settings");
    }
}

void MenuBarController::activated(QSystemTrayIcon::ActivationReason reason) {
    switch (reason) {
    case QSystemTrayIcon::Trigger:
        if (settings_.clickTogglesSound()) {
            settings_.setIsEnabled(!settings_.isEnabled());
            refresh();
        } else {
            togglePanel(Placement::tray);
        }
        break;
    case QSystemTrayIcon::MiddleClick:
        togglePanel(Placement::tray);
        break;
    case QSystemTrayIcon::Context:
        // With a left click that mutes, the right one opens the panel, in place of the
        // menu an XEmbed tray has Qt pop up first.
        if (settings_.clickTogglesSound()) {
            menu_.hide();
            togglePanel(Placement::tray);
        }
        break;
    case QSystemTrayIcon::DoubleClick:
    case QSystemTrayIcon::Unknown:
        break;
    }
}

QQuickWindow* MenuBarController::panel() {
    if (!panel_ && makePanel_) {
        panel_ = makePanel_();
        if (panel_) {
            connect(panel_, &QWindow::activeChanged, this, &MenuBarController::hideIfInactive);
        }
    }
    return panel_;
}

void MenuBarController::hideIfInactive() {
    if (!panel_ || panel_->isActive() || !panel_->isVisible())
        return;
    // Just opened: give the activation asked for its time to arrive, then look again.
    if (shownAt_.isValid() && shownAt_.elapsed() < kShowSettleMs) {
        QTimer::singleShot(kShowSettleMs - shownAt_.elapsed(), this,
                           &MenuBarController::hideIfInactive);
        return;
    }
    qCInfo(lcApp, "panel closed: the focus moved elsewhere");
    panel_->hide();
    lastAutoHide_.start();
}

bool MenuBarController::isPanelVisible() const {
    return panel_ && panel_->isVisible();
}

void MenuBarController::togglePanel(Placement placement) {
    if (isPanelVisible()) {
        panel_->hide();
        return;
    }
    if (lastAutoHide_.isValid() && lastAutoHide_.elapsed() < kReopenGuardMs) {
        lastAutoHide_.invalidate();
        return;
    }
    showPanel(placement);
}

void MenuBarController::showPanel(Placement placement) {
    QQuickWindow* window = panel();
    if (!window)
        return;
    if (!window->isVisible()) {
        model_.setPage(QStringLiteral("main"));
        window->resize(MenuPanelModel::kWidth, model_.panelHeight());
        place(placement);
    }
    window->show();
    window->raise();
    window->requestActivate();
    shownAt_.start();
}

void MenuBarController::place(Placement placement) {
    QScreen* screen = nullptr;
    QRect anchor;
    if (placement == Placement::tray) {
        anchor = tray_.geometry();
        if (!anchor.isValid())
            anchor = QRect(QCursor::pos(), QSize(1, 1));
        screen = QGuiApplication::screenAt(anchor.center());
    }
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    if (placement == Placement::corner || !area.contains(anchor.center()))
        anchor = QRect(area.right() - kMargin, area.top(), 1, 1);
    // Drop below an icon in the top half, rise above one in the bottom half.
    anchoredBelow_ = anchor.center().y() < area.center().y();
    const int width = MenuPanelModel::kWidth, height = model_.panelHeight();
    int x = anchor.center().x() - width / 2;
    x = std::clamp(x, area.left() + kMargin, area.right() - kMargin - width);
    int y = anchoredBelow_ ? anchor.bottom() + kMargin : anchor.top() - kMargin - height;
    y = std::clamp(y, area.top() + kMargin, std::max(area.top() + kMargin, area.bottom() - height));
    panel_->setPosition(x, y);
}

void MenuBarController::keepInPlace() {
    // A page of another height grows away from the icon.
    if (!panel_)
        return;
    const int height = model_.panelHeight();
    if (!anchoredBelow_)
        panel_->setY(panel_->y() + panel_->height() - height);
    panel_->resize(MenuPanelModel::kWidth, height);
}

} // namespace tappix
