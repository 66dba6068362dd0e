#include "kits/switch_designer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>

namespace tappix {

namespace {

// Silence between the press and the release of a preview, so both are heard apart.
constexpr float kPreviewGapMs = 70.0f;

std::filesystem::path fsPath(const QString& path) {
    return std::filesystem::path(QFile::encodeName(path).toStdString());
}

bool isSpaceOrTab(QChar c) {
    return c == QLatin1Char(' ') || c == QLatin1Char('\t');
}

} // namespace

QString SwitchDesigner::displayName(const QString& name) {
    qsizetype first = 0;
    qsizetype last = name.size();
    while (first < last && isSpaceOrTab(name[first]))
        ++first;
    while (last > first && isSpaceOrTab(name[last - 1]))
        --last;
    return name.mid(first, last - first);
}

namespace {

QString fileName(std::string_view group, const char* direction, int index) {
    return QStringLiteral("%1_%2_%3.wav")
        .arg(QLatin1String(group.data(), static_cast<qsizetype>(group.size())))
        .arg(QLatin1String(direction))
        .arg(index);
}

} // namespace

SwitchDesigner::SwitchDesigner(SampleWriter writer) : writer_(std::move(writer)) {}

QString SwitchDesigner::slug(const QString& name) {
    const QString lower = displayName(name).toLower();
    QString out;
    bool inRun = false;
    for (QChar c : lower) {
        const char16_t u = c.unicode();
        if ((u >= u'a' && u <= u'z') || (u >= u'0' && u <= u'9')) {
            out += c;
            inRun = false;
        } else if (!inRun) {
            out += QLatin1Char('-');
            inRun = true;
        }
    }
    qsizetype first = 0;
    qsizetype last = out.size();
    while (first < last && out[first] == QLatin1Char('-'))
        ++first;
    while (last > first && out[last - 1] == QLatin1Char('-'))
        --last;
    return out.mid(first, last - first);
}

QString SwitchDesigner::kitId(const QString& name) {
    return QString::fromUtf8(kIdPrefix.data(), static_cast<qsizetype>(kIdPrefix.size())) +
           slug(name);
}

SynthParams SwitchDesigner::groupParams(std::string_view group, const SynthParams& design) {
    SynthParams params = design;
    if (group == "space") {
        params.bodyHz = design.bodyHz * 0.63f;
        params.decayMs = design.decayMs * 1.55f;
    } else if (group == "enter") {
        params.bodyHz = design.bodyHz * 0.8f;
        params.decayMs = design.decayMs * 1.33f;
    } else if (group == "backspace") {
        params.bodyHz = design.bodyHz * 0.9f;
    } else if (group == "modifier") {
        params.bodyHz = design.bodyHz * 1.1f;
        params.click = design.click * 0.7f;
        params.decayMs = design.decayMs * 0.78f;
    }
    return params;
}

SoundpackConfig SwitchDesigner::manifest(const QString& id, const QString& name) {
    SoundpackConfig config;
    config.id = id.toStdString();
    config.metadata.name = displayName(name).toStdString();
    config.metadata.brand = "Custom";
    config.metadata.author = "Made in Tappix";
    config.metadata.category = "keyboard";
    config.metadata.supportsKeyUp = true;
    config.license = {"user-created", ""};
    for (std::string_view group : kGroups) {
        SoundpackConfig::KeySound sound;
        for (int i = 0; i < kPresses; ++i)
            sound.down.push_back(fileName(group, "down", i).toStdString());
        for (int j = 0; j < kReleases; ++j)
            sound.up.push_back(fileName(group, "up", j).toStdString());
        config.sounds.emplace(std::string(group), std::move(sound));
    }
    return config;
}

std::vector<float> SwitchDesigner::previewSamples(const SynthParams& design) {
    const SynthParams alpha = groupParams("alpha", design);
    std::vector<float> out = SynthEngine::render(alpha, kPreviewSeed, false);
    const auto gap = static_cast<std::size_t>(kPreviewGapMs / 1000.0f *
                                              static_cast<float>(SynthEngine::kSampleRate));
    out.resize(out.size() + gap, 0.0f);
    const std::vector<float> release = SynthEngine::render(alpha, kPreviewSeed, true);
    out.insert(out.end(), release.begin(), release.end());
    return out;
}

std::vector<float> SwitchDesigner::waveform(const SynthParams& design, int points) {
    return outline(previewSamples(design), points);
}

std::vector<float> SwitchDesigner::outline(const std::vector<float>& samples, int points) {
    if (points <= 0)
        return {};
    const auto count = static_cast<std::size_t>(points);
    std::vector<float> peaks(count, 0.0f);
    if (samples.empty())
        return peaks;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t begin = i * samples.size() / count;
        const std::size_t end = std::max(begin + 1, (i + 1) * samples.size() / count);
        float peak = 0.0f;
        for (std::size_t s = begin; s < end && s < samples.size(); ++s)
            peak = std::max(peak, std::fabs(samples[s]));
        peaks[i] = std::min(peak, 1.0f);
    }
    return peaks;
}

