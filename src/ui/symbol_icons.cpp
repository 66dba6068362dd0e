#include "ui/symbol_icons.h"

#include <QPainter>
#include <QPixmap>

namespace tappix::SymbolIcons {

namespace {

// Tray hosts ask for a few sizes; drawing each keeps the glyph crisp.
constexpr int kTraySizes[] = {16, 22, 24, 32, 48, 64};
// How strongly a muted icon fades when dimming is on.
constexpr double kDimmedOpacity = 0.6;

QString file(const char* name) {
    return QStringLiteral(":/Tappix/Ui/icons/%1.svg").arg(QLatin1String(name));
}

} // namespace

QString resourceBase() {
    return QStringLiteral("qrc:/Tappix/Ui/icons/");
}

QIcon trayIcon(bool soundsOn, bool dimmed) {
    const QIcon source(file(soundsOn ? "keyboard-fill" : "keyboard"));
    QIcon icon;
    for (int size : kTraySizes) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setOpacity(dimmed ? kDimmedOpacity : 1.0);
        source.paint(&painter, pixmap.rect());
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

QIcon applicationIcon() {
    return QIcon(file("tappix"));
}

} // namespace tappix::SymbolIcons
