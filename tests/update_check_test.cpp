#include "monitors/appcast.h"
#include "monitors/update_checker.h"

#include "settings/json_file_preferences.h"
#include "support/stand_in_app.h"

#include <gtest/gtest.h>

using namespace tappix;
using namespace std::chrono_literals;

namespace {

QByteArray feed(std::initializer_list<const char*> versions) {
    QByteArray xml = R"(<?xml version="1.0"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>
<title>Tappix</title>)";
    for (const char* v : versions)
        xml += QByteArray("<item><title>Tappix ") + v +
               "</title><sparkle:releaseNotesLink>https://example.test/notes/" + v +
               "</sparkle:releaseNotesLink><enclosure url=\"https://example.test/tappix-" + v +
               ".deb\" sparkle:shortVersionString=\"" + v + "\" sparkle:version=\"" + v +
               "00\"/></item>";
    return xml + "</channel></rss>";
}

struct CannedFetcher final : FeedFetcher {
    std::vector<Done> waiting;
    int fetches = 0;
    void fetch(const QUrl&, Done done) override {
        ++fetches;
        waiting.push_back(std::move(done));
    }
    void answer(std::optional<QByteArray> body, const QString& error = {}) {
        auto done = std::move(waiting.front());
        waiting.erase(waiting.begin());
        done(std::move(body), error);
    }
};

struct Checker {
    test::FakeTime time;
    test::TempPrefs file;
    JsonFilePreferences prefs{file.path, time};
    SettingsStore settings{prefs, time};
    CannedFetcher fetcher;
    test::RecordingNotifier notes;
    UpdateChecker checker{settings,
                          fetcher,
                          notes,
                          time,
                          QUrl(QStringLiteral("https://example.test/appcast.xml")),
                          QStringLiteral("1.2.0")};
};

} // namespace

TEST(Appcast, VersionsCompareNumericallyPartByPart) {
    struct Case {
        const char *a, *b;
        int order;
    };
    const Case cases[] = {{"1.10", "1.9", 1},    {"1.2", "1.2.0", 0}, {"2.0", "10.0", -1},
                          {"0.1.0", "0.1.0", 0}, {"1.2.1", "1.2", 1}, {"1.0-beta", "1.0-rc", -1}};
    for (const Case& c : cases) {
        EXPECT_EQ(AppcastRelease::compareVersions(c.a, c.b), c.order) << c.a << " vs " << c.b;
        EXPECT_EQ(AppcastRelease::compareVersions(c.b, c.a), -c.order) << c.b << " vs " << c.a;
    }
}

TEST(Appcast, TakesTheNewestItemAndRefusesWhatIsNotAFeed) {
    QString error;
    const auto newest = AppcastRelease::newestIn(feed({"1.2.0", "1.10.0", "1.9.3"}), error);
    ASSERT_TRUE(newest) << error.toStdString();
    EXPECT_EQ(newest->version, "1.10.0");
    EXPECT_EQ(newest->title, "Tappix 1.10.0");
    EXPECT_EQ(newest->link, "https://example.test/notes/1.10.0");

    for (const QByteArray& bad : {QByteArray("<rss><channel><item>"), QByteArray("{\"json\":1}"),
                                  QByteArray("<html><body>hi</body></html>"),
                                  QByteArray("<rss><channel><item><title>x</title></item>"
                                             "</channel></rss>")}) {
        error.clear();
        EXPECT_FALSE(AppcastRelease::newestIn(bad, error)) << bad.constData();
        EXPECT_FALSE(error.isEmpty()) << bad.constData();
    }
}

TEST(UpdateChecker, ChecksAMinuteAfterStartThenDailyWhileSwitchedOn) {
    Checker c;
    c.checker.start();
    c.time.advance(59s);
    EXPECT_EQ(c.fetcher.fetches, 0);
    c.time.advance(1s);
    EXPECT_EQ(c.fetcher.fetches, 1);
    c.fetcher.answer(feed({"1.0.0"}));
    c.time.advance(24h);
    EXPECT_EQ(c.fetcher.fetches, 2);
    c.fetcher.answer(feed({"1.0.0"}));

    c.settings.setAutomaticUpdateChecks(false);
    c.time.advance(72h);
    EXPECT_EQ(c.fetcher.fetches, 2);
    c.checker.checkNow(); // "Check Now" works with the switch off
    EXPECT_EQ(c.fetcher.fetches, 3);
    c.checker.checkNow(); // ignored while one runs
    EXPECT_EQ(c.fetcher.fetches, 3);
    c.fetcher.answer(feed({"1.0.0"}));

    c.settings.setAutomaticUpdateChecks(true);
    c.time.advance(1min);
    EXPECT_EQ(c.fetcher.fetches, 4);
}

