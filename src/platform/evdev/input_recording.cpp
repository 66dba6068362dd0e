#include "platform/evdev/input_recording.h"

#include <QList>
#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tappix::evdev {
namespace {

// A name between double quotes, or the rest of the line.
std::string unquoted(QByteArray text) {
    text = text.trimmed();
    if (text.size() >= 2 && text.startsWith('"') && text.endsWith('"'))
        text = text.mid(1, text.size() - 2);
    return text.toStdString();
}

// Later than any real clock reading (seconds since 1970 fit ten times over), so every
// time converts to the kernel's seconds and microseconds.
constexpr double kLatestTime = 1e11;

bool validEvent(long long type, long long code, long long value, double time) {
    return type >= 0 && type <= 0xFFFF && code >= 0 && code <= 0xFFFF && value >= INT32_MIN &&
           value <= INT32_MAX && std::isfinite(time) && time >= 0 && time < kLatestTime;
}

} // namespace

std::optional<InputRecording> InputRecording::parse(const QByteArray& text, std::string& error) {
    const QList<QByteArray> lines = text.split('\n');
    InputRecording recording;
    bool evemu = false, libinput = false;
    for (const QByteArray& raw : lines) {
        const QByteArray line = raw.trimmed();
        if (line.startsWith("E: ") || line.startsWith("# EVEMU") || line.startsWith("N: "))
            evemu = true;
        if (line.startsWith("- evdev:") || line.startsWith("libinput:") ||
            line.startsWith("devices:"))
            libinput = true;
    }
    if (evemu == libinput) {
        error = evemu ? "the file mixes evemu-record and libinput record lines"
                      : "neither an evemu-record nor a libinput record recording";
        return std::nullopt;
    }
    recording.format = evemu ? Format::evemu : Format::libinputRecord;

    std::size_t unreadable = 0;
    bool cut = false;
    bool named = false; // the current libinput device has its name
    for (const QByteArray& raw : lines) {
        const QByteArray line = raw.trimmed();
        if (recording.events.size() >= kMaxEvents) {
            cut = true;
            break;
        }
        long long sec = 0, usec = 0, type = 0, code = 0, value = 0;
        if (evemu) {
            if (line.startsWith("N: ")) {
                if (recording.devices.empty())
                    recording.devices.push_back(unquoted(line.mid(3)));
                continue;
            }
            if (!line.startsWith("E: "))
                continue;
            double time = 0;
            unsigned long long hexType = 0, hexCode = 0;
            if (std::sscanf(line.constData() + 3, "%lf %llx %llx %lld", &time, &hexType, &hexCode,
                            &value) != 4 ||
                hexType > 0xFFFF || hexCode > 0xFFFF ||
                !validEvent(type = (long long)hexType, code = (long long)hexCode, value, time)) {
                ++unreadable;
                continue;
            }
            recording.events.push_back(
                {time, 0, std::uint16_t(type), std::uint16_t(code), std::int32_t(value)});
            continue;
        }
        if (line.startsWith("- node:")) {
            recording.devices.emplace_back();
            named = false;
            continue;
        }
        if (line.startsWith("name:") && !recording.devices.empty() && !named) {
            recording.devices.back() = unquoted(line.mid(5));
            named = true;
            continue;
        }
        if (!line.startsWith("- [") || recording.devices.empty())
            continue;
        if (std::sscanf(line.constData() + 3, " %lld , %lld , %lld , %lld , %lld ]", &sec, &usec,
                        &type, &code, &value) != 5 ||
            sec < 0 || usec < 0 || usec >= 1'000'000 ||
            !validEvent(type, code, value, double(sec))) {
            ++unreadable;
            continue;
        }
        recording.events.push_back({double(sec) + double(usec) / 1e6, recording.devices.size() - 1,
                                    std::uint16_t(type), std::uint16_t(code), std::int32_t(value)});
    }
    if (recording.devices.empty())
        recording.devices.emplace_back();
    if (unreadable > 0)
        recording.problems.push_back(std::to_string(unreadable) + " event line" +
                                     (unreadable == 1 ? "" : "s") + " could not be read");
    if (cut)
        recording.problems.push_back("only the first " + std::to_string(kMaxEvents) +
                                     " events are replayed");
    // Several devices are recorded one after the other: replay them as they happened.
    std::stable_sort(recording.events.begin(), recording.events.end(),
                     [](const Event& a, const Event& b) { return a.time < b.time; });
    return recording;
}

} // namespace tappix::evdev
