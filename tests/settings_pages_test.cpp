// What the settings pages do beyond binding settings: the shortcut recorder, the login
// start, the apps that quiet Tappix and importing packs made for other programs.

#include "audio/sound_engine.h"
#include "support/pack_builder.h"
#include "support/stand_in_app.h"
#include "ui/behaviour_view_model.h"
#include "ui/desktop_shell.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QVariantMap>

using namespace tappix;
using test::Harness;
using test::windowed;

// The shortcut recorder, the apps that quiet Tappix and a login start the desktop refuses.
TEST(BehaviourViewModel, TheRecorderTakesOnlyCombinationsThatCannotFireWhileTypingAndAppsOnce) {
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

    // The apps that quiet Tappix: the app in front before Tappix's own window, apps picked
    // from those running, each once, and removal, through the delegate's window source.
    auto& listed = *qobject_cast<AppListModel*>(model.sleepApps());
    auto& running = *qobject_cast<AppListModel*>(model.runningApps());
    QAbstractItemModelTester listTester(&listed,
                                        QAbstractItemModelTester::FailureReportingMode::Fatal);
    QAbstractItemModelTester runningTester(&running,
                                           QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.addFrontApp(); // nothing was in front yet
    EXPECT_TRUE(settings.sleepAppIds().isEmpty());

    const AppIdentity notes{"org.example.Notes", "Notes", "/usr/share/notes.png"};
    run.focus->show(FocusedWindow{notes, {"notes"}});
    run.focus->show(FocusedWindow{{"tappix", "Tappix", {}}, {}, false, true}); // the click
    EXPECT_EQ(model.frontAppName(), QStringLiteral("Notes"));
    model.addFrontApp();
    EXPECT_EQ(settings.sleepAppIds(), QStringList{"org.example.Notes"});
    EXPECT_TRUE(model.frontAppListed());

    // Running apps are offered unless listed already.
    run.focus->running = {{"XTerm", "XTerm", {}}, notes};
    model.refreshRunningApps();
    ASSERT_EQ(running.count(), 1);
    model.addRunningApp(0);
    model.addRunningApp(0); // nothing left to add
    EXPECT_EQ(settings.sleepAppIds(), (QStringList{"org.example.Notes", "XTerm"}));
    model.removeSleepApp(0);
    model.removeSleepApp(5);
    EXPECT_EQ(settings.sleepAppIds(), QStringList{"XTerm"});
    EXPECT_FALSE(model.frontAppListed());
    ASSERT_EQ(running.count(), 1); // offered again
    EXPECT_EQ(running.data(running.index(0), AppListModel::IconSourceRole),
              "file:///usr/share/notes.png");
    EXPECT_EQ(listed.count(), 1);

    // The stand-in platform has no autostart folder to write: the page says so.
    model.setLaunchAtLogin(true);
    EXPECT_FALSE(model.launchAtLogin());
    EXPECT_FALSE(model.launchAtLoginProblem().isEmpty());
}

namespace {

// Starts an import and waits for it to report back; whether it succeeded.
bool importAndWait(KitImportViewModel& model, const QString& path) {
    QSignalSpy finished(&model, &KitImportViewModel::importFinished);
    EXPECT_TRUE(model.importPack(QUrl::fromLocalFile(path)));
    // The main thread is free while the pack is read, and a second import waits its turn.
    EXPECT_TRUE(model.busy());
    EXPECT_FALSE(model.importPack(QUrl::fromLocalFile(path)));
    EXPECT_TRUE(finished.wait(60000));
    return finished.count() == 1 && finished.at(0).at(0).toBool();
}

} // namespace

// What a drop may bring, an import from the file dialog, of nothing and again.
TEST(KitImportViewModel, WhatADropMayBringAndAnImportAgainOrOfNothing) {
    Harness run(windowed());
    KitImportViewModel& model = run.delegate->shell()->kitImport();
    SettingsStore& settings = run.delegate->settings();
    QTemporaryDir temp;
    const QString pack = temp.filePath("Desk Pack");
    ASSERT_TRUE(test::writeTone(pack + "/press.wav", 44100, test::kWav16, {0.5}));
    test::writeConfig(pack, {{"name", "Desk Pack"},
                             {"key_define_type", "multi"},
                             {"defines", QJsonObject{{"30", "press.wav"}}}});
    const auto local = [&](const QString& name) {
        return QUrl::fromLocalFile(temp.filePath(name));
    };
    const struct {
        QList<QUrl> urls;
        bool accepted;
    } drops[] = {
        {{local("Desk Pack")}, true},
        {{local("Desk Pack/config.json")}, true},
        {{local("pack.zip")}, true},
        {{local("sound.wav")}, false},
        {{local("Desk Pack"), local("Desk Pack")}, false},
        {{QUrl("https://example.org/pack.zip")}, false},
    };
    for (const auto& d : drops)
        EXPECT_EQ(model.accepts(d.urls), d.accepted) << d.urls.front().toString().toStdString();
    EXPECT_FALSE(model.importPack(QUrl("https://example.org/pack.zip")));

    // The file dialog hands over the pack's config.json: the folder is imported.
    ASSERT_TRUE(importAndWait(model, pack + "/config.json"));
    EXPECT_EQ(settings.selectedPackIdText(), "imported-desk-pack");
    // Nothing there: named once, the reason after it, and the choice stays.
    EXPECT_FALSE(importAndWait(model, temp.filePath("gone")));
    EXPECT_TRUE(model.status().startsWith("Could not import “gone”: "))
        << model.status().toStdString();
    EXPECT_FALSE(model.status().contains("”: gone")) << model.status().toStdString();
    EXPECT_EQ(run.delegate->soundEngine()->currentPackId(), "imported-desk-pack");

    // The same pack again replaces the kit in use, and says so.
    settings.setSelectedPackIdText("click");
    ASSERT_TRUE(importAndWait(model, pack));
    EXPECT_EQ(model.status(), "Imported “Desk Pack” again, replacing the earlier import, and "
                              "selected it. Type anywhere to hear it.");
    EXPECT_EQ(run.delegate->soundEngine()->currentPackId(), "imported-desk-pack");
    EXPECT_EQ(QDir(run.userKits.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList{"imported-desk-pack"});
    model.dismiss();
    EXPECT_EQ(model.status(), "");
}
