#pragma once

#include "monitors/focus_source.h"

#include <QAbstractListModel>
#include <vector>

namespace tappix {

/// A list of applications as the Behaviour page shows them: each with its id, name and
/// icon. Filled by its owner. Main thread only.
class AppListModel final : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)

public:
    /// The roles views read: `iconName` is the icon-theme name when the theme has it
    /// (else empty) and `iconSource` the file to show otherwise.
    enum Role { AppIdRole = Qt::UserRole + 1, NameRole, IconNameRole, IconSourceRole };

    /// The icon shown for an application whose own is unknown.
    static inline const QString kFallbackIcon =
        QStringLiteral("qrc:/Tappix/Ui/icons/app-window.svg");

    explicit AppListModel(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// How many applications are listed.
    int count() const { return int(apps_.size()); }
    /// The application in `row`, or none.
    const AppIdentity* at(int row) const;
    /// Replaces the rows.
    void setApps(std::vector<AppIdentity> apps);

Q_SIGNALS:
    void countChanged();

private:
    std::vector<AppIdentity> apps_;
};

} // namespace tappix
