#pragma once

#include <QAbstractListModel>
#include <QStringList>

namespace tappix {

class SettingsStore;

/// The saved mixes, each with a summary of how much of the board it changes and a mark
/// on the one playing; choosing one makes it the active mix. Main thread only.
class MixListModel final : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    Q_PROPERTY(QString activeMixId READ activeMixId NOTIFY activeChanged)
    Q_PROPERTY(QString activeName READ activeName NOTIFY activeChanged)

public:
    /// The roles views read.
    enum Role { MixIdRole = Qt::UserRole + 1, NameRole, SummaryRole, IsActiveRole };

    /// How many parts of the board a mix can give their own sound.
    static constexpr int kParts = 8;

    /// Follows the store's mixes and its active mix.
    explicit MixListModel(SettingsStore& settings, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// How many mixes are saved.
    int count() const;
    /// The active mix's id, or empty with none.
    QString activeMixId() const;
    /// The active mix's name, or "Off" with none.
    QString activeName() const;

    /// Makes mix `id` the active one; empty turns mixes off. An id no mix has changes
    /// nothing.
    Q_INVOKABLE void select(const QString& id);

    /// "3 of 8 parts", or "nothing changed" for a mix that assigns no part.
    static QString summary(int assignedParts);

Q_SIGNALS:
    void countChanged();
    void activeChanged();

private:
    void mixesChanged();
    QStringList ids() const;

    SettingsStore& settings_;
    int shownCount_ = 0;
    // The mixes' ids as listed, so that a change of the active mix or of a mix's parts
    // updates rows in place (keeping a view's focus) rather than listing them again.
    QStringList shownIds_;
};

} // namespace tappix
