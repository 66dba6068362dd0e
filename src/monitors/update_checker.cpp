#include "monitors/update_checker.h"

#include "core/log.h"

#include <utility>

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

void UpdateChecker::checkNow(Report report) {
    if (report == Report::everyOutcome) {
        reportEveryOutcome_ = true;
        notifier_.post(QString::fromLatin1(kNotificationId),
                       QStringLiteral("Checking for updates…"),
                       QStringLiteral("You have Tappix %1.").arg(currentVersion_));
    }
    if (isChecking_)
        return;
    if (!feed_.isValid() || feed_.scheme() != QLatin1String("https")) {
        failed(QStringLiteral("no HTTPS feed address is set in this build"));
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

void UpdateChecker::failed(const QString& error) {
    isChecking_ = false;
    hasChecked_ = true;
    lastError_ = error;
    qCWarning(lcApp, "update check failed: %s", qPrintable(lastError_));
    Q_EMIT changed();
    if (std::exchange(reportEveryOutcome_, false)) {
        notifier_.post(QString::fromLatin1(kNotificationId),
                       QStringLiteral("Couldn't check for updates"),
                       lastError_.left(1).toUpper() + lastError_.mid(1) + QLatin1Char('.'));
    }
}

void UpdateChecker::finished(std::optional<QByteArray> body, const QString& fetchError) {
    QString error = fetchError;
    std::optional<AppcastRelease> newest;
    if (body)
        newest = AppcastRelease::newestIn(*body, error);
    if (!newest) {
        failed(error.isEmpty() ? QStringLiteral("no answer") : error);
        return;
    }
    isChecking_ = false;
    hasChecked_ = true;
    lastError_.clear();
    const bool report = std::exchange(reportEveryOutcome_, false);
    if (AppcastRelease::compareVersions(newest->version, currentVersion_) <= 0) {
        latestVersion_.clear();
        latestLink_.clear();
        qCInfo(lcApp, "update check: %s is the newest version", qPrintable(currentVersion_));
        Q_EMIT changed();
        if (report)
            notifier_.post(QString::fromLatin1(kNotificationId),
                           QStringLiteral("Tappix is up to date"),
                           QStringLiteral("%1 is the newest version.").arg(currentVersion_));
        return;
    }
    latestVersion_ = newest->version;
    latestLink_ = newest->link;
    qCInfo(lcApp, "update check: Tappix %s is available", qPrintable(latestVersion_));
    Q_EMIT changed();
    // Each newer version is announced once per run, however often the feed is asked,
    // unless the user asked to be told.
    if (announcedVersion_ == latestVersion_ && !report)
        return;
    announcedVersion_ = latestVersion_;
    QString text = QStringLiteral("You have %1.").arg(currentVersion_);
    if (!latestLink_.isEmpty())
        text += QStringLiteral(" Read about it at %1").arg(latestLink_);
    notifier_.post(QString::fromLatin1(kNotificationId),
                   QStringLiteral("Tappix %1 is available").arg(latestVersion_), text);
}

} // namespace tappix
