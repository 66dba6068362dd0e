// What the settings pages do beyond binding settings: the shortcut recorder's reading of
// pressed keys, the login start, the list of apps that quiet Tappix, the palettes the Look
// page offers, the Sound page's import of packs made for other programs, and every page
// laid out at the window's smallest.

#include "audio/sound_engine.h"
#include "settings/settings_page.h"
#include "support/pack_builder.h"
#include "support/stand_in_app.h"
#include "ui/behaviour_view_model.h"
#include "ui/desktop_shell.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QQuickItem>

#include <QAbstractItemModelTester>
#include <QDir>
#include <QJsonArray>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QVariantMap>

using namespace tappix;
using test::Harness;
using test::HarnessOptions;

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

namespace {

QStringList kitIds(const KitListModel& kits) {
    QStringList ids;
    for (int row = 0; row < kits.rowCount(); ++row)
        ids << kits.index(row).data(KitListModel::KitIdRole).toString();
    return ids;
}

// Starts an import and waits for it to report back; what it reported.
bool importAndWait(KitImportViewModel& model, const QString& path) {
    QSignalSpy finished(&model, &KitImportViewModel::importFinished);
    EXPECT_TRUE(model.importPack(QUrl::fromLocalFile(path)));
    // The main thread is free while the pack is read, and a second import waits its turn.
    EXPECT_TRUE(model.busy());
    EXPECT_FALSE(model.importPack(QUrl::fromLocalFile(path)));
    EXPECT_TRUE(model.status().startsWith("Importing “")) << model.status().toStdString();
    EXPECT_TRUE(finished.wait(60000));
    EXPECT_FALSE(model.busy());
    return finished.count() == 1 && finished.at(0).at(0).toBool();
}

} // namespace

