#include "ui/key_cast_overlay.h"

#include "settings/settings_store.h"

#include <QGuiApplication>
#include <QScreen>
#include <QSurfaceFormat>

namespace tappix {

KeyCastOverlay::KeyCastOverlay(SettingsStore& settings, KeyCast& cast, WindowFactory makeWindow,
                               QObject* parent)
    : QObject(parent), settings_(settings), chips_(cast), makeWindow_(std::move(makeWindow)),
      cast_(cast) {
    connect(&chips_, &KeyCastModel::countChanged, this, &KeyCastOverlay::chipsChanged);
    connect(&settings_, &SettingsStore::visualizerSizeChanged, this, &KeyCastOverlay::looksChanged);
    connect(&settings_, &SettingsStore::visualizerPositionChanged, this,
            &KeyCastOverlay::looksChanged);
    connect(qApp, &QGuiApplication::primaryScreenChanged, this, [this] {
        watchScreen();
        Q_EMIT looksChanged();
    });
    watchScreen();
}

KeyCastOverlay::~KeyCastOverlay() {
    if (linger_)
        cast_.scheduler().cancel(linger_);
}

void KeyCastOverlay::hideIfEmpty() {
    linger_ = 0;
    if (window_ && chips_.rowCount() == 0)
        window_->hide();
}

int KeyCastOverlay::fontSize() const {
    const QString size = settings_.visualizerSize();
    if (size == QLatin1String("small"))
        return 18;
    if (size == QLatin1String("large"))
        return 36;
    return 26;
}

int KeyCastOverlay::chipHeight() const {
    return fontSize() * 2;
}

QString KeyCastOverlay::position() const {
    return settings_.visualizerPosition();
}

QRect KeyCastOverlay::area() const {
    const QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry() : QRect();
}

void KeyCastOverlay::watchScreen() {
    if (QScreen* screen = QGuiApplication::primaryScreen())
        connect(screen, &QScreen::availableGeometryChanged, this, &KeyCastOverlay::looksChanged,
                Qt::UniqueConnection);
}

void KeyCastOverlay::chipsChanged() {
    if (chips_.rowCount() == 0) {
        if (window_ && window_->isVisible() && !linger_)
            linger_ = cast_.scheduler().schedule(kLinger, [this] { hideIfEmpty(); });
        return;
    }
    if (linger_) {
        cast_.scheduler().cancel(linger_);
        linger_ = 0;
    }
    if (!window_ && makeWindow_) {
        window_ = makeWindow_(*this);
        if (window_) {
            // Clear around the chips, where a compositor shows what lies below.
            QSurfaceFormat format = window_->format();
            format.setAlphaBufferSize(8);
            window_->setFormat(format);
        }
    }
    if (window_ && !window_->isVisible())
        window_->setVisible(true);
}

} // namespace tappix
