// Tappix: plays a mechanical-keyboard sound for every key that moves.

#include "app/app_delegate.h"
#include "app/command_line.h"
#include "app/single_instance.h"
#include "core/log.h"
#include "platform/audio_backends.h"
#include "platform/capture_backends.h"
#include "platform/dbus/file_manager.h"
#include "platform/dbus/freedesktop_notifier.h"
#include "platform/dbus/realtime_thread.h"
#include "platform/dbus/remote_control_service.h"
#include "platform/focus_backends.h"
#include "platform/keyboard_group.h"
#include "platform/network/https_feed_fetcher.h"
#include "platform/xdg/autostart_entry.h"
#include "ui/desktop_shell.h"
#include "ui/onboarding_model.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};

// Only async-signal-safe work here: wake the event loop, which quits cleanly.
void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &byte, 1);
}

} // namespace

int main(int argc, char** argv) {
    // --help, --version and the commands for a running Tappix never start one.
    const tappix::CommandLine commandLine(tappix::CommandLine::fromArgv(argc, argv));
    if (commandLine.mode() != tappix::CommandLine::Mode::start)
        return commandLine.exec(argc, argv);

    const std::unique_ptr<QCoreApplication> app = tappix::DesktopShell::makeApplication(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Tappix"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("morvane.app"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAPPIX_VERSION));

    tappix::SingleInstance instance;
    if (instance.claim(commandLine.takeOver()) == tappix::SingleInstance::Role::handedOff)
        return 0;

    // SIGTERM (logout, systemd) and SIGINT (Ctrl+C) quit like the menu does: the
    // counters are written and capture stops before the process ends.
    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe);
    QSocketNotifier notifier(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, app.get(), &QCoreApplication::quit);
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);

    tappix::AppDelegate::Platform platform{
        tappix::makeAudioOutput(), tappix::makeSampleDecoder(), tappix::makeAudioDeviceManager(),
        tappix::makeCaptureBackends(), tappix::captureIsPossible,
        std::make_unique<tappix::FreedesktopNotifier>(),
        std::make_unique<tappix::HttpsFeedFetcher>(
            tappix::HttpsFeedFetcher::authoritiesFromEnvironment()),
        // A mirror (or a test) may serve the releases.
        QUrl(qEnvironmentVariable("TAPPIX_UPDATE_FEED", QStringLiteral(TAPPIX_UPDATE_FEED)))};
    platform.onAudioQueueThread = [] {
        tappix::RealtimeThread::makeCallingThreadRealtime("tappix-audio", lcAudio());
    };
    platform.withWindows = true;
    platform.focus = tappix::makeFocusSource();
    platform.launchesAtLogin = [] { return tappix::AutostartEntry().isEnabled(); };
    platform.setLaunchAtLogin = [](bool enabled) {
        return tappix::AutostartEntry().setEnabled(enabled,
                                                   QCoreApplication::applicationFilePath());
    };
    // Joining the keyboards' group, and having it before the next login: started again
    // through sg with the same arguments, the new Tappix takes over from this one.
    tappix::KeyboardGroup keyboardGroup;
    platform.keyboardAccess = &tappix::keyboardAccess;
    platform.canAskToJoin = &tappix::KeyboardGroup::canAsk;
    platform.askToJoin = [&keyboardGroup](const QString& group,
                                          std::function<void(tappix::GroupJoinResult)> done) {
        return keyboardGroup.askToJoin(group,
                                       [done = std::move(done)](tappix::GroupJoinResult result,
                                                                const QString&) { done(result); });
    };
    QStringList arguments = QCoreApplication::arguments().mid(1);
    arguments.removeAll(QStringLiteral("--take-over"));
    arguments.append(QStringLiteral("--take-over"));
    platform.startWithGroup = [arguments](const QString& group) {
        return tappix::KeyboardGroup::startWithGroup(
            group, tappix::OnboardingModel::runningExecutable(), arguments);
    };
    platform.showFile = &tappix::showInFileManager;
    platform.tookOver = commandLine.takeOver();
    tappix::AppDelegate delegate(std::move(platform), tappix::JsonFilePreferences::defaultPath(),
                                 tappix::SoundpackStore::defaultBundleDirectory(),
                                 tappix::SoundpackStore::defaultUserDirectory());
    instance.setTakeOverPolicy([&delegate] { return delegate.expectsTakeOver(); });
    QObject::connect(&instance, &tappix::SingleInstance::takenOver, app.get(),
                     &QCoreApplication::quit);
    delegate.start();
    QObject::connect(&instance, &tappix::SingleInstance::reopenRequested, &delegate,
                     &tappix::AppDelegate::reopen);
    tappix::RemoteControlService remote(
        delegate.settings(), delegate.packStore(),
        {[&delegate] { delegate.showPanel(); },
         [&delegate](const QString& page) { delegate.openSettings(page); }, &QCoreApplication::quit,
         [&delegate] { return delegate.sleepMonitor().isSleeping(); },
         [&delegate] { return delegate.audioPlayer().output().underruns(); }});
    QObject::connect(&delegate, &tappix::AppDelegate::sleepingChanged, &remote,
                     &tappix::RemoteControlService::sleepingChanged);
    remote.publish(QDBusConnection::sessionBus());
    qCInfo(lcApp, "Tappix %s running", TAPPIX_VERSION);
    const int code = QCoreApplication::exec();
    delegate.shutdown();
    return code;
}
