#include "ui/key_cast_overlay.h"

#include "settings/settings_store.h"

#include <QBitmap>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QSurfaceFormat>

namespace tappix {

KeyCastOverlay::KeyCastOverlay(SettingsStore& settings, KeyCast& cast, WindowFactory makeWindow,
                               std::function<bool()> drawsClear, QObject* parent)
    : QObject(parent), settings_(settings), chips_(cast), makeWindow_(std::move(makeWindow)),
      cast_(cast), drawsClear_(std::move(drawsClear)) {
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
    return qRound(chipHeight() * 0.46);
}

int KeyCastOverlay::chipHeight() const {
    const QString size = settings_.visualizerSize();
    if (size == QLatin1String("small"))
        return 34;
    if (size == QLatin1String("large"))
        return 58;
    return 44;
}

QString KeyCastOverlay::position() const {
    const QString position = settings_.visualizerPosition();
    for (const char* known : {"bottomLeft", "bottomRight", "topRight"}) {
        if (position == QLatin1String(known))
            return position;
    }
    return QStringLiteral("bottomCenter");
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
    if (window_ && !window_->isVisible()) {
        cutToChips_ = drawsClear_ && !drawsClear_();
        // Cut to a clear pixel until the view has placed its chips, so the strip never
        // shows black for a frame.
        window_->setMask(cutToChips_ ? QRegion(0, 0, 1, 1) : QRegion());
        window_->setVisible(true);
    }
}

qreal KeyCastOverlay::inkMiddle(const QString& text, const QFont& font) const {
    QPainterPath path;
    path.addText(QPointF(0, 0), font, text);
    const QRectF ink = path.boundingRect();
    return ink.isEmpty() ? 0 : ink.center().y();
}

void KeyCastOverlay::shapeTo(const QVariantList& chips, qreal radius) {
    if (!window_ || !cutToChips_)
        return;
    // A one-bit picture of the chips, corners included; an empty one would leave the
    // window unshaped, so a window with no chip left keeps a single clear pixel.
    QBitmap bits(window_->size());
    bits.fill(Qt::color0);
    QPainter painter(&bits);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::color1);
    bool any = false;
    for (const QVariant& chip : chips) {
        const QRectF rect = chip.toRectF();
        if (rect.isEmpty())
            continue;
        painter.drawRoundedRect(rect, radius, radius);
        any = true;
    }
    painter.end();
    window_->setMask(any ? QRegion(bits) : QRegion(0, 0, 1, 1));
}

} // namespace tappix
