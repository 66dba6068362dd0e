#include "settings/json_file_preferences.h"

#include "support/fake_time.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <functional>

using namespace tappix;
using namespace std::chrono_literals;

namespace {

QStringList keptAside(const test::TempPrefs& prefs) {
    return QDir(QFileInfo(prefs.path).absolutePath())
        .entryList({QStringLiteral("preferences.json.corrupt-*")}, QDir::Files);
}

} // namespace

// Changes are written once, after a pause, atomically and privately; what changes nothing
// writes nothing, even at exit. Reading and destruction are tested through the store.
TEST(JsonFilePreferences, OneWriteForWhatChangedAndNoneForWhatDidNot) {
    using Change = std::function<void(JsonFilePreferences&)>;
    const struct {
        const char* name;
        Change change;
        int writes;
        double volume;
    } cases[] = {
        {"nothing", [](JsonFilePreferences&) {}, 0, 0.5},
        {"an absent key removed", [](JsonFilePreferences& p) { p.remove("gone"); }, 0, 0.5},
        {"fifty changes",
         [](JsonFilePreferences& p) {
             for (int i = 0; i < 50; ++i)
                 p.setValue("volume", i / 100.0);
         },
         1, 0.49},
        {"a key removed", [](JsonFilePreferences& p) { p.remove("other"); }, 1, 0.5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        test::FakeTime time;
        test::TempPrefs prefs;
        prefs.write(QJsonObject{{"volume", 0.5}, {"other", true}});
        QFile file(prefs.path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.setFileTime(QDateTime::fromSecsSinceEpoch(1000),
                                     QFileDevice::FileModificationTime));
        file.close();
        {
            JsonFilePreferences store(prefs.path, time);
            c.change(store);
            time.advance(JsonFilePreferences::kWriteDelay - 1ms);
            EXPECT_EQ(store.writeCount(), 0);
            time.advance(1ms);
            EXPECT_EQ(store.writeCount(), c.writes);
        }
        EXPECT_EQ(QFileInfo(prefs.path).lastModified().toSecsSinceEpoch() != 1000, c.writes > 0);
        EXPECT_DOUBLE_EQ(prefs.read().value("volume").toDouble(), c.volume);
        EXPECT_TRUE(c.writes == 0 || QFile::permissions(prefs.path) ==
                                         (QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser |
                                          QFile::WriteUser)); // private
        // Nothing but the file itself is left in the directory (no temporary files).
        EXPECT_EQ(QDir(QFileInfo(prefs.path).absolutePath()).entryList(QDir::Files).size(), 1);
    }
}

TEST(JsonFilePreferences, UnreadableFilesAreKeptAsideAndNeverOverwritten) {
    const QByteArray bad[] = {
        "",          "{\"volume\": 0.5, \"isEn", "not json at all",
        "[1, 2, 3]", "\"just a string\"",        QByteArray("\x00\xff\xfe", 3)};
    for (const QByteArray& bytes : bad) {
        SCOPED_TRACE(bytes.toStdString());
        test::FakeTime time;
        test::TempPrefs prefs;
        prefs.writeRaw(bytes);
        {
            JsonFilePreferences store(prefs.path, time);
            EXPECT_FALSE(store.contains(QStringLiteral("volume")));
            ASSERT_FALSE(store.keptAsidePath().isEmpty());
            store.setValue(QStringLiteral("volume"), 0.25);
        }
        const QStringList aside = keptAside(prefs);
        ASSERT_EQ(aside.size(), 1);
        QFile kept(QFileInfo(prefs.path).absolutePath() + QLatin1Char('/') + aside.front());
        ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
        EXPECT_EQ(kept.readAll(), bytes);
        EXPECT_EQ(prefs.read().value(QStringLiteral("volume")).toDouble(), 0.25);

        // A second corrupt load keeps both copies.
        prefs.writeRaw(bytes);
        JsonFilePreferences again(prefs.path, time);
        EXPECT_EQ(keptAside(prefs).size(), 2);
    }
}

TEST(JsonFilePreferences, UnwritableDirectoryKeepsValuesInMemory) {
    test::FakeTime time;
    JsonFilePreferences store(QStringLiteral("/proc/tappix-cannot-exist/preferences.json"), time);
    store.setValue(QStringLiteral("volume"), 0.3);
    store.sync();
    EXPECT_EQ(store.value(QStringLiteral("volume")).toDouble(), 0.3);
    EXPECT_EQ(store.writeCount(), 0);
}
