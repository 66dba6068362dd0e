#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace tappix {

/// The newest release an appcast feed (RSS 2.0 with the sparkle namespace) announces.
struct AppcastRelease {
    /// The version people see ("1.2.0"): `sparkle:shortVersionString`, else `sparkle:version`.
    QString version;
    /// The item's title.
    QString title;
    /// Where to read about it: the release-notes link, the item's link, or the download.
    QString link;

    /// The release with the highest version in `xml`; none for a document that is not
    /// an RSS feed or names no version.
    static std::optional<AppcastRelease> newestIn(const QByteArray& xml, QString& error);

    /// Compares dotted versions numerically ("1.10" > "1.9", "1.2" == "1.2.0"); a
    /// part that is not a number compares as text. Negative, zero or positive.
    static int compareVersions(const QString& a, const QString& b);
};

} // namespace tappix
