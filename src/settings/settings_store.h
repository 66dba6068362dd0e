#pragma once

#include "core/scheduler.h"
#include "input/key_group.h"
#include "settings/pack_tuning.h"
#include "settings/preferences.h"
#include "settings/sound_mix.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace tappix {

/// The single owner of every persisted setting, the lifetime counters, the mixes and
/// the per-kit tunings.
///
/// Every setting is a Qt property whose preferences key is its name. Assigning one
/// stores it, writes it back and emits `tappixSettingsChanged` once (never while loading).
/// Counters stay in memory and are written together ten seconds after the last counted
/// event, or at once by `flushStats`. Mix edits emit `tappixMixChanged` then
/// `tappixSettingsChanged`. Main thread only: other threads hop to it before counting.
class SettingsStore final : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool showMenuBarIcon READ showMenuBarIcon WRITE setShowMenuBarIcon NOTIFY
                   showMenuBarIconChanged)
    Q_PROPERTY(bool menuIconDimDisabled READ menuIconDimDisabled WRITE setMenuIconDimDisabled NOTIFY
                   menuIconDimDisabledChanged)
    Q_PROPERTY(bool switchPreviewDisabled READ switchPreviewDisabled WRITE setSwitchPreviewDisabled
                   NOTIFY switchPreviewDisabledChanged)
    Q_PROPERTY(bool clickTogglesSound READ clickTogglesSound WRITE setClickTogglesSound NOTIFY
                   clickTogglesSoundChanged)
    Q_PROPERTY(QString lastSettingsPage READ lastSettingsPage WRITE setLastSettingsPage NOTIFY
                   lastSettingsPageChanged)
    Q_PROPERTY(bool hasSeenWelcome READ hasSeenWelcome WRITE setHasSeenWelcome NOTIFY
                   hasSeenWelcomeChanged)
    Q_PROPERTY(bool isEnabled READ isEnabled WRITE setIsEnabled NOTIFY isEnabledChanged)
    Q_PROPERTY(float volume READ volume WRITE setVolume NOTIFY volumeChanged)
    Q_PROPERTY(QString outputDeviceUID READ outputDeviceUIDText WRITE setOutputDeviceUIDText NOTIFY
                   outputDeviceUIDChanged)
    Q_PROPERTY(QString selectedPackId READ selectedPackIdText WRITE setSelectedPackIdText NOTIFY
                   selectedPackIdChanged)
    Q_PROPERTY(
        bool stereoPanning READ stereoPanning WRITE setStereoPanning NOTIFY stereoPanningChanged)
    Q_PROPERTY(bool spatialAudio READ spatialAudio WRITE setSpatialAudio NOTIFY spatialAudioChanged)
    Q_PROPERTY(bool pitchVariation READ pitchVariation WRITE setPitchVariation NOTIFY
                   pitchVariationChanged)
    Q_PROPERTY(bool ignoreRapidKeys READ ignoreRapidKeys WRITE setIgnoreRapidKeys NOTIFY
                   ignoreRapidKeysChanged)
    Q_PROPERTY(bool modifierSoundsEnabled READ modifierSoundsEnabled WRITE setModifierSoundsEnabled
                   NOTIFY modifierSoundsEnabledChanged)
    Q_PROPERTY(bool keyUpSoundsEnabled READ keyUpSoundsEnabled WRITE setKeyUpSoundsEnabled NOTIFY
                   keyUpSoundsEnabledChanged)
    Q_PROPERTY(float tonePitch READ tonePitch WRITE setTonePitch NOTIFY tonePitchChanged)
    Q_PROPERTY(float toneBrightness READ toneBrightness WRITE setToneBrightness NOTIFY
                   toneBrightnessChanged)
    Q_PROPERTY(
        float effectsVolume READ effectsVolume WRITE setEffectsVolume NOTIFY effectsVolumeChanged)
    Q_PROPERTY(bool mouseClickSounds READ mouseClickSounds WRITE setMouseClickSounds NOTIFY
                   mouseClickSoundsChanged)
    Q_PROPERTY(
        QString mouseSoundId READ mouseSoundId WRITE setMouseSoundId NOTIFY mouseSoundIdChanged)
    Q_PROPERTY(QString toggleSoundsShortcut READ toggleSoundsShortcut WRITE setToggleSoundsShortcut
                   NOTIFY toggleSoundsShortcutChanged)
    Q_PROPERTY(bool automaticUpdateChecks READ automaticUpdateChecks WRITE setAutomaticUpdateChecks
                   NOTIFY automaticUpdateChecksChanged)
    Q_PROPERTY(bool dingOnReturn READ dingOnReturn WRITE setDingOnReturn NOTIFY dingOnReturnChanged)
    Q_PROPERTY(bool sleepEnabled READ sleepEnabled WRITE setSleepEnabled NOTIFY sleepEnabledChanged)
    Q_PROPERTY(float sleepVolume READ sleepVolume WRITE setSleepVolume NOTIFY sleepVolumeChanged)
    Q_PROPERTY(bool sleepTriggerMicrophone READ sleepTriggerMicrophone WRITE
                   setSleepTriggerMicrophone NOTIFY sleepTriggerMicrophoneChanged)
    Q_PROPERTY(bool sleepTriggerCamera READ sleepTriggerCamera WRITE setSleepTriggerCamera NOTIFY
                   sleepTriggerCameraChanged)
    Q_PROPERTY(bool sleepTriggerHeadphones READ sleepTriggerHeadphones WRITE
                   setSleepTriggerHeadphones NOTIFY sleepTriggerHeadphonesChanged)
    Q_PROPERTY(bool sleepTriggerSpeakers READ sleepTriggerSpeakers WRITE setSleepTriggerSpeakers
                   NOTIFY sleepTriggerSpeakersChanged)
    Q_PROPERTY(bool sleepTriggerFullScreen READ sleepTriggerFullScreen WRITE
                   setSleepTriggerFullScreen NOTIFY sleepTriggerFullScreenChanged)
    Q_PROPERTY(bool sleepTriggerApps READ sleepTriggerApps WRITE setSleepTriggerApps NOTIFY
                   sleepTriggerAppsChanged)
    Q_PROPERTY(
        QStringList sleepAppIds READ sleepAppIds WRITE setSleepAppIds NOTIFY sleepAppIdsChanged)
    Q_PROPERTY(bool visualizerEnabled READ visualizerEnabled WRITE setVisualizerEnabled NOTIFY
                   visualizerEnabledChanged)
    Q_PROPERTY(bool visualizerShortcutsOnly READ visualizerShortcutsOnly WRITE
                   setVisualizerShortcutsOnly NOTIFY visualizerShortcutsOnlyChanged)
    Q_PROPERTY(QString visualizerSize READ visualizerSize WRITE setVisualizerSize NOTIFY
                   visualizerSizeChanged)
    Q_PROPERTY(QString visualizerPosition READ visualizerPosition WRITE setVisualizerPosition NOTIFY
                   visualizerPositionChanged)
    Q_PROPERTY(bool notificationsEnabled READ notificationsEnabled WRITE setNotificationsEnabled
                   NOTIFY notificationsEnabledChanged)
    Q_PROPERTY(bool statsEnabled READ statsEnabled WRITE setStatsEnabled NOTIFY statsEnabledChanged)

    Q_PROPERTY(qint64 keystrokeCount READ keystrokeCount NOTIFY statsChanged)
    Q_PROPERTY(qint64 dingCount READ dingCount NOTIFY statsChanged)
    Q_PROPERTY(qint64 clickCount READ clickCount NOTIFY statsChanged)
    Q_PROPERTY(double bestWPM READ bestWPM NOTIFY statsChanged)
    Q_PROPERTY(qint64 productiveKeys READ productiveKeys NOTIFY statsChanged)
    Q_PROPERTY(qint64 corrections READ corrections NOTIFY statsChanged)
    Q_PROPERTY(double typingSeconds READ typingSeconds NOTIFY statsChanged)
    Q_PROPERTY(double averageWPM READ averageWPM NOTIFY statsChanged)
    Q_PROPERTY(double accuracy READ accuracy NOTIFY statsChanged)

