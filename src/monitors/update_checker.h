#pragma once

#include "core/scheduler.h"
#include "monitors/appcast.h"
#include "monitors/feed_fetcher.h"
#include "monitors/user_notifier.h"
#include "settings/settings_store.h"

#include <QObject>
#include <QUrl>
#include <chrono>

namespace tappix {

/// Asks the release feed whether a newer Tappix exists: once a day while automatic
/// checks are on, and whenever the user asks. A newer version is announced once in a
/// notification; nothing is ever downloaded or installed. What the last check found
/// (or why it failed) stays readable for the settings; an unreachable, slow or malformed
/// feed gives one log line, and a notification only when the user asked to be told.
/// Main thread only.
class UpdateChecker final : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isChecking READ isChecking NOTIFY changed)
    Q_PROPERTY(bool updateAvailable READ updateAvailable NOTIFY changed)
    Q_PROPERTY(QString latestVersion READ latestVersion NOTIFY changed)
    Q_PROPERTY(QString latestLink READ latestLink NOTIFY changed)
    Q_PROPERTY(QString lastError READ lastError NOTIFY changed)
    Q_PROPERTY(bool hasChecked READ hasChecked NOTIFY changed)
    Q_PROPERTY(QString currentVersion READ currentVersion CONSTANT)

public:
    /// The first automatic check waits this long after start, so launching stays quiet.
    static constexpr std::chrono::minutes kFirstCheckDelay{1};
    /// Time between automatic checks.
    static constexpr std::chrono::hours kInterval{24};
    /// The identifier of the announcement, so a newer one replaces it.
    static constexpr const char* kNotificationId = "tappix.update";

    /// A checker of `feed` for a build of `currentVersion`, following the automatic-check
    /// switch in `settings`. Nothing is fetched until `start`.
    UpdateChecker(SettingsStore& settings, FeedFetcher& fetcher, UserNotifier& notifier,
                  Scheduler& scheduler, QUrl feed, QString currentVersion,
                  QObject* parent = nullptr);
    ~UpdateChecker() override;

    /// Starts the daily schedule (while the switch is on).
    void start();

    /// Whether the answer of a check is told in a notification.
    enum class Report {
        /// Only a newer version is announced, once (the settings show the rest).
        newerVersion,
        /// "Checking for updates…" at once, replaced by whatever the answer is.
        everyOutcome,
    };

    /// Checks at once ("Check Now", "Check for Updates…"); a check already running is
    /// not repeated, but its answer is reported as `report` asks.
    void checkNow(Report report = Report::newerVersion);

    /// Whether a check is running.
    bool isChecking() const { return isChecking_; }
    /// Whether the feed announced a version newer than this one.
    bool updateAvailable() const { return !latestVersion_.isEmpty(); }
    /// The newer version, or empty.
    QString latestVersion() const { return latestVersion_; }
    /// Where to read about the newer version, or empty.
    QString latestLink() const { return latestLink_; }
    /// Why the last check failed, or empty.
    QString lastError() const { return lastError_; }
    /// Whether any check has finished since start.
    bool hasChecked() const { return hasChecked_; }
    /// The version of this build.
    QString currentVersion() const { return currentVersion_; }

Q_SIGNALS:
    /// Any of the values changed.
    void changed();

private:
    void reschedule(std::chrono::milliseconds delay);
    void finished(std::optional<QByteArray> body, const QString& error);
    void failed(const QString& error);

    SettingsStore& settings_;
    FeedFetcher& fetcher_;
    UserNotifier& notifier_;
    Scheduler& scheduler_;
    QUrl feed_;
    QString currentVersion_;
    Scheduler::TaskId timer_ = 0;
    bool started_ = false;
    bool isChecking_ = false;
    bool hasChecked_ = false;
    bool reportEveryOutcome_ = false;
    QString latestVersion_, latestLink_, lastError_, announcedVersion_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace tappix
