#include "ui/kit_import_view_model.h"

#include "core/log.h"
#include "kits/soundpack_store.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <memory>

namespace tappix {

namespace {

// What an import reports back beyond the kit it made.
struct ImportReport {
    QString kitName;
    bool replaced = false;
    QStringList problems;
};

QString quoted(const QString& text) {
    return QStringLiteral("“") + text + QStringLiteral("”");
}

} // namespace

KitImportViewModel::KitImportViewModel(SoundpackStore& packs, SettingsStore& settings,
                                       SoundEngine* engine, Importer importer, QObject* parent)
    : QObject(parent), packs_(packs), importer_(std::move(importer)),
      jobs_(packs, settings, engine) {
    connect(&jobs_, &UserKitJobs::busyChanged, this, &KitImportViewModel::busyChanged);
    connect(&jobs_, &UserKitJobs::packsReloaded, this, &KitImportViewModel::packsReloaded);
}

KitImportViewModel::~KitImportViewModel() {
    // A large pack would hold up quitting; the importer stops before its next file.
    cancel_ = true;
}

QUrl KitImportViewModel::startFolder() {
    const QString downloads = QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);
    return QUrl::fromLocalFile(
        !downloads.isEmpty() && QFileInfo(downloads).isDir() ? downloads : QDir::homePath());
}

QString KitImportViewModel::packPath(const QUrl& url) {
    if (!url.isLocalFile())
        return {};
    const QFileInfo info(url.toLocalFile());
    // A file dialog picks files: a pack's config.json stands for its folder.
    if (info.isFile() &&
        info.fileName().compare(QLatin1String("config.json"), Qt::CaseInsensitive) == 0)
        return info.absolutePath();
    return QDir::cleanPath(info.absoluteFilePath());
}

bool KitImportViewModel::accepts(const QList<QUrl>& urls) const {
    if (urls.size() != 1 || busy())
        return false;
    const QString path = packPath(urls.front());
    if (path.isEmpty())
        return false;
    const QFileInfo info(path);
    return info.isDir() || info.suffix().compare(QLatin1String("zip"), Qt::CaseInsensitive) == 0;
}

bool KitImportViewModel::importPack(const QUrl& url) {
    const QString path = packPath(url);
    if (busy() || path.isEmpty())
        return false;
    const QString shownName = QFileInfo(path).fileName();
    PackImporter::Options options;
    options.kitDirectory = packs_.userDirectory();
    // A kit that comes with Tappix would hide an import of the same id.
    for (const Soundpack& pack : packs_.packs())
        if (!pack.isUserPack)
            options.reservedIds.push_back(pack.config.id);
    options.cancel = &cancel_;

    auto report = std::make_shared<ImportReport>();
    const bool started = jobs_.start(
        [importer = importer_, path, options, report]() -> UserKitJobs::Outcome {
            if (!importer)
                return {{}, QStringLiteral("importing is not available here")};
            const PackImportResult result = importer(path, options);
            for (const std::string& problem : result.problems)
                report->problems << QString::fromStdString(problem);
            for (const std::string& note : result.notes)
                qCInfo(lcSoundpacks, "import of %s: %s", qPrintable(path), note.c_str());
            if (!result.ok())
                return {{}, QString::fromStdString(result.error)};
            report->kitName = QString::fromStdString(result.config->metadata.name);
            report->replaced = result.replaced;
            return {QString::fromStdString(result.config->id), {}};
        },
        [this, shownName, report](const UserKitJobs::Outcome& outcome) {
            if (!outcome.ok()) {
                qCWarning(lcSoundpacks, "import of %s refused: %s", qPrintable(shownName),
                          qPrintable(outcome.error));
                // The sentence names the pack once.
                QString why = outcome.error;
                if (why.startsWith(shownName + QStringLiteral(": ")))
                    why.remove(0, shownName.size() + 2);
                setResult(QStringLiteral("Could not import %1: %2").arg(quoted(shownName), why),
                          true, report->problems);
            } else {
                setResult(QStringLiteral("Imported %1%2 and selected it. Type anywhere to hear it.")
                              .arg(quoted(report->kitName),
                                   report->replaced
                                       ? QStringLiteral(" again, replacing the earlier import,")
                                       : QString()),
                          false, report->problems);
            }
            Q_EMIT importFinished(outcome.ok());
        });
    if (started)
        setResult(QStringLiteral("Importing %1…").arg(quoted(shownName)), false, {});
    return started;
}

void KitImportViewModel::dismiss() {
    if (!busy())
        setResult({}, false, {});
}

void KitImportViewModel::setResult(const QString& status, bool failed,
                                   const QStringList& problems) {
    if (status == status_ && failed == failed_ && problems == problems_)
        return;
    status_ = status;
    failed_ = failed;
    problems_ = problems;
    Q_EMIT resultChanged();
}

} // namespace tappix
