// The views and their models on the offscreen platform: the lists the panel shows, every
// window loading without a QML warning and laid out at its smallest, and the tray icon.

#include "audio/sound_engine.h"
#include "input/key_codes.h"
#include "settings/settings_page.h"
#include "support/stand_in_app.h"
#include "ui/desktop_shell.h"
#include "ui/symbol_icons.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QPainter>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <algorithm>
#include <cmath>
#include <mutex>
#include <set>
#include <vector>

using namespace tappix;
using test::Harness;
using test::HarnessOptions;
using test::windowed;

// Leaks are looked for with whole stacks (Qt is built without frame pointers), past the
// caches Qt Quick never frees: decoded images and the software renderer's textures.
extern "C" const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}
extern "C" const char* __lsan_default_suppressions() {
    return "leak:QQuickPixmap\nleak:QQuickImageBase::loadPixmap\n"
           "leak:QSGRenderContext::textureForFactory\n";
}

namespace {

// QML reports binding errors and missing properties as warnings; any from Tappix's
// own views is a fault.
std::mutex warningsLock;
QStringList viewWarnings;

void recordWarnings(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if (type != QtDebugMsg && type != QtInfoMsg && message.contains(QLatin1String("qrc:/Tappix"))) {
        std::lock_guard lock(warningsLock);
        viewWarnings << message;
    }
}

QStringList takeWarnings() {
    std::lock_guard lock(warningsLock);
    return std::exchange(viewWarnings, {});
}

void settle() {
    for (int i = 0; i < 5; ++i)
        QCoreApplication::processEvents();
}

QStringList column(const QAbstractItemModel& model, const QByteArray& role) {
    const int key = model.roleNames().key(role);
    QStringList values;
    for (int row = 0; row < model.rowCount(); ++row)
        values << model.index(row, 0).data(key).toString();
    return values;
}

// Where a text item's letters are drawn, in window coordinates: a wrapped or aligned text
// draws less than its box; one that cannot wrap draws past it.
QRectF drawnText(const QQuickItem& text) {
    // Where `size` starts along one axis of the box, `align` placing it at an end or centre.
    const auto start = [&](double box, const char* before, const char* after, double size,
                           int align, int end, int centre) {
        const double lead = text.property(before).toDouble();
        const double room = box - lead - text.property(after).toDouble();
        return lead + (align & end ? room - size : align & centre ? (room - size) / 2 : 0);
    };
    const double width = text.property("contentWidth").toDouble();
    const double height = text.property("contentHeight").toDouble();
    const double x = start(text.width(), "leftPadding", "rightPadding", width,
                           text.property("effectiveHorizontalAlignment").toInt(), Qt::AlignRight,
                           Qt::AlignHCenter);
    const double y =
        start(text.height(), "topPadding", "bottomPadding", height,
              text.property("verticalAlignment").toInt(), Qt::AlignBottom, Qt::AlignVCenter);
    return text.mapRectToScene(QRectF(x, y, width, height));
}

// The texts shown under `item`, and what a user can work there (scroll bars aside).
void collect(QQuickItem* item, std::vector<QQuickItem*>& texts,
             std::vector<QQuickItem*>& controls) {
    if (!item->isVisible() || item->opacity() <= 0 || item->width() <= 0 || item->height() <= 0)
        return;
    if (item->inherits("QQuickText") && !item->property("text").toString().isEmpty())
        texts.push_back(item);
    else if (!item->inherits("QQuickScrollBar") &&
             (item->inherits("QQuickControl") || item->inherits("QQuickTextInput") ||
              item->activeFocusOnTab()))
        controls.push_back(item);
    for (QQuickItem* child : item->childItems())
        collect(child, texts, controls);
}

} // namespace

