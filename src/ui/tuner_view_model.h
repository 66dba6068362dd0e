#pragma once

#include "settings/pack_tuning.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

namespace tappix {

class SettingsStore;
class SoundpackStore;

/// The tuner behind the Create page: the main kit's pitch, gain, pitch variation and
/// stereo width, read from and written to that kit's stored tuning (which the sound
/// engine applies at once), following the choice of kit. Without a main kit it shows
/// the identity tuning and changes nothing. Main thread only.
class TunerViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool hasKit READ hasKit NOTIFY kitChanged)
    Q_PROPERTY(QString kitId READ kitId NOTIFY kitChanged)
    Q_PROPERTY(QString kitName READ kitName NOTIFY kitChanged)
    Q_PROPERTY(double pitch READ pitch WRITE setPitch NOTIFY tuningChanged)
    Q_PROPERTY(double gain READ gain WRITE setGain NOTIFY tuningChanged)
    Q_PROPERTY(double variation READ variation WRITE setVariation NOTIFY tuningChanged)
    Q_PROPERTY(double panWidth READ panWidth WRITE setPanWidth NOTIFY tuningChanged)
    Q_PROPERTY(bool isIdentity READ isIdentity NOTIFY tuningChanged)
    Q_PROPERTY(QVariantMap ranges READ ranges CONSTANT)
    Q_PROPERTY(QString hint READ hint CONSTANT)

public:
    /// The range a tuning value moves in, and its slider's step.
    struct Range {
        /// Lowest value.
        float min;
        /// Highest value.
        float max;
        /// Slider step.
        float step;
    };
    /// Pitch factor: an octave down to an octave up.
    static constexpr Range kPitchRange{0.5f, 2.0f, 0.01f};
    /// Gain factor: silent to twice as loud.
    static constexpr Range kGainRange{0.0f, 2.0f, 0.01f};
    /// Largest random pitch deviation per stroke: none to a fifth.
    static constexpr Range kVariationRange{0.0f, 0.2f, 0.005f};
    /// Stereo width factor: mono to twice as wide.
    static constexpr Range kPanWidthRange{0.0f, 2.0f, 0.01f};

    /// A tuner over the kits `packs` lists and the tunings `settings` stores.
    TunerViewModel(const SoundpackStore& packs, SettingsStore& settings, QObject* parent = nullptr);

    /// Whether a main kit is chosen.
    bool hasKit() const;
    /// The main kit's id, or empty.
    QString kitId() const;
    /// The main kit's name, or "None" when no kit by that id is listed.
    QString kitName() const;

    /// The main kit's stored tuning, or the identity tuning.
    PackTuning tuning() const;
    double pitch() const { return tuning().pitch; }
    void setPitch(double value);
    double gain() const { return tuning().gain; }
    void setGain(double value);
    double variation() const { return tuning().variation; }
    void setVariation(double value);
    double panWidth() const { return tuning().panWidth; }
    void setPanWidth(double value);
    /// Whether the tuning is the identity (nothing to reset).
    bool isIdentity() const { return tuning() == PackTuning{}; }

    /// {"pitch"|"gain"|"variation"|"panWidth": {"min", "max", "step"}}.
    QVariantMap ranges() const;
    /// The sentence under the sliders.
    QString hint() const;

    /// Gives the main kit the identity tuning.
    Q_INVOKABLE void reset();
    /// The kits were scanned again: the main kit's name may have changed.
    void kitsReloaded();

Q_SIGNALS:
    void kitChanged();
    void tuningChanged();

private:
    void store(PackTuning next);

    const SoundpackStore& packs_;
    SettingsStore& settings_;
};

} // namespace tappix
