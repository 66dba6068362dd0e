// The update check against real HTTPS servers on 127.0.0.1: a throwaway authority and
// server certificates made with the openssl command, feeds served by a small Python
// server (support/https_feed_server.py), fetched by the fetcher the application uses.

#include "monitors/update_checker.h"
#include "platform/network/https_feed_fetcher.h"

#include "settings/json_file_preferences.h"
#include "support/core_app.h"
#include "support/fake_time.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

using namespace tappix;

namespace {

/// Makes, in `dir`, an authority `name` (ca.pem) and a certificate for 127.0.0.1 and
/// localhost that it signs (server.pem, server.key); false, with openssl's output on the
/// test log, when that fails.
bool makeAuthority(const QString& dir, const QString& name) {
    QDir().mkpath(dir);
    const QStringList ec{"req",    "-x509",    "-newkey",
                         "ec",     "-pkeyopt", "ec_paramgen_curve:prime256v1",
                         "-nodes", "-days",    "2"};
    const QStringList steps[] = {
        ec + QStringList{"-keyout", "ca.key", "-out", "ca.pem", "-subj", "/CN=" + name, "-addext",
                         "basicConstraints=critical,CA:TRUE", "-addext",
                         "keyUsage=critical,keyCertSign,cRLSign"},
        ec + QStringList{"-keyout", "server.key", "-out", "server.pem", "-subj", "/CN=127.0.0.1",
                         "-CA", "ca.pem", "-CAkey", "ca.key", "-addext",
                         "basicConstraints=CA:FALSE", "-addext",
                         "keyUsage=critical,digitalSignature", "-addext",
                         "extendedKeyUsage=serverAuth", "-addext",
                         "subjectAltName=IP:127.0.0.1,DNS:localhost"},
    };
    for (const QStringList& arguments : steps) {
        QProcess openssl;
        openssl.setWorkingDirectory(dir);
        openssl.setProcessChannelMode(QProcess::MergedChannels);
        openssl.start("openssl", arguments);
        if (!openssl.waitForFinished(60000) || openssl.exitCode() != 0) {
            ADD_FAILURE() << "openssl " << qPrintable(arguments.join(' ')) << ":\n"
                          << openssl.readAll().toStdString();
            return false;
        }
    }
    return true;
}

/// The feed server in its own process, stopped with the test.
struct FeedServer {
    QProcess process;
    int port = 0;

    bool start(const QStringList& arguments) {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start("/usr/bin/python3",
                      QStringList{TAPPIX_TEST_SOURCE_DIR "/support/https_feed_server.py"} +
                          arguments);
        if (!process.waitForStarted() || !process.waitForReadyRead(10000))
            return false;
        port = process.readLine().trimmed().toInt();
        return port > 0;
    }
    QUrl url(const QString& file) const {
        return QUrl(QStringLiteral("https://127.0.0.1:%1/%2").arg(port).arg(file));
    }
    ~FeedServer() {
        process.kill();
        process.waitForFinished();
    }
};

QByteArray feed(const char* version) {
    return QByteArray(R"(<?xml version="1.0"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>
<title>Tappix</title><item><title>Tappix )") +
           version + "</title><sparkle:releaseNotesLink>https://morvane.app/tappix/notes/" +
           version + "</sparkle:releaseNotesLink><enclosure url=\"https://morvane.app/tappix-" +
           version + ".deb\" sparkle:shortVersionString=\"" + version +
           "\"/></item></channel></rss>";
}

struct Notes final : UserNotifier {
    std::vector<QString> posted;
    void post(const QString&, const QString& title, const QString&) override {
        posted.push_back(title);
    }
};

/// Update-check warnings logged while the test runs.
QStringList warnings;
void recordWarnings(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (type == QtWarningMsg && QByteArray(context.category) == "app.morvane.tappix.app")
        warnings.push_back(message);
}

} // namespace

