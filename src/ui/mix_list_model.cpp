#include "ui/mix_list_model.h"

#include "input/key_group.h"
#include "settings/settings_store.h"

namespace tappix {

namespace {

int assignedParts(const SoundMix& mix) {
    int parts = 0;
    for (const auto& [group, voice] : mix.assignments)
        if (KeyGroup::fromRawValue(group.toStdString()) && !voice.isEmpty())
            ++parts;
    return parts;
}

} // namespace

MixListModel::MixListModel(SettingsStore& settings, QObject* parent)
    : QAbstractListModel(parent), settings_(settings), shownCount_(count()), shownIds_(ids()) {
    connect(&settings_, &SettingsStore::tappixMixChanged, this, &MixListModel::mixesChanged);
}

int MixListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : shownCount_;
}

QVariant MixListModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const auto& mixes = settings_.mixes();
    if (static_cast<std::size_t>(index.row()) >= mixes.size())
        return {};
    const SoundMix& mix = mixes[static_cast<std::size_t>(index.row())];
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return mix.name;
    case MixIdRole:
        return mix.id;
    case SummaryRole:
        return summary(assignedParts(mix));
    case IsActiveRole:
        return settings_.activeMixId() == mix.id;
    default:
        return {};
    }
}

QHash<int, QByteArray> MixListModel::roleNames() const {
    return {{MixIdRole, "mixId"},
            {NameRole, "name"},
            {SummaryRole, "summary"},
            {IsActiveRole, "isActive"}};
}

int MixListModel::count() const {
    return static_cast<int>(settings_.mixes().size());
}

QString MixListModel::activeMixId() const {
    return settings_.activeMixId().value_or(QString());
}

QString MixListModel::activeName() const {
    if (const auto id = settings_.activeMixId())
        for (const SoundMix& mix : settings_.mixes())
            if (mix.id == *id)
                return mix.name;
    return QStringLiteral("Off");
}

void MixListModel::select(const QString& id) {
    settings_.setActiveMix(id.isEmpty() ? std::nullopt : std::optional<QString>(id));
}

QString MixListModel::summary(int assignedParts) {
    if (assignedParts == 0)
        return QStringLiteral("nothing changed");
    return QStringLiteral("%1 of %2 parts").arg(assignedParts).arg(kParts);
}

QStringList MixListModel::ids() const {
    QStringList out;
    for (const SoundMix& mix : settings_.mixes())
        out << mix.id;
    return out;
}

void MixListModel::mixesChanged() {
    if (ids() == shownIds_) {
        if (shownCount_ > 0)
            Q_EMIT dataChanged(index(0), index(shownCount_ - 1));
    } else {
        // Mixes are few: added, removed or reordered ones are listed again.
        beginResetModel();
        shownCount_ = count();
        shownIds_ = ids();
        endResetModel();
        Q_EMIT countChanged();
    }
    Q_EMIT activeChanged();
}

} // namespace tappix
