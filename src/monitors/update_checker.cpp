#include "monitors/update_checker.h"

#include "core/log.h"

namespace tappix {

UpdateChecker::UpdateChecker(SettingsStore& settings, FeedFetcher& fetcher, UserNotifier& notifier,
                             Scheduler& scheduler, QUrl feed, QString currentVersion,
                             QObject* parent)
    : QObject(parent), settings_(settings), fetcher_(fetcher), notifier_(notifier),
      scheduler_(scheduler), feed_(std::move(feed)), currentVersion_(std::move(currentVersion)) {
    connect(&settings_, &SettingsStore::automaticUpdateChecksChanged, this, [this] {
        if (started_)
            reschedule(kFirstCheckDelay);
    });
}

UpdateChecker::~UpdateChecker() {
    *alive_ = false;
    if (timer_ != 0)
        scheduler_.cancel(timer_);
}

void UpdateChecker::start() {
    started_ = true;
    reschedule(kFirstCheckDelay);
}

void UpdateChecker::reschedule(std::chrono::milliseconds delay) {
    if (timer_ != 0)
        scheduler_.cancel(timer_);
    timer_ = 0;
    if (!settings_.automaticUpdateChecks())
        return;
    timer_ = scheduler_.schedule(delay, [this] {
        timer_ = 0;
        checkNow();
        reschedule(kInterval);
    });
}

void UpdateChecker::checkNow() {
    if (isChecking_)
        return;
    if (!feed_.isValid() || feed_.scheme() != QLatin1String("https")) {
        lastError_ = QStringLiteral("no HTTPS feed address is set in this build");
        qCWarning(lcApp, "update check skipped: %s", qPrintable(lastError_));
        hasChecked_ = true;
        Q_EMIT changed();
        return;
    }
    isChecking_ = true;
    Q_EMIT changed();
    std::weak_ptr<bool> alive = alive_;
    fetcher_.fetch(feed_, [this, alive](std::optional<QByteArray> body, QString error) {
        // The checker may be gone by the time a slow answer arrives.
        if (const auto stillHere = alive.lock(); stillHere && *stillHere)
            finished(std::move(body), error);
    });
}

void UpdateChecker::finished(std::optional<QByteArray> body, const QString& fetchError) {
    isChecking_ = false;
    hasChecked_ = true;
    QString error = fetchError;
    std::optional<AppcastRelease> newest;
    if (body)
        newest = AppcastRelease::newestIn(*body, error);
    if (!newest) {
        lastError_ = error.isEmpty() ? QStringLiteral("no answer") : error;
        qCWarning(lcApp, "update check failed: %s", qPrintable(lastError_));
        Q_EMIT changed();
        return;
    }
    lastError_.clear();
    if (AppcastRelease::compareVersions(newest->version, currentVersion_) <= 0) {
        latestVersion_.clear();
        latestLink_.clear();
        qCInfo(lcApp, "update check: %s is the newest version", qPrintable(currentVersion_));
        Q_EMIT changed();
        return;
    }
    latestVersion_ = newest->version;
    latestLink_ = newest->link;
    qCInfo(lcApp, "update check: Tappix %s is available", qPrintable(latestVersion_));
    Q_EMIT changed();
    // Each newer version is announced once per run, however often the feed is asked.
    if (announcedVersion_ == latestVersion_)
        return;
    announcedVersion_ = latestVersion_;
    QString text = QStringLiteral("You have %1.").arg(currentVersion_);
    if (!latestLink_.isEmpty())
        text += QStringLiteral(" Read about it at %1").arg(latestLink_);
    notifier_.post(QString::fromLatin1(kNotificationId),
                   QStringLiteral("Tappix %1 is available").arg(latestVersion_), text);
}

} // namespace tappix