TEST(UpdateChecker, AnnouncesANewerVersionOnceAndNothingElse) {
    Checker c;
    // Older and equal versions, failures and malformed feeds say nothing.
    c.checker.checkNow();
    c.fetcher.answer(feed({"1.1.9", "1.2.0"}));
    c.checker.checkNow();
    c.fetcher.answer(std::nullopt, QStringLiteral("Host unreachable"));
    EXPECT_EQ(c.checker.lastError(), "Host unreachable");
    c.checker.checkNow();
    c.fetcher.answer(QByteArray("<rss><channel><item>"));
    EXPECT_FALSE(c.checker.lastError().isEmpty());
    EXPECT_TRUE(c.notes.posted.empty());
    EXPECT_FALSE(c.checker.updateAvailable());

    c.checker.checkNow();
    c.fetcher.answer(feed({"1.2.0", "1.3.0"}));
    EXPECT_TRUE(c.checker.updateAvailable());
    EXPECT_TRUE(c.checker.lastError().isEmpty());
    EXPECT_EQ(c.checker.latestVersion(), "1.3.0");
    EXPECT_EQ(c.checker.latestLink(), "https://example.test/notes/1.3.0");
    ASSERT_EQ(c.notes.posted.size(), 1u);
    EXPECT_EQ(c.notes.posted[0], "tappix.update|Tappix 1.3.0 is available|You have 1.2.0. Read "
                                 "about it at https://example.test/notes/1.3.0");
    c.checker.checkNow();
    c.fetcher.answer(feed({"1.3.0"}));
    EXPECT_EQ(c.notes.posted.size(), 1u);
    c.checker.checkNow();
    c.fetcher.answer(feed({"1.4.0"}));
    EXPECT_EQ(c.notes.posted.size(), 2u);
}

// Asked from the tray, where no window shows the answer, every outcome is told, in one
// notification that "Checking for updates…" opens and the answer replaces.
TEST(UpdateChecker, ACheckAskedToReportTellsEveryOutcome) {
    struct Case {
        const char* name;
        std::optional<QByteArray> body;
        const char* error;
        const char* told;
    };
    const Case cases[] = {
        {"up to date", feed({"1.2.0"}), "", "Tappix is up to date|1.2.0 is the newest version."},
        {"unreachable", std::nullopt, "Connection refused",
         "Couldn't check for updates|Connection refused."},
        {"not a feed", QByteArray("{}"), "", "Couldn't check for updates|"},
        {"newer, told again though announced before", feed({"1.3.0"}), "",
         "Tappix 1.3.0 is available|You have 1.2.0. Read about it at "
         "https://example.test/notes/1.3.0"},
    };
    Checker c;
    c.checker.checkNow();
    c.fetcher.answer(feed({"1.3.0"}));
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        c.notes.posted.clear();
        c.checker.checkNow();
        // A check already running is not repeated; its answer is told.
        c.checker.checkNow(UpdateChecker::Report::everyOutcome);
        EXPECT_EQ(c.fetcher.waiting.size(), 1u);
        c.fetcher.answer(test.body, test.error);
        ASSERT_EQ(c.notes.posted.size(), 2u);
        EXPECT_EQ(c.notes.posted[0], "tappix.update|Checking for updates…|You have Tappix 1.2.0.");
        EXPECT_TRUE(c.notes.posted[1].startsWith(QStringLiteral("tappix.update|") + test.told))
            << c.notes.posted[1].toStdString();
    }
}

TEST(UpdateChecker, AnAnswerAfterTheCheckerIsGoneIsDropped) {
    auto c = std::make_unique<Checker>();
    c->checker.checkNow();
    auto late = std::move(c->fetcher.waiting.front());
    c.reset();
    late(feed({"9.0"}), {}); // must not touch the destroyed checker
}
