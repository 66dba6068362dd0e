#include "platform/xdg/desktop_apps.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QStandardPaths>
#include <QTextStream>

namespace tappix {
namespace {

/// The keys Tappix reads from a file's [Desktop Entry] group; false when it is not an
/// application shown to the user.
bool readEntry(const QString& path, QString& name, QString& icon, QString& wmClass) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    QTextStream in(&file);
    bool inGroup = false;
    bool shown = true;
    QString type;
    while (!in.atEnd()) {
        const QString line = in.readLine().trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            if (inGroup)
                break; // only the main group names the application
            inGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inGroup || line.startsWith(QLatin1Char('#')))
            continue;
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (eq <= 0)
            continue;
        const QString key = line.left(eq).trimmed();
        const QString value = line.mid(eq + 1).trimmed();
        if (key == QLatin1String("Name"))
            name = value;
        else if (key == QLatin1String("Icon"))
            icon = value;
        else if (key == QLatin1String("StartupWMClass"))
            wmClass = value;
        else if (key == QLatin1String("Type"))
            type = value;
        else if (key == QLatin1String("Hidden") && value == QLatin1String("true"))
            shown = false;
    }
    return shown && !name.isEmpty() && (type.isEmpty() || type == QLatin1String("Application"));
}

} // namespace

DesktopApps::DesktopApps() {
    rescan();
}

void DesktopApps::rescan() {
    byId_.clear();
    byClass_.clear();
    byLowerId_.clear();
    const QStringList roots =
        QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation);
    for (const QString& root : roots) {
        const QString base = root + QStringLiteral("/applications");
        QDirIterator files(base, {QStringLiteral("*.desktop")}, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = files.next();
            // The id is the path below applications/ with '/' as '-', less the suffix.
            QString id = QDir(base).relativeFilePath(path);
            id.chop(int(sizeof(".desktop") - 1));
            id.replace(QLatin1Char('/'), QLatin1Char('-'));
            if (byId_.count(id))
                continue; // an earlier directory overrides
            Entry entry;
            if (!readEntry(path, entry.name, entry.icon, entry.startupWMClass))
                continue;
            if (!entry.startupWMClass.isEmpty())
                byClass_.emplace(entry.startupWMClass.toLower(), id);
            byLowerId_.emplace(id.toLower(), id);
            byId_.emplace(id, std::move(entry));
        }
    }
}

AppIdentity DesktopApps::identityOf(const QString& id, const Entry& entry) const {
    return {id, entry.name, entry.icon};
}

AppIdentity DesktopApps::identify(const QString& hintedId, const QStringList& classes) const {
    if (!hintedId.isEmpty()) {
        if (auto it = byId_.find(hintedId); it != byId_.end())
            return identityOf(it->first, it->second);
    }
    for (const QString& name : classes) {
        if (auto it = byClass_.find(name.toLower()); it != byClass_.end())
            return identityOf(it->second, byId_.at(it->second));
    }
    for (const QString& name : classes) {
        if (auto it = byLowerId_.find(name.toLower()); it != byLowerId_.end())
            return identityOf(it->second, byId_.at(it->second));
    }
    // No file: the class the toolkit gave, which is what a user would recognise.
    QString id = classes.isEmpty() ? QString() : classes.back();
    if (id.isEmpty() && !classes.isEmpty())
        id = classes.front();
    return {id, id, id.toLower()};
}

AppIdentity DesktopApps::describe(const QString& id) const {
    if (auto it = byId_.find(id); it != byId_.end())
        return identityOf(it->first, it->second);
    return identify({}, {id});
}

} // namespace tappix
