#include "ui/settings_window_controller.h"

#include "settings/settings_page.h"
#include "settings/settings_store.h"

#include <QQuickWindow>

namespace tappix {

SettingsWindowController::SettingsWindowController(SettingsStore& settings,
                                                   WindowFactory makeWindow, QObject* parent)
    : QObject(parent), settings_(settings), makeWindow_(std::move(makeWindow)) {
    connect(&settings_, &SettingsStore::lastSettingsPageChanged, this,
            &SettingsWindowController::showPage);
}

void SettingsWindowController::show() {
    if (!window_ && makeWindow_)
        window_ = makeWindow_();
    if (!window_)
        return;
    showPage();
    if (window_->windowState() == Qt::WindowMinimized)
        window_->setWindowState(Qt::WindowNoState);
    window_->show();
    window_->raise();
    window_->requestActivate();
}

bool SettingsWindowController::isVisible() const {
    return window_ && window_->isVisible();
}

void SettingsWindowController::showPage() {
    if (window_)
        window_->setProperty("page", SettingsPage::resolve(settings_.lastSettingsPage()));
}

} // namespace tappix
