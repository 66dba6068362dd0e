#pragma once

#include <QAbstractListModel>
#include <QString>
#include <vector>

namespace tappix {

/// The eight parts of the board as the mix editor lists them: each one's stored name,
/// its label, whether the active mix gives it its own sound ("lit"), whether it is the
/// part being edited, and what it plays. The rows are always the eight parts in region
/// order; only their values change. Main thread only.
class MixRegionListModel final : public QAbstractListModel {
    Q_OBJECT

public:
    /// The roles views read.
    enum Role {
        RegionRole = Qt::UserRole + 1,
        LabelRole,
        LitRole,
        EditingRole,
        VoiceRole,
    };

    /// One part of the board.
    struct Row {
        /// The region's stored name ("enter").
        QString region;
        /// What the user calls it ("Return").
        QString label;
        /// The active mix gives it its own sound.
        bool lit = false;
        /// It is the part being edited.
        bool editing = false;
        /// What it plays, in words ("Walnut Thock · Enter", "Main kit").
        QString voice;

        friend bool operator==(const Row&, const Row&) = default;
    };

    /// Lists every region, none lit, each on the main kit.
    explicit MixRegionListModel(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// The rows as they stand.
    const std::vector<Row>& rows() const { return rows_; }

    /// Replaces the values of the rows, region by region, reporting only rows that
    /// changed. `rows` holds one row per region in region order; any other count is
    /// ignored.
    void update(const std::vector<Row>& rows);

private:
    std::vector<Row> rows_;
};

} // namespace tappix
