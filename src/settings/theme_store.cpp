#include "settings/theme_store.h"

#include <QVariantMap>

namespace tappix {
namespace {
const QString kThemeIDKey = QStringLiteral("themeID");
const QString kCustomThemeKey = QStringLiteral("customTheme");
} // namespace

ThemeStore::ThemeStore(Preferences& preferences, QObject* parent)
    : QObject(parent), preferences_(preferences) {
    const QJsonValue stored = preferences_.value(kThemeIDKey);
    selectedID_ = stored.isString() ? stored.toString() : QStringLiteral("mono");
    custom_ = ThemePalette::fromJson(preferences_.value(kCustomThemeKey))
                  .value_or(ThemePalette::defaultCustom());
    resolve();
}

void ThemeStore::select(const QString& id) {
    selectedID_ = id;
    preferences_.setValue(kThemeIDKey, id);
    resolve();
    Q_EMIT themeChanged();
}

void ThemeStore::setCustomColors(const QString& background, const QString& text,
                                 const QString& accentBase) {
    custom_ = ThemePalette::custom(background, text, accentBase);
    preferences_.setValue(kCustomThemeKey, custom_.toJson());
    resolve();
    Q_EMIT themeChanged();
}

QVariantList ThemeStore::palettes() const {
    QVariantList out;
    for (const ThemePalette& palette : ThemePalette::builtIns())
        out.append(QVariantMap{{QStringLiteral("id"), palette.id},
                               {QStringLiteral("name"), palette.name},
                               {QStringLiteral("background"), palette.background},
                               {QStringLiteral("text"), palette.text},
                               {QStringLiteral("accent"), palette.accent()},
                               {QStringLiteral("isLight"), palette.isLight()}});
    return out;
}

void ThemeStore::resolve() {
    if (selectedID_ == kCustomID) {
        palette_ = custom_;
        return;
    }
    const auto& builtIns = ThemePalette::builtIns();
    palette_ = builtIns.front();
    for (const ThemePalette& candidate : builtIns) {
        if (candidate.id == selectedID_)
            palette_ = candidate;
    }
}

} // namespace tappix
