// The Create page's view models on the offscreen platform, wired to the delegate: a
// designed kit saved off the main thread, listed and chosen; the tuner writing the main
// kit's tuning; and the page's controls as a screen reader sees them. A failed save is
// driven through the page in tests/ui/test_settings_pages.py.

#include "kits/soundpack_store.h"
#include "settings/settings_store.h"
#include "support/stand_in_app.h"
#include "ui/desktop_shell.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QCoreApplication>
#include <QSignalSpy>
#include <QThread>
#include <atomic>
#include <functional>

using namespace tappix;
using test::Harness;
using test::HarnessOptions;

namespace {

// Waits for the save under way to report back (a bound for a hung save, not a figure).
bool waitForSave(DesignerViewModel& designer) {
    QSignalSpy finished(&designer, &DesignerViewModel::saveFinished);
    return !designer.busy() || finished.wait(60000);
}

QStringList rowsIn(const KitListModel& kits, const QString& section) {
    QStringList ids;
    for (int row = 0; row < kits.rowCount(); ++row) {
        const QModelIndex index = kits.index(row);
        if (index.data(KitListModel::SectionRole).toString() == section)
            ids << index.data(KitListModel::KitIdRole).toString();
    }
    return ids;
}

void collectNames(QAccessibleInterface* node, QStringList& names, int depth = 0) {
    if (!node || depth > 64)
        return;
    if (!node->text(QAccessible::Name).isEmpty())
        names << node->text(QAccessible::Name);
    for (int i = 0; i < node->childCount(); ++i)
        collectNames(node->child(i), names, depth + 1);
}

} // namespace

TEST(DesignerViewModel, SaveRunsOffTheMainThreadThenListsAndChoosesTheKit) {
    Harness run(test::windowed());
    DesktopShell& shell = *run.delegate->shell();
    DesignerViewModel& designer = shell.designer();
    SettingsStore& settings = run.delegate->settings();
    settings.setSelectedPackIdText("click");

    EXPECT_FALSE(designer.canSave());
    designer.setName("  \t ");
    EXPECT_FALSE(designer.canSave());
    designer.setName(" My Switch ");
    EXPECT_EQ(designer.kitId(), "custom-my-switch");
    ASSERT_TRUE(designer.canSave());
    designer.applyPreset(0);

    QSignalSpy finished(&designer, &DesignerViewModel::saveFinished);
    designer.save();
    // The main thread is free while the kit is written; a second save waits its turn.
    EXPECT_TRUE(designer.busy());
    EXPECT_FALSE(designer.canSave());
    designer.save();
    ASSERT_TRUE(finished.wait(60000));
    QCoreApplication::processEvents();
    EXPECT_EQ(finished.count(), 1);
    EXPECT_EQ(finished.at(0).at(0).toBool(), true);
    EXPECT_FALSE(designer.busy());
    EXPECT_TRUE(designer.canSave());

    EXPECT_EQ(designer.status(), "Saved and selected. Type anywhere to hear it.");
    EXPECT_EQ(settings.selectedPackIdText(), "custom-my-switch");
    EXPECT_EQ(run.delegate->soundEngine()->currentPackId(), "custom-my-switch");
    EXPECT_EQ(rowsIn(shell.kits(), KitListModel::kYoursSection), QStringList{"custom-my-switch"});
    EXPECT_EQ(shell.kits().currentName(), "My Switch");
    EXPECT_EQ(shell.tuner().kitName(), "My Switch");

    // Once the design moves on, the sentence about the last save goes.
    designer.setClick(0.2);
    EXPECT_EQ(designer.status(), "");
}

TEST(DesignerViewModel, TheWriterRunsOnAnotherThread) {
    Harness run(test::windowed());
    SoundpackStore packs(run.kits.path(), run.userKits.path());
    packs.reload();
    std::atomic<int> onMain{0};
    std::atomic<int> elsewhere{0};
    QThread* const main = QThread::currentThread();
    DesignerViewModel designer(packs, run.delegate->settings(), nullptr, nullptr,
                               [&](const std::vector<float>&, const QString& path, std::string&) {
                                   (QThread::currentThread() == main ? onMain : elsewhere)++;
                                   QFile(path).open(QIODevice::WriteOnly);
                                   return true;
                               });
    designer.setName("Threads");
    designer.save();
    ASSERT_TRUE(waitForSave(designer));
    EXPECT_EQ(onMain, 0);
    EXPECT_EQ(elsewhere, 35);
}

