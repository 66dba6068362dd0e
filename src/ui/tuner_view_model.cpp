#include "ui/tuner_view_model.h"

#include "kits/soundpack_store.h"
#include "settings/settings_store.h"

#include <algorithm>
#include <cmath>

namespace tappix {

namespace {

float clamped(double value, const TunerViewModel::Range& range) {
    return std::clamp(static_cast<float>(value), range.min, range.max);
}

QVariantMap rangeMap(const TunerViewModel::Range& range) {
    return {{QStringLiteral("min"), range.min},
            {QStringLiteral("max"), range.max},
            {QStringLiteral("step"), range.step}};
}

} // namespace

TunerViewModel::TunerViewModel(const SoundpackStore& packs, SettingsStore& settings,
                               QObject* parent)
    : QObject(parent), packs_(packs), settings_(settings) {
    connect(&settings_, &SettingsStore::selectedPackIdChanged, this, [this] {
        Q_EMIT kitChanged();
        Q_EMIT tuningChanged();
    });
    // Tunings change with every other setting's signal; views re-read four numbers.
    connect(&settings_, &SettingsStore::tappixSettingsChanged, this,
            &TunerViewModel::tuningChanged);
}

bool TunerViewModel::hasKit() const {
    return !kitId().isEmpty();
}

QString TunerViewModel::kitId() const {
    return settings_.selectedPackIdText();
}

QString TunerViewModel::kitName() const {
    const Soundpack* pack = packs_.find(kitId().toStdString());
    return pack ? QString::fromStdString(pack->config.metadata.name) : QStringLiteral("None");
}

PackTuning TunerViewModel::tuning() const {
    return hasKit() ? settings_.tuning(kitId()) : PackTuning{};
}

void TunerViewModel::setPitch(double value) {
    PackTuning next = tuning();
    next.pitch = clamped(value, kPitchRange);
    store(next);
}

void TunerViewModel::setGain(double value) {
    PackTuning next = tuning();
    next.gain = clamped(value, kGainRange);
    store(next);
}

void TunerViewModel::setVariation(double value) {
    PackTuning next = tuning();
    next.variation = clamped(value, kVariationRange);
    store(next);
}

void TunerViewModel::setPanWidth(double value) {
    PackTuning next = tuning();
    next.panWidth = clamped(value, kPanWidthRange);
    store(next);
}

QVariantMap TunerViewModel::ranges() const {
    return {{QStringLiteral("pitch"), rangeMap(kPitchRange)},
            {QStringLiteral("gain"), rangeMap(kGainRange)},
            {QStringLiteral("variation"), rangeMap(kVariationRange)},
            {QStringLiteral("panWidth"), rangeMap(kPanWidthRange)}};
}

QString TunerViewModel::hint() const {
    return QStringLiteral("Applies live while you type. Remembered per pack.");
}

void TunerViewModel::reset() {
    store(PackTuning{});
}

void TunerViewModel::kitsReloaded() {
    Q_EMIT kitChanged();
}

void TunerViewModel::store(PackTuning next) {
    // A NaN from a view clamps to itself; the store refuses it.
    if (!hasKit() || next == tuning())
        return;
    settings_.setTuning(kitId(), next);
}

} // namespace tappix
