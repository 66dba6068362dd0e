#include "kits/source_pack_config.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <charconv>
#include <cmath>

namespace tappix {
namespace {

// Codes the importer can ever map are below 0x10000; anything far beyond is a typo.
constexpr std::int64_t kMaxCode = 0xFFFFFF;

std::string quoted(const QString& text) {
    // Built up in place: GCC 12 at -O3 takes `"\"" + std::string` for an overlapping copy
    // (-Wrestrict) and fails a Release build.
    std::string quoted = "\"";
    quoted += text.left(60).toStdString();
    quoted += text.size() > 60 ? "…\"" : "\"";
    return quoted;
}

// "30" or "30-up"; none when the key is not a number.
std::optional<std::pair<std::int64_t, bool>> parseKey(const QString& key) {
    QString digits = key.trimmed();
    bool up = false;
    if (digits.endsWith(QLatin1String("-up"), Qt::CaseInsensitive)) {
        up = true;
        digits.chop(3);
    }
    const std::string text = digits.toStdString();
    std::int64_t code = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), code);
    if (text.empty() || failure != std::errc() || end != text.data() + text.size() || code < 0 ||
        code > kMaxCode)
        return std::nullopt;
    return std::pair{code, up};
}

// Reads `sound` or `soundup`: a name (possibly a range), or nothing.
std::vector<std::string> readNames(const QJsonValue& value, const char* field,
                                   std::vector<std::string>& problems) {
    std::vector<std::string> names;
    const auto add = [&](const QJsonValue& item) {
        if (item.isNull() || item.isUndefined() || (item.isString() && item.toString().isEmpty()))
            return;
        if (!item.isString()) {
            problems.push_back(std::string(field) + " must be a file name; ignored");
            return;
        }
        std::string error;
        auto expanded = SourcePackConfig::expandRange(item.toString().toStdString(), error);
        if (expanded.empty())
            problems.push_back(std::string(field) + ": " + error + "; ignored");
        names.insert(names.end(), expanded.begin(), expanded.end());
    };
    if (value.isArray()) {
        for (const QJsonValue& item : value.toArray())
            add(item);
    } else {
        add(value);
    }
    return names;
}

bool isSliceValue(const QJsonValue& value) {
    const QJsonArray array = value.toArray();
    return value.isArray() && array.size() >= 2 && array[0].isDouble() && array[1].isDouble();
}

} // namespace

std::vector<std::string> SourcePackConfig::expandRange(const std::string& name,
                                                       std::string& error) {
    const auto open = name.find('{');
    const auto close = name.find('}');
    if (open == std::string::npos && close == std::string::npos)
        return {name};
    const auto dash = name.find('-', open == std::string::npos ? 0 : open);
    if (open == std::string::npos || close == std::string::npos || close < open ||
        dash == std::string::npos || dash > close ||
        name.find('{', open + 1) != std::string::npos) {
        error = "\"" + name + "\" holds a malformed range";
        return {};
    }
    const std::string_view from(name.data() + open + 1, dash - open - 1);
    const std::string_view to(name.data() + dash + 1, close - dash - 1);
    int first = 0, last = 0;
    const auto parse = [](std::string_view text, int& out) {
        const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), out);
        return !text.empty() && failure == std::errc() && end == text.data() + text.size() &&
               out >= 0;
    };
    if (!parse(from, first) || !parse(to, last)) {
        error = "\"" + name + "\" holds a range that is not two numbers";
        return {};
    }
    if (std::abs(last - first) >= kMaxRangeVariants) {
        error =
            "\"" + name + "\" names more than " + std::to_string(kMaxRangeVariants) + " variants";
        return {};
    }
    // "{07-09}" keeps its width, as file names written that way do.
    const std::size_t width = from.size() > 1 && from.front() == '0' ? from.size() : 0;
    std::vector<std::string> names;
    const int step = last >= first ? 1 : -1;
    for (int n = first;; n += step) {
        std::string number = std::to_string(n);
        if (number.size() < width)
            number.insert(0, width - number.size(), '0');
        names.push_back(name.substr(0, open) + number + name.substr(close + 1));
        if (n == last)
            break;
    }
    return names;
}

