#include "kits/soundpack_store.h"

#include "core/log.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <algorithm>

namespace tappix {

SoundpackStore::SoundpackStore(QString bundleDirectory, QString userDirectory)
    : bundleDirectory_(std::move(bundleDirectory)), userDirectory_(std::move(userDirectory)) {}

QString SoundpackStore::defaultBundleDirectory() {
    const QString exeDir =
        QCoreApplication::instance()
            ? QCoreApplication::applicationDirPath()
            : QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath().section('/', 0, -2);
    // Installed: <prefix>/bin/tappix → <prefix>/share/…; build tree: build/tappix → build/share/….
    for (const QString& candidate : {exeDir + QStringLiteral("/../share/tappix/Soundpacks"),
                                     exeDir + QStringLiteral("/share/tappix/Soundpacks")}) {
        if (QFileInfo(candidate).isDir())
            return QDir(candidate).canonicalPath();
    }
    return {};
}

QString SoundpackStore::defaultUserDirectory() {
    const QString path = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                         QStringLiteral("/Tappix/Soundpacks");
    QDir().mkpath(path);
    return path;
}

void SoundpackStore::reload() {
    packs_.clear();
    if (!bundleDirectory_.isEmpty())
        scan(bundleDirectory_, false);
    if (!userDirectory_.isEmpty())
        scan(userDirectory_, true);
}

void SoundpackStore::scan(const QString& directory, bool isUserPack) {
    QDir dir(directory);
    // Hidden entries are skipped; plain files are listed so they get their log line.
    QStringList entries = dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::NoSort);
    std::sort(entries.begin(), entries.end());
    for (const QString& entry : entries) {
        const QString kitDirectory = dir.filePath(entry);
        QFile manifest(kitDirectory + QStringLiteral("/config.json"));
        std::string error;
        std::optional<SoundpackConfig> config;
        if (!QFileInfo(manifest.fileName()).isFile() || !manifest.open(QIODevice::ReadOnly))
            error = "no readable config.json";
        else
            config = SoundpackConfig::decode(manifest.readAll(), &error);
        if (!config) {
            qCWarning(lcSoundpacks, "skipping pack at %s: %s", qPrintable(entry), error.c_str());
            continue;
        }
        packs_.push_back(Soundpack{std::move(*config), kitDirectory, isUserPack});
    }
}

const Soundpack* SoundpackStore::find(std::string_view id) const {
    for (const Soundpack& pack : packs_) {
        if (pack.config.id == id)
            return &pack;
    }
    return nullptr;
}

} // namespace tappix
