// Mixes, pack tunings and themes: the JSON values kept inside the preferences.
#include "fuzz_support.h"
#include "settings/pack_tuning.h"
#include "settings/sound_mix.h"
#include "settings/theme_palette.h"

#include <QJsonDocument>
#include <QJsonObject>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray input = tappix::fuzz::bytes(data, size);
    const QJsonDocument document = QJsonDocument::fromJson(input);
    const QJsonValue value =
        document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
    tappix::SoundMix::fromJsonArray(value);
    tappix::SoundMix::fromJson(value);
    tappix::PackTuning::fromJson(value);
    tappix::ThemePalette::fromJson(value);
    for (const QJsonValue& item : document.object())
        tappix::PackTuning::fromJson(item);
    tappix::Rgb::parse(QString::fromUtf8(input.left(64)));
    return 0;
}
