#pragma once

#include <QAbstractListModel>
#include <QString>
#include <vector>

namespace tappix {

class SettingsStore;
class SoundEngine;
class SoundpackStore;

/// The kits a user can choose, grouped by shelf in listing order with the user's own
/// kits last under "YOURS", the current one marked. Choosing one loads it and, unless
/// previews are off, plays a short audition. Main thread only.
class KitListModel final : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(QString currentName READ currentName NOTIFY currentChanged)
    Q_PROPERTY(int currentRow READ currentRow NOTIFY currentChanged)

public:
    /// The roles views read.
    enum Role {
        KitIdRole = Qt::UserRole + 1,
        NameRole,
        SectionRole,
        BlurbRole,
        IsCurrentRole,
        IsUserRole,
    };

    /// The section of the user's own kits.
    static inline const QString kYoursSection = QStringLiteral("YOURS");
    /// The section of shipped kits that belong to no shelf.
    static inline const QString kOtherSection = QStringLiteral("More");

    /// Lists the kits `packs` holds now; follows `selectedPackId`. `engine` may be null
    /// (nothing is loaded or auditioned then).
    KitListModel(const SoundpackStore& packs, SettingsStore& settings, SoundEngine* engine,
                 QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// The current kit's name, or "None".
    QString currentName() const;
    /// The current kit's row, or -1 when it is not listed.
    int currentRow() const;

    /// Makes the kit `id` the main kit and auditions it unless previews are off. An id
    /// no kit has loads no kit, as a stale id would.
    Q_INVOKABLE void choose(const QString& id);

    /// Lists the kits again (after kits were added or removed).
    void reload();

Q_SIGNALS:
    /// The current kit changed.
    void currentChanged();

private:
    struct Row {
        QString id, name, section, blurb;
        bool isUser = false;
    };

    void currentKitChanged();

    const SoundpackStore& packs_;
    SettingsStore& settings_;
    SoundEngine* engine_;
    std::vector<Row> rows_;
    QString current_;
};

} // namespace tappix
