// The update check on canned answers, then against an HTTPS server on 127.0.0.1.

#include "monitors/appcast.h"
#include "monitors/update_checker.h"
#include "platform/network/https_feed_fetcher.h"

#include "settings/json_file_preferences.h"
#include "support/leash.h"
#include "support/stand_in_app.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QSslCertificate>
#include <QTcpServer>

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

/// A 1.2.0 build checking `url` through `fetcher`.
struct Checker {
    explicit Checker(FeedFetcher& fetcher,
                     QUrl url = QUrl(QStringLiteral("https://example.test/appcast.xml")))
        : checker(settings, fetcher, notes, time, std::move(url), QStringLiteral("1.2.0")) {}
    test::FakeTime time;
    test::TempPrefs file;
    JsonFilePreferences prefs{file.path, time};
    SettingsStore settings{prefs, time};
    test::RecordingNotifier notes;
    UpdateChecker checker;
};

/// Update-check warnings logged while the test runs.
QStringList warnings;
void recordWarnings(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (type == QtWarningMsg && QByteArray(context.category) == "app.morvane.tappix.app")
        warnings.push_back(message);
}

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

TEST(UpdateChecker, ChecksAMinuteAfterStartThenDailyWhileSwitchedOn) {
    CannedFetcher fetcher;
    Checker c(fetcher);
    c.checker.start();
    c.time.advance(59s);
    EXPECT_EQ(fetcher.fetches, 0);
    c.time.advance(1s);
    EXPECT_EQ(fetcher.fetches, 1);
    fetcher.answer(feed({"1.0.0"}));
    c.time.advance(24h);
    EXPECT_EQ(fetcher.fetches, 2);
    fetcher.answer(feed({"1.0.0"}));

    c.settings.setAutomaticUpdateChecks(false);
    c.time.advance(72h);
    EXPECT_EQ(fetcher.fetches, 2);
    c.checker.checkNow(); // "Check Now" works with the switch off
    c.checker.checkNow(); // ignored while one runs
    EXPECT_EQ(fetcher.fetches, 3);
    fetcher.answer(feed({"1.0.0"}));

    c.settings.setAutomaticUpdateChecks(true);
    c.time.advance(1min);
    EXPECT_EQ(fetcher.fetches, 4);

    // An answer after its checker is gone must not touch it.
    auto gone = std::make_unique<Checker>(fetcher);
    gone->checker.checkNow();
    auto late = std::move(fetcher.waiting.back());
    gone.reset();
    late(feed({"9.0"}), {});
}

// A newer version is announced once, and nothing else unless asked from the tray (no window
// shows the answer there): then every answer is told.
TEST(UpdateChecker, WhatEachAnswerTells) {
    const auto newer = [](const QString& v) {
        return "Tappix " + v + " is available|You have 1.2.0. Read about it at " +
               "https://example.test/notes/" + v;
    };
    const struct {
        std::optional<QByteArray> body;
        const char* error;
        bool asked;
        QString told;          // the beginning of the answer told; empty: none
        const char* lastError; // a part of it; null: none
    } cases[] = {
        {feed({"1.1.9", "1.2.0"}), "", false, {}, nullptr},
        {std::nullopt, "Host unreachable", false, {}, "Host unreachable"},
        {"<rss><channel><item>", "", false, {}, ""},
        {"{\"json\":1}", "", false, {}, ""},
        {"<rss><channel><item><title>x</title></item></channel></rss>", "", false, {}, ""},
        {feed({"1.2.0", "1.10.0", "1.9.3"}), "", false, newer("1.10.0"), nullptr},
        {feed({"1.10.0"}), "", false, {}, nullptr},
        {feed({"1.11.0"}), "", false, newer("1.11.0"), nullptr},
        {feed({"1.2.0"}), "", true, "Tappix is up to date|1.2.0 is the newest", nullptr},
        {std::nullopt, "Refused", true, "Couldn't check for updates|Refused.", "Refused"},
        {"{}", "", true, "Couldn't check for updates|", ""},
        {feed({"1.11.0"}), "", true, newer("1.11.0"), nullptr},
    };
    CannedFetcher fetcher;
    Checker c(fetcher);
    for (const auto& row : cases) {
        SCOPED_TRACE(row.body ? row.body->right(60).toStdString() : row.error);
        c.notes.posted.clear();
        c.checker.checkNow();
        if (row.asked) // a check already running is not repeated; its answer is told
            c.checker.checkNow(UpdateChecker::Report::everyOutcome);
        EXPECT_EQ(fetcher.waiting.size(), 1u);
        fetcher.answer(row.body, row.error);
        std::vector<QString> told;
        if (row.asked)
            told.push_back("Checking for updates…|You have Tappix 1.2.0.");
        if (!row.told.isEmpty())
            told.push_back(row.told);
        ASSERT_EQ(c.notes.posted.size(), told.size());
        for (std::size_t i = 0; i < told.size(); ++i)
            EXPECT_TRUE(c.notes.posted[i].startsWith("tappix.update|" + told[i]))
                << c.notes.posted[i].toStdString();
        EXPECT_EQ(c.checker.lastError().isEmpty(), !row.lastError);
        EXPECT_TRUE(c.checker.lastError().contains(row.lastError ? row.lastError : ""));
    }
    EXPECT_EQ(c.checker.latestVersion(), "1.11.0");
    EXPECT_EQ(c.checker.latestLink(), "https://example.test/notes/1.11.0");
}

