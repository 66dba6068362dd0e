#include "ui/mix_editor_model.h"

#include "audio/sound_engine.h"
#include "input/key_codes.h"
#include "kits/kit_catalog.h"
#include "kits/soundpack_store.h"
#include "settings/settings_store.h"

#include <QVariantMap>
#include <algorithm>

namespace tappix {

namespace {

QString toQString(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QString regionName(KeyGroup group) {
    return toQString(group.rawValue());
}

int assignedParts(const SoundMix& mix) {
    return static_cast<int>(
        std::count_if(mix.assignments.begin(), mix.assignments.end(), [](const auto& assignment) {
            return KeyGroup::fromRawValue(assignment.first.toStdString()) &&
                   !assignment.second.isEmpty();
        }));
}

// The key a part of the board is previewed with: the one heard most in it.
KeyCode previewKeyOf(KeyGroup group) {
    switch (group) {
    case KeyGroup::letters:
        return keys::j;
    case KeyGroup::space:
        return keys::space;
    case KeyGroup::enter:
        return keys::returnKey;
    case KeyGroup::backspace:
        return keys::backspace;
    case KeyGroup::modifier:
        return keys::shift;
    case KeyGroup::arrows:
        return keys::upArrow;
    case KeyGroup::functionRow:
        return keys::f5;
    case KeyGroup::numberRow:
        return keys::digit5;
    }
    return keys::j;
}

// One key of the drawn board; positions in key widths.
struct DrawnKey {
    KeyCode code;
    const char* label;
    double width = 1;
    double height = 1;
};

// A row of the drawn board, left to right from `x`; a key with no label and code -1
// is a gap.
struct DrawnRow {
    double y;
    std::vector<DrawnKey> keys;
};

constexpr KeyCode kGap = -1;

// A common 15-wide laptop board with the keys Linux names. Every key is drawn in the
// part of the board that really answers it, so Escape and Tab sit with the letters.
std::vector<DrawnRow> boardRows() {
    using namespace keys;
    const DrawnKey gap{kGap, "", 0.25};
    return {
        {0,
         {{escape, "Esc"},
          gap,
          {f1, "F1"},
          {f2, "F2"},
          {f3, "F3"},
          {f4, "F4"},
          gap,
          {f5, "F5"},
          {f6, "F6"},
          {f7, "F7"},
          {f8, "F8"},
          gap,
          {f9, "F9"},
          {f10, "F10"},
          {f11, "F11"},
          {f12, "F12"},
          gap,
          {forwardDelete, "Del"}}},
        {1,
         {{grave, "`"},
          {digit1, "1"},
          {digit2, "2"},
          {digit3, "3"},
          {digit4, "4"},
          {digit5, "5"},
          {digit6, "6"},
          {digit7, "7"},
          {digit8, "8"},
          {digit9, "9"},
          {digit0, "0"},
          {minus, "-"},
          {equal, "="},
          {backspace, "Backspace", 2}}},
        {2,
         {{tab, "Tab", 1.5},
          {q, "Q"},
          {w, "W"},
          {e, "E"},
          {r, "R"},
          {t, "T"},
          {y, "Y"},
          {u, "U"},
          {i, "I"},
          {o, "O"},
          {p, "P"},
          {leftBracket, "["},
          {rightBracket, "]"},
          {backslash, "\\", 1.5}}},
        {3,
         {{capsLock, "Caps", 1.75},
          {a, "A"},
          {s, "S"},
          {d, "D"},
          {f, "F"},
          {g, "G"},
          {h, "H"},
          {j, "J"},
          {k, "K"},
          {l, "L"},
          {semicolon, ";"},
          {quote, "'"},
          {returnKey, "Return", 2.25}}},
        {4,
         {{shift, "Shift", 2.25},
          {z, "Z"},
          {x, "X"},
          {c, "C"},
          {v, "V"},
          {b, "B"},
          {n, "N"},
          {m, "M"},
          {comma, ","},
          {period, "."},
          {slash, "/"},
          {rightShift, "Shift", 2.75}}},
        {5,
         {{control, "Ctrl", 1.25},
          {command, "Super", 1.25},
          {option, "Alt", 1.25},
          {space, "", 5.75},
          {rightOption, "Alt", 1.25},
          {rightControl, "Ctrl", 1.25},
          {leftArrow, "\u2190"},
          {upArrow, "\u2191", 1, 0.5},
          {rightArrow, "\u2192"}}},
    };
}

QVariantList drawnKeyboard() {
    QVariantList keys;
    for (const DrawnRow& row : boardRows()) {
        double x = 0;
        for (const DrawnKey& key : row.keys) {
            if (key.code != kGap) {
                keys.append(
                    QVariantMap{{QStringLiteral("code"), static_cast<qlonglong>(key.code)},
                                {QStringLiteral("label"), QString::fromUtf8(key.label)},
                                {QStringLiteral("region"), regionName(KeyGroup::of(key.code))},
                                {QStringLiteral("x"), x},
                                {QStringLiteral("y"), row.y},
                                {QStringLiteral("width"), key.width},
                                {QStringLiteral("height"), key.height}});
            }
            // The half-height Up key shares its column with Down, drawn under it.
            if (key.code == keys::upArrow) {
                keys.append(QVariantMap{
                    {QStringLiteral("code"), static_cast<qlonglong>(keys::downArrow)},
                    {QStringLiteral("label"), QStringLiteral("\u2193")},
                    {QStringLiteral("region"), regionName(KeyGroup::of(keys::downArrow))},
                    {QStringLiteral("x"), x},
                    {QStringLiteral("y"), row.y + 0.5},
                    {QStringLiteral("width"), 1.0},
                    {QStringLiteral("height"), 0.5}});
            }
            x += key.width;
        }
    }
    return keys;
}

QVariantMap choice(const QString& idKey, const QString& id, const QString& titleKey,
                   const QString& title) {
    return {{idKey, id}, {titleKey, title}};
}

bool isKeyboardKit(const Soundpack& pack) {
    return pack.config.metadata.category != "mouse" &&
           KitCatalog::family(pack) != KitCatalog::Family::mouse;
}

} // namespace

MixEditorModel::MixEditorModel(SettingsStore& settings, const SoundpackStore& packs,
                               SoundEngine* engine, QObject* parent)
    : QObject(parent), settings_(settings), packs_(packs), engine_(engine),
      keyboard_(drawnKeyboard()), source_(kMainSource) {
    connect(&settings_, &SettingsStore::tappixMixChanged, this, &MixEditorModel::refresh);
    connect(&settings_, &SettingsStore::selectedPackIdChanged, this, &MixEditorModel::refresh);
    refresh();
}

bool MixEditorModel::hasMixes() const {
    return !settings_.mixes().empty();
}

QString MixEditorModel::activeMixId() const {
    const auto mix = active();
    return mix ? mix->id : QString();
}

QString MixEditorModel::activeName() const {
    const auto mix = active();
    return mix ? mix->name : QString();
}

int MixEditorModel::changedParts() const {
    const auto mix = active();
    return mix ? assignedParts(*mix) : 0;
}

QString MixEditorModel::stateTitle() const {
    return hasMixes() ? QString() : QStringLiteral("Mix kits across the board");
}

QString MixEditorModel::stateText() const {
    if (!hasMixes())
        return QStringLiteral("Set up a mix to start: new mixes begin with every key on the "
                              "main kit, and you choose which parts sound different.");
    if (!active())
        return QStringLiteral("No mix is playing, so every key is on the main kit. Pick one "
                              "above to put it back on the board.");
    if (changedParts() == 0)
        return QStringLiteral("Nothing yet — click a key above to give it its own sound.");
    return {};
}

QString MixEditorModel::suggestedName() const {
    const auto taken = [this](const QString& name) {
        return std::any_of(settings_.mixes().begin(), settings_.mixes().end(),
                           [&](const SoundMix& mix) { return mix.name == name; });
    };
    QString name = QStringLiteral("Mix");
    for (int n = 2; taken(name); ++n)
        name = QStringLiteral("Mix %1").arg(n);
    return name;
}

QStringList MixEditorModel::litRegions() const {
    QStringList lit;
    for (const MixRegionListModel::Row& row : regions_.rows())
        if (row.lit)
            lit << row.region;
    return lit;
}

QString MixEditorModel::editing() const {
    return editing_ ? regionName(*editing_) : QString();
}

QString MixEditorModel::editingLabel() const {
    return editing_ ? regionLabel(*editing_) : QString();
}

QString MixEditorModel::editingVoice() const {
    return editing_ ? voiceText(editingVoiceValue()) : QString();
}

bool MixEditorModel::editingLit() const {
    return editingVoiceValue().has_value();
}

QString MixEditorModel::chosenKit() const {
    if (!editing_)
        return {};
    const auto voice = editingVoiceValue();
    return voice && voice->packId ? *voice->packId : settings_.selectedPackIdText();
}

QString MixEditorModel::chosenSound() const {
    const auto voice = editingVoiceValue();
    return voice && voice->sound ? *voice->sound : QString();
}

QString MixEditorModel::summary(const SoundMix& mix) {
    const int parts = assignedParts(mix);
    if (parts == 0)
        return QStringLiteral("all on the main kit");
    return QStringLiteral("%1 of %2 changed").arg(parts).arg(kParts);
}

QString MixEditorModel::regionLabel(KeyGroup group) {
    switch (group) {
    case KeyGroup::letters:
        return QStringLiteral("Letters & symbols");
    case KeyGroup::space:
        return QStringLiteral("Space");
    case KeyGroup::enter:
        return QStringLiteral("Return");
    case KeyGroup::backspace:
        return QStringLiteral("Backspace");
    case KeyGroup::modifier:
        return QStringLiteral("Modifiers");
    case KeyGroup::arrows:
        return QStringLiteral("Arrow keys");
    case KeyGroup::functionRow:
        return QStringLiteral("Function row");
    case KeyGroup::numberRow:
        return QStringLiteral("Number row");
    }
    return {};
}

void MixEditorModel::selectMix(const QString& id) {
    settings_.setActiveMix(id.isEmpty() ? std::nullopt : std::optional<QString>(id));
}

void MixEditorModel::createMix(const QString& name) {
    const QString trimmed = name.trimmed();
    if (trimmed.isEmpty())
        return;
    const bool first = settings_.mixes().empty();
    const SoundMix mix = settings_.createMix(trimmed);
    if (first)
        seedStarter(mix.id);
}

void MixEditorModel::renameActive(const QString& name) {
    const QString trimmed = name.trimmed();
    auto mix = active();
    if (trimmed.isEmpty() || !mix || mix->name == trimmed)
        return;
    mix->name = trimmed;
    settings_.updateMix(*mix);
}

void MixEditorModel::editRegion(const QString& region) {
    const auto group = KeyGroup::fromRawValue(region.toStdString());
    editing_ = active() ? group : std::nullopt;
    if (editing_) {
        const auto voice = editingVoiceValue();
        source_ = voice && voice->packId ? sourceOf(*voice->packId) : kMainSource;
    }
    refresh();
}

void MixEditorModel::chooseSource(const QString& source) {
    const bool known = std::any_of(sources_.begin(), sources_.end(), [&](const QVariant& entry) {
        return entry.toMap().value(QStringLiteral("id")).toString() == source;
    });
    if (!known)
        return;
    // Browsing lists the kits as they are now, so kits made since show up.
    source_ = source;
    refresh();
}

void MixEditorModel::chooseKit(const QString& id) {
    const auto mix = active();
    const Soundpack* pack = packs_.find(id.toStdString());
    if (!editing_ || !mix || !pack)
        return;
    MixVoice voice{id, std::nullopt};
    // A named sound carries over to a kit that has one of that name.
    if (const auto previous = editingVoiceValue(); previous && previous->sound) {
        const auto keys = pack->config.orderedSoundKeys();
        if (std::find(keys.begin(), keys.end(), previous->sound->toStdString()) != keys.end())
            voice.sound = previous->sound;
    }
    settings_.setVoice(voice, *editing_, mix->id);
    if (!settings_.switchPreviewDisabled())
        preview();
}

void MixEditorModel::chooseSound(const QString& key) {
    const auto mix = active();
    if (!editing_ || !mix)
        return;
    MixVoice voice = editingVoiceValue().value_or(MixVoice{});
    voice.sound = key.isEmpty() ? std::nullopt : std::optional<QString>(key);
    settings_.setVoice(voice.isEmpty() ? std::nullopt : std::optional<MixVoice>(voice), *editing_,
                       mix->id);
    preview();
}

void MixEditorModel::resetRegion() {
    const auto mix = active();
    if (!editing_ || !mix)
        return;
    settings_.setVoice(std::nullopt, *editing_, mix->id);
}

void MixEditorModel::resetAll() {
    auto mix = active();
    if (!mix || mix->assignments.empty())
        return;
    mix->assignments.clear();
    settings_.updateMix(*mix);
}

void MixEditorModel::deleteActive() {
    if (const auto mix = active())
        settings_.deleteMix(mix->id);
}

std::optional<SoundMix> MixEditorModel::active() const {
    return settings_.activeMix();
}

std::optional<MixVoice> MixEditorModel::editingVoiceValue() const {
    const auto mix = active();
    if (!editing_ || !mix)
        return std::nullopt;
    const auto it = mix->assignments.find(regionName(*editing_));
    if (it == mix->assignments.end() || it->second.isEmpty())
        return std::nullopt;
    return it->second;
}

QString MixEditorModel::voiceText(const std::optional<MixVoice>& voice) const {
    if (!voice)
        return QStringLiteral("Main kit");
    const QString kitId = voice->packId.value_or(settings_.selectedPackIdText());
    const Soundpack* pack = packs_.find(kitId.toStdString());
    QString text = !voice->packId ? QStringLiteral("Main kit")
                   : pack         ? QString::fromStdString(pack->config.metadata.name)
                                  : QStringLiteral("A missing kit");
    if (voice->sound) {
        const QString label = pack ? QString::fromStdString(KitCatalog::soundLabel(
                                         pack->config, voice->sound->toStdString()))
                                   : *voice->sound;
        text += QStringLiteral(" · ") + label;
    }
    return text;
}

QString MixEditorModel::sourceOf(const QString& kitId) const {
    const Soundpack* pack = packs_.find(kitId.toStdString());
    if (!pack)
        return kMainSource;
    if (pack->isUserPack)
        return kYoursSource;
    if (const auto family = KitCatalog::family(*pack))
        return toQString(KitCatalog::rawValue(*family));
    return kMoreSource;
}

void MixEditorModel::refresh() {
    QVariantList mixList;
    for (const SoundMix& mix : settings_.mixes())
        mixList.append(QVariantMap{{QStringLiteral("mixId"), mix.id},
                                   {QStringLiteral("name"), mix.name},
                                   {QStringLiteral("summary"), summary(mix)}});
    if (mixList != mixList_) {
        mixList_ = mixList;
        Q_EMIT mixListChanged();
    }

    // Another mix, or none, ends the edit of a part of the one before.
    const QString activeId = activeMixId();
    if (activeId != shownActive_ || activeId.isEmpty())
        editing_.reset();
    shownActive_ = activeId;

    const auto mix = active();
    std::vector<MixRegionListModel::Row> rows;
    for (KeyGroup::Value value : KeyGroup::allCases) {
        const KeyGroup group(value);
        std::optional<MixVoice> voice;
        if (mix)
            if (const auto it = mix->assignments.find(regionName(group));
                it != mix->assignments.end() && !it->second.isEmpty())
                voice = it->second;
        rows.push_back({regionName(group), regionLabel(group), voice.has_value(), editing_ == group,
                        voiceText(voice)});
    }
    regions_.update(rows);

    Q_EMIT mixesChanged();
    Q_EMIT editingChanged();
    refreshSources();
    refreshChoices();
}

void MixEditorModel::kitsReloaded() {
    refreshSources();
    refreshChoices();
}

void MixEditorModel::refreshSources() {
    const auto& packs = packs_.packs();
    QVariantList sources;
    const QString idKey = QStringLiteral("id");
    const QString titleKey = QStringLiteral("title");
    for (KitCatalog::Family family : KitCatalog::kFamilies) {
        const auto kits = KitCatalog::kits(packs, family);
        if (std::any_of(kits.begin(), kits.end(), [](const Soundpack* pack) {
                return !pack->isUserPack && isKeyboardKit(*pack);
            }))
            sources.append(choice(idKey, toQString(KitCatalog::rawValue(family)), titleKey,
                                  QString::fromStdString(KitCatalog::title(family))));
    }
    if (std::any_of(packs.begin(), packs.end(), [](const Soundpack& pack) {
            return !pack.isUserPack && isKeyboardKit(pack) && !KitCatalog::family(pack);
        }))
        sources.append(choice(idKey, kMoreSource, titleKey, QStringLiteral("More")));
    sources.append(choice(idKey, kMainSource, titleKey, QStringLiteral("Main kit")));
    sources.append(choice(idKey, kYoursSource, titleKey, QStringLiteral("YOURS")));

    const bool known = std::any_of(sources.begin(), sources.end(), [&](const QVariant& entry) {
        return entry.toMap().value(idKey).toString() == source_;
    });
    if (!known)
        source_ = kMainSource;
    if (sources != sources_) {
        sources_ = sources;
        Q_EMIT sourcesChanged();
    }
    Q_EMIT sourceChanged();
}

void MixEditorModel::refreshChoices() {
    const auto& packs = packs_.packs();
    std::vector<const Soundpack*> listed;
    if (source_ == kMainSource) {
        if (const Soundpack* main = packs_.find(settings_.selectedPackIdText().toStdString()))
            listed.push_back(main);
    } else if (source_ == kYoursSource || source_ == kMoreSource) {
        const bool yours = source_ == kYoursSource;
        for (const Soundpack& pack : packs)
            if (pack.isUserPack == yours && isKeyboardKit(pack) &&
                (yours || !KitCatalog::family(pack)))
                listed.push_back(&pack);
        std::stable_sort(listed.begin(), listed.end(), [](const Soundpack* a, const Soundpack* b) {
            return KitCatalog::listsBefore(*a, *b);
        });
    } else if (const auto family = KitCatalog::familyFrom(source_.toStdString())) {
        for (const Soundpack* pack : KitCatalog::kits(packs, *family))
            if (!pack->isUserPack && isKeyboardKit(*pack))
                listed.push_back(pack);
    }
    QVariantList kits;
    for (const Soundpack* pack : listed) {
        const auto blurb = KitCatalog::blurb(*pack);
        kits.append(QVariantMap{
            {QStringLiteral("kitId"), QString::fromStdString(pack->config.id)},
            {QStringLiteral("name"), QString::fromStdString(pack->config.metadata.name)},
            {QStringLiteral("blurb"), blurb ? QString::fromStdString(*blurb) : QString()}});
    }
    if (kits != kitChoices_) {
        kitChoices_ = kits;
        Q_EMIT kitChoicesChanged();
    }

    // The sounds a kit has for whole groups of keys, as against one key's own.
    static constexpr std::array<std::string_view, 6> kGeneralSounds{
        "default", "alpha", "space", "enter", "backspace", "modifier"};
    QVariantList sounds{QVariantMap{{QStringLiteral("key"), QString()},
                                    {QStringLiteral("label"), QStringLiteral("Auto")},
                                    {QStringLiteral("general"), true}}};
    if (editing_)
        if (const Soundpack* pack = packs_.find(chosenKit().toStdString()))
            for (const std::string& key : pack->config.orderedSoundKeys())
                sounds.append(
                    QVariantMap{{QStringLiteral("key"), QString::fromStdString(key)},
                                {QStringLiteral("label"),
                                 QString::fromStdString(KitCatalog::soundLabel(pack->config, key))},
                                {QStringLiteral("general"),
                                 std::find(kGeneralSounds.begin(), kGeneralSounds.end(), key) !=
                                     kGeneralSounds.end()}});
    if (sounds != soundChoices_) {
        soundChoices_ = sounds;
        Q_EMIT soundChoicesChanged();
    }
}

void MixEditorModel::seedStarter(const QString& mixId) {
    const auto installed = [this](std::string_view id) {
        const Soundpack* pack = packs_.find(id);
        return pack && !pack->isUserPack;
    };
    const auto returnKit = std::find_if(kStarterKits.begin(), kStarterKits.end(), installed);
    if (returnKit == kStarterKits.end())
        return;
    const QString mainKit = settings_.selectedPackIdText();
    const auto spaceKit =
        std::find_if(kStarterKits.begin(), kStarterKits.end(), [&](std::string_view id) {
            return id != *returnKit && toQString(id) != mainKit && installed(id);
        });
    auto mix = settings_.activeMix();
    if (!mix || mix->id != mixId)
        return;
    mix->assignments[regionName(KeyGroup::enter)] =
        MixVoice{toQString(*returnKit), toQString(kStarterReturnSound)};
    if (spaceKit != kStarterKits.end())
        mix->assignments[regionName(KeyGroup::space)] =
            MixVoice{toQString(*spaceKit), std::nullopt};
    settings_.updateMix(*mix);
}

void MixEditorModel::preview() {
    if (engine_ && editing_)
        engine_->previewKey(previewKeyOf(*editing_));
}

} // namespace tappix
