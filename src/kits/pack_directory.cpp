#include "kits/pack_directory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace tappix {
namespace {

const QString kConfig = QStringLiteral("config.json");

bool holdsConfig(const QString& directory) {
    const QFileInfo info(directory + QLatin1Char('/') + kConfig);
    return info.isFile() && !info.isSymLink();
}

} // namespace

std::unique_ptr<PackDirectory> PackDirectory::open(const QString& path, std::string& error) {
    const QFileInfo info(path);
    if (!info.isDir()) {
        error = "no such directory";
        return nullptr;
    }
    const QString absolute = info.absoluteFilePath();
    if (holdsConfig(absolute))
        return std::unique_ptr<PackDirectory>(new PackDirectory(absolute, absolute));
    QStringList roots;
    for (const QFileInfo& entry :
         QDir(absolute).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        if (!entry.isSymLink() && holdsConfig(entry.absoluteFilePath()))
            roots.push_back(entry.absoluteFilePath());
    }
    if (roots.size() == 1)
        return std::unique_ptr<PackDirectory>(new PackDirectory(absolute, roots.front()));
    error = roots.empty() ? "no config.json in the directory or in a folder directly inside it"
                          : "the directory holds several packs; import one folder at a time";
    return nullptr;
}

QString PackDirectory::displayName() const {
    return QFileInfo(path_).fileName();
}

std::optional<QByteArray> PackDirectory::read(const QString& name, qint64 maxBytes,
                                              std::string& error) {
    // Walk the name one component at a time so no link on the way is followed.
    QString path = root_;
    const QStringList parts = name.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    if (parts.isEmpty()) {
        error = "empty file name";
        return std::nullopt;
    }
    for (const QString& part : parts) {
        if (part == QLatin1String("..") || part == QLatin1String(".")) {
            error = "the name leaves the pack";
            return std::nullopt;
        }
        QString next = path + QLatin1Char('/') + part;
        if (!QFileInfo::exists(next) && !QFileInfo(next).isSymLink()) {
            // Packs made on systems that ignore case often spell names differently.
            QStringList matches;
            for (const QString& entry : QDir(path).entryList(QDir::AllEntries | QDir::Hidden |
                                                             QDir::System | QDir::NoDotAndDotDot)) {
                if (entry.compare(part, Qt::CaseInsensitive) == 0)
                    matches.push_back(entry);
            }
            if (matches.size() == 1)
                next = path + QLatin1Char('/') + matches.front();
        }
        path = next;
        const QFileInfo info(path);
        if (info.isSymLink()) {
            error = "is a link; links are not followed";
            return std::nullopt;
        }
        if (!info.exists()) {
            error = "no such file in the pack";
            return std::nullopt;
        }
    }
    const QFileInfo info(path);
    if (!info.isFile()) {
        error = "not a regular file";
        return std::nullopt;
    }
    if (info.size() > maxBytes) {
        error = "larger than " + std::to_string(maxBytes / (1024 * 1024)) + " MiB";
        return std::nullopt;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = file.errorString().toStdString();
        return std::nullopt;
    }
    // Read at most one byte past the limit, in case the file grew meanwhile.
    QByteArray bytes = file.read(maxBytes + 1);
    if (bytes.size() > maxBytes) {
        error = "larger than " + std::to_string(maxBytes / (1024 * 1024)) + " MiB";
        return std::nullopt;
    }
    return bytes;
}

} // namespace tappix
