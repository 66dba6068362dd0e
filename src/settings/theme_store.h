#pragma once

#include "settings/preferences.h"
#include "settings/theme_palette.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>

namespace tappix {

/// The colour theme of every window, panel and overlay: a built-in palette or the
/// user's custom one. Reads "themeID" and "customTheme" at construction and writes
/// them back on every change. Main thread only.
class ThemeStore final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString selectedID READ selectedID WRITE select NOTIFY themeChanged)
    Q_PROPERTY(QString background READ background NOTIFY themeChanged)
    Q_PROPERTY(QString text READ text NOTIFY themeChanged)
    Q_PROPERTY(QString onAccent READ onAccent NOTIFY themeChanged)
    Q_PROPERTY(QString accent READ accent NOTIFY themeChanged)
    Q_PROPERTY(QStringList accents READ accents NOTIFY themeChanged)
    Q_PROPERTY(QString card READ card NOTIFY themeChanged)
    Q_PROPERTY(QString divider READ divider NOTIFY themeChanged)
    Q_PROPERTY(QString mutedText READ mutedText NOTIFY themeChanged)
    Q_PROPERTY(bool isLight READ isLight NOTIFY themeChanged)
    Q_PROPERTY(QVariantList palettes READ palettes CONSTANT)
    Q_PROPERTY(QString customBackground READ customBackground NOTIFY themeChanged)
    Q_PROPERTY(QString customText READ customText NOTIFY themeChanged)
    Q_PROPERTY(QString customAccent READ customAccent NOTIFY themeChanged)

public:
    /// The id that selects the custom palette.
    static inline const QString kCustomID = QStringLiteral("custom");

    /// Loads the selection and the custom palette. Main thread.
    explicit ThemeStore(Preferences& preferences, QObject* parent = nullptr);

    /// The palette in force. Main thread.
    const ThemePalette& palette() const { return palette_; }
    /// The user's custom palette. Main thread.
    const ThemePalette& custom() const { return custom_; }
    /// The chosen palette's id ("custom" for the custom one). Main thread.
    const QString& selectedID() const { return selectedID_; }

    /// Chooses a palette by id and stores the choice; an unknown id shows Mono. Main thread.
    void select(const QString& id);
    /// Replaces the custom palette from its three base colours and stores it. Main thread.
    Q_INVOKABLE void setCustomColors(const QString& background, const QString& text,
                                     const QString& accentBase);

    /// Palette colours for views. Main thread.
    QString background() const { return palette_.background; }
    /// Text colour. Main thread.
    QString text() const { return palette_.text; }
    /// Colour on accent fills. Main thread.
    QString onAccent() const { return palette_.onAccent; }
    /// Main accent. Main thread.
    QString accent() const { return palette_.accent(); }
    /// All six accents. Main thread.
    QStringList accents() const { return palette_.accents; }
    /// Card fill. Main thread.
    QString card() const { return palette_.card(); }
    /// Divider colour. Main thread.
    QString divider() const { return palette_.divider(); }
    /// Secondary text colour. Main thread.
    QString mutedText() const { return palette_.mutedText(); }
    /// Whether the background is light. Main thread.
    bool isLight() const { return palette_.isLight(); }

    /// The built-in palettes for a chooser, in their order, each a map of id, name,
    /// background, text, accent and isLight. Main thread.
    QVariantList palettes() const;
    /// The custom palette's three base colours. Main thread.
    QString customBackground() const { return custom_.background; }
    /// The custom palette's text colour. Main thread.
    QString customText() const { return custom_.text; }
    /// The custom palette's accent base. Main thread.
    QString customAccent() const { return custom_.accent(); }

Q_SIGNALS:
    /// The palette in force, the selection or the custom palette changed.
    void themeChanged();

private:
    void resolve();

    Preferences& preferences_;
    QString selectedID_;
    ThemePalette custom_;
    ThemePalette palette_;
};

} // namespace tappix
