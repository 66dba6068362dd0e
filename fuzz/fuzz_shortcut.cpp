// The sounds shortcut as written in the preferences ("Ctrl+Super+K").
#include "fuzz_support.h"
#include "input/shortcut.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text = QString::fromUtf8(tappix::fuzz::bytes(data, size));
    if (auto shortcut = tappix::Shortcut::parse(text)) {
        // A shortcut that parses reads back as itself from its own text.
        if (tappix::Shortcut::parse(shortcut->toString()) != shortcut)
            __builtin_trap();
    }
    return 0;
}