TEST(DesignerViewModel, NumbersStayInRangeAndRedrawTheWaveform) {
    Harness run(test::windowed());
    DesignerViewModel& designer = run.delegate->shell()->designer();
    ASSERT_EQ(designer.waveform().size(), DesignerViewModel::kWaveformPoints);
    EXPECT_EQ(designer.params(), SwitchDesigner::kDefaultParams);

    QSignalSpy redrawn(&designer, &DesignerViewModel::waveformChanged);
    const QVariantList before = designer.waveform();
    designer.setDecayMs(30);
    EXPECT_EQ(redrawn.count(), 1);
    EXPECT_NE(designer.waveform(), before);
    designer.setDecayMs(30);
    EXPECT_EQ(redrawn.count(), 1);

    designer.setBodyHz(1e6);
    EXPECT_EQ(designer.bodyHz(), SwitchDesigner::kBodyHzRange.max);
    designer.setClick(-3);
    EXPECT_EQ(designer.click(), SwitchDesigner::kClickRange.min);
    designer.setToneHz(std::nan(""));
    EXPECT_EQ(designer.toneHz(), SwitchDesigner::kDefaultParams.toneHz);

    EXPECT_EQ(designer.presetIndex(), -1);
    designer.applyPreset(3);
    EXPECT_EQ(designer.presetIndex(), 3);
    EXPECT_EQ(designer.params(), SwitchDesigner::kPresets[3].params);
    designer.applyPreset(4);
    EXPECT_EQ(designer.presetIndex(), 3);
}

TEST(TunerViewModel, WritesTheMainKitsTuningAndFollowsTheChoice) {
    HarnessOptions options = test::windowed();
    options.addKits = [](const QString& bundle, const QString&) {
        test::writeKit(bundle, "other", "Other");
    };
    Harness run(options);
    TunerViewModel& tuner = run.delegate->shell()->tuner();
    SettingsStore& settings = run.delegate->settings();

    // No kit: nothing to tune, nothing stored.
    settings.setSelectedPackIdText("");
    EXPECT_FALSE(tuner.hasKit());
    tuner.setGain(0.5);
    EXPECT_TRUE(settings.tunings().empty());

    QSignalSpy kitChanged(&tuner, &TunerViewModel::kitChanged);
    settings.setSelectedPackIdText("click");
    EXPECT_EQ(kitChanged.count(), 1);
    EXPECT_EQ(tuner.kitName(), "Click");
    EXPECT_TRUE(tuner.isIdentity());
    tuner.setPitch(1.5);
    tuner.setGain(9);
    tuner.setVariation(0.1);
    tuner.setPanWidth(0.25);
    EXPECT_EQ(settings.tuning("click"), (PackTuning{1.5f, 2.0f, 0.1f, 0.25f}));
    EXPECT_FALSE(tuner.isIdentity());

    // Another kit shows its own tuning; the first keeps its.
    settings.setSelectedPackIdText("other");
    EXPECT_EQ(tuner.kitName(), "Other");
    EXPECT_DOUBLE_EQ(tuner.pitch(), 1.0);
    tuner.setPitch(0.75);
    EXPECT_EQ(settings.tuning("other").pitch, 0.75f);
    EXPECT_EQ(settings.tuning("click").pitch, 1.5f);

    settings.setSelectedPackIdText("click");
    EXPECT_DOUBLE_EQ(tuner.pitch(), 1.5);
    tuner.reset();
    EXPECT_EQ(settings.tuning("click"), PackTuning{});
    EXPECT_TRUE(tuner.isIdentity());
}

TEST(CreatePage, EveryControlHasItsName) {
    Harness run(test::windowed());
    run.delegate->openSettings("create");
    for (int i = 0; i < 5; ++i)
        QCoreApplication::processEvents();
    QQuickWindow* window = run.delegate->shell()->settingsWindow();
    ASSERT_NE(window, nullptr);
    QStringList names;
    collectNames(QAccessible::queryAccessibleInterface(window), names);
    for (const char* name :
         {"Design your own switch", "Depth", "Click", "Sustain", "Tone", "Clicky resonance",
          "Pack name", "Preview", "Save", "Pitch", "Gain", "Variation", "Pan width", "Reset tuning",
          "Preset Silk linear", "Applies live while you type. Remembered per pack."})
        EXPECT_TRUE(names.contains(name)) << name;
}
