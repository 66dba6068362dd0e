#include "ui/kit_list_model.h"

#include "audio/sound_engine.h"
#include "input/key_codes.h"
#include "kits/kit_catalog.h"
#include "kits/soundpack_store.h"
#include "settings/settings_store.h"

namespace tappix {

namespace {

// The key whose sound auditions a kit: a home-row letter, the sound heard most.
constexpr KeyCode kAuditionKey = keys::j;

} // namespace

KitListModel::KitListModel(const SoundpackStore& packs, SettingsStore& settings,
                           SoundEngine* engine, QObject* parent)
    : QAbstractListModel(parent), packs_(packs), settings_(settings), engine_(engine),
      current_(settings.selectedPackIdText()) {
    reload();
    connect(&settings_, &SettingsStore::selectedPackIdChanged, this,
            &KitListModel::currentKitChanged);
}

void KitListModel::reload() {
    beginResetModel();
    rows_.clear();
    auto add = [this](const Soundpack& pack, const QString& section) {
        const auto blurb = KitCatalog::blurb(pack);
        rows_.push_back({QString::fromStdString(pack.config.id),
                         QString::fromStdString(pack.config.metadata.name), section,
                         blurb ? QString::fromStdString(*blurb) : QString(), pack.isUserPack});
    };
    const auto& all = packs_.packs();
    for (KitCatalog::Family family : KitCatalog::kFamilies) {
        const QString title = QString::fromStdString(KitCatalog::title(family));
        for (const Soundpack* pack : KitCatalog::kits(all, family))
            if (!pack->isUserPack)
                add(*pack, title);
    }
    for (const Soundpack& pack : all)
        if (!pack.isUserPack && !KitCatalog::family(pack))
            add(pack, kOtherSection);
    for (const Soundpack& pack : all)
        if (pack.isUserPack)
            add(pack, kYoursSection);
    endResetModel();
    Q_EMIT currentChanged();
}

int KitListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant KitListModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Row& row = rows_[static_cast<std::size_t>(index.row())];
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return row.name;
    case KitIdRole:
        return row.id;
    case SectionRole:
        return row.section;
    case BlurbRole:
        return row.blurb;
    case IsCurrentRole:
        return row.id == current_;
    case IsUserRole:
        return row.isUser;
    default:
        return {};
    }
}

QHash<int, QByteArray> KitListModel::roleNames() const {
    return {{KitIdRole, "kitId"}, {NameRole, "name"},           {SectionRole, "section"},
            {BlurbRole, "blurb"}, {IsCurrentRole, "isCurrent"}, {IsUserRole, "isUser"}};
}

QString KitListModel::currentName() const {
    const Soundpack* pack = packs_.find(current_.toStdString());
    return pack ? QString::fromStdString(pack->config.metadata.name) : QStringLiteral("None");
}

int KitListModel::currentRow() const {
    for (std::size_t row = 0; row < rows_.size(); ++row)
        if (rows_[row].id == current_)
            return static_cast<int>(row);
    return -1;
}

void KitListModel::choose(const QString& id) {
    const Soundpack* pack = packs_.find(id.toStdString());
    if (engine_) {
        // The load returns at once; the audition queues behind its decoding.
        engine_->loadPack(pack);
        if (!settings_.switchPreviewDisabled())
            engine_->previewKit(kAuditionKey);
    }
    settings_.setSelectedPackIdText(id);
}

void KitListModel::currentKitChanged() {
    const QString next = settings_.selectedPackIdText();
    if (next == current_)
        return;
    current_ = next;
    if (!rows_.empty())
        Q_EMIT dataChanged(index(0), index(static_cast<int>(rows_.size()) - 1), {IsCurrentRole});
    Q_EMIT currentChanged();
}

} // namespace tappix
