#pragma once

#include "kits/pack_importer.h"
#include "ui/user_kit_jobs.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <atomic>
#include <functional>

namespace tappix {

class SettingsStore;
class SoundEngine;
class SoundpackStore;

/// The Sound page's import of a keyboard-sound pack made for another program (a
/// folder or a .zip holding its config.json), chosen in a file dialog or dropped on
/// the page. The import runs off the main thread; a kit it makes is then listed and
/// made the main kit. What could not be used is kept one line per problem; a pack
/// that is refused says why and leaves the kits and the choice as they were.
/// Main thread only.
class KitImportViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(QString status READ status NOTIFY resultChanged)
    Q_PROPERTY(bool failed READ failed NOTIFY resultChanged)
    Q_PROPERTY(QStringList problems READ problems NOTIFY resultChanged)
    Q_PROPERTY(QUrl startFolder READ startFolder CONSTANT)

public:
    /// Imports the pack at a path into a kit; called off the main thread.
    using Importer =
        std::function<PackImportResult(const QString& path, const PackImporter::Options&)>;

    /// Imports with `importer` (none: every import is refused) into `packs`' user
    /// directory; the new kit becomes `settings`' main kit, loaded into `engine` (may be null).
    KitImportViewModel(SoundpackStore& packs, SettingsStore& settings, SoundEngine* engine,
                       Importer importer, QObject* parent = nullptr);
    /// Stops an import under way between two files and waits for it.
    ~KitImportViewModel() override;

    /// Whether an import is under way.
    bool busy() const { return jobs_.busy(); }
    /// What the last import did, in a sentence; empty before the first.
    QString status() const { return status_; }
    /// Whether the last import made no kit.
    bool failed() const { return failed_; }
    /// What the last import could not use, one line each.
    QStringList problems() const { return problems_; }

    /// Where the file dialog opens: the Downloads folder, or home without one.
    static QUrl startFolder();

    /// The path to import for `url`: a local folder or file, and for a pack's own
    /// config.json the folder that holds it. Empty for anything not on this machine.
    static QString packPath(const QUrl& url);

    /// Whether `urls` (a drop) is one local folder, .zip file or config.json.
    Q_INVOKABLE bool accepts(const QList<QUrl>& urls) const;
    /// Starts importing the pack at `url`; false when an import is under way or
    /// `url` is not on this machine.
    Q_INVOKABLE bool importPack(const QUrl& url);
    /// Forgets what the last import said.
    Q_INVOKABLE void dismiss();

Q_SIGNALS:
    void busyChanged();
    void resultChanged();
    /// The kit store was scanned again after an import made a kit.
    void packsReloaded();
    /// An import ended, with a kit (`ok`) or without.
    void importFinished(bool ok);

private:
    void setResult(const QString& status, bool failed, const QStringList& problems);

    SoundpackStore& packs_;
    Importer importer_;
    QString status_;
    bool failed_ = false;
    QStringList problems_;
    std::atomic<bool> cancel_{false};
    // Last, so it is waited for before what the import reads goes.
    UserKitJobs jobs_;
};

} // namespace tappix