std::optional<SourcePackConfig> SourcePackConfig::decode(const QByteArray& json, std::string& error,
                                                         std::vector<std::string>& problems) {
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        error = "config.json is not valid JSON (" + parseError.errorString().toStdString() +
                " at byte " + std::to_string(parseError.offset) + ")";
        return std::nullopt;
    }
    if (!document.isObject()) {
        error = "config.json does not hold a JSON object";
        return std::nullopt;
    }
    const QJsonObject root = document.object();
    const QJsonValue definesValue = root.value(QLatin1String("defines"));
    if (!definesValue.isObject()) {
        error = "config.json has no \"defines\" object, so it is not a sound pack";
        return std::nullopt;
    }
    const QJsonObject defines = definesValue.toObject();

    SourcePackConfig config;
    const QJsonValue id = root.value(QLatin1String("id"));
    if (id.isString())
        config.id = id.toString().trimmed().toStdString();
    else if (id.isDouble())
        config.id = QString::number(id.toDouble(), 'f', 0).toStdString();
    const QString name = root.value(QLatin1String("name")).toString().simplified();
    config.name = !name.isEmpty()      ? name.toStdString()
                  : !config.id.empty() ? config.id
                                       : std::string("Imported pack");
    const QString author = root.value(QLatin1String("author")).toString().simplified();
    if (!author.isEmpty())
        config.author = author.toStdString();

    const QJsonValue version = root.value(QLatin1String("version"));
    if (version.toInt() == 2 || version.toString().trimmed() == QLatin1String("2"))
        config.version = 2;

    const QJsonValue type = root.value(QLatin1String("key_define_type"));
    const QString typeText = type.toString().trimmed().toLower();
    if (typeText == QLatin1String("single")) {
        config.layout = Layout::single;
    } else if (typeText == QLatin1String("multi") || typeText == QLatin1String("multiple")) {
        config.layout = Layout::multi;
    } else if (type.isUndefined() || type.isNull()) {
        // Older packs leave the type out: slices mean one file.
        bool slices = false;
        for (auto it = defines.begin(); it != defines.end() && !slices; ++it)
            slices = isSliceValue(it.value());
        config.layout = slices ? Layout::single : Layout::multi;
    } else {
        error = "key_define_type " + quoted(type.toVariant().toString()) +
                " is neither \"single\" nor \"multi\"";
        return std::nullopt;
    }

    config.sound = readNames(root.value(QLatin1String("sound")), "sound", problems);
    config.soundUp = readNames(root.value(QLatin1String("soundup")), "soundup", problems);
    if (config.layout == Layout::single) {
        if (config.sound.size() != 1) {
            error = config.sound.empty() ? "a single-file pack needs \"sound\", its audio file"
                                         : "a single-file pack's \"sound\" must name one file";
            return std::nullopt;
        }
        if (config.soundUp.size() > 1) {
            problems.push_back("soundup names more than one file; release slices are cut from "
                               "\"sound\"");
            config.soundUp.clear();
        }
    }

    std::size_t skippedForCount = 0;
    for (auto it = defines.begin(); it != defines.end(); ++it) {
        const QJsonValue value = it.value();
        if (value.isNull() || (value.isString() && value.toString().isEmpty()))
            continue; // a key the pack leaves silent on purpose
        const auto key = parseKey(it.key());
        if (!key) {
            problems.push_back("defines: " + quoted(it.key()) + " is not a key code; skipped");
            continue;
        }
        if (config.defines.size() >= kMaxDefines) {
            ++skippedForCount;
            continue;
        }
        Define define;
        define.code = key->first;
        define.up = key->second;
        const std::string where = "defines: " + quoted(it.key());
        if (config.layout == Layout::single) {
            if (!isSliceValue(value)) {
                problems.push_back(where + " is not [start, duration] in milliseconds; skipped");
                continue;
            }
            const QJsonArray slice = value.toArray();
            define.slice = {slice[0].toDouble(), slice[1].toDouble()};
            if (!std::isfinite(define.slice.startMs) || !std::isfinite(define.slice.durationMs) ||
                define.slice.startMs < 0 || define.slice.durationMs <= 0) {
                problems.push_back(where + " has a slice that starts before 0 or lasts no "
                                           "time; skipped");
                continue;
            }
        } else {
            std::vector<std::string> local;
            define.files = readNames(value, where.c_str(), local);
            problems.insert(problems.end(), local.begin(), local.end());
            if (define.files.empty())
                continue;
        }
        config.defines.push_back(std::move(define));
    }
    if (skippedForCount > 0)
        problems.push_back("defines: " + std::to_string(skippedForCount) +
                           " entries beyond the first " + std::to_string(kMaxDefines) + " skipped");
    return config;
}

} // namespace tappix
