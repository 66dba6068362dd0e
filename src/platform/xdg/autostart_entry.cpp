#include "platform/xdg/autostart_entry.h"

#include "core/log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace tappix {

AutostartEntry::AutostartEntry()
    : path_(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
            QStringLiteral("/autostart/app.morvane.tappix.desktop")) {}

bool AutostartEntry::isEnabled() const {
    QFile file(path_);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    // A desktop that turns the entry off keeps the file and marks it Hidden.
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (line.startsWith("Hidden") && line.contains('=')) {
            const QByteArray value = line.mid(line.indexOf('=') + 1).trimmed().toLower();
            if (value == "true")
                return false;
        }
    }
    return true;
}

bool AutostartEntry::setEnabled(bool enabled, const QString& program) {
    if (!enabled) {
        if (!QFile::exists(path_) || QFile::remove(path_))
            return true;
        qCWarning(lcApp, "could not remove the autostart entry %s", qPrintable(path_));
        return false;
    }
    QDir().mkpath(QFileInfo(path_).absolutePath());
    QSaveFile file(path_);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        qCWarning(lcApp, "could not write the autostart entry %s: %s", qPrintable(path_),
                  qPrintable(file.errorString()));
        return false;
    }
    // Exec needs its arguments quoted when the path has spaces.
    QString exec = program;
    if (exec.contains(QLatin1Char(' ')))
        exec = QLatin1Char('"') + exec + QLatin1Char('"');
    const QString text = QStringLiteral("[Desktop Entry]\nType=Application\nName=Tappix\n"
                                        "Comment=Keyboard sounds for every key you press\n"
                                        "Exec=%1\nIcon=app.morvane.tappix\nTerminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n")
                             .arg(exec);
    file.write(text.toUtf8());
    if (!file.commit()) {
        qCWarning(lcApp, "could not write the autostart entry %s: %s", qPrintable(path_),
                  qPrintable(file.errorString()));
        return false;
    }
    return true;
}

} // namespace tappix
