#include "settings/settings_store.h"

#include "core/json_util.h"
#include "core/log.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <algorithm>
#include <cmath>
#include <limits>

namespace tappix {
namespace {

// Every setting: kind, property name, capitalised name, default. The preferences
// key of each setting is its property name.
#define TAPPIX_SETTINGS(X)                                                                         \
    X(BOOL, showMenuBarIcon, ShowMenuBarIcon, true)                                                \
    X(BOOL, menuIconDimDisabled, MenuIconDimDisabled, false)                                       \
    X(BOOL, switchPreviewDisabled, SwitchPreviewDisabled, false)                                   \
    X(BOOL, clickTogglesSound, ClickTogglesSound, false)                                           \
    X(STRING, lastSettingsPage, LastSettingsPage, QStringLiteral("sound"))                         \
    X(BOOL, hasSeenWelcome, HasSeenWelcome, false)                                                 \
    X(BOOL, isEnabled, IsEnabled, true)                                                            \
    X(FLOAT, volume, Volume, 0.6f)                                                                 \
    X(OPTIONAL_STRING, outputDeviceUID, OutputDeviceUID, std::nullopt)                             \
    X(OPTIONAL_STRING, selectedPackId, SelectedPackId, std::nullopt)                               \
    X(BOOL, stereoPanning, StereoPanning, true)                                                    \
    X(BOOL, spatialAudio, SpatialAudio, false)                                                     \
    X(BOOL, pitchVariation, PitchVariation, true)                                                  \
    X(BOOL, ignoreRapidKeys, IgnoreRapidKeys, false)                                               \
    X(BOOL, modifierSoundsEnabled, ModifierSoundsEnabled, true)                                    \
    X(BOOL, keyUpSoundsEnabled, KeyUpSoundsEnabled, true)                                          \
    X(FLOAT, tonePitch, TonePitch, 1.0f)                                                           \
    X(FLOAT, toneBrightness, ToneBrightness, 1.0f)                                                 \
    X(FLOAT, effectsVolume, EffectsVolume, 1.0f)                                                   \
    X(BOOL, mouseClickSounds, MouseClickSounds, false)                                             \
    X(STRING, mouseSoundId, MouseSoundId, QStringLiteral("synth-soft"))                            \
    X(BOOL, dingOnReturn, DingOnReturn, false)                                                     \
    X(BOOL, sleepEnabled, SleepEnabled, false)                                                     \
    X(FLOAT, sleepVolume, SleepVolume, 0.0f)                                                       \
    X(BOOL, sleepTriggerMicrophone, SleepTriggerMicrophone, false)                                 \
    X(BOOL, sleepTriggerCamera, SleepTriggerCamera, false)                                         \
    X(BOOL, sleepTriggerHeadphones, SleepTriggerHeadphones, false)                                 \
    X(BOOL, sleepTriggerSpeakers, SleepTriggerSpeakers, false)                                     \
    X(BOOL, sleepTriggerFullScreen, SleepTriggerFullScreen, false)                                 \
    X(BOOL, sleepTriggerApps, SleepTriggerApps, false)                                             \
    X(STRING_LIST, sleepAppIds, SleepAppIds, QStringList())                                        \
    X(BOOL, visualizerEnabled, VisualizerEnabled, false)                                           \
    X(BOOL, visualizerShortcutsOnly, VisualizerShortcutsOnly, false)                               \
    X(STRING, visualizerSize, VisualizerSize, QStringLiteral("medium"))                            \
    X(STRING, visualizerPosition, VisualizerPosition, QStringLiteral("bottomCenter"))              \
    X(BOOL, notificationsEnabled, NotificationsEnabled, false)                                     \
    X(BOOL, statsEnabled, StatsEnabled, true)                                                      \
    X(STRING, toggleSoundsShortcut, ToggleSoundsShortcut, QStringLiteral("Ctrl+Super+K"))          \
    X(BOOL, automaticUpdateChecks, AutomaticUpdateChecks, true)

QJsonValue toJson(bool value) {
    return value;
}
QJsonValue toJson(float value) {
    return jsonFloat(value);
}
QJsonValue toJson(const QString& value) {
    return value;
}
QJsonValue toJson(const QStringList& value) {
    return QJsonArray::fromStringList(value);
}
QJsonValue toJson(const std::optional<QString>& value) {
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Undefined);
}

// A stored value of the wrong type is ignored (not removed) and the default used.
bool readBOOL(const QJsonValue& stored, bool fallback) {
    return stored.isBool() ? stored.toBool() : fallback;
}
float readFLOAT(const QJsonValue& stored, float fallback) {
    const float value = stored.isDouble() ? static_cast<float>(stored.toDouble()) : fallback;
    return std::isfinite(value) ? value : fallback;
}
QString readSTRING(const QJsonValue& stored, const QString& fallback) {
    return stored.isString() ? stored.toString() : fallback;
}
// A list keeps its strings; anything else in it is dropped, the rest kept.
QStringList readSTRING_LIST(const QJsonValue& stored, const QStringList& fallback) {
    if (!stored.isArray())
        return fallback;
    QStringList out;
    for (const QJsonValue& item : stored.toArray())
        if (item.isString() && !item.toString().isEmpty() && !out.contains(item.toString()))
            out.append(item.toString());
    return out;
}
std::optional<QString> readOPTIONAL_STRING(const QJsonValue& stored, std::nullopt_t) {
    if (stored.isString())
        return stored.toString();
    return std::nullopt;
}

// Only finite numbers are stored: a NaN or infinity would be written as null and the
// next start would drop the setting, or a whole stored object around it.
bool storable(bool) {
    return true;
}
bool storable(float value) {
    return std::isfinite(value);
}
bool storable(const QString&) {
    return true;
}
bool storable(const QStringList&) {
    return true;
}
bool storable(const std::optional<QString>&) {
    return true;
}

std::int64_t readCounter(const QJsonValue& stored) {
    return stored.isDouble() ? stored.toInteger(0) : 0;
}
double readDoubleCounter(const QJsonValue& stored) {
    return stored.isDouble() ? stored.toDouble() : 0.0;
}

const QString kSoundMixesKey = QStringLiteral("soundMixes");
const QString kActiveMixIdKey = QStringLiteral("activeMixId");
const QString kPackTuningsKey = QStringLiteral("packTunings");

/// The id a new mix gets from its trimmed name.
QString slugFor(const QString& name) {
    static const QRegularExpression kNonSlug(QStringLiteral("[^a-z0-9]+"));
    QString slug = name.toLower();
    slug.replace(kNonSlug, QStringLiteral("-"));
    while (slug.startsWith(QLatin1Char('-')))
        slug.remove(0, 1);
    while (slug.endsWith(QLatin1Char('-')))
        slug.chop(1);
    return slug.isEmpty() ? QStringLiteral("mix") : slug;
}

/// The key a region's voice is stored under in a mix.
QString assignmentKey(KeyGroup group) {
    const std::string_view raw = group.rawValue();
    return QString::fromLatin1(raw.data(), static_cast<qsizetype>(raw.size()));
}

/// Trims spaces and tabs (not line breaks) from both ends.
QString trimSpacesAndTabs(const QString& text) {
    qsizetype begin = 0;
    qsizetype end = text.size();
    auto blank = [](QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t'); };
    while (begin < end && blank(text[begin]))
        ++begin;
    while (end > begin && blank(text[end - 1]))
        --end;
    return text.mid(begin, end - begin);
}

} // namespace

SettingsStore::SettingsStore(Preferences& preferences, Scheduler& scheduler, QObject* parent)
    : QObject(parent), preferences_(preferences), scheduler_(scheduler) {
    load();
}

SettingsStore::~SettingsStore() {
    if (statsFlushWork_ != 0) {
        scheduler_.cancel(statsFlushWork_);
        statsFlushWork_ = 0;
        flushStats();
    }
    preferences_.sync();
}

void SettingsStore::load() {
    isLoading_ = true;
#define TAPPIX_LOAD(kind, name, Name, fallback)                                                    \
    set##Name(read##kind(preferences_.value(QStringLiteral(#name)), fallback));
    TAPPIX_SETTINGS(TAPPIX_LOAD)
#undef TAPPIX_LOAD

    keystrokeCount_ = readCounter(preferences_.value(QStringLiteral("keystrokeCount")));
    dingCount_ = readCounter(preferences_.value(QStringLiteral("dingCount")));
    clickCount_ = readCounter(preferences_.value(QStringLiteral("clickCount")));
    bestWPM_ = readDoubleCounter(preferences_.value(QStringLiteral("bestWPM")));
    productiveKeys_ = readCounter(preferences_.value(QStringLiteral("productiveKeys")));
    corrections_ = readCounter(preferences_.value(QStringLiteral("corrections")));
    typingSeconds_ = readDoubleCounter(preferences_.value(QStringLiteral("typingSeconds")));

    // Undecodable mixes or tunings load as none; the next save of that kind replaces them.
    if (preferences_.contains(kPackTuningsKey)) {
        const QJsonValue stored = preferences_.value(kPackTuningsKey);
        std::map<QString, PackTuning> decoded;
        bool ok = stored.isObject();
        const QJsonObject object = stored.toObject();
        for (auto it = object.begin(); ok && it != object.end(); ++it) {
            auto tuning = PackTuning::fromJson(it.value());
            ok = tuning.has_value();
            if (ok)
                decoded.emplace(it.key(), *tuning);
        }
        if (ok)
            tunings_ = std::move(decoded);
        else
            qCInfo(lcSettings, "stored pack tunings do not decode; starting with none");
    }
    if (preferences_.contains(kSoundMixesKey)) {
        if (auto decoded = SoundMix::fromJsonArray(preferences_.value(kSoundMixesKey)))
            mixes_ = std::move(*decoded);
        else
            qCInfo(lcSettings, "stored mixes do not decode; starting with none");
    }
    const QJsonValue active = preferences_.value(kActiveMixIdKey);
    if (active.isString()) {
        const QString id = active.toString();
        if (std::any_of(mixes_.begin(), mixes_.end(),
                        [&](const SoundMix& m) { return m.id == id; }))
            activeMixId_ = id;
    }
    isLoading_ = false;
}

void SettingsStore::writeBack(const QString& key, const QJsonValue& value) {
    if (isLoading_)
        return;
    preferences_.setValue(key, value);
    Q_EMIT tappixSettingsChanged();
}

#define TAPPIX_SETTER(kind, name, Name, fallback)                                                  \
    void SettingsStore::set##Name(decltype(name##_) value) {                                       \
        if (!storable(value)) {                                                                    \
            qCWarning(lcApp, "refusing a value that is not a number for %s", #name);               \
            return;                                                                                \
        }                                                                                          \
        const bool changed = name##_ != value;                                                     \
        name##_ = std::move(value);                                                                \
        if (changed)                                                                               \
            Q_EMIT name##Changed();                                                                \
        writeBack(QStringLiteral(#name), toJson(name##_));                                         \
    }
TAPPIX_SETTINGS(TAPPIX_SETTER)
#undef TAPPIX_SETTER

void SettingsStore::setOutputDeviceUIDText(const QString& value) {
    setOutputDeviceUID(value.isEmpty() ? std::nullopt : std::optional<QString>(value));
}

void SettingsStore::setSelectedPackIdText(const QString& value) {
    setSelectedPackId(value.isEmpty() ? std::nullopt : std::optional<QString>(value));
}

double SettingsStore::averageWPM() const {
    if (typingSeconds_ <= 5.0)
        return 0.0;
    return (static_cast<double>(productiveKeys_) / 5.0) / (typingSeconds_ / 60.0);
}

double SettingsStore::accuracy() const {
    const double total = static_cast<double>(productiveKeys_) + static_cast<double>(corrections_);
    if (total < 1.0)
        return 1.0;
    return static_cast<double>(productiveKeys_) / total;
}

void SettingsStore::increment(std::int64_t& counter) {
    if (!statsEnabled_)
        return;
    // Saturate rather than wrap: a counter that has reached the limit stays there.
    if (counter < std::numeric_limits<std::int64_t>::max())
        ++counter;
    Q_EMIT statsChanged();
    scheduleFlush();
}

void SettingsStore::incrementKeystrokes() {
    increment(keystrokeCount_);
}
void SettingsStore::incrementDings() {
    increment(dingCount_);
}
void SettingsStore::incrementClicks() {
    increment(clickCount_);
}
void SettingsStore::incrementProductiveKeys() {
    increment(productiveKeys_);
}
void SettingsStore::incrementCorrections() {
    increment(corrections_);
}

void SettingsStore::addTypingSeconds(double seconds) {
    if (!statsEnabled_ || !std::isfinite(seconds) || seconds <= 0.0)
        return;
    typingSeconds_ += seconds;
    Q_EMIT statsChanged();
}

void SettingsStore::recordWPM(double wpm) {
    if (!statsEnabled_ || !std::isfinite(wpm) || !(wpm > bestWPM_))
        return;
    bestWPM_ = wpm;
    Q_EMIT statsChanged();
    scheduleFlush();
}

void SettingsStore::resetStats() {
    keystrokeCount_ = dingCount_ = clickCount_ = productiveKeys_ = corrections_ = 0;
    bestWPM_ = typingSeconds_ = 0.0;
    if (statsFlushWork_ != 0) {
        scheduler_.cancel(statsFlushWork_);
        statsFlushWork_ = 0;
    }
    Q_EMIT statsChanged();
    flushStats();
}

void SettingsStore::flushStats() {
    preferences_.setValue(QStringLiteral("keystrokeCount"), qint64(keystrokeCount_));
    preferences_.setValue(QStringLiteral("dingCount"), qint64(dingCount_));
    preferences_.setValue(QStringLiteral("clickCount"), qint64(clickCount_));
    preferences_.setValue(QStringLiteral("bestWPM"), bestWPM_);
    preferences_.setValue(QStringLiteral("productiveKeys"), qint64(productiveKeys_));
    preferences_.setValue(QStringLiteral("corrections"), qint64(corrections_));
    preferences_.setValue(QStringLiteral("typingSeconds"), typingSeconds_);
}

void SettingsStore::scheduleFlush() {
    if (statsFlushWork_ != 0)
        scheduler_.cancel(statsFlushWork_);
    // The scheduler belongs to the application and may outlive the store; the
    // destructor cancels this task, so `this` is valid whenever it runs.
    statsFlushWork_ = scheduler_.schedule(kStatsFlushDelay, [this] {
        statsFlushWork_ = 0;
        flushStats();
    });
}

std::optional<SoundMix> SettingsStore::activeMix() const {
    if (!activeMixId_)
        return std::nullopt;
    for (const SoundMix& mix : mixes_) {
        if (mix.id == *activeMixId_)
            return mix;
    }
    return std::nullopt;
}

std::optional<MixVoice> SettingsStore::voice(KeyGroup group) const {
    if (!activeMixId_)
        return std::nullopt;
    const QString key = assignmentKey(group);
    for (const SoundMix& mix : mixes_) {
        if (mix.id != *activeMixId_)
            continue;
        if (auto it = mix.assignments.find(key); it != mix.assignments.end())
            return it->second;
        return std::nullopt;
    }
    return std::nullopt;
}

SoundMix SettingsStore::createMix(const QString& name) {
    QString trimmed = trimSpacesAndTabs(name);
    if (trimmed.isEmpty())
        trimmed = QStringLiteral("Mix");
    const QString slug = slugFor(trimmed);
    auto taken = [this](const QString& id) {
        return std::any_of(mixes_.begin(), mixes_.end(),
                           [&](const SoundMix& m) { return m.id == id; });
    };
    QString id = slug;
    for (int n = 2; taken(id); ++n)
        id = slug + QLatin1Char('-') + QString::number(n);

    SoundMix mix{id, trimmed, {}};
    mixes_.push_back(mix);
    activeMixId_ = id;
    saveMixes();
    return mix;
}

void SettingsStore::updateMix(const SoundMix& mix) {
    auto it = std::find_if(mixes_.begin(), mixes_.end(),
                           [&](const SoundMix& m) { return m.id == mix.id; });
    if (it == mixes_.end())
        return;
    *it = mix;
    saveMixes();
}

void SettingsStore::setVoice(const std::optional<MixVoice>& voice, KeyGroup group,
                             const QString& mixId) {
    auto it = std::find_if(mixes_.begin(), mixes_.end(),
                           [&](const SoundMix& m) { return m.id == mixId; });
    if (it == mixes_.end())
        return;
    const QString key = assignmentKey(group);
    if (voice && !voice->isEmpty())
        it->assignments[key] = *voice;
    else
        it->assignments.erase(key);
    saveMixes();
}

void SettingsStore::deleteMix(const QString& id) {
    std::erase_if(mixes_, [&](const SoundMix& m) { return m.id == id; });
    if (activeMixId_ == id)
        activeMixId_.reset();
    saveMixes();
}

void SettingsStore::setActiveMix(const std::optional<QString>& id) {
    if (id &&
        std::none_of(mixes_.begin(), mixes_.end(), [&](const SoundMix& m) { return m.id == *id; }))
        return;
    activeMixId_ = id;
    saveMixes();
}

PackTuning SettingsStore::tuning(const QString& packId) const {
    if (auto it = tunings_.find(packId); it != tunings_.end())
        return it->second;
    return PackTuning{};
}

void SettingsStore::setTuning(const QString& packId, const PackTuning& tuning) {
    if (!std::isfinite(tuning.pitch) || !std::isfinite(tuning.gain) ||
        !std::isfinite(tuning.variation) || !std::isfinite(tuning.panWidth)) {
        qCWarning(lcApp, "refusing a tuning for %s with a value that is not a number",
                  qPrintable(packId));
        return;
    }
    tunings_[packId] = tuning;
    QJsonObject object;
    for (const auto& [id, stored] : tunings_)
        object.insert(id, stored.toJson());
    preferences_.setValue(kPackTuningsKey, object);
    Q_EMIT tappixSettingsChanged();
}

void SettingsStore::saveMixes() {
    preferences_.setValue(kSoundMixesKey, SoundMix::toJsonArray(mixes_));
    if (activeMixId_)
        preferences_.setValue(kActiveMixIdKey, *activeMixId_);
    else
        preferences_.remove(kActiveMixIdKey);
    Q_EMIT tappixMixChanged();
    Q_EMIT tappixSettingsChanged();
}

} // namespace tappix
