// What the settings pages do beyond binding settings: the shortcut recorder's reading of
// pressed keys, the login start, the list of apps that quiet Tappix, and the palettes the
// Look page offers.

#include "support/stand_in_app.h"
#include "ui/behaviour_view_model.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QVariantMap>

using namespace tappix;
using test::Harness;

using test::windowed;

TEST(BehaviourViewModel, TheRecorderTakesOnlyCombinationsThatCannotFireWhileTyping) {
    Harness run(windowed());
    SettingsStore& settings = run.delegate->settings();
    BehaviourViewModel& model = run.delegate->shell()->behaviour();
    struct Case {
        int key;
        int modifiers;
        const char* text; // stored, or null
        bool problem;     // refused with a hint
    };
    const Case cases[] = {
        {Qt::Key_Control, Qt::ControlModifier, nullptr, false}, // still pressing
        {Qt::Key_K, Qt::NoModifier, nullptr, true},
        {Qt::Key_K, Qt::ShiftModifier, nullptr, true},
        {Qt::Key_K, Qt::ControlModifier | Qt::MetaModifier, "Ctrl+Super+K", false},
        {Qt::Key_F5, Qt::AltModifier | Qt::ShiftModifier, "Alt+Shift+F5", false},
        {Qt::Key_PageDown, Qt::ControlModifier, "Ctrl+PageDown", false},
        {Qt::Key_Space, Qt::MetaModifier, "Super+Space", false},
        {Qt::Key_MediaPlay, Qt::ControlModifier, nullptr, true},
    };
    for (const Case& c : cases) {
        settings.setToggleSoundsShortcut("Ctrl+Alt+T");
        const QVariantMap result = model.recordShortcut(c.key, c.modifiers);
        const QString expected = c.text ? QString(c.text) : QStringLiteral("Ctrl+Alt+T");
        EXPECT_EQ(settings.toggleSoundsShortcut(), expected) << c.key;
        EXPECT_EQ(result.contains("problem"), c.problem) << c.key;
        EXPECT_EQ(result.value("text").toString(), c.text ? QString(c.text) : QString()) << c.key;
    }
}

TEST(BehaviourViewModel, ALoginStartTheDesktopRefusesIsSaidOnThePage) {
    // The stand-in platform has no autostart folder to write.
    Harness run(windowed());
    BehaviourViewModel& model = run.delegate->shell()->behaviour();
    model.setLaunchAtLogin(true);
    EXPECT_FALSE(model.launchAtLogin());
    EXPECT_FALSE(model.launchAtLoginProblem().isEmpty());
}

// The list of apps that quiet Tappix: the app in front before Tappix's own window, apps
// picked from those running, each once, and removal; the source reaches the page through
// the delegate.
TEST(BehaviourViewModel, TheAppListTakesTheAppBeforeTappixAndRunningAppsOnce) {
    Harness run(windowed());
    SettingsStore& settings = run.delegate->settings();
    BehaviourViewModel& model = run.delegate->shell()->behaviour();
    auto& listed = *qobject_cast<AppListModel*>(model.sleepApps());
    auto& running = *qobject_cast<AppListModel*>(model.runningApps());
    QAbstractItemModelTester listTester(&listed,
                                        QAbstractItemModelTester::FailureReportingMode::Fatal);
    QAbstractItemModelTester runningTester(&running,
                                           QAbstractItemModelTester::FailureReportingMode::Fatal);
    EXPECT_TRUE(model.windowTriggersAvailable());
    model.addFrontApp(); // nothing was in front yet
    EXPECT_TRUE(settings.sleepAppIds().isEmpty());

    const AppIdentity notes{"org.example.Notes", "Notes", "/usr/share/notes.png"};
    const AppIdentity term{"XTerm", "XTerm", {}};
    run.focus->show(FocusedWindow{notes, {"notes"}});
    run.focus->show(FocusedWindow{{"tappix", "Tappix", {}}, {}, false, true}); // the click
    EXPECT_EQ(model.frontAppName(), QStringLiteral("Notes"));
    model.addFrontApp();
    EXPECT_EQ(settings.sleepAppIds(), QStringList{"org.example.Notes"});
    EXPECT_TRUE(model.frontAppListed());
    ASSERT_EQ(listed.count(), 1);
    // The stand-in source knows no desktop files: the id is the name, the icon the fallback.
    EXPECT_EQ(listed.data(listed.index(0), AppListModel::NameRole), "org.example.Notes");
    EXPECT_EQ(listed.data(listed.index(0), AppListModel::IconSourceRole),
              AppListModel::kFallbackIcon);

    // Running apps are offered unless listed already.
    run.focus->running = {term, notes};
    model.refreshRunningApps();
    ASSERT_EQ(running.count(), 1);
    model.addRunningApp(0);
    model.addRunningApp(0); // nothing left to add
    EXPECT_EQ(settings.sleepAppIds(), (QStringList{"org.example.Notes", "XTerm"}));
    EXPECT_EQ(running.count(), 0);
    model.removeSleepApp(0);
    model.removeSleepApp(5);
    EXPECT_EQ(settings.sleepAppIds(), QStringList{"XTerm"});
    EXPECT_FALSE(model.frontAppListed());
    ASSERT_EQ(running.count(), 1); // offered again
    EXPECT_EQ(running.data(running.index(0), AppListModel::IconSourceRole),
              "file:///usr/share/notes.png");
    EXPECT_EQ(listed.count(), 1);
}