// The lists the panel shows: kits on their shelves, mixes with their summaries, each marking
// and choosing.
TEST(DesktopShell, TheKitAndMixListsShelveMarkSummariseAndChoose) {
    HarnessOptions options = windowed({{"selectedPackId", "tick"}});
    options.addKits = [](const QString& bundle, const QString& user) {
        test::writeKit(bundle, "zz-linear", "Zed Linear", "linear");
        test::writeKit(bundle, "aa-linear", "Alpha Linear", "linear");
        test::writeKit(bundle, "tick", "Tick", "tactile");
        test::writeKit(user, "mine", "My Board", "tactile");
    };
    Harness run(options);
    KitListModel& kits = run.delegate->shell()->kits();
    QAbstractItemModelTester tester(&kits, QAbstractItemModelTester::FailureReportingMode::Fatal);

    EXPECT_EQ(column(kits, "kitId"),
              (QStringList{"tick", "aa-linear", "zz-linear", "click", "mine"}));
    EXPECT_EQ(column(kits, "section"),
              (QStringList{"Tactile", "Linear", "Linear", KitListModel::kOtherSection,
                           KitListModel::kYoursSection}));

    // The choice made before start reaches the panel; the mark follows the stored choice,
    // and the view hears of it on the rows it left and reached (here the last).
    EXPECT_EQ(run.delegate->shell()->panelModel().currentKitName(), "Tick");
    const int before = kits.currentRow();
    QSignalSpy changed(&kits, &QAbstractItemModel::dataChanged);
    run.delegate->settings().setSelectedPackIdText("mine");
    EXPECT_EQ(column(kits, "isCurrent"), (QStringList{"false", "false", "false", "false", "true"}));
    std::set<int> told;
    for (const QList<QVariant>& signal : changed)
        for (int row = signal[0].toModelIndex().row(); row <= signal[1].toModelIndex().row(); ++row)
            told.insert(row);
    EXPECT_TRUE(told.contains(before) && told.contains(4)) << before << " " << told.size();
    EXPECT_EQ(kits.currentRow(), 4);
    EXPECT_EQ(run.delegate->shell()->panelModel().currentKitName(), "My Board");
    run.delegate->settings().setSelectedPackIdText("gone");
    EXPECT_EQ(run.delegate->shell()->panelModel().currentKitName(), "None");

    // Choosing loads the kit, with an audition unless previews are off. The stand-in output
    // plays nowhere: the test renders the mix itself.
    AudioPlayer& player = run.delegate->audioPlayer();
    const auto peak = [&] {
        std::vector<float> out(2 * 512);
        player.drain();
        player.mixer().render(out.data(), 512);
        return *std::max_element(out.begin(), out.end());
    };
    run.delegate->settings().setSwitchPreviewDisabled(true);
    kits.choose("aa-linear");
    EXPECT_EQ(run.delegate->soundEngine()->currentPackId(), "aa-linear");
    EXPECT_TRUE(player.hasSample("aa-linear", "a.wav"));
    EXPECT_LT(peak(), 0.01f);
    run.delegate->settings().setSwitchPreviewDisabled(false);
    kits.choose("click");
    EXPECT_GT(peak(), 0.01f) << "the audition plays";

    SettingsStore& settings = run.delegate->settings();
    MixListModel model(settings);
    QAbstractItemModelTester mixTester(&model,
                                       QAbstractItemModelTester::FailureReportingMode::Fatal);
    QSignalSpy counted(&model, &MixListModel::countChanged);

    const SoundMix quiet = settings.createMix("Quiet");
    const SoundMix loud = settings.createMix("Loud");
    for (KeyGroup::Value group : {KeyGroup::letters, KeyGroup::space, KeyGroup::enter})
        settings.setVoice(MixVoice{QStringLiteral("click"), std::nullopt}, KeyGroup(group),
                          loud.id);
    // Names, marks and choosing one are read through the panel (test_panel.py).
    EXPECT_EQ(column(model, "summary"), (QStringList{"nothing changed", "3 of 8 parts"}));
    EXPECT_GE(counted.count(), 2);
    model.select("no-such-mix");
    EXPECT_EQ(settings.activeMixId(), loud.id);
    model.select({});
    EXPECT_FALSE(settings.activeMixId());
    EXPECT_EQ(model.activeName(), "Off");

    settings.deleteMix(quiet.id);
    EXPECT_EQ(model.rowCount(), 1);
}

