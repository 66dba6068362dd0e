#include "ui/recorder_view_model.h"

#include "audio/sound_engine.h"
#include "input/key_codes.h"
#include "kits/soundpack_store.h"
#include "settings/settings_store.h"

#include <algorithm>
#include <chrono>

namespace tappix {

namespace {

// The keys asked for: a few letters, Space, Return, Backspace and a modifier.
const std::vector<KeyCode> kAskedKeys = {keys::a,         keys::s,         keys::d,
                                         keys::f,         keys::j,         keys::space,
                                         keys::returnKey, keys::backspace, keys::shift};

} // namespace

RecorderViewModel::RecorderViewModel(SoundpackStore& packs, SettingsStore& settings,
                                     SoundEngine* engine, const Clock& clock, Scheduler& scheduler,
                                     MicrophoneFactory microphones, KeyTap tap,
                                     SwitchDesigner::SampleWriter writer, QObject* parent)
    : QObject(parent), packs_(packs), settings_(settings), engine_(engine), clock_(clock),
      scheduler_(scheduler), microphones_(std::move(microphones)), tap_(std::move(tap)),
      writer_(std::move(writer)) {
    saves_.setMaxThreadCount(1);
}

RecorderViewModel::~RecorderViewModel() {
    release();
    saves_.waitForDone();
}

void RecorderViewModel::setName(const QString& value) {
    if (value == name_)
        return;
    name_ = value;
    Q_EMIT nameChanged();
}

bool RecorderViewModel::busy() const {
    return state_ == QLatin1String("listening") || state_ == QLatin1String("recording") ||
           state_ == QLatin1String("saving");
}

void RecorderViewModel::start() {
    if (busy())
        return;
    if (SwitchDesigner::displayName(name_).isEmpty()) {
        setStatus(QStringLiteral("Name the kit first."));
        return;
    }
    microphone_ = microphones_ ? microphones_() : nullptr;
    std::string error;
    if (!microphone_) {
        fail(QStringLiteral("This Tappix has no sound server to record from."));
        return;
    }
    if (!microphone_->start(error)) {
        fail(QStringLiteral("Could not record: ") + QString::fromStdString(error) +
             QLatin1Char('.'));
        return;
    }
    events_.clear();
    asked_ = kAskedKeys;
    askedIndex_ = 0;
    asking_ = false;
    // Keys arrive on the key queue, each with the time it moved (on the clock the
    // microphone's samples are placed on), and are counted here. The tap is taken away
    // before this object goes, and what it posted goes with the object.
    if (tap_) {
        tap_([this](KeyCode code, bool down, KeyTime moved) {
            // A key whose source gave no time is placed when it arrives.
            const double at = std::chrono::duration<double>(
                                  moved == KeyTime{} ? clock_.now() : moved.time_since_epoch())
                                  .count();
            QMetaObject::invokeMethod(
                this, [this, code, down, at] { keyArrived(code, down, at); }, Qt::QueuedConnection);
        });
    }
    setState(QStringLiteral("listening"));
    setStatus(QStringLiteral("Recording from \"%1\". Tappix is quiet meanwhile.")
                  .arg(QString::fromStdString(microphone_->name())));
    setPrompt(QStringLiteral("Keep quiet for a moment while Tappix hears the room…"));
    meter_ = scheduler_.schedule(kMeterInterval, [this] { follow(); });
    pending_ = scheduler_.schedule(kQuietStart, [this] {
        pending_ = 0;
        beginKeys();
    });
}

void RecorderViewModel::beginKeys() {
    events_.clear(); // keys typed during the quiet are not takes
    setState(QStringLiteral("recording"));
    asking_ = true;
    askNext();
}

void RecorderViewModel::askNext() {
    if (askedIndex_ >= asked_.size()) {
        asking_ = false;
        setPrompt(QStringLiteral("Done: making your kit…"));
        pending_ = scheduler_.schedule(kTail, [this] {
            pending_ = 0;
            finish();
        });
        return;
    }
    const KeyCode code = asked_[askedIndex_];
    pressesWanted_ =
        static_cast<int>(std::count_if(events_.begin(), events_.end(),
                                       [&](const auto& e) { return e.code == code && e.down; })) +
        kTimes;
    setPrompt(QStringLiteral("Press %1 %2 times")
                  .arg(QString::fromStdString(KeyboardRecording::keyTitle(code)))
                  .arg(kTimes));
}

void RecorderViewModel::keyArrived(KeyCode code, bool down, double seconds) {
    if (state_ != QLatin1String("recording"))
        return;
    events_.push_back({code, down, seconds});
    if (!asking_ || !down || askedIndex_ >= asked_.size() || code != asked_[askedIndex_])
        return;
    const auto pressed = std::count_if(events_.begin(), events_.end(),
                                       [&](const auto& e) { return e.code == code && e.down; });
    if (pressed >= pressesWanted_) {
        ++askedIndex_;
        askNext();
    }
}

void RecorderViewModel::follow() {
    meter_ = 0;
    if (!microphone_)
        return;
    const std::string failure = microphone_->failure();
    if (!failure.empty()) {
        fail(QStringLiteral("Recording stopped: ") + QString::fromStdString(failure) +
             QStringLiteral(". No kit was made."));
        return;
    }
    const double level = microphone_->takePeak();
    if (level != level_) {
        level_ = level;
        Q_EMIT levelChanged();
    }
    QVariantList peaks;
    for (float peak : SwitchDesigner::outline(microphone_->tail(kWaveformSamples), kWaveformPoints))
        peaks.append(static_cast<double>(peak));
    waveform_ = peaks;
    Q_EMIT waveformChanged();
    meter_ = scheduler_.schedule(kMeterInterval, [this] { follow(); });
}

void RecorderViewModel::finish() {
    if (state_ != QLatin1String("recording") && state_ != QLatin1String("listening"))
        return;
    const std::vector<RecordedKeyEvent> events = events_;
    std::unique_ptr<Microphone> microphone = std::move(microphone_);
    release();
    Microphone::Recording recording = microphone->stop();
    if (!recording.error.empty()) {
        fail(QStringLiteral("Recording stopped: ") + QString::fromStdString(recording.error) +
             QStringLiteral(". No kit was made."));
        return;
    }
    setState(QStringLiteral("saving"));
    setPrompt({});
    setStatus(QStringLiteral("Cutting and saving your kit…"));
    saves_.start([this, writer = writer_, recording = std::move(recording), events, name = name_,
                  directory = packs_.userDirectory()] {
        const auto cut = KeyboardRecording::cut(recording.samples, recording.startSeconds, events);
        const auto kit = KeyboardRecording::makeKit(cut, name);
        QStringList notes;
        for (const std::string& line : cut.retakes)
            notes << QString::fromStdString(line);
        SwitchDesigner::Result result;
        QString error = QString::fromStdString(kit.error);
        if (error.isEmpty()) {
            result = writer.saveWhole(kit.config, kit.files, directory);
            error = QString::fromStdString(result.error);
        }
        QMetaObject::invokeMethod(
            this, [this, result, error, notes] { finishSave(result, error, notes); },
            Qt::QueuedConnection);
    });
}

void RecorderViewModel::finishSave(const SwitchDesigner::Result& result, const QString& error,
                                   const QStringList& notes) {
    const QString retakes =
        notes.isEmpty() ? QString() : QLatin1Char('\n') + notes.join(QLatin1Char('\n'));
    if (!error.isEmpty()) {
        fail(QStringLiteral("No kit was made: ") + error + QLatin1Char('.') + retakes);
        return;
    }
    packs_.reload();
    Q_EMIT packsReloaded();
    const Soundpack* pack = packs_.find(result.id.toStdString());
    if (!pack || !pack->isUserPack) {
        fail(QStringLiteral("The recorded kit did not load."));
        return;
    }
    if (engine_)
        engine_->loadPack(pack);
    settings_.setSelectedPackIdText(result.id);
    setState(QStringLiteral("done"));
    setStatus(QStringLiteral("Recorded and selected. Type anywhere to hear it.") + retakes);
}

void RecorderViewModel::cancel() {
    if (state_ != QLatin1String("recording") && state_ != QLatin1String("listening"))
        return;
    std::unique_ptr<Microphone> microphone = std::move(microphone_);
    release();
    microphone->stop();
    setState(QStringLiteral("idle"));
    setPrompt({});
    setStatus(QStringLiteral("Recording cancelled. No kit was made."));
}

void RecorderViewModel::fail(const QString& why) {
    std::unique_ptr<Microphone> microphone = std::move(microphone_);
    release();
    if (microphone)
        microphone->stop();
    setState(QStringLiteral("failed"));
    setPrompt({});
    setStatus(why);
}

void RecorderViewModel::release() {
    if (meter_) {
        scheduler_.cancel(meter_);
        meter_ = 0;
    }
    if (pending_) {
        scheduler_.cancel(pending_);
        pending_ = 0;
    }
    asking_ = false;
    if (tap_)
        tap_({});
    if (level_ != 0) {
        level_ = 0;
        Q_EMIT levelChanged();
    }
}

void RecorderViewModel::setState(const QString& value) {
    if (value == state_)
        return;
    state_ = value;
    Q_EMIT stateChanged();
}

void RecorderViewModel::setPrompt(const QString& value) {
    if (value == prompt_)
        return;
    prompt_ = value;
    Q_EMIT promptChanged();
}

void RecorderViewModel::setStatus(const QString& value) {
    if (value == status_)
        return;
    status_ = value;
    Q_EMIT statusChanged();
}

} // namespace tappix
