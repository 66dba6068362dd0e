#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <cstdlib>

namespace tappix::test {

/// A private X server for one test binary: started on a free display chosen by the
/// server itself, exported as DISPLAY, stopped on destruction.
class XvfbServer {
public:
    XvfbServer() {
        process_.start(QStringLiteral("Xvfb"),
                       {QStringLiteral("-displayfd"), QStringLiteral("1"),
                        QStringLiteral("-screen"), QStringLiteral("0"),
                        QStringLiteral("640x480x24"), QStringLiteral("-nolisten"),
                        QStringLiteral("tcp")});
        if (!process_.waitForStarted(5000))
            return;
        // The server writes its display number once it accepts connections.
        while (!process_.canReadLine() && process_.waitForReadyRead(10000)) {
        }
        const QString number = QString::fromLatin1(process_.readLine()).trimmed();
        if (number.isEmpty())
            return;
        display_ = QLatin1Char(':') + number;
        qputenv("DISPLAY", display_.toLatin1());
        qunsetenv("WAYLAND_DISPLAY");
        qputenv("XDG_SESSION_TYPE", "x11");
    }

    ~XvfbServer() {
        process_.terminate();
        if (!process_.waitForFinished(3000))
            process_.kill();
        process_.waitForFinished(1000);
    }

    /// Whether the server runs; DISPLAY then names it.
    bool isRunning() const { return !display_.isEmpty(); }

    /// Runs xdotool with `arguments` against this server; true on success.
    static bool xdotool(const QStringList& arguments) {
        QProcess tool;
        tool.start(QStringLiteral("xdotool"), arguments);
        return tool.waitForFinished(10000) && tool.exitCode() == 0;
    }

private:
    QProcess process_;
    QString display_;
};

} // namespace tappix::test
