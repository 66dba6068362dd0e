#pragma once

#include <QObject>
#include <QPointer>
#include <functional>

#include <QQuickWindow>

namespace tappix {

class SettingsStore;

/// The settings window: made on first need, kept for the life of the process, always
/// showing the page `lastSettingsPage` names (the first page when it names none).
/// Main thread only.
class SettingsWindowController final : public QObject {
    Q_OBJECT
public:
    /// Makes the window; called once, on first need.
    using WindowFactory = std::function<QQuickWindow*()>;

    SettingsWindowController(SettingsStore& settings, WindowFactory makeWindow,
                             QObject* parent = nullptr);

    /// Shows the window on the page `lastSettingsPage` names and brings it forward.
    void show();
    /// Whether the window shows now.
    bool isVisible() const;
    /// The window, if made (tests, screenshots).
    QQuickWindow* window() const { return window_; }

private:
    void showPage();

    SettingsStore& settings_;
    WindowFactory makeWindow_;
    QPointer<QQuickWindow> window_;
};

} // namespace tappix
