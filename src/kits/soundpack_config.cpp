#include "kits/soundpack_config.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <algorithm>
#include <set>

namespace tappix {
namespace {

/// Collects the first decoding error with the path of the offending field.
struct Reader {
    std::string error;

    bool fail(const std::string& path, const char* what) {
        if (error.empty())
            error = "\"" + path + "\" " + what;
        return false;
    }

    bool string(const QJsonObject& o, const char* key, const std::string& path, std::string& out) {
        const QJsonValue v = o.value(QLatin1String(key));
        if (v.isUndefined() || v.isNull())
            return fail(path + key, "is missing");
        if (!v.isString())
            return fail(path + key, "must be a string");
        out = v.toString().toStdString();
        return true;
    }

    bool optionalString(const QJsonObject& o, const char* key, const std::string& path,
                        std::optional<std::string>& out) {
        const QJsonValue v = o.value(QLatin1String(key));
        if (v.isUndefined() || v.isNull())
            return true;
        if (!v.isString())
            return fail(path + key, "must be a string");
        out = v.toString().toStdString();
        return true;
    }

    bool stringArray(const QJsonValue& v, const std::string& path, std::vector<std::string>& out) {
        if (!v.isArray())
            return fail(path, v.isUndefined() || v.isNull() ? "is missing"
                                                            : "must be an array of strings");
        for (const QJsonValue& item : v.toArray()) {
            if (!item.isString())
                return fail(path, "must be an array of strings");
            out.push_back(item.toString().toStdString());
        }
        return true;
    }

    bool object(const QJsonValue& v, const std::string& path, QJsonObject& out) {
        if (!v.isObject())
            return fail(path, v.isUndefined() || v.isNull() ? "is missing" : "must be an object");
        out = v.toObject();
        return true;
    }
};

QJsonArray toArray(const std::vector<std::string>& items) {
    QJsonArray array;
    for (const auto& item : items)
        array.append(QString::fromStdString(item));
    return array;
}

} // namespace

std::optional<SoundpackConfig> SoundpackConfig::decode(const QByteArray& json, std::string* error) {
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        if (error)
            *error = parseError.error != QJsonParseError::NoError
                         ? "config.json is not valid JSON (" +
                               parseError.errorString().toStdString() + " at byte " +
                               std::to_string(parseError.offset) + ")"
                         : "config.json must hold one JSON object";
        return std::nullopt;
    }
    const QJsonObject root = document.object();
    Reader r;
    SoundpackConfig config;
    QJsonObject metadata, license, sounds;
    bool ok = r.string(root, "id", "", config.id) &&
              r.object(root.value(QStringLiteral("metadata")), "metadata", metadata) &&
              r.object(root.value(QStringLiteral("license")), "license", license) &&
              r.object(root.value(QStringLiteral("sounds")), "sounds", sounds);
    ok = ok && r.string(metadata, "name", "metadata.", config.metadata.name) &&
         r.string(metadata, "brand", "metadata.", config.metadata.brand) &&
         r.string(metadata, "author", "metadata.", config.metadata.author) &&
         r.optionalString(metadata, "family", "metadata.", config.metadata.family) &&
         r.optionalString(metadata, "blurb", "metadata.", config.metadata.blurb);
    if (ok) {
        const QJsonValue keyUp = metadata.value(QStringLiteral("supportsKeyUp"));
        if (keyUp.isBool())
            config.metadata.supportsKeyUp = keyUp.toBool();
        else if (!keyUp.isUndefined() && !keyUp.isNull())
            ok = r.fail("metadata.supportsKeyUp", "must be true or false");
    }
    if (ok) {
        std::optional<std::string> category;
        ok = r.optionalString(metadata, "category", "metadata.", category);
        if (category)
            config.metadata.category = *category;
    }
    if (ok) {
        const QJsonValue keys = metadata.value(QStringLiteral("keys"));
        if (!keys.isUndefined() && !keys.isNull()) {
            config.metadata.keys.emplace();
            ok = r.stringArray(keys, "metadata.keys", *config.metadata.keys);
        }
    }
    ok = ok && r.string(license, "type", "license.", config.license.type) &&
         r.string(license, "url", "license.", config.license.url);
    for (auto it = sounds.begin(); ok && it != sounds.end(); ++it) {
        const std::string path = "sounds." + it.key().toStdString();
        QJsonObject sound;
        KeySound keySound;
        ok = r.object(it.value(), path, sound) &&
             r.stringArray(sound.value(QStringLiteral("down")), path + ".down", keySound.down) &&
             r.stringArray(sound.value(QStringLiteral("up")), path + ".up", keySound.up);
        if (ok)
            config.sounds.emplace(it.key().toStdString(), std::move(keySound));
    }
    if (ok) {
        const QJsonValue labels = root.value(QStringLiteral("labels"));
        if (labels.isObject()) {
            const QJsonObject object = labels.toObject();
            for (auto it = object.begin(); ok && it != object.end(); ++it) {
                if (!it.value().isString())
                    ok = r.fail("labels." + it.key().toStdString(), "must be a string");
                else
                    config.labels.emplace(it.key().toStdString(),
                                          it.value().toString().toStdString());
            }
        } else if (!labels.isUndefined() && !labels.isNull()) {
            ok = r.fail("labels", "must be an object");
        }
    }
    if (!ok) {
        if (error)
            *error = r.error;
        return std::nullopt;
    }
    return config;
}

