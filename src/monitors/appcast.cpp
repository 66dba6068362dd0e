#include "monitors/appcast.h"

#include <QStringList>
#include <QXmlStreamReader>
#include <algorithm>

namespace tappix {
namespace {

const QString kSparkle = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

} // namespace

int AppcastRelease::compareVersions(const QString& a, const QString& b) {
    const QStringList left = a.trimmed().split(QLatin1Char('.'));
    const QStringList right = b.trimmed().split(QLatin1Char('.'));
    const qsizetype parts = std::max(left.size(), right.size());
    for (qsizetype i = 0; i < parts; ++i) {
        const QString l = i < left.size() ? left[i] : QStringLiteral("0");
        const QString r = i < right.size() ? right[i] : QStringLiteral("0");
        bool lNumber = false, rNumber = false;
        const qulonglong ln = l.toULongLong(&lNumber);
        const qulonglong rn = r.toULongLong(&rNumber);
        if (lNumber && rNumber) {
            if (ln != rn)
                return ln < rn ? -1 : 1;
        } else if (const int text = QString::compare(l, r); text != 0) {
            return text < 0 ? -1 : 1;
        }
    }
    return 0;
}

std::optional<AppcastRelease> AppcastRelease::newestIn(const QByteArray& xml, QString& error) {
    QXmlStreamReader reader(xml);
    std::optional<AppcastRelease> newest;
    AppcastRelease item;
    bool inItem = false, sawRss = false;
    QString itemLink, notesLink, enclosureUrl, shortVersion, version;

    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            const auto name = reader.name();
            const bool sparkle = reader.namespaceUri() == kSparkle;
            if (name == QLatin1String("rss")) {
                sawRss = true;
            } else if (name == QLatin1String("item")) {
                inItem = true;
                item = {};
                itemLink.clear(), notesLink.clear(), enclosureUrl.clear();
                shortVersion.clear(), version.clear();
            } else if (!inItem) {
                continue;
            } else if (name == QLatin1String("title") && !sparkle) {
                item.title = reader.readElementText().trimmed();
            } else if (name == QLatin1String("link") && !sparkle) {
                itemLink = reader.readElementText().trimmed();
            } else if (sparkle && name == QLatin1String("releaseNotesLink")) {
                notesLink = reader.readElementText().trimmed();
            } else if (sparkle && name == QLatin1String("shortVersionString")) {
                shortVersion = reader.readElementText().trimmed();
            } else if (sparkle && name == QLatin1String("version")) {
                version = reader.readElementText().trimmed();
            } else if (name == QLatin1String("enclosure")) {
                const auto attributes = reader.attributes();
                enclosureUrl = attributes.value(QStringLiteral("url")).toString();
                if (shortVersion.isEmpty())
                    shortVersion =
                        attributes.value(kSparkle, QStringLiteral("shortVersionString")).toString();
                if (version.isEmpty())
                    version = attributes.value(kSparkle, QStringLiteral("version")).toString();
            }
        } else if (reader.isEndElement() && reader.name() == QLatin1String("item")) {
            inItem = false;
            item.version = !shortVersion.isEmpty() ? shortVersion : version;
            item.link = !notesLink.isEmpty()  ? notesLink
                        : !itemLink.isEmpty() ? itemLink
                                              : enclosureUrl;
            if (item.version.isEmpty())
                continue;
            if (!newest || compareVersions(item.version, newest->version) > 0)
                newest = item;
        }
    }
    if (reader.hasError()) {
        error = QStringLiteral("the feed is not well-formed XML: %1").arg(reader.errorString());
        return std::nullopt;
    }
    if (!sawRss) {
        error = QStringLiteral("the feed is not an RSS document");
        return std::nullopt;
    }
    if (!newest)
        error = QStringLiteral("the feed names no version");
    return newest;
}

} // namespace tappix
