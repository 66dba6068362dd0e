// The config.json of a pack being imported.
#include "fuzz_support.h"
#include "kits/source_pack_config.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string error;
    std::vector<std::string> problems;
    const QByteArray input = tappix::fuzz::bytes(data, size);
    tappix::SourcePackConfig::decode(input, error, problems);
    // File names with ranges, straight from the bytes.
    tappix::SourcePackConfig::expandRange(input.left(256).toStdString(), error);
    return 0;
}