// Every window and page loads without a warning, and at the window's smallest no text on a
// settings page runs under a control.
TEST(DesktopShell, EveryWindowAndPageLoadsWithoutAWarningAndNoTextRunsUnderAControl) {
    takeWarnings();
    HarnessOptions options = windowed({{"themeID", "milk"}, {"visualizerEnabled", true}});
    options.addKits = [](const QString& bundle, const QString& user) {
        test::writeKit(bundle, "tick", "Tick", "tactile");
        test::writeKit(user, "mine", "A Board Of My Own With A Rather Long Name", "");
    };
    Harness run(options);
    DesktopShell& shell = *run.delegate->shell();
    run.type({keys::a}); // the key-cast overlay
    ASSERT_TRUE(shell.keyCastOverlay()->isVisible());
    run.delegate->showPanel();
    settle();
    ASSERT_TRUE(shell.menuBar().isPanelVisible());
    for (const char* page : {"kits", "mixes", "main"}) {
        shell.panelModel().setPage(page);
        settle();
    }
    // The Mix page as it changes: a mix made, a part's editor opened (its kit browser on the
    // page) and closed. (A layout that never settles hangs here: the time limit catches it.)
    run.delegate->openSettings("mix");
    MixEditorModel& mixes = shell.mixEditor();
    mixes.createMix("Desk");
    settle();
    mixes.editRegion("enter");
    settle();
    for (const QString& page : SettingsPage::ids()) {
        run.delegate->openSettings(page);
        QQuickWindow* window = shell.settingsWindow();
        window->resize(window->minimumSize());
        settle();
        std::vector<QQuickItem*> texts, controls;
        collect(window->contentItem(), texts, controls);
        EXPECT_GT(controls.size(), 2u) << page.toStdString();
        for (QQuickItem* text : texts)
            for (QQuickItem* control : controls)
                EXPECT_FALSE(!control->isAncestorOf(text) &&
                             drawnText(*text)
                                 .adjusted(1, 1, -1, -1)
                                 .intersects(control->mapRectToScene(control->boundingRect())))
                    << page.toStdString() << ": \""
                    << text->property("text").toString().toStdString() << "\" runs under a "
                    << control->metaObject()->className();
    }
    EXPECT_TRUE(shell.isSettingsVisible());
    mixes.editRegion("");
    settle();
    for (const bool keys : {false, true}) {
        run.captureIsPossible = keys;
        run.delegate->showOnboarding();
        settle();
    }
    EXPECT_TRUE(shell.isOnboardingVisible());
    EXPECT_EQ(takeWarnings(), QStringList());
    // Clicks and the tooltip are driven from outside (test_tray.py); hiding the icon is not.
    run.delegate->settings().setShowMenuBarIcon(false);
    settle();
    EXPECT_FALSE(shell.menuBar().trayIcon().isVisible());
}

// Tray hosts draw the icon on whatever their panel is; Tappix cannot tell its colour.
TEST(DesktopShell, TheTrayIconStandsOutOnLightAndDarkPanels) {
    auto luminance = [](QColor c) {
        auto linear = [](double v) {
            return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * linear(c.redF()) + 0.7152 * linear(c.greenF()) + 0.0722 * linear(c.blueF());
    };
    const std::pair<bool, bool> states[] = {{true, false}, {false, false}, {false, true}};
    for (const auto& [on, dimmed] : states) {
        for (const QColor panel :
             {QColor("#ffffff"), QColor("#eff0f1"), QColor("#2a2e32"), QColor("#000000")}) {
            SCOPED_TRACE(testing::Message()
                         << on << dimmed << " on " << panel.name().toStdString());
            QImage image(22, 22, QImage::Format_RGB32);
            image.fill(panel);
            QPainter painter(&image);
            SymbolIcons::trayIcon(on, dimmed).paint(&painter, image.rect());
            painter.end();
            // A tenth of the icon at least stands apart from the panel by 3:1 or more.
            const double background = luminance(panel);
            int standsOut = 0;
            for (int y = 0; y < image.height(); ++y)
                for (int x = 0; x < image.width(); ++x) {
                    const double l = luminance(image.pixelColor(x, y));
                    standsOut +=
                        (std::max(l, background) + 0.05) / (std::min(l, background) + 0.05) >= 3.0;
                }
            EXPECT_GE(standsOut, 22 * 22 / 10);
        }
    }
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_QUICK_BACKEND", "software");
    qInstallMessageHandler(recordWarnings);
    const auto app = DesktopShell::makeApplication(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
