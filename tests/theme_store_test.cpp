#include "settings/theme_store.h"

#include "settings/json_file_preferences.h"
#include "support/fake_time.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

using namespace tappix;

TEST(Themes, BuiltInsAreCompleteAndWellFormed) {
    const auto& palettes = ThemePalette::builtIns();
    ASSERT_EQ(palettes.size(), 13u);
    EXPECT_EQ(palettes.front().id, QStringLiteral("mono"));
    EXPECT_EQ(palettes.back().id, QStringLiteral("milk"));
    int light = 0;
    for (const ThemePalette& p : palettes) {
        EXPECT_EQ(p.accents.size(), 6) << p.id.toStdString();
        for (const QString& colour : QStringList{p.background, p.text, p.onAccent} + p.accents) {
            ASSERT_TRUE(Rgb::parse(colour)) << colour.toStdString();
            EXPECT_EQ(Rgb::parse(colour)->toHex(), colour);
        }
        light += p.isLight();
        // Derived colours sit between background and text.
        const double bg = Rgb::parse(p.background)->luminance();
        const double card = Rgb::parse(p.card())->luminance();
        const double muted = Rgb::parse(p.mutedText())->luminance();
        const double text = Rgb::parse(p.text)->luminance();
        EXPECT_TRUE((bg < card && card < muted && muted < text) ||
                    (bg > card && card > muted && muted > text))
            << p.id.toStdString();
    }
    EXPECT_EQ(light, 2);
}

TEST(Themes, LuminanceRuleForTextOnAccents) {
    EXPECT_EQ(ThemePalette::onAccentFor(QStringLiteral("#FFFFFF")), QStringLiteral("#141210"));
    EXPECT_EQ(ThemePalette::onAccentFor(QStringLiteral("#000000")), QStringLiteral("#FBF7EF"));
    EXPECT_EQ(ThemePalette::onAccentFor(QStringLiteral("nonsense")), QStringLiteral("#FBF7EF"));
    // The default custom palette follows the same rule for its light accent.
    const ThemePalette custom = ThemePalette::defaultCustom();
    EXPECT_EQ(custom.onAccent, ThemePalette::onAccentFor(custom.accents.front()));
}

TEST(Themes, SelectionAndCustomPalettePersist) {
    test::FakeTime time;
    test::TempPrefs file;
    {
        JsonFilePreferences prefs(file.path, time);
        ThemeStore store(prefs);
        EXPECT_EQ(store.palette().id, QStringLiteral("mono"));
        store.select(QStringLiteral("ember"));
        EXPECT_EQ(store.accent(), QStringLiteral("#FF8C42"));
        store.setCustomColors(QStringLiteral("#f4f4f5"), QStringLiteral("#17171A"),
                              QStringLiteral("#2A2A30"));
        store.select(ThemeStore::kCustomID);
        EXPECT_TRUE(store.isLight());
        EXPECT_EQ(store.onAccent(), QStringLiteral("#FBF7EF"));
    }
    JsonFilePreferences prefs(file.path, time);
    ThemeStore store(prefs);
    EXPECT_EQ(store.selectedID(), QStringLiteral("custom"));
    EXPECT_EQ(store.background(), QStringLiteral("#F4F4F5"));
    EXPECT_EQ(store.accent(), QStringLiteral("#2A2A30"));
}

TEST(Themes, UnknownOrUndecodableStoredThemesFallBack) {
    test::FakeTime time;
    test::TempPrefs file;
    file.write(
        QJsonObject{{QStringLiteral("themeID"), QStringLiteral("sepia")},
                    {QStringLiteral("customTheme"), QJsonObject{{QStringLiteral("id"), 1}}}});
    JsonFilePreferences prefs(file.path, time);
    ThemeStore store(prefs);
    EXPECT_EQ(store.palette().id, QStringLiteral("mono"));
    EXPECT_EQ(store.selectedID(), QStringLiteral("sepia"));
    EXPECT_EQ(store.custom(), ThemePalette::defaultCustom());
}