TEST(KitImportViewModel, ImportsOffTheMainThreadChoosesTheKitAndARefusalChangesNothing) {
    Harness run(windowed());
    DesktopShell& shell = *run.delegate->shell();
    KitImportViewModel& model = shell.kitImport();
    SettingsStore& settings = run.delegate->settings();
    settings.setSelectedPackIdText("click");
    QTemporaryDir temp;
    const QString pack = temp.filePath("Desk Pack");
    ASSERT_TRUE(test::writeTone(pack + "/press.wav", 44100, test::kWav16, {0.5}));
    test::writeConfig(
        pack, {{"name", "Desk Pack"},
               {"key_define_type", "multi"},
               {"defines",
                QJsonObject{{"30", "press.wav"}, {"28", "press.wav"}, {"57", "missing.wav"}}}});
    QFile(temp.filePath("pack.zip")).open(QIODevice::WriteOnly);
    QFile(temp.filePath("junk.zip")).open(QIODevice::WriteOnly);
    QFile(temp.filePath("sound.wav")).open(QIODevice::WriteOnly);

    // What a drop may bring: one folder, .zip or pack's config.json on this machine.
    EXPECT_TRUE(model.accepts({QUrl::fromLocalFile(pack)}));
    EXPECT_TRUE(model.accepts({QUrl::fromLocalFile(pack + "/config.json")}));
    EXPECT_TRUE(model.accepts({QUrl::fromLocalFile(temp.filePath("pack.zip"))}));
    EXPECT_FALSE(model.accepts({QUrl::fromLocalFile(temp.filePath("sound.wav"))}));
    EXPECT_FALSE(model.accepts({QUrl::fromLocalFile(pack), QUrl::fromLocalFile(pack)}));
    EXPECT_FALSE(model.accepts({QUrl("https://example.org/pack.zip")}));
    EXPECT_FALSE(model.importPack(QUrl("https://example.org/pack.zip")));
    EXPECT_EQ(KitImportViewModel::packPath(QUrl::fromLocalFile(pack + "/config.json")), pack);

    // The file dialog hands over the pack's config.json: the folder is imported.
    ASSERT_TRUE(importAndWait(model, pack + "/config.json"));
    EXPECT_EQ(model.status(), "Imported “Desk Pack” and selected it. Type anywhere to hear it.");
    EXPECT_FALSE(model.failed());
    ASSERT_EQ(model.problems().size(), 1);
    EXPECT_TRUE(model.problems()[0].contains("missing.wav")) << model.problems()[0].toStdString();
    EXPECT_EQ(settings.selectedPackIdText(), "imported-desk-pack");
    EXPECT_EQ(run.delegate->soundEngine()->currentPackId(), "imported-desk-pack");
    EXPECT_EQ(shell.kits().currentName(), "Desk Pack");
    const QStringList listed = kitIds(shell.kits());
    EXPECT_TRUE(listed.contains("imported-desk-pack"));
    const QStringList written =
        QDir(run.userKits.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    EXPECT_EQ(written, QStringList{"imported-desk-pack"});

    // Refused packs say why, keep what the importer said, and leave kits and choice alone.
    for (const QString& bad : {temp.filePath("junk.zip"), temp.filePath("gone")}) {
        EXPECT_FALSE(importAndWait(model, bad));
        const QString name = QFileInfo(bad).fileName();
        EXPECT_TRUE(model.status().startsWith("Could not import “" + name + "”: "))
            << model.status().toStdString();
        // The pack is named once, not again before the reason.
        EXPECT_FALSE(model.status().contains("”: " + name)) << model.status().toStdString();
        EXPECT_TRUE(model.failed());
        EXPECT_EQ(settings.selectedPackIdText(), "imported-desk-pack");
        EXPECT_EQ(run.delegate->soundEngine()->currentPackId(), "imported-desk-pack");
        EXPECT_EQ(kitIds(shell.kits()), listed);
        EXPECT_EQ(QDir(run.userKits.path())
                      .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                  written);
    }

    // The same pack again replaces the kit in use, and says so.
    settings.setSelectedPackIdText("click");
    ASSERT_TRUE(importAndWait(model, pack));
    EXPECT_EQ(model.status(), "Imported “Desk Pack” again, replacing the earlier import, and "
                              "selected it. Type anywhere to hear it.");
    EXPECT_EQ(run.delegate->soundEngine()->currentPackId(), "imported-desk-pack");
    model.dismiss();
    EXPECT_EQ(model.status(), "");
    EXPECT_TRUE(model.problems().isEmpty());
}

namespace {

// Where a text item's letters are drawn, in window coordinates: a wrapped or aligned text
// draws less than its box; one that cannot wrap draws past it.
QRectF drawnText(const QQuickItem& text) {
    const double width = text.property("contentWidth").toDouble();
    const double height = text.property("contentHeight").toDouble();
    const double left = text.property("leftPadding").toDouble();
    const double room = text.width() - left - text.property("rightPadding").toDouble();
    const int align = text.property("effectiveHorizontalAlignment").toInt();
    const double x = left + (align & Qt::AlignRight     ? room - width
                             : align & Qt::AlignHCenter ? (room - width) / 2
                                                        : 0);
    const double top = text.property("topPadding").toDouble();
    const double tall = text.height() - top - text.property("bottomPadding").toDouble();
    const int valign = text.property("verticalAlignment").toInt();
    const double y = top + (valign & Qt::AlignBottom    ? tall - height
                            : valign & Qt::AlignVCenter ? (tall - height) / 2
                                                        : 0);
    return text.mapRectToScene(QRectF(x, y, width, height));
}

bool isControl(const QQuickItem& item) {
    // Scroll bars sit over the page's edge by design; everything else a user can work is
    // a control.
    return !item.inherits("QQuickScrollBar") &&
           (item.inherits("QQuickControl") || item.inherits("QQuickTextInput") ||
            item.activeFocusOnTab());
}

void collect(QQuickItem* item, std::vector<QQuickItem*>& texts,
             std::vector<QQuickItem*>& controls) {
    if (!item->isVisible() || item->opacity() <= 0 || item->width() <= 0 || item->height() <= 0)
        return;
    if (item->inherits("QQuickText") && !item->property("text").toString().isEmpty())
        texts.push_back(item);
    else if (isControl(*item))
        controls.push_back(item);
    for (QQuickItem* child : item->childItems())
        collect(child, texts, controls);
}

bool isInside(const QQuickItem* item, const QQuickItem* outer) {
    for (; item; item = item->parentItem())
        if (item == outer)
            return true;
    return false;
}

QString nameOf(QQuickItem* item) {
    QAccessibleInterface* node = QAccessible::queryAccessibleInterface(item);
    const QString name = node ? node->text(QAccessible::Name) : QString();
    return name.isEmpty() ? QString::fromLatin1(item->metaObject()->className()) : name;
}

} // namespace

TEST(SettingsWindow, AtItsSmallestNoTextRunsUnderAControl) {
    HarnessOptions options = windowed(
        {{"visualizerEnabled", true},
         {"soundMixes", QJsonArray{QJsonObject{
                            {"id", "desk"}, {"name", "Desk"}, {"assignments", QJsonObject{}}}}},
         {"activeMixId", "desk"}});
    options.addKits = [](const QString& bundle, const QString& user) {
        test::writeKit(bundle, "tick", "Tick", "tactile");
        test::writeKit(user, "mine", "A Board Of My Own With A Rather Long Name", "");
    };
    Harness run(options);
    DesktopShell& shell = *run.delegate->shell();
    // The Mix page with a part open shows its kit browser too.
    shell.mixEditor().editRegion("enter");
    for (const QString& page : SettingsPage::ids()) {
        run.delegate->openSettings(page);
        QQuickWindow* window = shell.settingsWindow();
        ASSERT_NE(window, nullptr);
        window->resize(window->minimumSize());
        for (int i = 0; i < 5; ++i)
            QCoreApplication::processEvents();
        std::vector<QQuickItem*> texts, controls;
        collect(window->contentItem(), texts, controls);
        EXPECT_GT(controls.size(), 2u) << page.toStdString();
        for (QQuickItem* text : texts) {
            const QRectF drawn = drawnText(*text).adjusted(1, 1, -1, -1);
            for (QQuickItem* control : controls)
                if (!isInside(text, control) &&
                    drawn.intersects(control->mapRectToScene(control->boundingRect())))
                    ADD_FAILURE() << page.toStdString() << ": \""
                                  << text->property("text").toString().toStdString()
                                  << "\" runs under " << nameOf(control).toStdString();
        }
    }
}
