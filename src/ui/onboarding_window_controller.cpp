#include "ui/onboarding_window_controller.h"

namespace tappix {

OnboardingWindowController::OnboardingWindowController(OnboardingModel& model,
                                                       WindowFactory makeWindow, QObject* parent)
    : QObject(parent), model_(model), makeWindow_(std::move(makeWindow)) {}

void OnboardingWindowController::show() {
    if (!window_ && makeWindow_) {
        window_ = makeWindow_();
        if (window_)
            connect(window_, &QWindow::visibleChanged, this, [this](bool visible) {
                if (!visible)
                    model_.stop();
            });
    }
    if (!window_)
        return;
    model_.start();
    if (window_->windowState() == Qt::WindowMinimized)
        window_->setWindowState(Qt::WindowNoState);
    window_->show();
    window_->raise();
    window_->requestActivate();
}

bool OnboardingWindowController::isVisible() const {
    return window_ && window_->isVisible();
}

} // namespace tappix
