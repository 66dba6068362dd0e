// The update check against real HTTPS servers on 127.0.0.1: a throwaway authority and
// server certificates made with the openssl command, feeds served by a small Python
// server (support/https_feed_server.py), fetched by the fetcher the application uses.

#include "monitors/update_checker.h"
#include "platform/network/https_feed_fetcher.h"

#include "settings/json_file_preferences.h"
#include "support/fake_time.h"
#include "support/temp_prefs.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

using namespace tappix;

namespace {

/// Runs a command to completion; false (with its output on the test log) when it fails.
bool run(const QString& program, const QStringList& arguments, const QString& directory) {
    QProcess process;
    process.setWorkingDirectory(directory);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(60000) || process.exitCode() != 0) {
        ADD_FAILURE() << qPrintable(program) << " " << qPrintable(arguments.join(' ')) << ":\n"
                      << process.readAll().toStdString();
        return false;
    }
    return true;
}

/// An authority, and a certificate for 127.0.0.1 and localhost that it signs.
struct Authority {
    QString name, dir;

    bool make(const QString& inDir, const QString& authorityName) {
        name = authorityName;
        dir = inDir + "/" + name;
        QDir().mkpath(dir);
        const QStringList ec{"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"};
        QFile ext(dir + "/server.ext");
        ext.open(QIODevice::WriteOnly);
        ext.write("basicConstraints=CA:FALSE\n"
                  "keyUsage=critical,digitalSignature\n"
                  "extendedKeyUsage=serverAuth\n"
                  "subjectAltName=IP:127.0.0.1,DNS:localhost\n");
        ext.close();
        return run("openssl",
                   QStringList{"req", "-x509"} + ec +
                       QStringList{"-keyout", "ca.key", "-out", "ca.pem", "-days", "2", "-subj",
                                   "/CN=" + name, "-addext", "basicConstraints=critical,CA:TRUE",
                                   "-addext", "keyUsage=critical,keyCertSign,cRLSign"},
                   dir) &&
               run("openssl",
                   QStringList{"req"} + ec +
                       QStringList{"-keyout", "server.key", "-out", "server.csr", "-subj",
                                   "/CN=127.0.0.1"},
                   dir) &&
               run("openssl",
                   {"x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
                    "-CAcreateserial", "-out", "server.pem", "-days", "2", "-extfile",
                    "server.ext"},
                   dir);
    }

    QList<QSslCertificate> certificate() const {
        return QSslCertificate::fromPath(dir + "/ca.pem", QSsl::Pem);
    }
};

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

class UpdateCheckOverHttps : public testing::Test {
protected:
    // Certificates and servers are made once: key generation is the slow part.
    static void SetUpTestSuite() {
        certificates_ = new QTemporaryDir;
        trusted_ = new Authority;
        rogue_ = new Authority;
        ASSERT_TRUE(trusted_->make(certificates_->path(), "Tappix Test Authority"));
        ASSERT_TRUE(rogue_->make(certificates_->path(), "Someone Else"));

        const QString root = certificates_->path() + "/www";
        QDir().mkpath(root);
        const std::pair<const char*, QByteArray> files[] = {
            {"newer.xml", feed("1.3.0")},
            {"malformed.xml", "<rss><channel><item><title>Tappix 9.0"},
            {"huge.xml", QByteArray(2 << 20, ' ') + feed("1.3.0")},
        };
        for (const auto& [name, bytes] : files) {
            QFile file(root + "/" + name);
            file.open(QIODevice::WriteOnly);
            file.write(bytes);
        }
        server_ = new FeedServer;
        ASSERT_TRUE(server_->start(
            {"serve", trusted_->dir + "/server.pem", trusted_->dir + "/server.key", root}));
        rogueServer_ = new FeedServer;
        ASSERT_TRUE(rogueServer_->start(
            {"serve", rogue_->dir + "/server.pem", rogue_->dir + "/server.key", root}));
        silentServer_ = new FeedServer;
        ASSERT_TRUE(silentServer_->start({"silent"}));
    }

