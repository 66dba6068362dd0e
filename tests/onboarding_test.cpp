// The first-run window: the step it shows for where Tappix runs from and whether keys
// can be heard, its commands, moving on by itself, and both ways of ending the first
// run. Pictures of each step are taken by tests/ui/test_onboarding.py.

#include "support/stand_in_app.h"
#include "ui/desktop_shell.h"
#include "ui/onboarding_model.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QQuickItem>
#include <QQuickWindow>

using namespace tappix;
using test::Harness;
using test::HarnessOptions;
using namespace std::chrono_literals;

namespace {

void settle() {
    for (int i = 0; i < 5; ++i)
        QCoreApplication::processEvents();
}

/// Pins where the program seems to run from, whatever folder the tests are built in.
class RunsFrom {
public:
    explicit RunsFrom(const QString& path) : previous_(qgetenv("APPIMAGE")) {
        qputenv("APPIMAGE", path.toUtf8());
    }
    ~RunsFrom() {
        if (previous_.isEmpty())
            qunsetenv("APPIMAGE");
        else
            qputenv("APPIMAGE", previous_);
    }

private:
    QByteArray previous_;
};

/// A first launch: the welcome not seen yet, keys heard or not.
HarnessOptions firstLaunch(bool captureIsPossible, QJsonObject preferences = {}) {
    HarnessOptions options;
    options.withWindows = true;
    options.captureIsPossible = captureIsPossible;
    options.preferences = preferences;
    return options;
}

} // namespace

TEST(OnboardingModel, TemporaryAndRemovablePlacesAreTheOnesTheDesktopForgets) {
    for (const char* path :
         {"/tmp/Tappix.AppImage", "/tmp/.mount_TappiXy/usr/bin/tappix", "/media/ana/USB/tappix",
          "/run/media/ana/USB/Tappix.AppImage", "/home/ana/../../tmp/tappix"})
        EXPECT_TRUE(OnboardingModel::isTemporaryPlace(path)) << path;
    for (const char* path :
         {"/home/ana/Applications/Tappix.AppImage", "/usr/bin/tappix", "/tmpfiles/tappix",
          "/home/ana/media/tappix", "/opt/run/media/x", "/run/user/1000/tappix", ""})
        EXPECT_FALSE(OnboardingModel::isTemporaryPlace(path)) << path;
}

// Each step is reached through the window below and in tests/ui/test_onboarding.py
// (a temporary place first, then the keys); here, the dependency nobody supplied.
TEST(OnboardingModel, NoWayToAskAboutTheKeysCountsAsKeysNotHeard) {
    test::FakeTime time;
    OnboardingModel unknown(time, {.executablePath = [] { return QString("/usr/bin/tappix"); }});
    unknown.refresh();
    EXPECT_EQ(unknown.step(), "permission");
}

TEST(OnboardingModel, CommandsOpenTheRightFoldersAndCopyTheCommand) {
    test::FakeTime time;
    QList<QUrl> opened;
    OnboardingModel model(time, {.executablePath = [] { return QString("/tmp/x/Tappix.AppImage"); },
                                 .openUrl = [&opened](const QUrl& url) { opened << url; }});
    model.openHome();
    model.showTappix();
    EXPECT_EQ(opened,
              (QList<QUrl>{QUrl::fromLocalFile(QDir::homePath()), QUrl::fromLocalFile("/tmp/x")}));

    EXPECT_FALSE(model.copied());
    model.copyCommand();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), "sudo usermod -aG input $USER");
    EXPECT_TRUE(model.copied());
    // Opening the window again starts without the note.
    model.start();
    EXPECT_FALSE(model.copied());
    model.stop();
}

TEST(Onboarding, TheWindowMovesOnByItselfOnceKeysCanBeHeard) {
    RunsFrom home("/opt/Tappix.AppImage");
    Harness run(firstLaunch(false));
    DesktopShell& shell = *run.delegate->shell();
    settle();
    // A first launch without keys shows the first-run window, not the settings.
    ASSERT_TRUE(shell.isOnboardingVisible());
    EXPECT_FALSE(shell.isSettingsVisible());
    EXPECT_EQ(shell.onboardingWindow()->title(), "Welcome to Tappix");
    EXPECT_EQ(shell.onboarding().step(), "permission");

    run.time.advance(3s);
    EXPECT_EQ(shell.onboarding().step(), "permission");
    run.captureIsPossible = true;
    run.time.advance(OnboardingModel::kRecheckInterval);
    EXPECT_EQ(shell.onboarding().step(), "ready");
    EXPECT_FALSE(run.delegate->settings().hasSeenWelcome()) << "only the user ends the first run";

    // Keys lost again while the window shows: it goes back.
    run.captureIsPossible = false;
    run.time.advance(OnboardingModel::kRecheckInterval);
    EXPECT_EQ(shell.onboarding().step(), "permission");

    // Hidden, it stops checking; the panel's prompt brings it back up to date.
    shell.onboardingWindow()->hide();
    run.captureIsPossible = true;
    run.time.advance(5s);
    EXPECT_EQ(shell.onboarding().step(), "permission");
    Q_EMIT shell.panelModel().permissionRequested();
    settle();
    EXPECT_TRUE(shell.isOnboardingVisible());
    EXPECT_EQ(shell.onboarding().step(), "ready");
}

TEST(Onboarding, DoneAndTheCloseBoxBothEndTheFirstRun) {
    RunsFrom home("/opt/Tappix.AppImage");
    for (const bool byDone : {true, false}) {
        SCOPED_TRACE(byDone ? "Done" : "close box");
        Harness run(firstLaunch(true));
        DesktopShell& shell = *run.delegate->shell();
        settle();
        ASSERT_TRUE(shell.isOnboardingVisible());
        QQuickWindow* window = shell.onboardingWindow();
        EXPECT_EQ(shell.onboarding().step(), "ready");

        if (byDone) {
            auto* done = window->findChild<QQuickItem*>("doneButton");
            ASSERT_TRUE(done);
            EXPECT_TRUE(done->isVisible());
            QMetaObject::invokeMethod(done, "clicked");
        } else {
            window->close();
        }
        settle();
        EXPECT_FALSE(shell.isOnboardingVisible());
        EXPECT_TRUE(run.delegate->settings().hasSeenWelcome());
        run.time.advance(1s);
        EXPECT_TRUE(run.file().value("hasSeenWelcome").toBool()) << "written to the file";
        // The offscreen platform has no tray, so the panel stays closed.
        EXPECT_FALSE(shell.menuBar().isPanelVisible());
    }
}
