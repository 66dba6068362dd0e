#include "kits/kit_checker.h"

#include "core/sample_files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cstdio>
#include <set>

namespace tappix {

KitReport checkKit(const QString& directory, SampleDecoder& decoder) {
    KitReport report;
    QFile manifest(directory + QStringLiteral("/config.json"));
    if (!QFileInfo(manifest.fileName()).isFile() || !manifest.open(QIODevice::ReadOnly)) {
        report.problems.push_back("no readable config.json in " + directory.toStdString());
        return report;
    }
    std::string error;
    report.config = SoundpackConfig::decode(manifest.readAll(), &error);
    if (!report.config) {
        report.problems.push_back("config.json: " + error);
        return report;
    }
    const SoundpackConfig& config = *report.config;
    const QString sounds = directory + QStringLiteral("/sounds");

    for (const std::string& name : config.allFiles()) {
        std::string problem = sampleFileProblem(sounds, name);
        std::optional<SampleBuffer> buffer;
        if (problem.empty())
            buffer =
                decoder.decode(sounds + QLatin1Char('/') + QString::fromStdString(name), problem);
        if (!buffer) {
            report.problems.push_back("sounds/" + name + ": " + problem);
            continue;
        }
        ++report.goodFiles;
        report.totalSeconds += static_cast<double>(buffer->frames()) / SampleBuffer::kSampleRate;
    }

    if (!config.sounds.contains("alpha") && !config.sounds.contains("default"))
        report.problems.push_back("neither \"alpha\" nor \"default\" is in sounds: keys without a "
                                  "sound of their own will be silent");
    for (const auto& [key, sound] : config.sounds) {
        if (sound.down.empty() && sound.up.empty())
            report.notes.push_back("sounds." + key + " lists no files");
    }
    bool anyUp = false;
    for (const auto& [key, sound] : config.sounds)
        anyUp |= !sound.up.empty();
    if (config.metadata.supportsKeyUp && !anyUp)
        report.problems.push_back("metadata.supportsKeyUp is true but no sound has an \"up\" file");
    if (!config.metadata.supportsKeyUp && anyUp)
        report.notes.push_back("\"up\" files are listed but metadata.supportsKeyUp is false, so "
                               "releases stay silent");
    if (config.metadata.category != "keyboard" && config.metadata.category != "mouse")
        report.notes.push_back(
            "metadata.category \"" + config.metadata.category +
            "\" is neither \"keyboard\" nor \"mouse\"; it lists as a keyboard kit");

    // Files nobody names cost nothing but may be a typo in the manifest.
    const auto named = config.allFiles();
    const std::set<std::string> listed(named.begin(), named.end());
    for (const QString& file : QDir(sounds).entryList(QDir::Files)) {
        if (!listed.contains(file.toStdString()))
            report.notes.push_back("sounds/" + file.toStdString() + " is not used by config.json");
    }
    return report;
}

std::vector<std::string> describeKit(const KitReport& report) {
    std::vector<std::string> lines;
    if (!report.config)
        return lines;
    const SoundpackConfig& c = *report.config;
    char buffer[256];
    lines.push_back(c.metadata.name + " — " + c.metadata.brand + " (id " + c.id + ")");
    lines.push_back("  by " + c.metadata.author + "; licence " + c.license.type +
                    (c.license.url.empty() ? "" : " <" + c.license.url + ">"));
    if (c.metadata.blurb)
        lines.push_back("  " + *c.metadata.blurb);
    std::snprintf(buffer, sizeof buffer, "  %s kit, %s, %d sample files, %.2f s of audio",
                  c.metadata.category.c_str(),
                  c.metadata.supportsKeyUp ? "with release sounds" : "press sounds only",
                  report.goodFiles, report.totalSeconds);
    lines.emplace_back(buffer);
    std::string keys;
    const auto ordered = c.orderedSoundKeys();
    constexpr std::size_t kShown = 10;
    for (std::size_t i = 0; i < ordered.size() && i < kShown; ++i) {
        const std::string& key = ordered[i];
        const auto& sound = c.sounds.find(key)->second;
        std::snprintf(buffer, sizeof buffer, "%s%s %zu/%zu", keys.empty() ? "" : ", ", key.c_str(),
                      sound.down.size(), sound.up.size());
        keys += buffer;
    }
    if (ordered.size() > kShown)
        keys += ", and " + std::to_string(ordered.size() - kShown) + " more keys";
    lines.push_back("  sounds (down/up variants): " + keys);
    for (const std::string& note : report.notes)
        lines.push_back("  note: " + note);
    return lines;
}

} // namespace tappix