// A newer version is announced once; each failure gives one log line naming it, no
// notification, nothing announced, and a reason the About page can show.
TEST(UpdateCheckOverHttps, ANewerVersionIsAnnouncedAndEachFailureLoggedOnce) {
    QTemporaryDir certificates;
    const QString trusted = certificates.filePath("trusted"),
                  rogue = certificates.filePath("rogue");
    ASSERT_TRUE(makeAuthority(trusted, "Tappix Test Authority"));
    ASSERT_TRUE(makeAuthority(rogue, "Someone Else"));
    const QString root = certificates.filePath("www");
    QDir().mkpath(root);
    const std::pair<const char*, QByteArray> files[] = {
        {"newer.xml", feed("1.3.0")},
        {"malformed.xml", "<rss><channel><item><title>Tappix 9.0"},
        {"huge.xml", QByteArray(2 << 20, ' ') + feed("1.3.0")},
    };
    for (const auto& [name, bytes] : files) {
        QFile file(root + "/" + name);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    FeedServer server, rogueServer, silentServer;
    ASSERT_TRUE(server.start({"serve", trusted + "/server.pem", trusted + "/server.key", root}));
    ASSERT_TRUE(rogueServer.start({"serve", rogue + "/server.pem", rogue + "/server.key", root}));
    ASSERT_TRUE(silentServer.start({"silent"}));
    qInstallMessageHandler(recordWarnings);

    const int standard = HttpsFeedFetcher::kTimeoutMs;
    const struct {
        const char* what;
        QUrl url;
        int timeoutMs;
        const char* error; // none: the check succeeds
    } cases[] = {
        {"a newer version", server.url("newer.xml"), standard, nullptr},
        {"a certificate from an authority not trusted", rogueServer.url("newer.xml"), standard,
         "SSL"},
        {"a malformed feed", server.url("malformed.xml"), standard, ""},
        {"a missing feed", server.url("gone.xml"), standard, "the server answered 404"},
        {"a feed larger than allowed", server.url("huge.xml"), standard,
         "the feed is larger than 1 MB"},
        {"a server that never answers", silentServer.url("newer.xml"), 300,
         "the server sent nothing for 0.3 s"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        warnings.clear();
        // A 1.2.0 build trusting the test authority.
        HttpsFeedFetcher fetcher(QSslCertificate::fromPath(trusted + "/ca.pem", QSsl::Pem),
                                 c.timeoutMs);
        test::FakeTime time;
        test::TempPrefs file;
        JsonFilePreferences prefs{file.path, time};
        SettingsStore settings{prefs, time};
        Notes notes;
        UpdateChecker checker(settings, fetcher, notes, time, c.url, QStringLiteral("1.2.0"));
        checker.checkNow();
        // A guard against a hang, not a measurement: every case ends well before it.
        ASSERT_TRUE(test::waitFor([&] { return !checker.isChecking(); }, 30000));
        ASSERT_TRUE(checker.hasChecked());
        EXPECT_EQ(notes.posted, c.error ? std::vector<QString>{}
                                        : std::vector<QString>{"Tappix 1.3.0 is available"});
        if (!c.error) {
            EXPECT_EQ(checker.latestVersion(), "1.3.0");
            EXPECT_TRUE(checker.lastError().isEmpty()) << qPrintable(checker.lastError());
            EXPECT_TRUE(warnings.isEmpty()) << qPrintable(warnings.join('\n'));
            continue;
        }
        EXPECT_FALSE(checker.lastError().isEmpty());
        EXPECT_TRUE(checker.lastError().contains(QLatin1String(c.error)))
            << qPrintable(checker.lastError());
        EXPECT_TRUE(checker.latestVersion().isEmpty());
        ASSERT_EQ(warnings.size(), 1) << qPrintable(warnings.join('\n'));
        EXPECT_TRUE(warnings[0].startsWith("update check failed: ")) << qPrintable(warnings[0]);
    }
    qInstallMessageHandler(nullptr);
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
