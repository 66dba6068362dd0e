// A kit's sample file, decoded and converted to 48 kHz mono.
#include "fuzz_support.h"
#include "platform/sndfile/sndfile_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static tappix::fuzz::MemoryFile file;
    static tappix::SndfileDecoder decoder;
    const QString path = file.write(data, size);
    std::string error;
    if (!path.isEmpty())
        decoder.decode(path, error);
    return 0;
}
