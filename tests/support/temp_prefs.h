#pragma once

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

namespace tappix::test {

/// A private directory holding a preferences file path for one test.
struct TempPrefs {
    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("tappix/preferences.json"));

    /// Writes raw bytes as the preferences file.
    void writeRaw(const QByteArray& bytes) const {
        QDir().mkpath(dir.filePath(QStringLiteral("tappix")));
        QFile file(path);
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(bytes);
    }

    /// Writes a JSON object as the preferences file.
    void write(const QJsonObject& object) const { writeRaw(QJsonDocument(object).toJson()); }

    /// The file's JSON object (empty when missing or unreadable).
    QJsonObject read() const {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QJsonDocument::fromJson(file.readAll()).object();
    }

    bool exists() const { return QFile::exists(path); }
};

} // namespace tappix::test
