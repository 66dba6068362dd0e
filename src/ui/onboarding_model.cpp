#include "ui/onboarding_model.h"

#include "core/log.h"

#include <QClipboard>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QSystemTrayIcon>
#include <utility>

namespace tappix {

namespace {

const QString kMoveStep = QStringLiteral("move");
const QString kPermissionStep = QStringLiteral("permission");
const QString kReadyStep = QStringLiteral("ready");

} // namespace

OnboardingModel::OnboardingModel(Scheduler& scheduler, Probes probes, QObject* parent)
    : QObject(parent), scheduler_(scheduler), probes_(std::move(probes)) {}

OnboardingModel::~OnboardingModel() {
    stop();
}

bool OnboardingModel::isTemporaryPlace(const QString& path) {
    const QString clean = QDir::cleanPath(path);
    for (const char* place : {"/tmp/", "/media/", "/run/media/"})
        if (clean.startsWith(QLatin1String(place)))
            return true;
    return false;
}

QString OnboardingModel::runningExecutable() {
    // An AppImage runs from a mount of its own under /tmp; where the user keeps the
    // file itself is what matters.
    const QString appImage = qEnvironmentVariable("APPIMAGE");
    const QString path = appImage.isEmpty() ? QCoreApplication::applicationFilePath() : appImage;
    const QString resolved = QFileInfo(path).canonicalFilePath();
    return resolved.isEmpty() ? path : resolved;
}

void OnboardingModel::start() {
    if (std::exchange(copied_, false))
        Q_EMIT copiedChanged();
    refresh();
    if (!tick_)
        tick_ = scheduler_.schedule(kRecheckInterval, [this] { tick(); });
}

void OnboardingModel::stop() {
    if (tick_)
        scheduler_.cancel(std::exchange(tick_, 0));
}

void OnboardingModel::tick() {
    tick_ = scheduler_.schedule(kRecheckInterval, [this] { tick(); });
    refresh();
}

void OnboardingModel::refresh() {
    QString step = kReadyStep;
    if (isTemporaryPlace(executablePath()))
        step = kMoveStep;
    else if (!probes_.captureIsPossible || !probes_.captureIsPossible())
        step = kPermissionStep;
    const bool tray =
        probes_.trayAvailable ? probes_.trayAvailable() : QSystemTrayIcon::isSystemTrayAvailable();
    if (step != step_) {
        step_ = step;
        Q_EMIT stepChanged();
    }
    if (tray != trayAvailable_) {
        trayAvailable_ = tray;
        Q_EMIT trayAvailableChanged();
    }
}

void OnboardingModel::copyCommand() {
    if (auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        app->clipboard()->setText(command());
    if (!copied_) {
        copied_ = true;
        Q_EMIT copiedChanged();
    }
}

void OnboardingModel::openHome() {
    open(QUrl::fromLocalFile(QDir::homePath()));
}

void OnboardingModel::showTappix() {
    open(QUrl::fromLocalFile(QFileInfo(executablePath()).absolutePath()));
}

void OnboardingModel::finish() {
    stop();
    Q_EMIT finished();
}

QString OnboardingModel::executablePath() const {
    return probes_.executablePath ? probes_.executablePath() : runningExecutable();
}

void OnboardingModel::open(const QUrl& url) const {
    if (probes_.openUrl) {
        probes_.openUrl(url);
        return;
    }
    if (!QDesktopServices::openUrl(url))
        qCWarning(lcApp, "the desktop could not open %s", qPrintable(url.toString()));
}

} // namespace tappix
