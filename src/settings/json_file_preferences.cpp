#include "settings/json_file_preferences.h"

#include "core/log.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>
#include <QStandardPaths>

namespace tappix {

JsonFilePreferences::JsonFilePreferences(QString path, Scheduler& scheduler)
    : path_(std::move(path)), scheduler_(scheduler) {
    load();
}

JsonFilePreferences::~JsonFilePreferences() {
    if (pendingWrite_ != 0)
        scheduler_.cancel(pendingWrite_);
    if (dirty_)
        write();
}

QString JsonFilePreferences::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/tappix/preferences.json");
}

void JsonFilePreferences::load() {
    QFile file(path_);
    if (!file.exists())
        return;
    if (!file.open(QIODevice::ReadOnly)) {
        // Keep the file untouched: it may be fine and only briefly unreadable.
        qCWarning(lcSettings, "cannot read preferences %s: %s; using defaults", qPrintable(path_),
                  qPrintable(file.errorString()));
        return;
    }
    const QByteArray bytes = file.readAll();
    file.close();

    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error == QJsonParseError::NoError && document.isObject()) {
        values_ = document.object();
        return;
    }

    // Keep the unreadable file for the user under a name no later write touches.
    const QString reason = error.error != QJsonParseError::NoError
                               ? error.errorString()
                               : QStringLiteral("not a JSON object");
    const QString stamp =
        QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString aside = path_ + QStringLiteral(".corrupt-") + stamp;
    for (int n = 2; QFileInfo::exists(aside); ++n)
        aside = path_ + QStringLiteral(".corrupt-") + stamp + QLatin1Char('-') + QString::number(n);
    if (QFile::rename(path_, aside)) {
        keptAsidePath_ = aside;
        qCWarning(lcSettings, "preferences %s unreadable (%s); kept as %s, using defaults",
                  qPrintable(path_), qPrintable(reason), qPrintable(aside));
    } else {
        qCWarning(lcSettings, "preferences %s unreadable (%s) and could not be kept aside",
                  qPrintable(path_), qPrintable(reason));
    }
}

QJsonValue JsonFilePreferences::value(const QString& key) const {
    return values_.value(key);
}

bool JsonFilePreferences::contains(const QString& key) const {
    return values_.contains(key);
}

void JsonFilePreferences::setValue(const QString& key, const QJsonValue& value) {
    if (value.isUndefined()) {
        remove(key);
        return;
    }
    values_.insert(key, value);
    markDirty();
}

void JsonFilePreferences::remove(const QString& key) {
    if (!values_.contains(key))
        return;
    values_.remove(key);
    markDirty();
}

void JsonFilePreferences::sync() {
    if (pendingWrite_ != 0) {
        scheduler_.cancel(pendingWrite_);
        pendingWrite_ = 0;
    }
    if (dirty_)
        write();
}

void JsonFilePreferences::markDirty() {
    dirty_ = true;
    if (pendingWrite_ != 0)
        return;
    pendingWrite_ = scheduler_.schedule(kWriteDelay, [this] {
        pendingWrite_ = 0;
        if (dirty_)
            write();
    });
}

bool JsonFilePreferences::write() {
    const QFileInfo info(path_);
    if (!QDir().mkpath(info.absolutePath())) {
        qCWarning(lcSettings, "cannot create %s; preferences stay in memory",
                  qPrintable(info.absolutePath()));
        return false;
    }
    QFile::setPermissions(info.absolutePath(),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    QSaveFile file(path_);
    if (!file.open(QIODevice::WriteOnly)) {
        qCWarning(lcSettings, "cannot write preferences %s: %s", qPrintable(path_),
                  qPrintable(file.errorString()));
        return false;
    }
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    file.write(QJsonDocument(values_).toJson(QJsonDocument::Indented));
    if (!file.commit()) {
        qCWarning(lcSettings, "cannot write preferences %s: %s", qPrintable(path_),
                  qPrintable(file.errorString()));
        return false;
    }
    dirty_ = false;
    ++writeCount_;
    return true;
}

} // namespace tappix