std::string SwitchDesigner::writeKit(const SoundpackConfig& config,
                                     const std::vector<KitFile>& files,
                                     const QString& directory) const {
    if (!writer_)
        return "there is no way to write audio files here";
    const QString sounds = directory + QStringLiteral("/sounds");
    std::error_code made;
    std::filesystem::create_directories(fsPath(sounds), made);
    if (made)
        return made.message();
    for (const auto& [file, samples] : files) {
        std::string error;
        if (!writer_(samples, sounds + QLatin1Char('/') + QString::fromStdString(file), error))
            return file + ": " + error;
    }
    const QByteArray json = QJsonDocument(config.toJson()).toJson(QJsonDocument::Indented);
    QFile manifestFile(directory + QStringLiteral("/config.json"));
    if (!manifestFile.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        manifestFile.write(json) != json.size() || !manifestFile.flush())
        return "config.json: " + manifestFile.errorString().toStdString();
    return {};
}

SwitchDesigner::Result SwitchDesigner::saveWhole(const SoundpackConfig& config,
                                                 const std::vector<KitFile>& files,
                                                 const QString& userDirectory) const {
    Result result;
    result.id = QString::fromStdString(config.id);
    result.directory = userDirectory + QLatin1Char('/') + result.id;
    std::error_code made;
    std::filesystem::create_directories(fsPath(userDirectory), made);
    if (made) {
        result.error = userDirectory.toStdString() + ": " + made.message();
        return result;
    }
    // Hidden, so a store scanning the kit directory meanwhile never sees a half-made kit.
    QTemporaryDir staging(userDirectory + QStringLiteral("/.save-XXXXXX"));
    if (!staging.isValid()) {
        result.error = userDirectory.toStdString() + ": " + staging.errorString().toStdString();
        return result;
    }
    const QString built = staging.path() + QStringLiteral("/kit");
    result.error = writeKit(config, files, built);
    if (!result.ok())
        return result;
    const QString previous = staging.path() + QStringLiteral("/previous");
    const bool replacing = QFileInfo::exists(result.directory);
    if (replacing && !QDir().rename(result.directory, previous)) {
        result.error = "cannot replace the earlier kit in " + result.directory.toStdString();
        return result;
    }
    if (!QDir().rename(built, result.directory)) {
        if (replacing)
            QDir().rename(previous, result.directory);
        result.error = "cannot move the new kit to " + result.directory.toStdString();
    }
    return result;
}

SwitchDesigner::Result SwitchDesigner::save(const SynthParams& design, const QString& name,
                                            const QString& userDirectory) const {
    Result result;
    result.id = kitId(name);
    result.directory = userDirectory + QLatin1Char('/') + result.id;
    if (displayName(name).isEmpty()) {
        result.error = "the kit needs a name";
        return result;
    }
    if (!writer_) {
        result.error = "there is no way to write audio files here";
        return result;
    }

    // An earlier kit of the same id goes first; whatever cannot be removed is
    // overwritten or reported by the steps below.
    std::error_code ignored;
    std::filesystem::remove_all(fsPath(result.directory), ignored);
    std::vector<KitFile> files;
    std::uint64_t seed = kFirstSeed;
    for (std::string_view group : kGroups) {
        const SynthParams params = groupParams(group, design);
        for (int i = 0; i < kPresses + kReleases; ++i) {
            const bool isUp = i >= kPresses;
            const QString file = fileName(group, isUp ? "up" : "down", isUp ? i - kPresses : i);
            files.emplace_back(file.toStdString(), SynthEngine::render(params, seed, isUp));
            seed += kSeedStep;
        }
    }
    result.error = writeKit(manifest(result.id, name), files, result.directory);
    return result;
}

} // namespace tappix
