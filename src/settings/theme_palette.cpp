#include "settings/theme_palette.h"

#include <QJsonArray>
#include <cmath>

namespace tappix {
namespace {

ThemePalette make(const char* id, const char* name, const char* background, const char* text,
                  const char* onAccent, std::array<const char*, 6> accents) {
    ThemePalette palette{QString::fromLatin1(id),         QString::fromLatin1(name),
                         QString::fromLatin1(background), QString::fromLatin1(text),
                         QString::fromLatin1(onAccent),   {}};
    for (const char* accent : accents)
        palette.accents.append(QString::fromLatin1(accent));
    return palette;
}

Rgb parseOr(const QString& text, Rgb fallback) {
    return Rgb::parse(text).value_or(fallback);
}

constexpr Rgb kBlack{0, 0, 0};
constexpr Rgb kWhite{255, 255, 255};

} // namespace

std::optional<Rgb> Rgb::parse(const QString& text) {
    if (text.size() != 7 || text[0] != QLatin1Char('#'))
        return std::nullopt;
    bool ok = false;
    const uint value = QStringView(text).mid(1).toUInt(&ok, 16);
    if (!ok)
        return std::nullopt;
    return Rgb{static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 8),
               static_cast<std::uint8_t>(value)};
}

QString Rgb::toHex() const {
    return QString::asprintf("#%02X%02X%02X", r, g, b);
}

Rgb Rgb::mixedWith(Rgb other, double amount) const {
    auto channel = [amount](std::uint8_t from, std::uint8_t to) {
        return static_cast<std::uint8_t>(std::lround(from + (to - from) * amount));
    };
    return Rgb{channel(r, other.r), channel(g, other.g), channel(b, other.b)};
}

double Rgb::luminance() const {
    return 0.299 * (r / 255.0) + 0.587 * (g / 255.0) + 0.114 * (b / 255.0);
}

bool ThemePalette::isLight() const {
    return parseOr(background, kBlack).luminance() > 0.5;
}

QString ThemePalette::card() const {
    const Rgb base = parseOr(background, kBlack);
    return base.mixedWith(parseOr(text, kWhite), isLight() ? 0.05 : 0.07).toHex();
}

QString ThemePalette::divider() const {
    const Rgb base = parseOr(background, kBlack);
    return base.mixedWith(parseOr(text, kWhite), isLight() ? 0.12 : 0.14).toHex();
}

QString ThemePalette::mutedText() const {
    return parseOr(text, kWhite).mixedWith(parseOr(background, kBlack), 0.42).toHex();
}

QJsonObject ThemePalette::toJson() const {
    return QJsonObject{
        {QStringLiteral("id"), id},
        {QStringLiteral("name"), name},
        {QStringLiteral("background"), background},
        {QStringLiteral("text"), text},
        {QStringLiteral("onAccent"), onAccent},
        {QStringLiteral("accents"), QJsonArray::fromStringList(accents)},
    };
}

std::optional<ThemePalette> ThemePalette::fromJson(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    ThemePalette palette;
    const std::array<std::pair<const char*, QString*>, 5> fields{{
        {"id", &palette.id},
        {"name", &palette.name},
        {"background", &palette.background},
        {"text", &palette.text},
        {"onAccent", &palette.onAccent},
    }};
    for (const auto& [key, field] : fields) {
        const QJsonValue member = object.value(QLatin1String(key));
        if (!member.isString())
            return std::nullopt;
        *field = member.toString();
    }
    const QJsonValue accents = object.value(QStringLiteral("accents"));
    if (!accents.isArray())
        return std::nullopt;
    for (const QJsonValue& accent : accents.toArray()) {
        if (!accent.isString())
            return std::nullopt;
        palette.accents.append(accent.toString());
    }
    return palette;
}