    static void TearDownTestSuite() {
        delete silentServer_;
        delete rogueServer_;
        delete server_;
        delete rogue_;
        delete trusted_;
        delete certificates_;
    }

    void SetUp() override {
        warnings.clear();
        previousHandler_ = qInstallMessageHandler(recordWarnings);
    }
    void TearDown() override { qInstallMessageHandler(previousHandler_); }

    /// One check of `url` by a 1.2.0 build trusting the test authority; returns once it ends.
    void check(const QUrl& url, int timeoutMs = HttpsFeedFetcher::kTimeoutMs) {
        HttpsFeedFetcher fetcher(trusted_->certificate(), timeoutMs);
        test::FakeTime time;
        test::TempPrefs file;
        JsonFilePreferences prefs{file.path, time};
        SettingsStore settings{prefs, time};
        UpdateChecker checker(settings, fetcher, notes, time, url, QStringLiteral("1.2.0"));
        checker.checkNow();
        // A guard against a hang, not a measurement: every case ends well before it.
        QElapsedTimer guard;
        guard.start();
        while (checker.isChecking() && guard.elapsed() < 30000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        ASSERT_FALSE(checker.isChecking()) << "the check never ended";
        ASSERT_TRUE(checker.hasChecked());
        lastError = checker.lastError();
        latestVersion = checker.latestVersion();
    }

    static inline QTemporaryDir* certificates_ = nullptr;
    static inline Authority *trusted_ = nullptr, *rogue_ = nullptr;
    static inline FeedServer *server_ = nullptr, *rogueServer_ = nullptr, *silentServer_ = nullptr;

    Notes notes;
    QString lastError, latestVersion;
    QtMessageHandler previousHandler_ = nullptr;
};

TEST_F(UpdateCheckOverHttps, ANewerVersionIsAnnouncedOnce) {
    check(server_->url("newer.xml"));
    EXPECT_EQ(latestVersion, "1.3.0");
    EXPECT_TRUE(lastError.isEmpty()) << qPrintable(lastError);
    ASSERT_EQ(notes.posted.size(), 1u);
    EXPECT_EQ(notes.posted[0], "Tappix 1.3.0 is available");
    EXPECT_TRUE(warnings.isEmpty()) << qPrintable(warnings.join('\n'));
}

// Each failure: one log line naming it, no notification, nothing announced, and a
// reason the About page can show.
TEST_F(UpdateCheckOverHttps, FailuresGiveOneLogLineAndNoNotification) {
    struct Case {
        const char* what;
        QUrl url;
        int timeoutMs;
        const char* error;
    };
    const int standard = HttpsFeedFetcher::kTimeoutMs;
    const Case cases[] = {
        {"a certificate from an authority not trusted", rogueServer_->url("newer.xml"), standard,
         "SSL"},
        {"a malformed feed", server_->url("malformed.xml"), standard, ""},
        {"a missing feed", server_->url("gone.xml"), standard, "the server answered 404"},
        {"a feed larger than allowed", server_->url("huge.xml"), standard,
         "the feed is larger than 1 MB"},
        {"a server that never answers", silentServer_->url("newer.xml"), 300,
         "the server sent nothing for 0.3 s"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        warnings.clear();
        check(c.url, c.timeoutMs);
        EXPECT_FALSE(lastError.isEmpty());
        EXPECT_TRUE(lastError.contains(QLatin1String(c.error))) << qPrintable(lastError);
        EXPECT_TRUE(latestVersion.isEmpty());
        ASSERT_EQ(warnings.size(), 1) << qPrintable(warnings.join('\n'));
        EXPECT_TRUE(warnings[0].startsWith("update check failed: ")) << qPrintable(warnings[0]);
    }
    EXPECT_TRUE(notes.posted.empty());
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
