#include "ui/mix_region_list_model.h"

#include "input/key_group.h"

namespace tappix {

MixRegionListModel::MixRegionListModel(QObject* parent) : QAbstractListModel(parent) {
    for (KeyGroup::Value group : KeyGroup::allCases) {
        const std::string_view raw = KeyGroup(group).rawValue();
        rows_.push_back({QString::fromLatin1(raw.data(), static_cast<qsizetype>(raw.size())),
                         {},
                         false,
                         false,
                         QStringLiteral("Main kit")});
    }
}

int MixRegionListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant MixRegionListModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Row& row = rows_[static_cast<std::size_t>(index.row())];
    switch (role) {
    case Qt::DisplayRole:
    case LabelRole:
        return row.label;
    case RegionRole:
        return row.region;
    case LitRole:
        return row.lit;
    case EditingRole:
        return row.editing;
    case VoiceRole:
        return row.voice;
    default:
        return {};
    }
}

QHash<int, QByteArray> MixRegionListModel::roleNames() const {
    return {{RegionRole, "region"},
            {LabelRole, "label"},
            {LitRole, "lit"},
            {EditingRole, "editing"},
            {VoiceRole, "voice"}};
}

void MixRegionListModel::update(const std::vector<Row>& rows) {
    if (rows.size() != rows_.size())
        return;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i] == rows_[i])
            continue;
        rows_[i] = rows[i];
        const QModelIndex changed = index(static_cast<int>(i));
        Q_EMIT dataChanged(changed, changed);
    }
}

} // namespace tappix
