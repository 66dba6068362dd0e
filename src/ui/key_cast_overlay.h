#pragma once

#include "ui/key_cast_model.h"

#include <QObject>
#include <QPointer>
#include <QRect>
#include <functional>

#include <QQuickWindow>

namespace tappix {

class KeyCast;
class SettingsStore;

/// The key-cast overlay: a frameless, click-through window above every other that shows
/// the chips of `KeyCast` in a corner of the primary screen. The window is made when the
/// first chip appears and shows only while there are chips (a moment longer, for the last
/// chip to fade). Size and place follow `visualizerSize` and `visualizerPosition`.
/// Main thread only.
class KeyCastOverlay final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QObject* chips READ chipsObject CONSTANT)
    Q_PROPERTY(int fontSize READ fontSize NOTIFY looksChanged)
    Q_PROPERTY(int chipHeight READ chipHeight NOTIFY looksChanged)
    Q_PROPERTY(QString position READ position NOTIFY looksChanged)
    Q_PROPERTY(QRect area READ area NOTIFY looksChanged)
    Q_PROPERTY(int margin READ margin CONSTANT)

public:
    /// Makes the window, given this overlay to show; called once, on first need.
    using WindowFactory = std::function<QQuickWindow*(KeyCastOverlay&)>;

    /// Space between the overlay and the screen's edges.
    static constexpr int kMargin = 48;
    /// How long the window stays after the last chip went, for it to fade.
    static constexpr std::chrono::milliseconds kLinger{250};

    /// Shows the chips of `cast`, which must outlive the overlay.
    KeyCastOverlay(SettingsStore& settings, KeyCast& cast, WindowFactory makeWindow,
                   QObject* parent = nullptr);
    ~KeyCastOverlay() override;

    /// Whether the window shows now. Main thread.
    bool isVisible() const { return window_ && window_->isVisible(); }

    /// The chips. Main thread.
    KeyCastModel& chips() { return chips_; }
    /// The key label's pixel size for `visualizerSize`. Main thread.
    int fontSize() const;
    /// A chip's height. Main thread.
    int chipHeight() const;
    /// "bottomLeft", "bottomCenter", "bottomRight" or "topRight". Main thread.
    QString position() const;
    /// The primary screen's available geometry. Main thread.
    QRect area() const;
    /// Space from the screen's edges. Main thread.
    int margin() const { return kMargin; }
    /// The window, once made (tests, screenshots). Main thread.
    QQuickWindow* window() const { return window_; }

Q_SIGNALS:
    /// Size, place or screen changed.
    void looksChanged();

private:
    QObject* chipsObject() { return &chips_; }
    void chipsChanged();
    void watchScreen();
    void hideIfEmpty();

    SettingsStore& settings_;
    KeyCastModel chips_;
    WindowFactory makeWindow_;
    QPointer<QQuickWindow> window_;
    KeyCast& cast_;
    Scheduler::TaskId linger_ = 0;
};

} // namespace tappix
