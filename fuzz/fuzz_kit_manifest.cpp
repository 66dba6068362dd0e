// A kit's config.json, as the soundpack store decodes it.
#include "fuzz_support.h"
#include "kits/soundpack_config.h"

#include <QJsonDocument>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string error;
    if (auto config = tappix::SoundpackConfig::decode(tappix::fuzz::bytes(data, size), &error)) {
        // What decodes must write out and read back the same.
        const QByteArray again = QJsonDocument(config->toJson()).toJson();
        if (tappix::SoundpackConfig::decode(again) != config)
            __builtin_trap();
        config->orderedSoundKeys();
        config->allFiles();
    }
    return 0;
}
