#pragma once

#include "core/scheduler.h"
#include "settings/preferences.h"

#include <QJsonObject>
#include <QString>
#include <chrono>

namespace tappix {

/// Preferences kept as one JSON object in a file a person can read and edit.
///
/// Writes are atomic (a temporary file renamed over the old one) with mode 0600, and
/// coalesced: a change schedules one write a short moment later, so dragging a slider
/// does not write the file sixty times a second. `sync()` and destruction write at once,
/// so quitting never loses a change. A file that does not parse as a JSON object is
/// renamed aside to `<name>.corrupt-<time>` and the store starts empty.
/// Main thread only.
class JsonFilePreferences final : public Preferences {
public:
    /// How long a change waits for others before the file is written.
    static constexpr std::chrono::milliseconds kWriteDelay{250};

    /// Loads `path` (a missing file is an empty store). Main thread.
    JsonFilePreferences(QString path, Scheduler& scheduler);

    /// Writes pending changes. Main thread.
    ~JsonFilePreferences() override;

    JsonFilePreferences(const JsonFilePreferences&) = delete;
    JsonFilePreferences& operator=(const JsonFilePreferences&) = delete;

    /// The file's location, `$XDG_CONFIG_HOME/tappix/preferences.json` by default.
    static QString defaultPath();

    /// The path this store reads and writes.
    const QString& path() const { return path_; }

    /// Where an unreadable file was moved at load, or empty.
    const QString& keptAsidePath() const { return keptAsidePath_; }

    /// Number of times the file has been written (for tests and diagnostics).
    int writeCount() const { return writeCount_; }

    QJsonValue value(const QString& key) const override;
    bool contains(const QString& key) const override;
    void setValue(const QString& key, const QJsonValue& value) override;
    void remove(const QString& key) override;
    void sync() override;

private:
    void load();
    void markDirty();
    bool write();

    QString path_;
    Scheduler& scheduler_;
    QJsonObject values_;
    QString keptAsidePath_;
    Scheduler::TaskId pendingWrite_ = 0;
    bool dirty_ = false;
    int writeCount_ = 0;
};

} // namespace tappix
