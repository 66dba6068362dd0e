#include "settings/theme_store.h"

#include "settings/json_file_preferences.h"
#include "support/fake_time.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <functional>

using namespace tappix;

// Each built-in palette is six accents and colours in canonical form, its derived
// colours between its background and its text.
TEST(Themes, BuiltInsAreWellFormed) {
    for (const ThemePalette& p : ThemePalette::builtIns()) {
        EXPECT_EQ(p.accents.size(), 6) << p.id.toStdString();
        for (const QString& colour : QStringList{p.background, p.text, p.onAccent} + p.accents)
            EXPECT_EQ(Rgb::parse(colour).value_or(Rgb{}).toHex(), colour);
        const double bg = Rgb::parse(p.background)->luminance();
        const double card = Rgb::parse(p.card())->luminance();
        const double muted = Rgb::parse(p.mutedText())->luminance();
        const double text = Rgb::parse(p.text)->luminance();
        EXPECT_TRUE((bg < card && card < muted && muted < text) ||
                    (bg > card && card > muted && muted > text))
            << p.id.toStdString();
    }
}

// Each row's steps act on one store; the palette in force (selection, background, accent,
// colour on the accent) is read at once and again after a restart from the same file.
TEST(Themes, ThePaletteInForceFollowsEachChangeAndPersists) {
    using Step = std::function<void(ThemeStore&)>;
    const Step light = [](ThemeStore& t) { t.setCustomColors("#f4f4f5", "#17171A", "#2A2A30"); };
    const Step dark = [](ThemeStore& t) { t.setCustomColors("#101010", "#EEEEEE", "#FFFFFF"); };
    const Step custom = [](ThemeStore& t) { t.select(ThemeStore::kCustomID); };
    const Step ember = [](ThemeStore& t) { t.select("ember"); };
    const QJsonObject badCustom{{"themeID", "custom"}, {"customTheme", QJsonObject{{"id", 1}}}};
    const struct {
        QJsonObject file;
        std::vector<Step> steps;
        const char* inForce;
    } cases[] = {
        {{}, {}, "mono #0F0F10 #E8E8EA #0B0B0C"},
        {{{"themeID", "sepia"}}, {}, "sepia #0F0F10 #E8E8EA #0B0B0C"},
        {badCustom, {}, "custom #0F0F10 #E8E8EA #141210"},
        {{}, {ember}, "ember #130C07 #FF8C42 #170D06"},
        {{}, {ember, light, custom}, "custom #F4F4F5 #2A2A30 #FBF7EF"},
        // New colours while the custom palette is in force show at once.
        {{}, {custom, light, dark}, "custom #101010 #FFFFFF #141210"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.inForce);
        test::FakeTime time;
        test::TempPrefs file;
        if (!c.file.isEmpty())
            file.write(c.file);
        for (const bool restarted : {false, true}) {
            JsonFilePreferences prefs(file.path, time);
            ThemeStore store(prefs);
            QSignalSpy changed(&store, &ThemeStore::themeChanged);
            for (const Step& step : restarted ? std::vector<Step>{} : c.steps)
                step(store);
            EXPECT_EQ(changed.count(), restarted ? 0 : static_cast<int>(c.steps.size()));
            EXPECT_EQ(QStringList({store.selectedID(), store.background(), store.accent(),
                                   store.onAccent()})
                          .join(' '),
                      c.inForce)
                << (restarted ? "after a restart" : "at once");
        }
    }
}
