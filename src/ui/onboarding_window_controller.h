#pragma once

#include "ui/onboarding_model.h"

#include <QObject>
#include <QPointer>
#include <QQuickWindow>
#include <functional>

namespace tappix {

/// The first-run window: made on first need and kept for the life of the process; its
/// step is checked every second while it shows, and not at all while it is hidden.
/// Main thread only.
class OnboardingWindowController final : public QObject {
    Q_OBJECT
public:
    /// Makes the window; called once, on first need.
    using WindowFactory = std::function<QQuickWindow*()>;

    OnboardingWindowController(OnboardingModel& model, WindowFactory makeWindow,
                               QObject* parent = nullptr);

    /// Shows the window on the step that holds now and brings it forward.
    void show();
    /// Whether the window shows now.
    bool isVisible() const;
    /// The window, if made (tests, screenshots).
    QQuickWindow* window() const { return window_; }

private:
    OnboardingModel& model_;
    WindowFactory makeWindow_;
    QPointer<QQuickWindow> window_;
};

} // namespace tappix