public:
    /// Counters are written this long after the last counted event.
    static constexpr std::chrono::seconds kStatsFlushDelay{10};

    /// Loads every value from `preferences`; writes nothing. Main thread.
    SettingsStore(Preferences& preferences, Scheduler& scheduler, QObject* parent = nullptr);

    /// Writes counters that are still waiting for their flush, then syncs the preferences.
    ~SettingsStore() override;

    SettingsStore(const SettingsStore&) = delete;
    SettingsStore& operator=(const SettingsStore&) = delete;

    /// Show the status-bar item. Main thread.
    bool showMenuBarIcon() const { return showMenuBarIcon_; }
    /// Sets it and writes it back. Main thread.
    void setShowMenuBarIcon(bool value);

    /// Keep the status icon bright while sounds are muted. Main thread.
    bool menuIconDimDisabled() const { return menuIconDimDisabled_; }
    /// Sets it and writes it back. Main thread.
    void setMenuIconDimDisabled(bool value);

    /// No preview when switching kits. Main thread.
    bool switchPreviewDisabled() const { return switchPreviewDisabled_; }
    /// Sets it and writes it back. Main thread.
    void setSwitchPreviewDisabled(bool value);

    /// Clicking the status icon toggles sound instead of opening the panel. Main thread.
    bool clickTogglesSound() const { return clickTogglesSound_; }
    /// Sets it and writes it back. Main thread.
    void setClickTogglesSound(bool value);

    /// Identifier of the settings page shown last. Main thread.
    QString lastSettingsPage() const { return lastSettingsPage_; }
    /// Sets it and writes it back. Main thread.
    void setLastSettingsPage(QString value);

    /// The first-run window has been completed. Main thread.
    bool hasSeenWelcome() const { return hasSeenWelcome_; }
    /// Sets it and writes it back. Main thread.
    void setHasSeenWelcome(bool value);

    /// Master switch for keystroke sounds. Main thread.
    bool isEnabled() const { return isEnabled_; }
    /// Sets it and writes it back. Main thread.
    void setIsEnabled(bool value);

    /// Master volume, 0 to 1. Main thread.
    float volume() const { return volume_; }
    /// Sets it and writes it back. Main thread.
    void setVolume(float value);

    /// Chosen output device; none is the system default. Main thread.
    std::optional<QString> outputDeviceUID() const { return outputDeviceUID_; }
    /// Sets it (none removes the key). Main thread.
    void setOutputDeviceUID(std::optional<QString> value);
    /// The same as text for views: empty means none. Main thread.
    QString outputDeviceUIDText() const { return outputDeviceUID_.value_or(QString()); }
    /// Sets it from text: empty means none. Main thread.
    void setOutputDeviceUIDText(const QString& value);

    /// Id of the main kit. Main thread.
    std::optional<QString> selectedPackId() const { return selectedPackId_; }
    /// Sets it (none removes the key). Main thread.
    void setSelectedPackId(std::optional<QString> value);
    /// The same as text for views: empty means none. Main thread.
    QString selectedPackIdText() const { return selectedPackId_.value_or(QString()); }
    /// Sets it from text: empty means none. Main thread.
    void setSelectedPackIdText(const QString& value);

    /// Pan each key by its position on the keyboard. Main thread.
    bool stereoPanning() const { return stereoPanning_; }
    /// Sets it and writes it back. Main thread.
    void setStereoPanning(bool value);

    /// A little room around each keystroke. Main thread.
    bool spatialAudio() const { return spatialAudio_; }
    /// Sets it and writes it back. Main thread.
    void setSpatialAudio(bool value);

    /// Random pitch variation per stroke. Main thread.
    bool pitchVariation() const { return pitchVariation_; }
    /// Sets it and writes it back. Main thread.
    void setPitchVariation(bool value);

    /// Skip sounds that land within 10 ms. Main thread.
    bool ignoreRapidKeys() const { return ignoreRapidKeys_; }
    /// Sets it and writes it back. Main thread.
    void setIgnoreRapidKeys(bool value);

    /// Play modifier keys. Main thread.
    bool modifierSoundsEnabled() const { return modifierSoundsEnabled_; }
    /// Sets it and writes it back. Main thread.
    void setModifierSoundsEnabled(bool value);

    /// Play key-release sounds. Main thread.
    bool keyUpSoundsEnabled() const { return keyUpSoundsEnabled_; }
    /// Sets it and writes it back. Main thread.
    void setKeyUpSoundsEnabled(bool value);

    /// Global tone pitch factor. Main thread.
    float tonePitch() const { return tonePitch_; }
    /// Sets it and writes it back. Main thread.
    void setTonePitch(float value);

    /// Global tone brightness factor. Main thread.
    float toneBrightness() const { return toneBrightness_; }
    /// Sets it and writes it back. Main thread.
    void setToneBrightness(float value);

    /// Volume factor of bell and mouse sounds. Main thread.
    float effectsVolume() const { return effectsVolume_; }
    /// Sets it and writes it back. Main thread.
    void setEffectsVolume(float value);

    /// Play mouse-button sounds. Main thread.
    bool mouseClickSounds() const { return mouseClickSounds_; }
    /// Sets it and writes it back. Main thread.
    void setMouseClickSounds(bool value);

    /// Chosen mouse sound. Main thread.
    QString mouseSoundId() const { return mouseSoundId_; }
    /// Sets it and writes it back. Main thread.
    void setMouseSoundId(QString value);
    /// The combination that turns the sounds on and off, as text ("Ctrl+Super+K");
    /// empty turns the shortcut off. Main thread.
    QString toggleSoundsShortcut() const { return toggleSoundsShortcut_; }
    /// Stores it. Main thread.
    void setToggleSoundsShortcut(QString value);
    /// Ask the release feed once a day whether a newer version exists. Main thread.
    bool automaticUpdateChecks() const { return automaticUpdateChecks_; }
    /// Sets it and writes it back. Main thread.
    void setAutomaticUpdateChecks(bool value);

    /// Typewriter bell on Return. Main thread.
    bool dingOnReturn() const { return dingOnReturn_; }
    /// Sets it and writes it back. Main thread.
    void setDingOnReturn(bool value);

    /// Automatic quiet-down is on. Main thread.
    bool sleepEnabled() const { return sleepEnabled_; }
    /// Sets it and writes it back. Main thread.
    void setSleepEnabled(bool value);

    /// Volume factor while asleep. Main thread.
    float sleepVolume() const { return sleepVolume_; }
    /// Sets it and writes it back. Main thread.
    void setSleepVolume(float value);

    /// Sleep while a microphone is live. Main thread.
    bool sleepTriggerMicrophone() const { return sleepTriggerMicrophone_; }
    /// Sets it and writes it back. Main thread.
    void setSleepTriggerMicrophone(bool value);

    /// Sleep while a camera is on. Main thread.
    bool sleepTriggerCamera() const { return sleepTriggerCamera_; }
    /// Sets it and writes it back. Main thread.
    void setSleepTriggerCamera(bool value);

    /// Sleep while headphones are the output. Main thread.
    bool sleepTriggerHeadphones() const { return sleepTriggerHeadphones_; }
    /// Sets it and writes it back. Main thread.
    void setSleepTriggerHeadphones(bool value);

    /// Sleep while playing through built-in speakers. Main thread.
    bool sleepTriggerSpeakers() const { return sleepTriggerSpeakers_; }
    /// Sets it and writes it back. Main thread.
    void setSleepTriggerSpeakers(bool value);

    /// Sleep while a full-screen window is in front. Main thread.
    bool sleepTriggerFullScreen() const { return sleepTriggerFullScreen_; }
    /// Sets it and writes it back. Main thread.
    void setSleepTriggerFullScreen(bool value);

    /// Sleep while one of `sleepAppIds` is in front. Main thread.
    bool sleepTriggerApps() const { return sleepTriggerApps_; }
    /// Sets it and writes it back. Main thread.
    void setSleepTriggerApps(bool value);

    /// The applications that quiet Tappix while in front: desktop application ids, or
    /// X11 class names where no id is known. Main thread.
    QStringList sleepAppIds() const { return sleepAppIds_; }
    /// Sets them and writes them back. Main thread.
    void setSleepAppIds(QStringList value);

    /// Show the key-cast overlay. Main thread.
    bool visualizerEnabled() const { return visualizerEnabled_; }
    /// Sets it and writes it back. Main thread.
    void setVisualizerEnabled(bool value);

    /// Overlay shows shortcuts only. Main thread.
    bool visualizerShortcutsOnly() const { return visualizerShortcutsOnly_; }
    /// Sets it and writes it back. Main thread.
    void setVisualizerShortcutsOnly(bool value);

    /// Overlay size identifier. Main thread.
    QString visualizerSize() const { return visualizerSize_; }
    /// Sets it and writes it back. Main thread.
    void setVisualizerSize(QString value);

    /// Overlay position identifier. Main thread.
    QString visualizerPosition() const { return visualizerPosition_; }
    /// Sets it and writes it back. Main thread.
    void setVisualizerPosition(QString value);

    /// Post user notifications. Main thread.
    bool notificationsEnabled() const { return notificationsEnabled_; }
    /// Sets it and writes it back. Main thread.
    void setNotificationsEnabled(bool value);

    /// Collect typing and sound statistics. Main thread.
    bool statsEnabled() const { return statsEnabled_; }
    /// Sets it and writes it back. Main thread.
    void setStatsEnabled(bool value);

    // Counters.

    /// Keystroke sounds played. Main thread.
    std::int64_t keystrokeCount() const { return keystrokeCount_; }
    /// Bells played. Main thread.
    std::int64_t dingCount() const { return dingCount_; }
    /// Mouse sounds played. Main thread.
    std::int64_t clickCount() const { return clickCount_; }
    /// Best burst speed in words per minute. Main thread.
    double bestWPM() const { return bestWPM_; }
    /// Text-producing keys typed. Main thread.
    std::int64_t productiveKeys() const { return productiveKeys_; }
    /// Corrections typed. Main thread.
    std::int64_t corrections() const { return corrections_; }
    /// Active typing time in seconds. Main thread.
    double typingSeconds() const { return typingSeconds_; }

    /// Lifetime words per minute: 0 until more than five seconds of typing. Main thread.
    double averageWPM() const;
    /// Share of productive keys among productive keys and corrections; 1 with neither.
    double accuracy() const;

    /// Counts a keystroke sound when statistics are on, then schedules the flush. Main thread.
    void incrementKeystrokes();
    /// Counts a bell; same rule. Main thread.
    void incrementDings();
    /// Counts a mouse sound; same rule. Main thread.
    void incrementClicks();
    /// Counts a productive key; same rule. Main thread.
    void incrementProductiveKeys();
    /// Counts a correction; same rule. Main thread.
    void incrementCorrections();
    /// Adds active typing time when statistics are on; the next flush persists it. Main thread.
    void addTypingSeconds(double seconds);
    /// Raises the best speed when statistics are on and `wpm` beats it. Main thread.
    void recordWPM(double wpm);
    /// Zeroes every counter and writes them at once. Main thread.
    void resetStats();
    /// Writes the seven counters now (no notification). Main thread.
    void flushStats();

    // Mixes and tuning.

    /// Every mix, in creation order. Main thread.
    const std::vector<SoundMix>& mixes() const { return mixes_; }
    /// The id of the mix that plays, or none. Main thread.
    const std::optional<QString>& activeMixId() const { return activeMixId_; }
    /// The mix that plays, or none. Main thread.
    std::optional<SoundMix> activeMix() const;
    /// The active mix's voice for a region, or none. Main thread.
    std::optional<MixVoice> voice(KeyGroup group) const;
    /// Adds an empty mix named `name`, makes it active and saves. Main thread.
    SoundMix createMix(const QString& name);
    /// Replaces the mix with the same id (rename, reset); unknown ids do nothing. Main thread.
    void updateMix(const SoundMix& mix);
    /// Sets or clears one region of one mix; an empty voice clears. Main thread.
    void setVoice(const std::optional<MixVoice>& voice, KeyGroup group, const QString& mixId);
    /// Removes the mix; if it played, no mix plays. Always saves. Main thread.
    void deleteMix(const QString& id);
    /// Chooses the mix that plays (none: main kit only); unknown ids do nothing. Main thread.
    void setActiveMix(const std::optional<QString>& id);
    /// A kit's tuning, or the identity tuning when none is stored. Main thread.
    PackTuning tuning(const QString& packId) const;
    /// Stores a kit's tuning and emits `tappixSettingsChanged`. Main thread.
    void setTuning(const QString& packId, const PackTuning& tuning);
    /// Every stored tuning by kit id. Main thread.
    const std::map<QString, PackTuning>& tunings() const { return tunings_; }

