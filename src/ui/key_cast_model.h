#pragma once

#include "monitors/key_cast.h"

#include <QAbstractListModel>
#include <QHash>
#include <vector>

namespace tappix {

/// The key-cast chips as a list a view animates: a chip keeps its row while it lives,
/// new chips are inserted at the end and gone ones removed where they were. Main thread
/// only.
class KeyCastModel final : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)

public:
    /// The roles views read.
    enum Role {
        ChipIdRole = Qt::UserRole + 1,
        ModifiersRole,
        KeyRole,
        TextRole,
        IsShortcutRole,
    };

    /// Lists the chips of `cast`, which must outlive the model (it takes `cast`'s
    /// change callback).
    explicit KeyCastModel(KeyCast& cast, QObject* parent = nullptr);
    ~KeyCastModel() override;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// The chips' texts, oldest first (tests).
    QStringList texts() const;

Q_SIGNALS:
    /// The number of chips changed.
    void countChanged();

private:
    void sync();

    KeyCast& cast_;
    std::vector<KeyCastChip> rows_;
};

} // namespace tappix
