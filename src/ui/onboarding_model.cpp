#include "ui/onboarding_model.h"

#include "core/log.h"

#include <QClipboard>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPointer>
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
    // An old answer from the password prompt is not news when the window opens again.
    if (!asking_ && std::exchange(answer_, std::nullopt))
        Q_EMIT accessChanged();
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
    const bool possible = probes_.captureIsPossible && probes_.captureIsPossible();
    QString step = kReadyStep;
    if (isTemporaryPlace(executablePath()))
        step = kMoveStep;
    else if (!possible)
        step = kPermissionStep;
    const bool tray =
        probes_.trayAvailable ? probes_.trayAvailable() : QSystemTrayIcon::isSystemTrayAvailable();
    // Who may read the keyboards matters only while keys cannot be heard.
    KeyboardAccess access;
    if (possible)
        access.state = KeyboardAccess::State::readable;
    else if (probes_.keyboardAccess)
        access = probes_.keyboardAccess();
    const bool canAsk = probes_.canAskToJoin && probes_.askToJoin && probes_.canAskToJoin();
    if (access != access_ || canAsk != canAsk_) {
        if (access.state != access_.state && !asking_)
            answer_.reset();
        access_ = access;
        canAsk_ = canAsk;
        Q_EMIT accessChanged();
    }
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
    const QString path = executablePath();
    const QUrl folder = QUrl::fromLocalFile(QFileInfo(path).absolutePath());
    if (!probes_.showFile) {
        open(folder);
        return;
    }
    QPointer<OnboardingModel> self = this;
    probes_.showFile(path, [self, folder] {
        if (self)
            self->open(folder);
    });
}

QString OnboardingModel::command() const {
    return QStringLiteral("sudo usermod -aG %1 $USER").arg(group());
}

QString OnboardingModel::access() const {
    return QString::fromLatin1(KeyboardAccess::name(access_.state));
}

QString OnboardingModel::group() const {
    return access_.group.empty() ? QString::fromLatin1(kUsualGroup)
                                 : QString::fromStdString(access_.group);
}

bool OnboardingModel::canAskForAccess() const {
    return canAsk_ && access_.state == KeyboardAccess::State::notMember;
}

QString OnboardingModel::accessNote() const {
    if (asking_)
        return QStringLiteral("Waiting for your password…");
    if (access_.state == KeyboardAccess::State::memberNotInSession)
        return restart_ == Restart::failed
                   ? QStringLiteral("You're in the %1 group, but this session started before "
                                    "you joined.\nLog out and back in, and Tappix will hear "
                                    "your keys.")
                         .arg(group())
                   : QStringLiteral("You're in the %1 group now.\nTappix is starting again "
                                    "with it…")
                         .arg(group());
    if (!answer_)
        return {};
    switch (*answer_) {
    case GroupJoinResult::cancelled:
        return QStringLiteral("You closed the password prompt. Nothing was changed.");
    case GroupJoinResult::refused:
        return QStringLiteral("The system did not allow the change. Nothing was changed.");
    case GroupJoinResult::noPrompt:
        return QStringLiteral("No password prompt can open here: use the command instead.");
    case GroupJoinResult::failed:
        return QStringLiteral("The change did not go through. Nothing was changed.");
    case GroupJoinResult::joined:
        break;
    }
    return {};
}

void OnboardingModel::setRestart(Restart restart) {
    if (std::exchange(restart_, restart) != restart)
        Q_EMIT accessChanged();
}

void OnboardingModel::allowAccess() {
    if (!canAskForAccess() || asking_)
        return;
    asking_ = true;
    answer_.reset();
    Q_EMIT accessChanged();
    QPointer<OnboardingModel> self = this;
    const bool asked = probes_.askToJoin(group(), [self](GroupJoinResult result) {
        if (!self)
            return;
        self->asking_ = false;
        self->answer_ = result;
        Q_EMIT self->accessChanged();
        // The group database has the user now: the step moves on without waiting.
        self->refresh();
        if (result == GroupJoinResult::joined)
            Q_EMIT self->joinedGroup();
    });
    if (!asked) {
        asking_ = false;
        answer_ = GroupJoinResult::failed;
        Q_EMIT accessChanged();
    }
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
