#pragma once

#include "leash.h"

#include <QProcess>
#include <QString>
#include <QStringList>

namespace tappix::test {

/// A private X server: started on a free display chosen by the server itself, exported
/// as DISPLAY (with an X11 session), stopped on destruction.
class XvfbServer {
public:
    XvfbServer() {
        leash(process_);
        process_.start(QStringLiteral("Xvfb"), {"-displayfd", "1", "-screen", "0", "640x480x24",
                                                "-nolisten", "tcp", "-noreset"});
        if (!process_.waitForStarted(5000))
            return;
        // -noreset: an X server resets when its last client leaves, refusing connections
        // meanwhile; between two tests that is a capture that cannot start.
        // The server writes its display number once it accepts connections.
        while (!process_.canReadLine() && process_.waitForReadyRead(10000)) {
        }
        const QString number = QString::fromLatin1(process_.readLine()).trimmed();
        if (!number.isEmpty())
            display_ = QLatin1Char(':') + number;
        exportDisplay();
    }
    ~XvfbServer() {
        process_.terminate();
        if (!process_.waitForFinished(3000))
            process_.kill();
        process_.waitForFinished(1000);
    }

    /// The one server every test of this process shares, started on first use and named
    /// by DISPLAY again at each call (a test may have pointed it at a server of its own).
    static XvfbServer& shared() {
        static XvfbServer server;
        server.exportDisplay();
        return server;
    }

    /// Whether the server runs; DISPLAY then names it.
    bool isRunning() const { return !display_.isEmpty(); }

    /// Runs xdotool with `arguments` against DISPLAY; true on success.
    static bool xdotool(const QStringList& arguments) {
        QProcess tool;
        tool.start(QStringLiteral("xdotool"), arguments);
        return tool.waitForFinished(10000) && tool.exitCode() == 0;
    }

private:
    void exportDisplay() const {
        if (!isRunning())
            return;
        qputenv("DISPLAY", display_.toLatin1());
        qunsetenv("WAYLAND_DISPLAY");
        qputenv("XDG_SESSION_TYPE", "x11");
    }

    QProcess process_;
    QString display_;
};

} // namespace tappix::test
