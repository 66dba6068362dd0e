#pragma once

#include "audio/microphone.h"
#include "core/clock.h"
#include "core/scheduler.h"
#include "input/capture_source.h"
#include "input/key_group.h"
#include "kits/keyboard_recording.h"
#include "kits/switch_designer.h"

#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QVariantList>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace tappix {

class SettingsStore;
class SoundEngine;
class SoundpackStore;

/// "Record my keyboard" on the Create page: records the default microphone while the
/// user types the keys it asks for, then cuts, writes and selects the kit off the main
/// thread. Tappix's own sounds are held back while it listens (through `KeyTap`), a
/// level meter and the outline of the last second follow the microphone, and every
/// failure ends in a message with no kit written or selected. Main thread only.
class RecorderViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QString kitId READ kitId NOTIFY nameChanged)
    Q_PROPERTY(QString state READ state NOTIFY stateChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY stateChanged)
    Q_PROPERTY(QString prompt READ prompt NOTIFY promptChanged)
    Q_PROPERTY(double level READ level NOTIFY levelChanged)
    Q_PROPERTY(QVariantList waveform READ waveform NOTIFY waveformChanged)
    Q_PROPERTY(QString status READ status NOTIFY statusChanged)

public:
    /// Makes the microphone a recording uses (null: none can be had).
    using MicrophoneFactory = std::function<std::unique_ptr<Microphone>()>;
    /// Sends every key that moves to the callback instead of the sound engine, or,
    /// given an empty callback, gives the keys back. The callback runs on the key queue.
    using KeyTap = std::function<void(std::function<void(KeyCode, bool, KeyTime)>)>;

    /// How often the meter and the waveform follow the microphone.
    static constexpr std::chrono::milliseconds kMeterInterval{50};
    /// The quiet the recording starts with, to hear the room.
    static constexpr std::chrono::milliseconds kQuietStart{1200};
    /// The sound let in after the last key before the recording stops.
    static constexpr std::chrono::milliseconds kTail{600};
    /// How many times each key is asked for.
    static constexpr int kTimes = 5;
    /// How many peaks the waveform holds, and the stretch it shows.
    static constexpr int kWaveformPoints = 160;
    static constexpr std::size_t kWaveformSamples = Microphone::kSampleRate;

    /// A recorder writing into `packs`' user directory with `writer`; `engine` may be
    /// null. Keys are stamped with `clock`, the one the microphone places its samples
    /// on; waits and the meter run on `scheduler`.
    RecorderViewModel(SoundpackStore& packs, SettingsStore& settings, SoundEngine* engine,
                      const Clock& clock, Scheduler& scheduler, MicrophoneFactory microphones,
                      KeyTap tap, SwitchDesigner::SampleWriter writer, QObject* parent = nullptr);
    /// Gives the keys back and waits for a save under way.
    ~RecorderViewModel() override;

    /// The kit's name as typed.
    QString name() const { return name_; }
    void setName(const QString& value);
    /// "recorded-" and the name's slug.
    QString kitId() const { return KeyboardRecording::kitId(name_); }
    /// "idle", "listening" (hearing the room), "recording", "saving", "done" or "failed".
    QString state() const { return state_; }
    /// Whether a recording or its save is under way.
    bool busy() const;
    /// What to do now ("Press A 5 times"), or empty.
    QString prompt() const { return prompt_; }
    /// The microphone's level since the last look, 0 … 1.
    double level() const { return level_; }
    /// The last second of the recording, `kWaveformPoints` peaks in 0 … 1.
    QVariantList waveform() const { return waveform_; }
    /// What happened, in a sentence or a few lines.
    QString status() const { return status_; }

    /// Starts listening: the microphone, the room's quiet, then the keys one by one.
    Q_INVOKABLE void start();
    /// Stops asking for keys and makes the kit of what was typed so far.
    Q_INVOKABLE void finish();
    /// Stops without making a kit.
    Q_INVOKABLE void cancel();

Q_SIGNALS:
    void nameChanged();
    void stateChanged();
    void promptChanged();
    void levelChanged();
    void waveformChanged();
    void statusChanged();
    /// The kit list changed: a recorded kit was written and the store reloaded.
    void packsReloaded();

private:
    void keyArrived(KeyCode code, bool down, double seconds);
    void beginKeys();
    void askNext();
    void follow();
    void fail(const QString& why);
    void release();
    void finishSave(const SwitchDesigner::Result& result, const QString& error,
                    const QStringList& notes);
    void setState(const QString& value);
    void setPrompt(const QString& value);
    void setStatus(const QString& value);

    SoundpackStore& packs_;
    SettingsStore& settings_;
    SoundEngine* engine_;
    const Clock& clock_;
    Scheduler& scheduler_;
    MicrophoneFactory microphones_;
    KeyTap tap_;
    SwitchDesigner writer_;
    std::unique_ptr<Microphone> microphone_;
    Scheduler::TaskId meter_ = 0;
    Scheduler::TaskId pending_ = 0;
    std::vector<KeyCode> asked_;
    std::size_t askedIndex_ = 0;
    int pressesWanted_ = 0;
    bool asking_ = false;
    std::vector<RecordedKeyEvent> events_;
    QString name_;
    QString state_ = QStringLiteral("idle");
    QString prompt_;
    double level_ = 0;
    QVariantList waveform_;
    QString status_;
    QThreadPool saves_;
};

} // namespace tappix
