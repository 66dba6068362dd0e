#include "ui/key_cast_model.h"

#include <algorithm>

namespace tappix {

KeyCastModel::KeyCastModel(KeyCast& cast, QObject* parent)
    : QAbstractListModel(parent), cast_(cast) {
    cast_.setOnChange([this] { sync(); });
    sync();
}

KeyCastModel::~KeyCastModel() {
    cast_.setOnChange({});
}

int KeyCastModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(rows_.size());
}

QVariant KeyCastModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= int(rows_.size()))
        return {};
    const KeyCastChip& chip = rows_[std::size_t(index.row())];
    switch (role) {
    case ChipIdRole:
        return QVariant::fromValue<qulonglong>(chip.id);
    case ModifiersRole:
        return chip.modifiers;
    case KeyRole:
        return chip.key;
    case Qt::DisplayRole:
    case TextRole:
        return chip.text();
    case IsShortcutRole:
        return chip.isShortcut;
    default:
        return {};
    }
}

QHash<int, QByteArray> KeyCastModel::roleNames() const {
    return {{ChipIdRole, "chipId"},
            {ModifiersRole, "modifiers"},
            {KeyRole, "key"},
            {TextRole, "text"},
            {IsShortcutRole, "isShortcut"}};
}

QStringList KeyCastModel::texts() const {
    QStringList out;
    for (const KeyCastChip& chip : rows_)
        out << chip.text();
    return out;
}

void KeyCastModel::sync() {
    // Chips never change, only ever join at the end and keep their order, so the old rows
    // missing from the new list are removals and the new list's tail past them is added.
    const std::vector<KeyCastChip>& next = cast_.chips();
    const int before = rowCount();
    auto survives = [&next](const KeyCastChip& row) {
        return std::any_of(next.begin(), next.end(),
                           [&row](const KeyCastChip& c) { return c.id == row.id; });
    };
    for (int row = int(rows_.size()) - 1; row >= 0; --row) {
        if (!survives(rows_[std::size_t(row)])) {
            beginRemoveRows({}, row, row);
            rows_.erase(rows_.begin() + row);
            endRemoveRows();
        }
    }
    if (next.size() > rows_.size()) {
        beginInsertRows({}, int(rows_.size()), int(next.size()) - 1);
        rows_.insert(rows_.end(), next.begin() + std::ptrdiff_t(rows_.size()), next.end());
        endInsertRows();
    }
    if (rowCount() != before)
        Q_EMIT countChanged();
}

} // namespace tappix
