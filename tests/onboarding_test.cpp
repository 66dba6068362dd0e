// The first-run window's steps, asking for the keyboards' group and starting again with it;
// the real group change and hand-over are in tests/ui/test_keyboard_access.py.

#include "support/stand_in_app.h"
#include "ui/desktop_shell.h"
#include "ui/onboarding_model.h"

#include <gtest/gtest.h>

#include <QApplication>
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

/// A first launch from a place the desktop keeps (not the build folder), keys heard or not.
HarnessOptions firstLaunch(bool captureIsPossible) {
    qputenv("APPIMAGE", "/opt/Tappix.AppImage");
    HarnessOptions options;
    options.withWindows = true;
    options.captureIsPossible = captureIsPossible;
    return options;
}

/// The system's side of joining the group: the prompt stays open until the test answers it.
struct GroupSystem {
    KeyboardAccess access{KeyboardAccess::State::notMember, "input"};
    std::function<void(GroupJoinResult)> prompt;
    QStringList asked, started;
    bool startWorks = true;

    HarnessOptions launch(bool tookOver = false) {
        HarnessOptions options = firstLaunch(false);
        options.platform = [this, tookOver](AppDelegate::Platform& p) {
            p.keyboardAccess = [this] { return access; };
            p.canAskToJoin = [] { return true; };
            p.askToJoin = [this](const QString& group, std::function<void(GroupJoinResult)> done) {
                asked << group;
                prompt = std::move(done);
                return true;
            };
            p.startWithGroup = [this](const QString& group) {
                started << group;
                return startWorks;
            };
            p.tookOver = tookOver;
        };
        return options;
    }
    void answer(GroupJoinResult result) {
        std::exchange(prompt, {})(result);
        settle();
    }
};

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

// The file manager's answer is driven in tests/ui/test_onboarding.py; here, its absence.
TEST(OnboardingModel, WithoutAFileManagerTheFolderOpens) {
    test::FakeTime time;
    QList<QUrl> opened;
    OnboardingModel model(
        time, {.executablePath = [] { return QString("/tmp/x/Tappix.AppImage"); },
               .openUrl = [&opened](const QUrl& url) { opened << url; },
               .showFile = [](const QString&, std::function<void()> otherwise) { otherwise(); }});
    model.showTappix();
    EXPECT_EQ(opened, QList<QUrl>{QUrl::fromLocalFile("/tmp/x")});
}

TEST(Onboarding, TheWindowMovesOnByItselfAndTheCloseBoxEndsTheFirstRun) {
    Harness run(firstLaunch(false));
    DesktopShell& shell = *run.delegate->shell();
    settle();
    // A first launch without keys shows the first-run window, not the settings.
    ASSERT_TRUE(shell.isOnboardingVisible());
    EXPECT_FALSE(shell.isSettingsVisible());
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

    // Done is pressed in tests/ui/test_onboarding.py; the close box ends the first run too.
    shell.onboardingWindow()->close();
    settle();
    EXPECT_FALSE(shell.isOnboardingVisible());
    run.time.advance(1s);
    EXPECT_TRUE(run.file().value("hasSeenWelcome").toBool()) << "written to the file";
}

TEST(Onboarding, AllowKeyboardAccessAsksOnceAndStartsTappixAgainWithTheGroup) {
    GroupSystem system;
    Harness run(system.launch());
    OnboardingModel& model = run.delegate->shell()->onboarding();
    settle();
    ASSERT_EQ(model.step(), "permission");
    EXPECT_EQ(model.access(), "notMember");
    EXPECT_TRUE(model.canAskForAccess());

    // Refused: the step stays and says so; a second press while the prompt is open asks nothing.
    model.allowAccess();
    EXPECT_EQ(model.accessNote(), "Waiting for your password…");
    model.allowAccess();
    system.answer(GroupJoinResult::refused);
    EXPECT_EQ(model.accessNote(), "The system did not allow the change. Nothing was changed.");
    EXPECT_EQ(model.step(), "permission");
    EXPECT_EQ(system.asked, QStringList{"input"});
    EXPECT_TRUE(system.started.isEmpty());

    // Joined: Tappix starts again with the group at once, not at the next poll, and once.
    model.allowAccess();
    system.access.state = KeyboardAccess::State::memberNotInSession;
    system.answer(GroupJoinResult::joined);
    EXPECT_EQ(system.started, QStringList{"input"});
    EXPECT_EQ(model.access(), "memberNotInSession");
    EXPECT_EQ(model.accessNote(),
              "You're in the input group now.\nTappix is starting again with it…");
    EXPECT_TRUE(run.delegate->expectsTakeOver());
    run.time.advance(5s);
    EXPECT_EQ(system.started.size(), 1);

    // The new Tappix never took over: the group comes with the next login.
    run.time.advance(AppDelegate::kTakeOverWait);
    EXPECT_FALSE(run.delegate->expectsTakeOver());
    EXPECT_TRUE(model.accessNote().contains("Log out and back in"))
        << model.accessNote().toStdString();
    EXPECT_EQ(system.started.size(), 1);
}

// A member whose session predates the group, this Tappix started that way or unable to start one.
TEST(Onboarding, AMemberWhoseSessionPredatesTheGroupStartsAgainWithItOnlyOnce) {
    const struct {
        bool tookOver, startWorks;
        int starts;
    } cases[] = {{false, false, 1}, {true, true, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "took over " << c.tookOver);
        GroupSystem system;
        system.access.state = KeyboardAccess::State::memberNotInSession;
        system.startWorks = c.startWorks;
        Harness run(system.launch(c.tookOver));
        OnboardingModel& model = run.delegate->shell()->onboarding();
        settle();
        run.time.advance(5s);
        EXPECT_EQ(system.started.size(), c.starts);
        EXPECT_FALSE(run.delegate->expectsTakeOver());
        EXPECT_TRUE(run.delegate->shell()->isOnboardingVisible());
        EXPECT_FALSE(model.canAskForAccess());
        EXPECT_TRUE(model.accessNote().contains("Log out and back in"));
    }
}
