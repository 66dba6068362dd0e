#include "ui/output_device_list_model.h"

#include "audio/audio_output.h"
#include "settings/settings_store.h"

#include <QMetaObject>
#include <algorithm>

namespace tappix {

OutputDeviceListModel::OutputDeviceListModel(SettingsStore& settings, AudioDeviceManager* devices,
                                             const AudioOutput* output, QObject* parent)
    : QAbstractListModel(parent), settings_(settings), devices_(devices), output_(output) {
    // One query at a time: later changes wait for it and are asked about together.
    queries_.setMaxThreadCount(1);
    applyRows(buildRows());
    connect(&settings_, &SettingsStore::outputDeviceUIDChanged, this, [this] {
        applyRows(buildRows());
        // The stream moves to the new choice; its latency follows.
        refresh();
    });
    if (devices_) {
        // Reported on the manager's own thread: ask again from the main thread.
        devices_->setOnDevicesChanged([this] {
            QMetaObject::invokeMethod(this, &OutputDeviceListModel::refresh, Qt::QueuedConnection);
        });
    }
    refresh();
}

OutputDeviceListModel::~OutputDeviceListModel() {
    if (devices_)
        devices_->setOnDevicesChanged({});
    // A query's report back is dropped with this object's pending events.
    queries_.waitForDone();
}

int OutputDeviceListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant OutputDeviceListModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Row& row = rows_[static_cast<std::size_t>(index.row())];
    switch (role) {
    case UidRole:
        return row.uid;
    case Qt::DisplayRole:
    case NameRole:
        return row.name;
    case IsAvailableRole:
        return row.isAvailable;
    case IsChosenRole:
        return row.isChosen;
    default:
        return {};
    }
}

QHash<int, QByteArray> OutputDeviceListModel::roleNames() const {
    return {{UidRole, "uid"},
            {NameRole, "name"},
            {IsAvailableRole, "isAvailable"},
            {IsChosenRole, "isChosen"}};
}

void OutputDeviceListModel::choose(const QString& uid) {
    settings_.setOutputDeviceUIDText(uid);
}

void OutputDeviceListModel::refresh() {
    if (busy_) {
        askAgain_ = true;
        return;
    }
    startQuery();
}

void OutputDeviceListModel::startQuery() {
    setBusy(true);
    queries_.start([this, devices = devices_, output = output_] {
        Snapshot snapshot;
        if (devices) {
            snapshot.devices = devices->outputDevices();
            if (const auto fallback = devices->defaultOutput())
                snapshot.defaultName = QString::fromStdString(fallback->name);
        }
        // Read last, so a stream remade while the devices were asked for is seen.
        if (output && output->isPlaying() && output->latencySeconds() > 0)
            snapshot.latencyMs = output->latencySeconds() * 1000.0;
        QMetaObject::invokeMethod(
            this, [this, snapshot] { finishQuery(snapshot); }, Qt::QueuedConnection);
    });
}

void OutputDeviceListModel::finishQuery(const Snapshot& snapshot) {
    last_ = snapshot;
    for (const AudioDeviceManager::Device& device : last_.devices)
        seenNames_.insert(QString::fromStdString(device.uid), QString::fromStdString(device.name));
    applyRows(buildRows());
    if (latencyMs_ != snapshot.latencyMs) {
        latencyMs_ = snapshot.latencyMs;
        Q_EMIT latencyChanged();
    }
    if (askAgain_) {
        askAgain_ = false;
        startQuery();
        return;
    }
    setBusy(false);
}

std::vector<OutputDeviceListModel::Row> OutputDeviceListModel::buildRows() const {
    const QString chosen = settings_.outputDeviceUIDText();
    std::vector<Row> devices;
    bool chosenPresent = chosen.isEmpty();
    for (const AudioDeviceManager::Device& device : last_.devices) {
        const QString uid = QString::fromStdString(device.uid);
        chosenPresent = chosenPresent || uid == chosen;
        devices.push_back(Row{uid, QString::fromStdString(device.name), true, uid == chosen});
    }
    // Sound goes to the default meanwhile, but the choice stays visible and kept.
    if (!chosenPresent)
        devices.push_back(Row{chosen, seenNames_.value(chosen, chosen), false, true});
    std::stable_sort(devices.begin(), devices.end(), [](const Row& a, const Row& b) {
        const int order = QString::compare(a.name, b.name, Qt::CaseInsensitive);
        return order != 0 ? order < 0 : a.uid < b.uid;
    });

    std::vector<Row> rows;
    rows.reserve(devices.size() + 1);
    const QString name = last_.defaultName.isEmpty()
                             ? kSystemDefaultName
                             : kSystemDefaultName + QStringLiteral(" (%1)").arg(last_.defaultName);
    rows.push_back(Row{QString(), name, true, chosen.isEmpty()});
    rows.insert(rows.end(), devices.begin(), devices.end());
    return rows;
}

void OutputDeviceListModel::applyRows(std::vector<Row> next) {
    // Rows are known by uid. Keep the rows still wanted whose order agrees with the new
    // list, remove the rest, then insert what is new and update what changed.
    QHash<QString, int> wanted;
    for (std::size_t i = 0; i < next.size(); ++i)
        wanted.insert(next[i].uid, static_cast<int>(i));
    std::vector<bool> keep(rows_.size(), false);
    int lastKept = -1;
    for (std::size_t i = 0; i < rows_.size(); ++i) {
        const auto found = wanted.constFind(rows_[i].uid);
        if (found != wanted.constEnd() && *found > lastKept) {
            keep[i] = true;
            lastKept = *found;
        }
    }
    for (int i = static_cast<int>(rows_.size()) - 1; i >= 0; --i) {
        if (keep[static_cast<std::size_t>(i)])
            continue;
        beginRemoveRows({}, i, i);
        rows_.erase(rows_.begin() + i);
        endRemoveRows();
    }
    for (std::size_t i = 0; i < next.size(); ++i) {
        const int row = static_cast<int>(i);
        if (i < rows_.size() && rows_[i].uid == next[i].uid) {
            if (!(rows_[i] == next[i])) {
                rows_[i] = next[i];
                Q_EMIT dataChanged(index(row), index(row));
            }
            continue;
        }
        beginInsertRows({}, row, row);
        rows_.insert(rows_.begin() + row, next[i]);
        endInsertRows();
    }

    const auto chosen =
        std::find_if(rows_.begin(), rows_.end(), [](const Row& r) { return r.isChosen; });
    const int current = chosen == rows_.end() ? 0 : static_cast<int>(chosen - rows_.begin());
    if (current != currentIndex_) {
        currentIndex_ = current;
        Q_EMIT currentIndexChanged();
    }
}

void OutputDeviceListModel::setBusy(bool busy) {
    if (busy == busy_)
        return;
    busy_ = busy;
    Q_EMIT busyChanged();
}

} // namespace tappix
