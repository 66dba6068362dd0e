#pragma once

#include "input/key_group.h"
#include "settings/sound_mix.h"
#include "ui/mix_region_list_model.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <array>
#include <optional>
#include <string_view>

namespace tappix {

class SettingsStore;
class SoundEngine;
class SoundpackStore;

/// The Mix page's state and commands: the saved mixes with their summaries, the drawn
/// keyboard and its eight parts, and for the part being edited the kits of one source
/// and the sounds of the kit it plays. Every command changes the settings store, which
/// tells the engine; the only call into the engine is a preview. Main thread only.
class MixEditorModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList mixList READ mixList NOTIFY mixListChanged)
    Q_PROPERTY(bool hasMixes READ hasMixes NOTIFY mixesChanged)
    Q_PROPERTY(QString activeMixId READ activeMixId NOTIFY mixesChanged)
    Q_PROPERTY(QString activeName READ activeName NOTIFY mixesChanged)
    Q_PROPERTY(int changedParts READ changedParts NOTIFY mixesChanged)
    Q_PROPERTY(QString stateTitle READ stateTitle NOTIFY mixesChanged)
    Q_PROPERTY(QString stateText READ stateText NOTIFY mixesChanged)
    Q_PROPERTY(QString suggestedName READ suggestedName NOTIFY mixesChanged)
    Q_PROPERTY(QStringList litRegions READ litRegions NOTIFY mixesChanged)
    Q_PROPERTY(QObject* regions READ regions CONSTANT)
    Q_PROPERTY(QVariantList keyboard READ keyboard CONSTANT)
    Q_PROPERTY(QString editing READ editing NOTIFY editingChanged)
    Q_PROPERTY(QString editingLabel READ editingLabel NOTIFY editingChanged)
    Q_PROPERTY(QString editingVoice READ editingVoice NOTIFY editingChanged)
    Q_PROPERTY(bool editingLit READ editingLit NOTIFY editingChanged)
    Q_PROPERTY(QString chosenKit READ chosenKit NOTIFY editingChanged)
    Q_PROPERTY(QString chosenSound READ chosenSound NOTIFY editingChanged)
    Q_PROPERTY(QString source READ source NOTIFY sourceChanged)
    Q_PROPERTY(QVariantList sources READ sources NOTIFY sourcesChanged)
    Q_PROPERTY(QVariantList kitChoices READ kitChoices NOTIFY kitChoicesChanged)
    Q_PROPERTY(QVariantList soundChoices READ soundChoices NOTIFY soundChoicesChanged)

