#include "ui/menu_panel_model.h"

#include <algorithm>

namespace tappix {

MenuPanelModel::MenuPanelModel(QObject* parent) : QObject(parent) {}

void MenuPanelModel::setPage(const QString& page) {
    const QString next = page == QLatin1String("kits") || page == QLatin1String("mixes")
                             ? page
                             : QStringLiteral("main");
    if (next == page_)
        return;
    page_ = next;
    Q_EMIT pageChanged();
    Q_EMIT panelHeightChanged();
}

int MenuPanelModel::heightOf(const QString& page, int mixCount) {
    if (page == QLatin1String("kits"))
        return kKitsHeight;
    if (page == QLatin1String("mixes"))
        return std::min(kMixesBaseHeight + kMixRowHeight * std::max(mixCount, 0), kMixesMaxHeight);
    return kMainHeight;
}

int MenuPanelModel::panelHeight() const {
    return heightOf(page_, mixCount_);
}

void MenuPanelModel::setSleepReason(const QString& reason) {
    if (reason == sleepReason_)
        return;
    sleepReason_ = reason;
    Q_EMIT sleepReasonChanged();
}

void MenuPanelModel::setCaptureIsPossible(bool possible) {
    if (possible == captureIsPossible_)
        return;
    captureIsPossible_ = possible;
    Q_EMIT captureIsPossibleChanged();
}

void MenuPanelModel::setCurrentKitName(const QString& name) {
    if (name == currentKitName_)
        return;
    currentKitName_ = name;
    Q_EMIT currentKitNameChanged();
}

void MenuPanelModel::setMixCount(int count) {
    if (count == mixCount_)
        return;
    mixCount_ = count;
    if (page_ == QLatin1String("mixes"))
        Q_EMIT panelHeightChanged();
}

} // namespace tappix