Q_SIGNALS:
    /// Some setting, tuning or mix changed; emitted once per assignment.
    void tappixSettingsChanged();
    /// The mixes or the active mix changed (followed by `tappixSettingsChanged`).
    void tappixMixChanged();
    /// A counter changed.
    void statsChanged();
    /// `showMenuBarIcon` changed.
    void showMenuBarIconChanged();
    /// `menuIconDimDisabled` changed.
    void menuIconDimDisabledChanged();
    /// `switchPreviewDisabled` changed.
    void switchPreviewDisabledChanged();
    /// `clickTogglesSound` changed.
    void clickTogglesSoundChanged();
    /// `lastSettingsPage` changed.
    void lastSettingsPageChanged();
    /// `hasSeenWelcome` changed.
    void hasSeenWelcomeChanged();
    /// `isEnabled` changed.
    void isEnabledChanged();
    /// `volume` changed.
    void volumeChanged();
    /// `outputDeviceUID` changed.
    void outputDeviceUIDChanged();
    /// `selectedPackId` changed.
    void selectedPackIdChanged();
    /// `stereoPanning` changed.
    void stereoPanningChanged();
    /// `spatialAudio` changed.
    void spatialAudioChanged();
    /// `pitchVariation` changed.
    void pitchVariationChanged();
    /// `ignoreRapidKeys` changed.
    void ignoreRapidKeysChanged();
    /// `modifierSoundsEnabled` changed.
    void modifierSoundsEnabledChanged();
    /// `keyUpSoundsEnabled` changed.
    void keyUpSoundsEnabledChanged();
    /// `tonePitch` changed.
    void tonePitchChanged();
    /// `toneBrightness` changed.
    void toneBrightnessChanged();
    /// `effectsVolume` changed.
    void effectsVolumeChanged();
    /// `mouseClickSounds` changed.
    void mouseClickSoundsChanged();
    /// `mouseSoundId` changed.
    void mouseSoundIdChanged();
    /// `toggleSoundsShortcut` changed.
    void toggleSoundsShortcutChanged();
    /// `automaticUpdateChecks` changed.
    void automaticUpdateChecksChanged();
    /// `dingOnReturn` changed.
    void dingOnReturnChanged();
    /// `sleepEnabled` changed.
    void sleepEnabledChanged();
    /// `sleepVolume` changed.
    void sleepVolumeChanged();
    /// `sleepTriggerMicrophone` changed.
    void sleepTriggerMicrophoneChanged();
    /// `sleepTriggerCamera` changed.
    void sleepTriggerCameraChanged();
    /// `sleepTriggerHeadphones` changed.
    void sleepTriggerHeadphonesChanged();
    /// `sleepTriggerSpeakers` changed.
    void sleepTriggerSpeakersChanged();
    /// `sleepTriggerFullScreen` changed.
    void sleepTriggerFullScreenChanged();
    /// `sleepTriggerApps` changed.
    void sleepTriggerAppsChanged();
    /// `sleepAppIds` changed.
    void sleepAppIdsChanged();
    /// `visualizerEnabled` changed.
    void visualizerEnabledChanged();
    /// `visualizerShortcutsOnly` changed.
    void visualizerShortcutsOnlyChanged();
    /// `visualizerSize` changed.
    void visualizerSizeChanged();
    /// `visualizerPosition` changed.
    void visualizerPositionChanged();
    /// `notificationsEnabled` changed.
    void notificationsEnabledChanged();
    /// `statsEnabled` changed.
    void statsEnabledChanged();