public:
    /// How many parts of the board a mix can give their own sound.
    static constexpr int kParts = static_cast<int>(KeyGroup::kCount);
    /// Shipped kits a first mix borrows from, best first: the first one installed
    /// voices Return, the next one that is not the main kit voices the space bar.
    static constexpr std::array<std::string_view, 3> kStarterKits{"crisp-click", "walnut-thock",
                                                                  "deep-linear"};
    /// The sound a first mix gives Return.
    static constexpr std::string_view kStarterReturnSound = "enter";
    /// The source listing the main kit.
    static inline const QString kMainSource = QStringLiteral("main");
    /// The source listing the user's own kits.
    static inline const QString kYoursSource = QStringLiteral("yours");
    /// The source listing shipped kits that belong to no shelf.
    static inline const QString kMoreSource = QStringLiteral("more");

    /// Follows the store's mixes, its main kit and the kits `packs` holds. `engine` may
    /// be null (no previews then).
    MixEditorModel(SettingsStore& settings, const SoundpackStore& packs, SoundEngine* engine,
                   QObject* parent = nullptr);

    /// Each saved mix as {mixId, name, summary}, in saved order.
    QVariantList mixList() const { return mixList_; }
    /// Whether any mix is saved.
    bool hasMixes() const;
    /// The active mix's id, or empty with none.
    QString activeMixId() const;
    /// The active mix's name, or empty with none.
    QString activeName() const;
    /// How many parts the active mix gives their own sound (0 with none).
    int changedParts() const;
    /// A heading over the state text: only while no mix is saved.
    QString stateTitle() const;
    /// What the page says about the mixes as they stand; empty while the active mix
    /// changes some part.
    QString stateText() const;
    /// A name for the next mix that no saved mix has ("Mix", "Mix 2", …).
    QString suggestedName() const;
    /// The parts the active mix gives their own sound, by stored name.
    QStringList litRegions() const;
    /// The eight parts of the board.
    QObject* regions() { return &regions_; }
    /// The parts as their model.
    const MixRegionListModel& regionList() const { return regions_; }
    /// The drawn keyboard, one entry per key: {code, label, region, x, y, width, height},
    /// positions and sizes in key widths on a board `kBoardWidth` by `kBoardHeight`.
    QVariantList keyboard() const { return keyboard_; }
    /// The drawn board's size, in key widths.
    static constexpr double kBoardWidth = 15;
    static constexpr double kBoardHeight = 6;

    /// The part being edited (its stored name), or empty.
    QString editing() const;
    /// Its label ("Return"), or empty.
    QString editingLabel() const;
    /// What it plays, in words.
    QString editingVoice() const;
    /// Whether the active mix gives it its own sound.
    bool editingLit() const;
    /// The kit it plays: its own, else the main kit; empty with neither.
    QString chosenKit() const;
    /// The sound its voice names; empty is "Auto".
    QString chosenSound() const;
    /// Where kits are browsed from: a shelf's stored name, "more", "main" or "yours".
    QString source() const { return source_; }
    /// The sources that can be browsed, as {id, title}: the shelves holding keyboard
    /// kits, "More", "Main kit" and "YOURS".
    QVariantList sources() const { return sources_; }
    /// The kits of the source, as {kitId, name, blurb}.
    QVariantList kitChoices() const { return kitChoices_; }
    /// The sounds of the chosen kit, as {key, label, general}: "Auto" (empty key) first,
    /// then the kit's sound keys in their order; general ones serve groups of keys
    /// ("default", "enter", …) rather than one key.
    QVariantList soundChoices() const { return soundChoices_; }

    /// "3 of 8 changed", or "all on the main kit" for a mix that changes no part.
    static QString summary(const SoundMix& mix);
    /// What the user calls a part of the board ("Letters & symbols").
    static QString regionLabel(KeyGroup group);

    /// Makes mix `id` the one that plays; empty plays the main kit only.
    Q_INVOKABLE void selectMix(const QString& id);
    /// Saves a new mix named `name` (trimmed) and makes it play; a blank name does
    /// nothing. The first mix starts with Return (and the space bar) on other kits.
    Q_INVOKABLE void createMix(const QString& name);
    /// Renames the active mix to `name` (trimmed), keeping its id and parts; a blank
    /// name changes nothing.
    Q_INVOKABLE void renameActive(const QString& name);
    /// Edits the part `region` (a stored name) of the active mix and browses the
    /// source of the kit it plays; anything else, or no active mix, stops editing.
    Q_INVOKABLE void editRegion(const QString& region);
    /// Browses another source; an unknown one changes nothing.
    Q_INVOKABLE void chooseSource(const QString& source);
    /// Gives the part being edited kit `id`, keeping its sound when the kit has one of
    /// that name, and previews it unless previews are off. An id no kit has does nothing.
    Q_INVOKABLE void chooseKit(const QString& id);
    /// Makes the part being edited use the kit's sound `key`, or with empty the sound
    /// the kit picks for each key, and previews it.
    Q_INVOKABLE void chooseSound(const QString& key);
    /// Puts the part being edited back on the main kit.
    Q_INVOKABLE void resetRegion();
    /// Puts every part of the active mix back on the main kit, keeping its id and name.
    Q_INVOKABLE void resetAll();
    /// Deletes the active mix; no mix plays afterwards.
    Q_INVOKABLE void deleteActive();

    /// Lists the kits the store holds now (after kits were added or removed).
    void kitsReloaded();

Q_SIGNALS:
    /// The saved mixes, their names or their summaries changed.
    void mixListChanged();
    /// The mixes or the active one changed.
    void mixesChanged();
    /// The part being edited or its voice changed.
    void editingChanged();
    /// The sources that can be browsed changed.
    void sourcesChanged();
    /// Another source is browsed.
    void sourceChanged();
    /// The kits of the source changed.
    void kitChoicesChanged();
    /// The sounds of the chosen kit changed.
    void soundChoicesChanged();

private:
    std::optional<SoundMix> active() const;
    std::optional<MixVoice> editingVoiceValue() const;
    QString voiceText(const std::optional<MixVoice>& voice) const;
    QString sourceOf(const QString& kitId) const;
    void refresh();
    void refreshSources();
    void refreshChoices();
    void seedStarter(const QString& mixId);
    void preview();

    SettingsStore& settings_;
    const SoundpackStore& packs_;
    SoundEngine* engine_;
    MixRegionListModel regions_;
    QVariantList keyboard_;
    QVariantList mixList_;
    std::optional<KeyGroup> editing_;
    QString shownActive_;
    QString source_;
    QVariantList sources_;
    QVariantList kitChoices_;
    QVariantList soundChoices_;
};

} // namespace tappix
