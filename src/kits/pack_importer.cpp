#include "kits/pack_importer.h"

#include "input/key_codes.h"
#include "kits/source_pack_config.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <numbers>
#include <set>

namespace tappix {
namespace {

using Layout = SourcePackConfig::Layout;

constexpr std::string_view kModifierNames[] = {"shiftLeft",  "shiftRight",  "ctrlLeft",
                                               "optionLeft", "optionRight", "command",
                                               "capsLock",   "fn"};
constexpr std::string_view kGroupNames[] = {"space", "enter", "backspace"};
// Keypad keys as some systems report them with Num Lock off: 0xEE00 plus the scan code.
// They repeat the navigation keys, so the navigation keys' own codes win.
constexpr std::int64_t kAliasFirst = 0xEE00, kAliasLast = 0xEEFF;

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

std::string milliseconds(double ms) {
    return QString::number(ms, 'f', ms == std::floor(ms) ? 0 : 1).toStdString() + " ms";
}

// A pack's file name as a safe relative path, or none with the reason.
std::optional<QString> safeName(const std::string& raw, std::string& error) {
    QString name = QString::fromStdString(raw).trimmed();
    name.replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (name.isEmpty()) {
        error = "empty file name";
        return std::nullopt;
    }
    if (name.startsWith(QLatin1Char('/')) ||
        (name.size() > 1 && name[1] == QLatin1Char(':') && name[0].isLetter())) {
        error = "an absolute path; only files inside the pack are read";
        return std::nullopt;
    }
    QStringList parts;
    for (const QString& part : name.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        if (part == QLatin1String("..")) {
            error = "the name leaves the pack";
            return std::nullopt;
        }
        if (part != QLatin1String("."))
            parts.push_back(part);
    }
    if (parts.isEmpty()) {
        error = "empty file name";
        return std::nullopt;
    }
    return parts.join(QLatin1Char('/'));
}

// The name of a converted file: the source's path flattened, letters, digits, "-" and "_".
QString flatName(const QString& source) {
    QString base = source;
    const qsizetype dot = base.lastIndexOf(QLatin1Char('.'));
    if (dot > base.lastIndexOf(QLatin1Char('/')))
        base.truncate(dot);
    QString out;
    for (const QChar c : base)
        out += (c.isLetterOrNumber() && c.unicode() < 128) || c == QLatin1Char('-')
                   ? c
                   : QLatin1Char('_');
    return out.left(80);
}

QString extensionOf(const QString& name) {
    const QString suffix = QFileInfo(name).suffix().toLower();
    const bool plain = !suffix.isEmpty() && suffix.size() <= 5 &&
                       std::all_of(suffix.begin(), suffix.end(), [](QChar c) {
                           return c.unicode() < 128 && c.isLetterOrNumber();
                       });
    return plain ? QStringLiteral(".") + suffix : QString();
}

// Raised-cosine fades at both ends, so a cut never clicks.
void fadeEdges(std::vector<float>& samples) {
    const std::size_t length =
        std::min(samples.size() / 4, static_cast<std::size_t>(PackImporter::kFadeMs *
                                                              SampleBuffer::kSampleRate / 1000));
    for (std::size_t i = 0; i < length; ++i) {
        const float gain = static_cast<float>(
            0.5 - 0.5 * std::cos(std::numbers::pi * static_cast<double>(i) / length));
        samples[i] *= gain;
        samples[samples.size() - 1 - i] *= gain;
    }
}

// Where the kit at `path` was imported from; none when it was not imported.
std::optional<QJsonObject> earlierImport(const QString& path) {
    QFile file(path + QStringLiteral("/config.json"));
    if (QFileInfo(path).isSymLink() || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QJsonValue origin = QJsonDocument::fromJson(file.read(PackImporter::kMaxConfigBytes))
                                  .object()
                                  .value(QLatin1String("origin"));
    return origin.isObject() ? std::optional(origin.toObject()) : std::nullopt;
}

// Whether an earlier import came from the same pack: same pack id, or for packs
// without one, the same file name.
bool samePack(const QJsonObject& origin, const SourcePackConfig& config, const QString& source) {
    if (!config.id.empty())
        return origin.value(QLatin1String("packId")).toString().toStdString() == config.id;
    return origin.value(QLatin1String("importedFrom")).toString() == source;
}

/// One import: the decoded sources, the files written, and what went wrong.
class ImportRun {
public:
    ImportRun(PackSource& source, const PackImporter::Options& options, SampleDecoder& decoder,
              const PackImporter::SampleWriter& writer, const QString& staging)
        : source_(source), options_(options), decoder_(decoder), writer_(writer),
          sounds_(staging + QStringLiteral("/kit/sounds")), scratch_(staging + "/source") {
        QDir().mkpath(sounds_);
        QDir().mkpath(scratch_);
    }

    std::vector<std::string> problems;
    bool stopped = false;

    bool cancelled() const { return options_.cancel && options_.cancel->load(); }

    // The decoded audio of a whole pack file; null (reported once) when it cannot be used.
    std::shared_ptr<const SampleBuffer> audio(const std::string& raw) {
        if (auto it = audio_.find(raw); it != audio_.end())
            return it->second;
        auto& slot = audio_[raw];
        const auto staged = stage(raw);
        if (!staged)
            return nullptr;
        std::string error;
        auto buffer = decoder_.decode(*staged, error);
        QFile::remove(*staged);
        if (!buffer) {
            problems.push_back("sound file " + quoted(raw) + " does not decode: " + error +
                               "; skipped");
            return nullptr;
        }
        slot = std::make_shared<const SampleBuffer>(std::move(*buffer));
        return slot;
    }

    // Decodes, in one pass over a pack file, only the stretches `slices` cut from it
    // (single packs): however long the file, what is kept is what the slices use.
    void cut(const std::string& raw, const std::vector<SourcePackConfig::Slice>& slices) {
        if (cut_.contains(raw))
            return;
        auto& file = cut_[raw];
        const auto staged = stage(raw);
        if (!staged)
            return;
        std::vector<SampleDecoder::Span> spans;
        for (const auto& slice : slices)
            spans.push_back({framesAt(slice.startMs), framesAt(slice.startMs + slice.durationMs)});
        std::string error;
        auto decoded = decoder_.decodeSpans(*staged, spans, error);
        QFile::remove(*staged);
        if (!decoded) {
            problems.push_back("sound file " + quoted(raw) + " does not decode: " + error +
                               "; skipped");
            return;
        }
        file.frames = decoded->frames;
        for (std::size_t i = 0; i < slices.size(); ++i)
            file.pieces[{slices[i].startMs, slices[i].durationMs}] =
                std::move(decoded->parts[i].samples);
        file.decoded = true;
    }

    // Writes `samples` as a kit file named after `stem`; the file name, or none.
    std::optional<std::string> write(const QString& stem, const std::vector<float>& samples) {
        QString name = stem + QStringLiteral(".wav");
        for (int n = 2; written_.contains(name.toStdString()); ++n)
            name = stem + QLatin1Char('_') + QString::number(n) + QStringLiteral(".wav");
        std::string error;
        if (!writer_(samples, sounds_ + QLatin1Char('/') + name, error)) {
            problems.push_back("cannot write " + name.toStdString() + ": " + error);
            return std::nullopt;
        }
        written_.insert(name.toStdString());
        return name.toStdString();
    }

    // A whole pack file as a kit file (multi packs), converted once however often named.
    std::optional<std::string> whole(const std::string& raw) {
        if (auto it = wholes_.find(raw); it != wholes_.end())
            return it->second;
        std::optional<std::string> name;
        if (auto buffer = audio(raw))
            name = write(flatName(QString::fromStdString(raw)), buffer->samples);
        wholes_[raw] = name;
        return name;
    }

    // One slice of a pack file as a kit file (single packs), once `cut` has decoded it.
    std::optional<std::string> slice(const std::string& raw,
                                     const SourcePackConfig::Define& define) {
        const auto key = std::tuple{raw, define.slice.startMs, define.slice.durationMs};
        if (auto it = slices_.find(key); it != slices_.end())
            return it->second;
        auto& result = slices_[key];
        const auto file = cut_.find(raw);
        if (file == cut_.end() || !file->second.decoded)
            return std::nullopt;
        const std::string where =
            "defines: " + quoted(std::to_string(define.code) + (define.up ? "-up" : ""));
        const std::size_t frames = file->second.frames;
        const double lengthMs = 1000.0 * static_cast<double>(frames) / SampleBuffer::kSampleRate;
        const std::size_t first = framesAt(define.slice.startMs);
        if (first + 1 >= frames) {
            problems.push_back(where + " starts at " + milliseconds(define.slice.startMs) +
                               ", past the end of the audio (" + milliseconds(lengthMs) +
                               "); skipped");
            return std::nullopt;
        }
        if (framesAt(define.slice.startMs + define.slice.durationMs) > frames)
            problems.push_back(where + " runs past the end of the audio (" +
                               milliseconds(lengthMs) + "); cut short there");
        std::vector<float> samples =
            file->second.pieces.at({define.slice.startMs, define.slice.durationMs});
        fadeEdges(samples);
        result =
            write(QStringLiteral("slice_%1").arg(slices_.size(), 3, 10, QLatin1Char('0')), samples);
        return result;
    }

private:
    // A pack file's slices, decoded.
    struct CutFile {
        bool decoded = false;
        // The length of the file's audio, frames at 48 kHz.
        std::size_t frames = 0;
        // Start and duration in ms → the samples there.
        std::map<std::pair<double, double>, std::vector<float>> pieces;
    };

    static std::size_t framesAt(double ms) {
        return static_cast<std::size_t>(
            std::llround(std::max(0.0, ms) * SampleBuffer::kSampleRate / 1000.0));
    }

    // Reads a pack file into a scratch file of our own for the decoder, which reads
    // files; its path, or none (reported) when it cannot be read.
    std::optional<QString> stage(const std::string& raw) {
        std::string error;
        const auto name = safeName(raw, error);
        if (!name) {
            problems.push_back("sound file " + quoted(raw) + ": " + error + "; skipped");
            return std::nullopt;
        }
        if (stopped || cancelled())
            return std::nullopt;
        const qint64 allowance = std::min(options_.maxFileBytes, options_.maxTotalBytes - total_);
        auto bytes = source_.read(*name, allowance, error);
        if (!bytes) {
            if (allowance < options_.maxFileBytes) {
                problems.push_back("the pack holds more than " +
                                   std::to_string(options_.maxTotalBytes / (1024 * 1024)) +
                                   " MiB of audio; the rest is not read");
                stopped = true;
            } else {
                problems.push_back("sound file " + quoted(raw) + ": " + error + "; skipped");
            }
            return std::nullopt;
        }
        total_ += bytes->size();
        const QString staged =
            scratch_ + QLatin1Char('/') + QString::number(++staged_) + extensionOf(*name);
        QFile file(staged);
        if (!file.open(QIODevice::WriteOnly) || file.write(*bytes) != bytes->size()) {
            problems.push_back("sound file " + quoted(raw) +
                               ": cannot stage it: " + file.errorString().toStdString());
            return std::nullopt;
        }
        return staged;
    }

    PackSource& source_;
    const PackImporter::Options& options_;
    SampleDecoder& decoder_;
    const PackImporter::SampleWriter& writer_;
    QString sounds_;
    QString scratch_;
    qint64 total_ = 0;
    int staged_ = 0;
    std::map<std::string, std::shared_ptr<const SampleBuffer>> audio_;
    std::map<std::string, CutFile> cut_;
    std::map<std::string, std::optional<std::string>> wholes_;
    std::map<std::tuple<std::string, double, double>, std::optional<std::string>> slices_;
    std::set<std::string> written_;
};

// Appends the names not yet in `into`, keeping at most `limit`.
void pool(std::vector<std::string>& into, const std::vector<std::string>& from,
          std::size_t limit = PackImporter::kMaxPooledVariants) {
    for (const std::string& name : from) {
        if (into.size() >= limit)
            return;
        if (std::find(into.begin(), into.end(), name) == into.end())
            into.push_back(name);
    }
}

std::string listCodes(const std::vector<std::int64_t>& codes) {
    std::string text;
    for (std::size_t i = 0; i < codes.size() && i < 6; ++i)
        text += (i ? ", " : "") + std::to_string(codes[i]);
    if (codes.size() > 6)
        text += ", …";
    return text;
}

} // namespace

PackImporter::PackImporter(SampleDecoder& decoder, SampleWriter writer, KeyTranslator translate)
    : decoder_(decoder), writer_(std::move(writer)), translate_(std::move(translate)) {}

std::string PackImporter::kitIdFor(const std::string& name) {
    std::string slug;
    for (const char c : QString::fromStdString(name).toLower().toStdString()) {
        const bool keep = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        if (keep)
            slug += c;
        else if (!slug.empty() && slug.back() != '-')
            slug += '-';
    }
    while (!slug.empty() && slug.back() == '-')
        slug.pop_back();
    slug = slug.substr(0, 48);
    while (!slug.empty() && slug.back() == '-')
        slug.pop_back();
    return "imported-" + (slug.empty() ? std::string("pack") : slug);
}

bool PackImporter::isValidKitId(const std::string& id) {
    if (id.empty() || id.size() > 64 || id.front() == '.' || id.front() == '-' || id.front() == '_')
        return false;
    return std::all_of(id.begin(), id.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
    });
}

PackImportResult PackImporter::importPack(PackSource& source, const Options& options) {
    PackImportResult result;
    const auto refuse = [&](std::string error) {
        result.error = std::move(error);
        return result;
    };
    std::string error;
    const auto bytes = source.read(QStringLiteral("config.json"), kMaxConfigBytes, error);
    if (!bytes)
        return refuse("config.json: " + error);
    const auto config = SourcePackConfig::decode(*bytes, error, result.problems);
    if (!config)
        return refuse(error);
    for (const std::string& problem : source.problems())
        result.problems.push_back(problem);

    std::string id = options.id.empty() ? kitIdFor(config->name) : options.id;
    if (!isValidKitId(id))
        return refuse("\"" + id +
                      "\" cannot be a kit id: use 1 to 64 lower-case letters, digits, "
                      "dots, dashes or underscores");
    if (std::find(options.reservedIds.begin(), options.reservedIds.end(), id) !=
        options.reservedIds.end())
        return refuse("\"" + id + "\" is the id of a kit that comes with Tappix; choose another");
    if (!QDir().mkpath(options.kitDirectory))
        return refuse("cannot create the kit directory " + options.kitDirectory.toStdString());
    // Importing a pack again replaces its earlier import; another pack whose name gives
    // the same id gets the next free one, unless the id was asked for.
    const QDir kitDirectory(options.kitDirectory);
    QString target = kitDirectory.absoluteFilePath(QString::fromStdString(id));
    const std::string base = id;
    for (int n = 2; options.id.empty() && QFileInfo::exists(target) && n < 100; ++n) {
        const auto origin = earlierImport(target);
        if (origin && samePack(*origin, *config, source.displayName()))
            break;
        id = base + "-" + std::to_string(n);
        target = kitDirectory.absoluteFilePath(QString::fromStdString(id));
    }
    const bool replacing = QFileInfo::exists(target);
    if (replacing && !earlierImport(target))
        return refuse(target.toStdString() +
                      " already holds a kit that was not imported; choose another id");

    // Hidden, so a store scanning the kit directory meanwhile never sees a half-made kit.
    QTemporaryDir staging(options.kitDirectory + QStringLiteral("/.import-XXXXXX"));
    if (!staging.isValid())
        return refuse("cannot write in " + options.kitDirectory.toStdString() + ": " +
                      staging.errorString().toStdString());
    ImportRun run(source, options, decoder_, writer_, staging.path());

    // Choose, for each Tappix key name and direction, the define that answers it: the
    // key's own code before its keypad alias, then the lower code (the main Enter,
    // left Control and left Meta before their twins, which share Tappix's names).
    struct Choice {
        const SourcePackConfig::Define* define = nullptr;
        int rank = 0;
    };
    std::map<std::string, Choice, std::less<>> chosen[2];
    std::vector<std::int64_t> unknownCodes, unnamedCodes;
    for (const auto& define : config->defines) {
        const auto code = translate_(define.code);
        if (!code) {
            unknownCodes.push_back(define.code);
            continue;
        }
        const auto name = keyName(*code);
        if (!name) {
            unnamedCodes.push_back(define.code);
            continue;
        }
        const int rank = define.code >= kAliasFirst && define.code <= kAliasLast ? 1 : 0;
        Choice& choice = chosen[define.up][std::string(*name)];
        if (!choice.define || rank < choice.rank ||
            (rank == choice.rank && define.code < choice.define->code))
            choice = {&define, rank};
    }

    // The file a single pack's define is cut from.
    const auto sourceOf = [&](const SourcePackConfig::Define& define) -> const std::string& {
        return define.up && !config->soundUp.empty() ? config->soundUp.front()
                                                     : config->sound.front();
    };
    if (config->layout == Layout::single) {
        // Each file is decoded once, for the slices the chosen defines cut from it.
        std::map<std::string, std::vector<SourcePackConfig::Slice>> slicesOf;
        for (const auto& choices : chosen)
            for (const auto& [name, choice] : choices)
                slicesOf[sourceOf(*choice.define)].push_back(choice.define->slice);
        for (const auto& [file, slices] : slicesOf)
            run.cut(file, slices);
    }
    const auto variantsOf = [&](const SourcePackConfig::Define& define) {
        std::vector<std::string> files;
        if (config->layout == Layout::single) {
            if (auto file = run.slice(sourceOf(define), define))
                files.push_back(*file);
        } else {
            for (const std::string& name : define.files)
                if (auto file = run.whole(name))
                    files.push_back(*file);
        }
        return files;
    };

    SoundpackConfig kit;
    kit.id = id;
    for (int up = 0; up < 2; ++up) {
        for (const auto& [name, choice] : chosen[up]) {
            if (run.cancelled())
                return refuse("the import was cancelled");
            auto files = variantsOf(*choice.define);
            auto& sound = kit.sounds[name];
            (up ? sound.up : sound.down) = std::move(files);
        }
    }
    if (run.cancelled())
        return refuse("the import was cancelled");

    // The default sound: the pack's own fallback, else the letters' sounds pooled, else
    // everything's. "alpha" is the same, so keys Tappix cannot name play it too.
    SoundpackConfig::KeySound fallback;
    if (config->layout == Layout::multi) {
        for (const std::string& name : config->sound)
            if (auto file = run.whole(name))
                pool(fallback.down, {*file});
        for (const std::string& name : config->soundUp)
            if (auto file = run.whole(name))
                pool(fallback.up, {*file});
    }
    const auto poolFrom = [&](auto&& accept, std::vector<std::string>& into, bool up) {
        for (const auto& [name, sound] : kit.sounds)
            if (accept(name))
                pool(into, up ? sound.up : sound.down);
    };
    const auto isLetter = [](std::string_view name) {
        return name.size() == 1 && name[0] >= 'a' && name[0] <= 'z';
    };
    for (int up = 0; up < 2; ++up) {
        auto& into = up ? fallback.up : fallback.down;
        if (into.empty())
            poolFrom(isLetter, into, up);
        if (into.empty())
            poolFrom([](std::string_view) { return true; }, into, up);
    }
    if (fallback.down.empty())
        return refuse(run.problems.empty()
                          ? "the pack defines no sound Tappix could use"
                          : "nothing in the pack could be used: " + run.problems.front());

    SoundpackConfig::KeySound modifier;
    const auto isModifier = [](std::string_view name) {
        return std::find(std::begin(kModifierNames), std::end(kModifierNames), name) !=
               std::end(kModifierNames);
    };
    poolFrom(isModifier, modifier.down, false);
    poolFrom(isModifier, modifier.up, true);
    // Drop keys whose every file failed, then fill the groups.
    std::erase_if(kit.sounds, [](const auto& entry) {
        return entry.second.down.empty() && entry.second.up.empty();
    });
    kit.sounds["default"] = fallback;
    kit.sounds["alpha"] = fallback;
    kit.sounds["modifier"] = modifier.down.empty() ? fallback : modifier;
    for (std::string_view group : kGroupNames) {
        auto& sound = kit.sounds[std::string(group)];
        if (sound.down.empty())
            sound.down = fallback.down;
        if (sound.up.empty())
            sound.up = fallback.up;
    }

    kit.metadata.name = config->name;
    kit.metadata.brand = "Imported";
    kit.metadata.author = config->author.value_or("Unknown");
    kit.metadata.category = "keyboard";
    for (const auto& [name, sound] : kit.sounds)
        kit.metadata.supportsKeyUp |= !sound.up.empty();
    kit.metadata.blurb = "Imported from " + source.displayName().toStdString();
    kit.license = {"unknown", ""};

    if (!unknownCodes.empty())
        result.notes.push_back(std::to_string(unknownCodes.size()) +
                               " key codes are not keys Tappix hears (" + listCodes(unknownCodes) +
                               "); their sounds were left out");
    if (!unnamedCodes.empty())
        result.notes.push_back(std::to_string(unnamedCodes.size()) +
                               " keys have no sound of their own in a Tappix kit (" +
                               listCodes(unnamedCodes) + "); they play the default sound");

    QJsonObject manifest = kit.toJson();
    manifest.insert(
        QStringLiteral("origin"),
        QJsonObject{
            {QStringLiteral("importedFrom"), source.displayName()},
            {QStringLiteral("packId"), QString::fromStdString(config->id)},
            {QStringLiteral("layout"),
             config->layout == Layout::single ? QStringLiteral("single") : QStringLiteral("multi")},
            {QStringLiteral("formatVersion"), config->version},
            {QStringLiteral("importedAt"), QDateTime::currentDateTimeUtc().toString(Qt::ISODate)}});
    QFile file(staging.path() + QStringLiteral("/kit/config.json"));
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QJsonDocument(manifest).toJson(QJsonDocument::Indented)) < 0 || !file.flush())
        return refuse("cannot write config.json: " + file.errorString().toStdString());
    file.close();

    // Swap the finished kit in; an earlier import of the same id goes only once it has.
    const QString previous = staging.path() + QStringLiteral("/previous");
    if (replacing && !QDir().rename(target, previous))
        return refuse("cannot replace the earlier import in " + target.toStdString());
    if (!QDir().rename(staging.path() + QStringLiteral("/kit"), target)) {
        if (replacing)
            QDir().rename(previous, target);
        return refuse("cannot move the new kit to " + target.toStdString());
    }
    for (std::string& problem : run.problems)
        result.problems.push_back(std::move(problem));
    result.config = std::move(kit);
    result.directory = target;
    result.replaced = replacing;
    return result;
}

} // namespace tappix
