#pragma once

#include <QByteArray>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tappix::evdev {

/// The input events of a recording that Linux users attach to bug reports: the text
/// `evemu-record` writes ("E: 0.000001 0001 001c 0001" lines) or the YAML of
/// `libinput record` (one "- [sec, usec, type, code, value]" line per event), for one
/// device or several. Parsing is line by line and forgiving: what cannot be read is
/// counted in `problems`. Any thread.
struct InputRecording {
    /// Which tool wrote the recording.
    enum class Format { evemu, libinputRecord };

    /// One kernel input event.
    struct Event {
        /// Seconds from the recording's start.
        double time = 0;
        /// Index into `devices`.
        std::size_t device = 0;
        std::uint16_t type = 0;
        std::uint16_t code = 0;
        std::int32_t value = 0;

        friend bool operator==(const Event&, const Event&) = default;
    };

    /// Which tool wrote it.
    Format format = Format::evemu;
    /// The recorded devices' names, as the kernel reported them ("" when not given).
    std::vector<std::string> devices;
    /// Every event, ordered by time (events of one device keep their order).
    std::vector<Event> events;
    /// Lines that could not be read, summarised.
    std::vector<std::string> problems;

    /// Most events read; a longer recording is cut there with a problem line.
    static constexpr std::size_t kMaxEvents = 1'000'000;

    /// Parses `text`; none, with the reason in `error`, when it is neither format.
    static std::optional<InputRecording> parse(const QByteArray& text, std::string& error);
};

} // namespace tappix::evdev