// Each failure gives one log line, no notification and a reason the About page can show.
TEST(UpdateChecker, OverHttpsEachFailureIsLoggedOnce) {
    test::app();
    QTemporaryDir dir;
    // A certificate for 127.0.0.1 that is its own authority.
    QProcess openssl;
    openssl.setWorkingDirectory(dir.path());
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start("openssl",
                  {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                   "-nodes", "-days", "2", "-keyout", "server.key", "-out", "server.pem", "-subj",
                   "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"});
    ASSERT_TRUE(openssl.waitForFinished(60000) && openssl.exitCode() == 0)
        << openssl.readAll().toStdString();
    QDir(dir.path()).mkdir("www");
    for (const auto& [name, bytes] :
         {std::pair{"newer.xml", feed({"1.3.0"})},
          std::pair{"malformed.xml", QByteArray("<rss><channel><item><title>Tappix 9.0")},
          std::pair{"huge.xml", QByteArray(2 << 20, ' ') + feed({"1.3.0"})}}) {
        QFile file(dir.filePath("www/") + name);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    QProcess server;
    test::leash(server);
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start("/usr/bin/python3",
                 {TAPPIX_TEST_SOURCE_DIR "/support/https_feed_server.py", "serve",
                  dir.filePath("server.pem"), dir.filePath("server.key"), dir.filePath("www")});
    ASSERT_TRUE(server.waitForReadyRead(10000));
    const QString at = "https://127.0.0.1:" + server.readLine().trimmed() + "/";
    QTcpServer silent; // takes connections and never answers
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    qInstallMessageHandler(recordWarnings);

    const auto authority = QSslCertificate::fromPath(dir.filePath("server.pem"), QSsl::Pem);
    const int standard = HttpsFeedFetcher::kTimeoutMs;
    const struct {
        QString url;
        bool trusted;
        int timeoutMs;
        const char* error; // none: the check succeeds
    } cases[] = {
        {at + "newer.xml", true, standard, nullptr},
        {at + "newer.xml", false, standard, "SSL"}, // an authority not trusted
        {at + "malformed.xml", true, standard, ""},
        {at + "gone.xml", true, standard, "the server answered 404"},
        {at + "huge.xml", true, standard, "the feed is larger than 1 MB"},
        {QString("https://127.0.0.1:%1/newer.xml").arg(silent.serverPort()), true, 300,
         "the server sent nothing for 0.3 s"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.url.toStdString() + (row.trusted ? "" : " untrusted"));
        warnings.clear();
        HttpsFeedFetcher fetcher(row.trusted ? authority : QList<QSslCertificate>{}, row.timeoutMs);
        Checker c(fetcher, QUrl(row.url));
        c.checker.checkNow();
        // A guard against a hang, not a measurement: every case ends well before it.
        ASSERT_TRUE(test::waitFor([&] { return !c.checker.isChecking(); }, 30000));
        EXPECT_EQ(c.notes.posted.size(), row.error ? 0u : 1u);
        EXPECT_EQ(c.checker.latestVersion(), row.error ? "" : "1.3.0");
        EXPECT_EQ(c.checker.lastError().isEmpty(), !row.error);
        EXPECT_TRUE(c.checker.lastError().contains(row.error ? row.error : ""));
        EXPECT_EQ(warnings, row.error ? QStringList{"update check failed: " + c.checker.lastError()}
                                      : QStringList{});
    }
    qInstallMessageHandler(nullptr);
}
