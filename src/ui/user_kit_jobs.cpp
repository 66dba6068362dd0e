#include "ui/user_kit_jobs.h"

#include "audio/sound_engine.h"
#include "kits/soundpack_store.h"
#include "settings/settings_store.h"

#include <QMetaObject>

namespace tappix {

UserKitJobs::UserKitJobs(SoundpackStore& packs, SettingsStore& settings, SoundEngine* engine,
                         QObject* parent)
    : QObject(parent), packs_(packs), settings_(settings), engine_(engine) {
    pool_.setMaxThreadCount(1);
}

UserKitJobs::~UserKitJobs() {
    // The job's report back is dropped with this object's pending events.
    pool_.waitForDone();
}

bool UserKitJobs::start(Work work, Done done) {
    if (busy_)
        return false;
    setBusy(true);
    pool_.start([this, work = std::move(work), done = std::move(done)] {
        const Outcome outcome = work();
        QMetaObject::invokeMethod(
            this, [this, outcome, done] { finish(outcome, done); }, Qt::QueuedConnection);
    });
    return true;
}

void UserKitJobs::finish(const Outcome& outcome, const Done& done) {
    setBusy(false);
    if (!outcome.ok()) {
        done(outcome.error.isEmpty() ? Outcome{{}, QStringLiteral("no kit was written")} : outcome);
        return;
    }
    packs_.reload();
    Q_EMIT packsReloaded();
    const Soundpack* pack = packs_.find(outcome.kitId.toStdString());
    if (!pack || !pack->isUserPack) {
        // A shipped kit of the same id would hide it; so would a manifest that failed
        // to decode, which would be a fault in the writer.
        done({outcome.kitId, QStringLiteral("the new kit did not load")});
        return;
    }
    // Loaded even when it already was the main kit: an import made again replaces it.
    if (engine_)
        engine_->loadPack(pack);
    settings_.setSelectedPackIdText(outcome.kitId);
    done(outcome);
}

void UserKitJobs::setBusy(bool value) {
    if (value == busy_)
        return;
    busy_ = value;
    Q_EMIT busyChanged();
}

} // namespace tappix