const std::vector<ThemePalette>& ThemePalette::builtIns() {
    static const std::vector<ThemePalette> palettes{
        make("mono", "Mono", "#0F0F10", "#EDEDEE", "#0B0B0C",
             {"#E8E8EA", "#C9C9CD", "#A6A6AC", "#DCDCDF", "#B8B8BE", "#94949B"}),
        make("crimson", "Crimson", "#110A0B", "#F3E5E5", "#150809",
             {"#F0555A", "#FF7A7E", "#CF5155", "#FF9DA0", "#BB6164", "#FFC0C2"}),
        make("ember", "Ember", "#130C07", "#F7E8D8", "#170D06",
             {"#FF8C42", "#FFA968", "#E06E22", "#FFC291", "#C26224", "#FFD9B8"}),
        make("keycap", "Keycap", "#1B1815", "#EDE4D4", "#1F1B14",
             {"#E8C773", "#A1B78C", "#D48A6B", "#8CA6BD", "#B894AE", "#DB999E"}),
        make("lime", "Lime", "#0A1108", "#E4F0DC", "#080F06",
             {"#A3E635", "#BCEF6B", "#7CB91F", "#D2F79B", "#5F9415", "#E4FBC4"}),
        make("emerald", "Emerald", "#07120F", "#DEF0E8", "#05100C",
             {"#3ED598", "#6FE0B0", "#27AC77", "#9BEACB", "#238E62", "#C0F1DE"}),
        make("ice", "Ice", "#06121A", "#DCEFF6", "#041016",
             {"#3AD0E8", "#6FDFF2", "#22A9C4", "#9EEAF7", "#1A8AA1", "#C4F2FA"}),
        make("indigo", "Indigo", "#0C0D15", "#E3E5F1", "#090A11",
             {"#818CFF", "#9DA6FF", "#6570E4", "#B9BFFF", "#6872D1", "#D2D6FF"}),
        make("violet", "Violet", "#0E0A16", "#E9E3F5", "#0C0812",
             {"#A78BFA", "#C4B0FF", "#865EF0", "#D6C8FF", "#8465DD", "#E4DBFF"}),
        make("rose", "Rose", "#150B10", "#F5E3EC", "#14080E",
             {"#FB7185", "#FF94A5", "#D9455C", "#FFB3BF", "#C15A6C", "#FFD1D9"}),
        make("graphite", "Graphite", "#14161A", "#DCE3EA", "#0E1013",
             {"#7FB0D9", "#86B39C", "#C97F7F", "#93A7C4", "#A895C4", "#C98FA8"}),
        make("chalk", "Chalk", "#F4F4F5", "#17171A", "#FAFAFA",
             {"#3F3F46", "#52525B", "#2A2A30", "#5F5F6A", "#71717A", "#35353B"}),
        make("milk", "Milk", "#F2ECE0", "#241F19", "#FBF7EF",
             {"#906816", "#5C7645", "#AB5635", "#4E7391", "#8A5F82", "#A95259"}),
    };
    return palettes;
}

QString ThemePalette::onAccentFor(const QString& accent) {
    return parseOr(accent, kBlack).luminance() > 0.55 ? QStringLiteral("#141210")
                                                      : QStringLiteral("#FBF7EF");
}

ThemePalette ThemePalette::custom(const QString& background, const QString& text,
                                  const QString& accentBase) {
    const Rgb base = parseOr(accentBase, kBlack);
    const Rgb grey{128, 128, 128};
    // Alternating lighter and darker steps, the fifth greyed a little, as in the
    // built-in palettes (Crimson: base, lighter, darker, lighter, muted, lightest).
    const QStringList accents{
        base.toHex(),
        base.mixedWith(kWhite, 0.20).toHex(),
        base.mixedWith(kBlack, 0.14).toHex(),
        base.mixedWith(kWhite, 0.40).toHex(),
        base.mixedWith(grey, 0.30).mixedWith(kBlack, 0.10).toHex(),
        base.mixedWith(kWhite, 0.60).toHex(),
    };
    return ThemePalette{QStringLiteral("custom"),
                        QStringLiteral("Custom"),
                        parseOr(background, kBlack).toHex(),
                        parseOr(text, kWhite).toHex(),
                        onAccentFor(accentBase),
                        accents};
}

ThemePalette ThemePalette::defaultCustom() {
    return custom(QStringLiteral("#0F0F10"), QStringLiteral("#EDEDEE"), QStringLiteral("#E8E8EA"));
}

} // namespace tappix
