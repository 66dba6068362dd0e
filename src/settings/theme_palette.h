#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace tappix {

/// An sRGB colour with 8-bit components.
struct Rgb {
    /// Red, green and blue, 0 to 255.
    std::uint8_t r = 0, g = 0, b = 0;

    /// Parses "#RRGGBB" (either case); none for anything else.
    static std::optional<Rgb> parse(const QString& text);
    /// "#RRGGBB" in upper case.
    QString toHex() const;
    /// This colour moved `amount` (0 to 1) of the way towards `other`.
    Rgb mixedWith(Rgb other, double amount) const;
    /// Perceived brightness 0.299 r + 0.587 g + 0.114 b, components in 0 to 1.
    double luminance() const;

    friend bool operator==(const Rgb&, const Rgb&) = default;
};

/// A colour theme: background, text, the colour drawn on accents, and six accents.
struct ThemePalette {
    /// Number of accent colours.
    static constexpr std::size_t kAccentCount = 6;

    /// Stable identifier ("mono", …, "custom").
    QString id;
    /// Shown name.
    QString name;
    /// Background, "#RRGGBB".
    QString background;
    /// Text colour.
    QString text;
    /// Colour of text and glyphs drawn on an accent fill.
    QString onAccent;
    /// Six accent colours; the first is the main accent.
    QStringList accents;

    /// Whether the background is light (Chalk, Milk, or a light custom palette).
    bool isLight() const;
    /// Card fill: the background nudged towards the text colour.
    QString card() const;
    /// Divider lines: a stronger nudge than cards.
    QString divider() const;
    /// Secondary text: between text and background.
    QString mutedText() const;
    /// The main accent.
    QString accent() const { return accents.isEmpty() ? text : accents.front(); }

    /// The JSON object with members id, name, background, text, onAccent, accents.
    QJsonObject toJson() const;
    /// Strict decoding: every member required, accents an array of strings.
    static std::optional<ThemePalette> fromJson(const QJsonValue& value);

    /// The thirteen built-in palettes, Mono first.
    static const std::vector<ThemePalette>& builtIns();
    /// The colour for text on an accent: "#141210" on light accents, "#FBF7EF" on dark
    /// ones; an unreadable colour counts as black.
    static QString onAccentFor(const QString& accent);
    /// A custom palette from its three base colours; the six accents are derived from
    /// `accentBase` as lighter and darker steps, like the built-in palettes'.
    static ThemePalette custom(const QString& background, const QString& text,
                               const QString& accentBase);
    /// The custom palette a new user starts from.
    static ThemePalette defaultCustom();

    friend bool operator==(const ThemePalette&, const ThemePalette&) = default;
};

} // namespace tappix
