#include "ui/designer_view_model.h"

#include "audio/audio_player.h"
#include "kits/soundpack_store.h"

#include <algorithm>
#include <cmath>

namespace tappix {

namespace {

const QString kSavedStatus = QStringLiteral("Saved and selected. Type anywhere to hear it.");
const QString kFailedStatus = QStringLiteral("Could not save: ");

float clamped(double value, const SwitchDesigner::Range& range, float fallback) {
    if (!std::isfinite(value))
        return fallback;
    return std::clamp(static_cast<float>(value), range.min, range.max);
}

QVariantMap rangeMap(const SwitchDesigner::Range& range) {
    return {{QStringLiteral("min"), range.min},
            {QStringLiteral("max"), range.max},
            {QStringLiteral("step"), range.step}};
}

} // namespace

DesignerViewModel::DesignerViewModel(SoundpackStore& packs, SettingsStore& settings,
                                     SoundEngine* engine, AudioPlayer* player,
                                     SwitchDesigner::SampleWriter writer, QObject* parent)
    : QObject(parent), packs_(packs), player_(player), designer_(std::move(writer)),
      saves_(packs, settings, engine) {
    // Save is greyed out while a save runs, and open again once it ends.
    connect(&saves_, &UserKitJobs::busyChanged, this, [this] {
        Q_EMIT busyChanged();
        Q_EMIT canSaveChanged();
    });
    connect(&saves_, &UserKitJobs::packsReloaded, this, &DesignerViewModel::packsReloaded);
    changeParams(params_);
}

void DesignerViewModel::setParams(const SynthParams& params) {
    SynthParams next;
    next.bodyHz = clamped(params.bodyHz, SwitchDesigner::kBodyHzRange, params_.bodyHz);
    next.click = clamped(params.click, SwitchDesigner::kClickRange, params_.click);
    next.decayMs = clamped(params.decayMs, SwitchDesigner::kDecayMsRange, params_.decayMs);
    next.toneHz = clamped(params.toneHz, SwitchDesigner::kToneHzRange, params_.toneHz);
    next.clicky = params.clicky;
    if (next != params_)
        changeParams(next);
}

void DesignerViewModel::setBodyHz(double value) {
    SynthParams next = params_;
    next.bodyHz = clamped(value, SwitchDesigner::kBodyHzRange, params_.bodyHz);
    setParams(next);
}

void DesignerViewModel::setClick(double value) {
    SynthParams next = params_;
    next.click = clamped(value, SwitchDesigner::kClickRange, params_.click);
    setParams(next);
}

void DesignerViewModel::setDecayMs(double value) {
    SynthParams next = params_;
    next.decayMs = clamped(value, SwitchDesigner::kDecayMsRange, params_.decayMs);
    setParams(next);
}

void DesignerViewModel::setToneHz(double value) {
    SynthParams next = params_;
    next.toneHz = clamped(value, SwitchDesigner::kToneHzRange, params_.toneHz);
    setParams(next);
}

void DesignerViewModel::setClicky(bool value) {
    SynthParams next = params_;
    next.clicky = value;
    setParams(next);
}

void DesignerViewModel::changeParams(const SynthParams& next) {
    params_ = next;
    const std::vector<float> peaks = SwitchDesigner::waveform(params_, kWaveformPoints);
    waveform_.clear();
    waveform_.reserve(static_cast<qsizetype>(peaks.size()));
    for (float peak : peaks)
        waveform_.append(static_cast<double>(peak));
    Q_EMIT paramsChanged();
    Q_EMIT waveformChanged();
}

QVariantMap DesignerViewModel::ranges() const {
    return {{QStringLiteral("bodyHz"), rangeMap(SwitchDesigner::kBodyHzRange)},
            {QStringLiteral("click"), rangeMap(SwitchDesigner::kClickRange)},
            {QStringLiteral("decayMs"), rangeMap(SwitchDesigner::kDecayMsRange)},
            {QStringLiteral("toneHz"), rangeMap(SwitchDesigner::kToneHzRange)}};
}

QStringList DesignerViewModel::presets() const {
    QStringList names;
    for (const SwitchDesigner::Preset& preset : SwitchDesigner::kPresets)
        names << QString::fromUtf8(preset.name.data(), static_cast<qsizetype>(preset.name.size()));
    return names;
}

int DesignerViewModel::presetIndex() const {
    for (std::size_t i = 0; i < SwitchDesigner::kPresets.size(); ++i)
        if (SwitchDesigner::kPresets[i].params == params_)
            return static_cast<int>(i);
    return -1;
}

void DesignerViewModel::applyPreset(int index) {
    if (index < 0 || index >= static_cast<int>(SwitchDesigner::kPresets.size()))
        return;
    setParams(SwitchDesigner::kPresets[static_cast<std::size_t>(index)].params);
}

void DesignerViewModel::setName(const QString& value) {
    if (value == name_)
        return;
    const bool could = canSave();
    name_ = value;
    Q_EMIT nameChanged();
    if (could != canSave())
        Q_EMIT canSaveChanged();
}

bool DesignerViewModel::canSave() const {
    return !busy() && !SwitchDesigner::displayName(name_).isEmpty();
}

void DesignerViewModel::preview() {
    if (player_)
        player_->preview(SynthEngine::makeBuffer(SwitchDesigner::previewSamples(params_)), 1.0f);
}

void DesignerViewModel::save() {
    if (!canSave())
        return;
    const bool started = saves_.start(
        [designer = designer_, params = params_, name = name_,
         directory = packs_.userDirectory()]() -> UserKitJobs::Outcome {
            const SwitchDesigner::Result result = designer.save(params, name, directory);
            if (!result.ok())
                return {{}, QString::fromStdString(result.error)};
            return {result.id, {}};
        },
        [this](const UserKitJobs::Outcome& outcome) { finishSave(outcome); });
    if (started)
        setStatus(QStringLiteral("Saving…"));
}

void DesignerViewModel::finishSave(const UserKitJobs::Outcome& outcome) {
    setStatus(outcome.ok() ? kSavedStatus : kFailedStatus + outcome.error);
    Q_EMIT saveFinished(outcome.ok());
}

void DesignerViewModel::setStatus(const QString& value) {
    if (value == status_)
        return;
    status_ = value;
    Q_EMIT statusChanged();
}

} // namespace tappix
