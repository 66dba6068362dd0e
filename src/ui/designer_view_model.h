#pragma once

#include "kits/switch_designer.h"
#include "ui/user_kit_jobs.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

namespace tappix {

class AudioPlayer;
class SettingsStore;
class SoundEngine;
class SoundpackStore;

/// The switch designer behind the Create page: five synthesis numbers kept within
/// their ranges, the outline of the sound they make (redrawn on every change), a
/// preview, the presets, and a save that writes the kit off the main thread, then
/// lists it and makes it the main kit. Main thread only.
class DesignerViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(double bodyHz READ bodyHz WRITE setBodyHz NOTIFY paramsChanged)
    Q_PROPERTY(double click READ click WRITE setClick NOTIFY paramsChanged)
    Q_PROPERTY(double decayMs READ decayMs WRITE setDecayMs NOTIFY paramsChanged)
    Q_PROPERTY(double toneHz READ toneHz WRITE setToneHz NOTIFY paramsChanged)
    Q_PROPERTY(bool clicky READ clicky WRITE setClicky NOTIFY paramsChanged)
    Q_PROPERTY(QVariantMap ranges READ ranges CONSTANT)
    Q_PROPERTY(QStringList presets READ presets CONSTANT)
    Q_PROPERTY(int presetIndex READ presetIndex NOTIFY paramsChanged)
    Q_PROPERTY(QVariantList waveform READ waveform NOTIFY waveformChanged)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QString kitId READ kitId NOTIFY nameChanged)
    Q_PROPERTY(bool canSave READ canSave NOTIFY canSaveChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(QString status READ status NOTIFY statusChanged)

public:
    /// How many peaks the waveform holds.
    static constexpr int kWaveformPoints = 200;

    /// A designer writing kits into `packs`' user directory with `writer`. `engine` and
    /// `player` may be null (no kit is loaded, nothing is previewed then).
    DesignerViewModel(SoundpackStore& packs, SettingsStore& settings, SoundEngine* engine,
                      AudioPlayer* player, SwitchDesigner::SampleWriter writer,
                      QObject* parent = nullptr);

    /// The design as it stands.
    SynthParams params() const { return params_; }
    /// Replaces the whole design, each number held within its range.
    void setParams(const SynthParams& params);

    /// The body's pitch, Hz ("Depth").
    double bodyHz() const { return params_.bodyHz; }
    void setBodyHz(double value);
    /// The click's loudness ("Click").
    double click() const { return params_.click; }
    void setClick(double value);
    /// The body's decay, ms ("Sustain").
    double decayMs() const { return params_.decayMs; }
    void setDecayMs(double value);
    /// The low-pass corner, Hz ("Tone").
    double toneHz() const { return params_.toneHz; }
    void setToneHz(double value);
    /// The clicky leaf's resonance.
    bool clicky() const { return params_.clicky; }
    void setClicky(bool value);

    /// {"bodyHz"|"click"|"decayMs"|"toneHz": {"min", "max", "step"}}.
    QVariantMap ranges() const;
    /// The presets' names, in order.
    QStringList presets() const;
    /// The preset the design equals, or -1.
    int presetIndex() const;
    /// `kWaveformPoints` peaks in 0 … 1: the press, a short pause, the release.
    QVariantList waveform() const { return waveform_; }

    /// The kit's name as typed.
    QString name() const { return name_; }
    void setName(const QString& value);
    /// The id the kit saves under.
    QString kitId() const { return SwitchDesigner::kitId(name_); }
    /// Whether a save may start: a name with something besides spaces, and none under way.
    bool canSave() const;
    /// Whether a save is under way.
    bool busy() const { return saves_.busy(); }
    /// What the last save did, in a sentence, until the next save starts; empty
    /// before the first.
    QString status() const { return status_; }

    /// Loads preset `index`; an index out of range changes nothing.
    Q_INVOKABLE void applyPreset(int index);
    /// Plays the press and the release the design makes.
    Q_INVOKABLE void preview();
    /// Writes the kit off the main thread; on success lists it and makes it the main
    /// kit. Ignored while a save is under way or without a name.
    Q_INVOKABLE void save();

Q_SIGNALS:
    void paramsChanged();
    void waveformChanged();
    void nameChanged();
    void canSaveChanged();
    void busyChanged();
    void statusChanged();
    /// The kit store was scanned again after a save wrote a kit.
    void packsReloaded();
    /// A save ended, well (`ok`) or not; `status` says how.
    void saveFinished(bool ok);

private:
    void changeParams(const SynthParams& next);
    void finishSave(const UserKitJobs::Outcome& outcome);
    void setStatus(const QString& value);

    SoundpackStore& packs_;
    AudioPlayer* player_;
    SwitchDesigner designer_;
    SynthParams params_ = SwitchDesigner::kDefaultParams;
    QVariantList waveform_;
    QString name_;
    QString status_;
    // One save at a time, off the main thread; last, so it is waited for first.
    UserKitJobs saves_;
};

} // namespace tappix
