#include "settings/settings_page.h"

namespace tappix::SettingsPage {

const QStringList& ids() {
    static const QStringList pages{QStringLiteral("sounds"), QStringLiteral("mix"),
                                   QStringLiteral("create"), QStringLiteral("behaviour"),
                                   QStringLiteral("look"),   QStringLiteral("about")};
    return pages;
}

bool isKnown(const QString& id) {
    return ids().contains(id);
}

QString resolve(const QString& id) {
    return isKnown(id) ? id : ids().front();
}

} // namespace tappix::SettingsPage
