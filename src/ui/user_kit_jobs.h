#pragma once

#include <QObject>
#include <QString>
#include <QThreadPool>
#include <functional>

namespace tappix {

class SettingsStore;
class SoundEngine;
class SoundpackStore;

/// Writes kits into the user kit directory off the main thread, one job at a time, and
/// once a job has written its kit, scans the kits again, loads the new one and makes it
/// the main kit. The views' commands that make kits (a designed switch saved, a pack
/// imported) run through one of these each. Main thread only.
class UserKitJobs final : public QObject {
    Q_OBJECT
public:
    /// What a job made: the id of the kit it wrote, or why it wrote none.
    struct Outcome {
        /// The kit written; empty when the job failed.
        QString kitId;
        /// Why no kit was written or chosen; empty on success.
        QString error;

        /// Whether a kit was written.
        bool ok() const { return error.isEmpty() && !kitId.isEmpty(); }
    };
    /// The work: runs on the job thread and returns what it wrote.
    using Work = std::function<Outcome()>;
    /// Told on the main thread how the job ended, once the kit is listed and chosen
    /// (`outcome.error` says why when it was not).
    using Done = std::function<void(const Outcome&)>;

    /// Jobs whose kits join `packs` and become `settings`' main kit, loaded into
    /// `engine` (may be null).
    UserKitJobs(SoundpackStore& packs, SettingsStore& settings, SoundEngine* engine,
                QObject* parent = nullptr);
    /// Waits for a job under way; its report back is dropped.
    ~UserKitJobs() override;

    /// Whether a job runs now.
    bool busy() const { return busy_; }

    /// Starts `work` off the main thread and calls `done` when it ends; false (and
    /// nothing started) while another job runs.
    bool start(Work work, Done done);

Q_SIGNALS:
    void busyChanged();
    /// The kit store was scanned again after a job wrote a kit.
    void packsReloaded();

private:
    void finish(const Outcome& outcome, const Done& done);
    void setBusy(bool value);

    SoundpackStore& packs_;
    SettingsStore& settings_;
    SoundEngine* engine_;
    bool busy_ = false;
    // Last, so it is waited for before anything a job reads goes.
    QThreadPool pool_;
};

} // namespace tappix
