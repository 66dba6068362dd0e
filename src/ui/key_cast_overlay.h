#pragma once

#include "ui/key_cast_model.h"

#include <QFont>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <QVariantList>
#include <functional>

#include <QQuickWindow>

namespace tappix {

class KeyCast;
class SettingsStore;

/// The key-cast overlay: a frameless, click-through strip above every other window that
/// shows the chips of `KeyCast` in a corner of the primary screen. The window is made when the
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
    Q_PROPERTY(int spacing READ spacing CONSTANT)
    Q_PROPERTY(int fadeOutMs READ fadeOutMs CONSTANT)

public:
    /// Makes the window, given this overlay to show; called once, on first need.
    using WindowFactory = std::function<QQuickWindow*(KeyCastOverlay&)>;

    /// Space between the overlay and the screen's edges.
    static constexpr int kMargin = 48;
    /// Space between two chips.
    static constexpr int kSpacing = 7;
    /// How long a chip takes to fade out once it went; the window stays that long after
    /// the last chip.
    static constexpr std::chrono::milliseconds kLinger{300};

    /// Shows the chips of `cast`, which must outlive the overlay. `drawsClear` tells
    /// whether a compositor shows the window's clear parts; without it (or when it says
    /// no) the window is cut to the shape of its chips.
    KeyCastOverlay(SettingsStore& settings, KeyCast& cast, WindowFactory makeWindow,
                   std::function<bool()> drawsClear = {}, QObject* parent = nullptr);
    ~KeyCastOverlay() override;

    /// Whether the window shows now. Main thread.
    bool isVisible() const { return window_ && window_->isVisible(); }

    /// The chips. Main thread.
    KeyCastModel& chips() { return chips_; }
    /// The key label's pixel size, in proportion to the chip. Main thread.
    int fontSize() const;
    /// A chip's height (and least width): 34, 44 or 58 for a `visualizerSize` of "small",
    /// "medium" or "large", medium for any other value. Main thread.
    int chipHeight() const;
    /// `visualizerPosition`: "bottomLeft", "bottomCenter", "bottomRight" or "topRight";
    /// "bottomCenter" for any other value. Main thread.
    QString position() const;
    /// The primary screen's available geometry. Main thread.
    QRect area() const;
    /// Space from the screen's edges. Main thread.
    int margin() const { return kMargin; }
    /// Space between chips. Main thread.
    int spacing() const { return kSpacing; }
    /// A chip's fade-out, in milliseconds. Main thread.
    int fadeOutMs() const { return int(kLinger.count()); }
    /// Cuts the window to these chips (`QRectF`s in its own coordinates, corners of
    /// `radius`) where nothing would draw the rest clear; does nothing where a compositor
    /// does. Main thread.
    Q_INVOKABLE void shapeTo(const QVariantList& chips, qreal radius);

    /// How far below the baseline the middle of `text`'s ink lies when drawn in `font`
    /// (negative: above it), found from the glyphs' outlines, fallback fonts included;
    /// font metrics alone put a symbol such as ⌃ where a letter would be. Main thread.
    Q_INVOKABLE qreal inkMiddle(const QString& text, const QFont& font) const;

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
    std::function<bool()> drawsClear_;
    /// Asked each time the window shows: a compositor may have started or stopped.
    bool cutToChips_ = false;
    Scheduler::TaskId linger_ = 0;
};

} // namespace tappix
