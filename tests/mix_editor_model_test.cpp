// The Mix page's editor against the real store: what a new mix starts with, the voices a
// part is given, the lit parts, renaming, resetting and deleting.

#include "support/stand_in_app.h"
#include "ui/desktop_shell.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>

using namespace tappix;
using test::Harness;
using test::HarnessOptions;

namespace {

HarnessOptions windowed(const QStringList& bundledKits = {}) {
    HarnessOptions options = test::windowed({{"selectedPackId", "click"}});
    options.addKits = [bundledKits](const QString& bundle, const QString&) {
        for (const QString& id : bundledKits)
            test::writeKit(bundle, id, id, "linear");
        // A kit with its own Return and space sounds besides the default one.
        test::writeKit(bundle, "multi", "Multi", {}, {"default", "enter", "space"});
    };
    return options;
}

QString summaryOf(const MixEditorModel& editor, int row) {
    return editor.mixList().at(row).toMap().value("summary").toString();
}

} // namespace

TEST(MixEditorModel, OnlyTheFirstMixStartsWithTheStarterVoices) {
    struct Case {
        QStringList installed;
        QString mainKit;
        std::map<QString, MixVoice> starters;
    };
    const MixVoice walnutReturn{QStringLiteral("walnut-thock"), QStringLiteral("enter")};
    const MixVoice deepSpace{QStringLiteral("deep-linear"), std::nullopt};
    for (const Case& c : {
             // The first preferred kit is missing: the next ones stand in.
             Case{{"walnut-thock", "deep-linear"},
                  "click",
                  {{"enter", walnutReturn}, {"space", deepSpace}}},
             // The space bar never borrows the main kit.
             Case{{"walnut-thock", "deep-linear"}, "deep-linear", {{"enter", walnutReturn}}},
             Case{{}, "click", {}},
         }) {
        Harness run(windowed(c.installed));
        SettingsStore& settings = run.delegate->settings();
        settings.setSelectedPackIdText(c.mainKit);
        MixEditorModel& editor = run.delegate->shell()->mixEditor();

        editor.createMix("  Evening  ");
        ASSERT_TRUE(settings.activeMix()) << c.installed.join(",").toStdString();
        EXPECT_EQ(settings.activeMix()->name, "Evening");
        EXPECT_EQ(settings.activeMix()->assignments, c.starters) << c.mainKit.toStdString();

        editor.createMix("Later");
        EXPECT_TRUE(settings.activeMix()->assignments.empty());
        EXPECT_EQ(settings.mixes().size(), 2u);
        // A blank name makes no mix.
        editor.createMix(" \t ");
        EXPECT_EQ(settings.mixes().size(), 2u);
    }
}

// One editor through a part's voices, the parts lit as the active mix changes, and the
// active mix renamed, reset and deleted.
TEST(MixEditorModel, APartsVoiceTheLitPartsAndTheActiveMixRenamedResetAndDeleted) {
    Harness run(windowed());
    SettingsStore& settings = run.delegate->settings();
    MixEditorModel& editor = run.delegate->shell()->mixEditor();
    QAbstractItemModelTester tester(qobject_cast<QAbstractItemModel*>(editor.regions()),
                                    QAbstractItemModelTester::FailureReportingMode::Fatal);
    editor.createMix("Plain");
    const QString plain = editor.activeMixId();
    editor.createMix("Loud");
    const QString loud = editor.activeMixId();
    auto voice = [&] { return settings.voice(KeyGroup::enter); };

    // A part gets exactly the kit and sound chosen.
    editor.editRegion("enter");
    EXPECT_EQ(editor.source(), MixEditorModel::kMainSource) << "a part on the main kit";
    EXPECT_EQ(editor.chosenKit(), "click");
    editor.chooseKit("multi");
    EXPECT_EQ(voice(), (MixVoice{QStringLiteral("multi"), std::nullopt}));
    QStringList soundKeys;
    for (const QVariant& sound : editor.soundChoices())
        soundKeys << sound.toMap().value("key").toString();
    EXPECT_EQ(soundKeys, (QStringList{"", "default", "space", "enter"}));
    editor.chooseSound("space");
    EXPECT_EQ(voice(), (MixVoice{QStringLiteral("multi"), QStringLiteral("space")}));
    EXPECT_EQ(editor.editingVoice(), "Multi · Space");
    editor.chooseSound("");
    EXPECT_EQ(voice(), (MixVoice{QStringLiteral("multi"), std::nullopt})) << "Auto names no sound";
    // A named sound carries over only to a kit that has it.
    editor.chooseSound("enter");
    editor.chooseKit("click");
    EXPECT_EQ(voice(), (MixVoice{QStringLiteral("click"), std::nullopt}));
    // Reopening the part browses where its kit is; Reset puts it back on the main kit.
    editor.chooseKit("multi");
    editor.editRegion("space");
    editor.editRegion("enter");
    EXPECT_EQ(editor.source(), MixEditorModel::kMoreSource);
    editor.resetRegion();
    EXPECT_FALSE(voice());

    settings.setVoice(MixVoice{QStringLiteral("multi"), std::nullopt}, KeyGroup::functionRow, loud);
    editor.editRegion("arrows");
    editor.chooseKit("multi");
    EXPECT_EQ(editor.litRegions(), (QStringList{"arrows", "functionRow"}));
    // Another mix lights its own parts and ends the edit.
    editor.selectMix(plain);
    EXPECT_TRUE(editor.litRegions().isEmpty());
    EXPECT_EQ(editor.editing(), "");
    editor.editRegion("arrows");
    editor.chooseSound("space");
    EXPECT_EQ(settings.voice(KeyGroup::arrows), (MixVoice{std::nullopt, QStringLiteral("space")}))
        << "a sound of the main kit";
    EXPECT_EQ(editor.litRegions(), (QStringList{"arrows"}));
    editor.selectMix("");
    EXPECT_TRUE(editor.litRegions().isEmpty());
    editor.editRegion("letters");
    EXPECT_EQ(editor.editing(), "") << "no mix plays, so there is nothing to edit";
    editor.selectMix(loud);
    EXPECT_EQ(editor.litRegions(), (QStringList{"arrows", "functionRow"}));

    // A blank name changes nothing; another mix's name is fine.
    editor.renameActive("   ");
    EXPECT_EQ(settings.activeMix()->name, "Loud");
    editor.renameActive(" Plain ");
    EXPECT_EQ(settings.activeMix()->name, "Plain");
    EXPECT_EQ(summaryOf(editor, 1), "2 of 8 changed");
    editor.resetAll();
    ASSERT_TRUE(settings.activeMix());
    EXPECT_EQ(settings.activeMix()->id, loud);
    EXPECT_EQ(settings.activeMix()->name, "Plain");
    EXPECT_TRUE(settings.activeMix()->assignments.empty());
    EXPECT_EQ(summaryOf(editor, 1), "all on the main kit");
    editor.deleteActive(); // what the store keeps is checked in test_settings_pages.py
    EXPECT_EQ(editor.editing(), "");
}
