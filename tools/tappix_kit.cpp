// tappix-kit: a command-line companion for people who make Tappix kits.

#include "input/key_group.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr const char* kHelp =
    "Usage: tappix-kit COMMAND [OPTIONS]\n"
    "\n"
    "Tools for people who make Tappix sound kits.\n"
    "\n"
    "Commands:\n"
    "  keys      Print every key code Tappix delivers, one per line, tab-separated:\n"
    "              code     the key code (0-127 keyboard keys, 1000-1022 media keys)\n"
    "              name     the name a kit's config.json uses for the key, or -\n"
    "              group    the keyboard region a mix assigns by (letters, space,\n"
    "                       enter, backspace, modifier, arrows, functionRow, numberRow)\n"
    "              column   the key's column 0 (left) to 13 (right), or -\n"
    "              pan      the key's stereo position before the kit's width (-0.35..0.35)\n"
    "              typing   yes when a press counts as typing in the statistics\n"
    "              label    the key-cast overlay's key-cap text, or -\n"
    "              sounds   the sound names tried in a kit, in order\n"
    "  help      Show this text (also -h, --help).\n";

void printKey(tappix::KeyCode code) {
    const auto name = tappix::keyName(code);
    const auto column = tappix::keyColumn(code);
    const auto label = tappix::keyLabel(code);
    std::string candidates;
    for (std::string_view candidate : tappix::soundCandidates(code)) {
        if (!candidates.empty())
            candidates += ',';
        candidates += candidate;
    }
    const std::string_view group = tappix::KeyGroup::of(code).rawValue();
    std::printf("%lld\t%.*s\t%.*s\t%s\t%.6f\t%s\t%.*s\t%s\n", static_cast<long long>(code),
                static_cast<int>(name ? name->size() : 1), name ? name->data() : "-",
                static_cast<int>(group.size()), group.data(),
                column ? std::to_string(*column).c_str() : "-",
                static_cast<double>(tappix::panPosition(code)),
                tappix::isTypingKey(code) ? "yes" : "no",
                static_cast<int>(label ? label->size() : 1), label ? label->data() : "-",
                candidates.c_str());
}

int keys() {
    for (tappix::KeyCode code = 0; code <= 127; ++code)
        printKey(code);
    for (tappix::KeyCode code = 1000; code <= 1022; ++code)
        printKey(code);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (command == "keys")
        return keys();
    if (command == "help" || command == "-h" || command == "--help") {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (command.empty())
        std::fputs("tappix-kit: no command given\n\n", stderr);
    else
        std::fprintf(stderr, "tappix-kit: unknown command '%s'\n\n", argv[1]);
    std::fputs(kHelp, stderr);
    return 2;
}
