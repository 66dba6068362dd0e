#include "ui/app_list_model.h"

#include <QIcon>
#include <QUrl>

namespace tappix {

AppListModel::AppListModel(QObject* parent) : QAbstractListModel(parent) {}

int AppListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : count();
}

QVariant AppListModel::data(const QModelIndex& index, int role) const {
    const AppIdentity* app = index.isValid() ? at(index.row()) : nullptr;
    if (!app)
        return {};
    const bool isFile = app->icon.startsWith(QLatin1Char('/'));
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return app->name;
    case AppIdRole:
        return app->id;
    case IconNameRole:
        // Only a name the theme has: otherwise the view shows (and tints) the fallback.
        return !isFile && !app->icon.isEmpty() && QIcon::hasThemeIcon(app->icon) ? app->icon
                                                                                 : QString();
    case IconSourceRole:
        return isFile ? QUrl::fromLocalFile(app->icon).toString() : kFallbackIcon;
    default:
        return {};
    }
}

QHash<int, QByteArray> AppListModel::roleNames() const {
    return {{AppIdRole, "appId"},
            {NameRole, "name"},
            {IconNameRole, "iconName"},
            {IconSourceRole, "iconSource"}};
}

const AppIdentity* AppListModel::at(int row) const {
    return row >= 0 && row < count() ? &apps_[std::size_t(row)] : nullptr;
}

void AppListModel::setApps(std::vector<AppIdentity> apps) {
    if (apps == apps_)
        return;
    const int before = count();
    beginResetModel();
    apps_ = std::move(apps);
    endResetModel();
    if (count() != before)
        Q_EMIT countChanged();
}

} // namespace tappix
