// A window of an app of its own for the KWin tests, on the Wayland display the
// environment names: the first argument is its application id; each line "full" or
// "normal" on standard input sets its full-screen state.

#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>
#include <QSocketNotifier>
#include <cstdio>
#include <unistd.h>

namespace {

class Window final : public QRasterWindow {
protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(QRect(QPoint(), size()), Qt::darkCyan); }
};

} // namespace

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s APP-ID\n", argv[0]);
        return 2;
    }
    QGuiApplication::setDesktopFileName(QString::fromLocal8Bit(argv[1]));
    Window window;
    window.resize(200, 150);
    window.show();
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char line[64] = {};
        const ssize_t got = ::read(STDIN_FILENO, line, sizeof line - 1);
        if (got <= 0)
            QGuiApplication::quit();
        else if (QByteArray(line).startsWith("full"))
            window.showFullScreen();
        else
            window.showNormal();
    });
    return QGuiApplication::exec();
}