private:
    void load();
    void writeBack(const QString& key, const QJsonValue& value);
    void scheduleFlush();
    void increment(std::int64_t& counter);
    void saveMixes();

    Preferences& preferences_;
    Scheduler& scheduler_;
    bool isLoading_ = true;

    bool showMenuBarIcon_ = true;
    bool menuIconDimDisabled_ = false;
    bool switchPreviewDisabled_ = false;
    bool clickTogglesSound_ = false;
    QString lastSettingsPage_ = QStringLiteral("sound");
    bool hasSeenWelcome_ = false;
    bool isEnabled_ = true;
    float volume_ = 0.6f;
    std::optional<QString> outputDeviceUID_ = std::nullopt;
    std::optional<QString> selectedPackId_ = std::nullopt;
    bool stereoPanning_ = true;
    bool spatialAudio_ = false;
    bool pitchVariation_ = true;
    bool ignoreRapidKeys_ = false;
    bool modifierSoundsEnabled_ = true;
    bool keyUpSoundsEnabled_ = true;
    float tonePitch_ = 1.0f;
    float toneBrightness_ = 1.0f;
    float effectsVolume_ = 1.0f;
    bool mouseClickSounds_ = false;
    QString mouseSoundId_ = QStringLiteral("synth-soft");
    QString toggleSoundsShortcut_ = QStringLiteral("Ctrl+Super+K");
    bool automaticUpdateChecks_ = true;
    bool dingOnReturn_ = false;
    bool sleepEnabled_ = false;
    float sleepVolume_ = 0.0f;
    bool sleepTriggerMicrophone_ = false;
    bool sleepTriggerCamera_ = false;
    bool sleepTriggerHeadphones_ = false;
    bool sleepTriggerSpeakers_ = false;
    bool sleepTriggerFullScreen_ = false;
    bool sleepTriggerApps_ = false;
    QStringList sleepAppIds_;
    bool visualizerEnabled_ = false;
    bool visualizerShortcutsOnly_ = false;
    QString visualizerSize_ = QStringLiteral("medium");
    QString visualizerPosition_ = QStringLiteral("bottomCenter");
    bool notificationsEnabled_ = false;
    bool statsEnabled_ = true;

    std::int64_t keystrokeCount_ = 0;
    std::int64_t dingCount_ = 0;
    std::int64_t clickCount_ = 0;
    double bestWPM_ = 0;
    std::int64_t productiveKeys_ = 0;
    std::int64_t corrections_ = 0;
    double typingSeconds_ = 0;

    std::vector<SoundMix> mixes_;
    std::optional<QString> activeMixId_;
    std::map<QString, PackTuning> tunings_;
    Scheduler::TaskId statsFlushWork_ = 0;
};

} // namespace tappix