QJsonObject SoundpackConfig::toJson() const {
    QJsonObject meta{
        {QStringLiteral("name"), QString::fromStdString(metadata.name)},
        {QStringLiteral("brand"), QString::fromStdString(metadata.brand)},
        {QStringLiteral("author"), QString::fromStdString(metadata.author)},
        {QStringLiteral("supportsKeyUp"), metadata.supportsKeyUp},
        {QStringLiteral("category"), QString::fromStdString(metadata.category)},
    };
    if (metadata.family)
        meta.insert(QStringLiteral("family"), QString::fromStdString(*metadata.family));
    if (metadata.blurb)
        meta.insert(QStringLiteral("blurb"), QString::fromStdString(*metadata.blurb));
    if (metadata.keys)
        meta.insert(QStringLiteral("keys"), toArray(*metadata.keys));
    QJsonObject soundObject;
    for (const auto& [key, sound] : sounds)
        soundObject.insert(QString::fromStdString(key),
                           QJsonObject{{QStringLiteral("down"), toArray(sound.down)},
                                       {QStringLiteral("up"), toArray(sound.up)}});
    QJsonObject root{
        {QStringLiteral("id"), QString::fromStdString(id)},
        {QStringLiteral("metadata"), meta},
        {QStringLiteral("license"),
         QJsonObject{{QStringLiteral("type"), QString::fromStdString(license.type)},
                     {QStringLiteral("url"), QString::fromStdString(license.url)}}},
        {QStringLiteral("sounds"), soundObject},
    };
    if (!labels.empty()) {
        QJsonObject labelObject;
        for (const auto& [key, label] : labels)
            labelObject.insert(QString::fromStdString(key), QString::fromStdString(label));
        root.insert(QStringLiteral("labels"), labelObject);
    }
    return root;
}

std::vector<std::string> SoundpackConfig::orderedSoundKeys() const {
    static constexpr std::string_view kFirst[] = {"default", "alpha",     "space",
                                                  "enter",   "backspace", "modifier"};
    std::vector<std::string> ordered;
    for (std::string_view key : kFirst) {
        auto it = sounds.find(key);
        if (it != sounds.end() && !it->second.down.empty())
            ordered.emplace_back(key);
    }
    // `sounds` is a sorted map, so the rest come out in ascending order.
    for (const auto& [key, sound] : sounds) {
        if (!sound.down.empty() &&
            std::find(std::begin(kFirst), std::end(kFirst), key) == std::end(kFirst))
            ordered.push_back(key);
    }
    return ordered;
}

std::vector<std::string> SoundpackConfig::allFiles() const {
    std::vector<std::string> files;
    std::set<std::string, std::less<>> seen;
    for (const auto& [key, sound] : sounds) {
        for (const auto* list : {&sound.down, &sound.up}) {
            for (const auto& file : *list) {
                if (seen.insert(file).second)
                    files.push_back(file);
            }
        }
    }
    return files;
}

} // namespace tappix
