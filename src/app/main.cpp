// Tappix: plays a mechanical-keyboard sound for every key that moves.

#include "core/log.h"
#include "core/qt_scheduler.h"
#include "settings/json_file_preferences.h"
#include "settings/settings_store.h"
#include "settings/theme_store.h"

#include <QCoreApplication>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Tappix"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("morvane.app"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAPPIX_VERSION));

    tappix::QtScheduler scheduler;
    tappix::JsonFilePreferences preferences(tappix::JsonFilePreferences::defaultPath(), scheduler);
    tappix::SettingsStore settings(preferences, scheduler);
    tappix::ThemeStore themes(preferences);

    qCInfo(lcApp, "Tappix %s; preferences at %s", TAPPIX_VERSION, qPrintable(preferences.path()));
    qCInfo(lcApp, "sounds %s, kit %s, theme %s", settings.isEnabled() ? "on" : "off",
           qPrintable(settings.selectedPackId().value_or(QStringLiteral("(none)"))),
           qPrintable(themes.selectedID()));
    return 0;
}
