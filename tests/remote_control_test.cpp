// A running tappix driven from outside (a second launch, the command line, the session bus)
// and telling the desktop's notification server, on private X, sound and bus servers.

#include "kits/soundpack_store.h"
#include "platform/dbus/remote_control_service.h"
#include "settings/json_file_preferences.h"
#include "settings/settings_store.h"
#include "support/core_app.h"
#include "support/fake_time.h"
#include "support/pulse_server.h"
#include "support/temp_prefs.h"
#include "support/xvfb_server.h"

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <cmath>

using namespace tappix;
using test::PulseServer;
using test::waitFor;
using test::XvfbServer;

namespace {

const char* const kService = "app.morvane.tappix";
const char* const kPath = "/app/morvane/tappix";
const char* const kInterface = "app.morvane.tappix.Control";

/// Collects PropertiesChanged signals of Tappix's control interface.
class ChangeListener final : public QObject {
    Q_OBJECT
public:
    std::vector<QVariantMap> changes;

public Q_SLOTS:
    void changed(const QString& interface, const QVariantMap& properties, const QStringList&) {
        if (interface == QLatin1String(kInterface))
            changes.push_back(properties);
    }
};

/// The desktop's notification server: records each Notify call and hands out ids.
class NotificationServer final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    std::vector<QString> calls;

public Q_SLOTS:
    uint Notify(const QString& app, uint replaces, const QString&, const QString& title,
                const QString& body, const QStringList&, const QVariantMap&, int) {
        calls.push_back(QStringLiteral("%1|%2|%3|%4").arg(app).arg(replaces).arg(title, body));
        return replaces != 0 ? replaces : 41;
    }
};

/// What one `tappix` command printed and how it ended.
struct Outcome {
    int code = -1;
    QString out, err;
};

class RemoteControl : public ::testing::Test {
protected:
    void SetUp() override {
        test::app();
        ASSERT_TRUE(XvfbServer::shared().isRunning());
        ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()) << "run under dbus-run-session";
        env_ = QProcessEnvironment::systemEnvironment();
        env_.insert("HOME", home_.path());
        env_.insert("XDG_CONFIG_HOME", config_.dir.path());
        env_.insert("XDG_DATA_HOME", home_.filePath("data"));
        env_.insert("XDG_RUNTIME_DIR", runtime_.path());
    }
    void TearDown() override {
        if (tappix_.state() != QProcess::NotRunning) {
            tappix_.terminate();
            EXPECT_TRUE(tappix_.waitForFinished(5000));
        }
    }

    /// Waits (up to 10 s) until tappix has logged `text`.
    bool waitForLog(const QByteArray& text) {
        return waitFor([&] { return (log_ += tappix_.readAll()).contains(text); }, 10000);
    }

    /// Runs `program arguments` to its end (-1: it did not end in thirty seconds).
    Outcome command(const QStringList& arguments, const char* program = TAPPIX_PATH) {
        QProcess process;
        process.setProcessEnvironment(env_);
        process.start(QString::fromUtf8(program), arguments);
        if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit)
            return {};
        return {process.exitCode(), QString::fromLocal8Bit(process.readAllStandardOutput()),
                QString::fromLocal8Bit(process.readAllStandardError())};
    }

    QJsonObject prefs() const { return config_.read(); }

    static QVariant property(const char* name) {
        return QDBusInterface(kService, kPath, kInterface).property(name);
    }

    QTemporaryDir home_, runtime_;
    test::TempPrefs config_;
    QProcessEnvironment env_;
    QProcess tappix_;
    QByteArray log_;
    ChangeListener listener;
};

} // namespace

// Without a running Tappix only help, the version and a usage error answer; then one tappix,
// started during a call and over a stale socket, driven each way in turn, typed at and quit.
TEST_F(RemoteControl, OneTappixDrivenFromOutside) {
    for (const QStringList& arguments :
         {QStringList{"--toggle"}, QStringList{"--status"}, QStringList{"--volume", "30"},
          QStringList{"--quit"}, QStringList{"--panel"}}) {
        const Outcome outcome = command(arguments);
        EXPECT_EQ(outcome.code, 1) << arguments.join(' ').toStdString();
        EXPECT_TRUE(outcome.err.contains("Tappix is not running")) << outcome.err.toStdString();
    }
    const Outcome help = command({"--help"}), version = command({"--version"}),
                  unknown = command({"--bogus"});
    EXPECT_TRUE(help.code == 0 && help.out.contains("--volume <N>"));
    EXPECT_TRUE(version.code == 0 && version.out == "Tappix " TAPPIX_VERSION "\n");
    EXPECT_TRUE(unknown.code == 2 && unknown.out.isEmpty() && unknown.err.contains("Usage:"))
        << unknown.err.toStdString();
    EXPECT_FALSE(config_.exists());
    EXPECT_FALSE(QFile::exists(runtime_.filePath("app.morvane.tappix.socket")));

    // A socket file left behind with nobody listening, as a crash leaves it.
    QProcess::execute("python3",
                      {"-c", "import socket, sys; socket.socket(socket.AF_UNIX).bind(sys.argv[1])",
                       runtime_.filePath("app.morvane.tappix.socket")});
    const QJsonObject preferences{
        {"pitchVariation", false},
        {"keyUpSoundsEnabled", false},
        {"sleepEnabled", true},
        {"sleepTriggerMicrophone", true},
        {"notificationsEnabled", true},
        {"soundMixes", QJsonArray{QJsonObject{
                           {"id", "night"}, {"name", "Night"}, {"assignments", QJsonObject{}}}}}};
    PulseServer pulse;
    for (const char* name : {"PULSE_SERVER", "PULSE_CLIENTCONFIG"}) // the server just made
        env_.insert(name, qEnvironmentVariable(name));
    QDBusConnection desktop = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "desktop");
    NotificationServer notifications;
    ASSERT_TRUE(desktop.registerObject("/org/freedesktop/Notifications", &notifications,
                                       QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(desktop.registerService("org.freedesktop.Notifications"));
    config_.write(preferences);
    {
        // Asleep from the start. The first query runs off the main thread and a loaded
        // machine may take over a second to answer it; the unit tests hold the timing.
        auto call = PulseServer::startRecording();
        tappix_.setProcessEnvironment(env_);
        tappix_.setProcessChannelMode(QProcess::MergedChannels);
        test::leash(tappix_);
        tappix_.start(QStringLiteral(TAPPIX_PATH), {});
        ASSERT_TRUE(waitForLog("remote control on the session bus")) << log_.constData();
        ASSERT_TRUE(waitForLog("global backend: X11 raw events")) << log_.constData();
        ASSERT_TRUE(QDBusConnection::sessionBus().connect(
            kService, kPath, "org.freedesktop.DBus.Properties", "PropertiesChanged", &listener,
            SLOT(changed(QString, QVariantMap, QStringList))));
        EXPECT_TRUE(log_.contains("removing a stale instance socket"));
        EXPECT_TRUE(waitFor([&] { return property("Sleeping").toBool(); }));
        EXPECT_TRUE(waitFor([&] { return notifications.calls.size() == 1; }));
        EXPECT_TRUE(command({"--status"}).out.contains("Sleeping: true"));
    }
    ASSERT_TRUE(waitFor([&] {
        return !listener.changes.empty() &&
               listener.changes.back() == QVariantMap{{"Sleeping", false}};
    }));
    // Told to the desktop, the second notification replacing the first.
    EXPECT_TRUE(waitFor([&] { return notifications.calls.size() == 2; }));
    EXPECT_EQ(notifications.calls,
              (std::vector<QString>{"Tappix|0|Sleeping|The microphone is live",
                                    "Tappix|41|Clacking again|Keystroke sounds are back"}));

    // A second launch reopens the first, which keeps the socket for a third.
    EXPECT_EQ(command({}).code, 0);
    EXPECT_TRUE(waitForLog("a second launch asked to reopen")) << log_.constData();
    EXPECT_TRUE(waitForLog("reopen: the settings window"));
    EXPECT_EQ(command({}).code, 0);
    EXPECT_EQ(tappix_.state(), QProcess::Running);

    std::size_t signalsBefore = listener.changes.size();
    Outcome set = command({"--volume", "30"});
    EXPECT_EQ(set.code, 0) << set.err.toStdString();
    EXPECT_TRUE(waitFor([&] { return std::abs(prefs()["volume"].toDouble() - 0.3) < 1e-6; }));
    ASSERT_TRUE(waitFor([&] { return listener.changes.size() > signalsBefore; }));
    EXPECT_DOUBLE_EQ(listener.changes.back().value("Volume").toDouble(), 0.3);
    EXPECT_FALSE(listener.changes.back().contains("Kit")); // only what changed
    EXPECT_EQ(command({"--kit", "chalk-clack", "--mix", "night"}).code, 0);
    EXPECT_TRUE(waitFor([&] {
        return prefs()["selectedPackId"].toString() == "chalk-clack" &&
               prefs()["activeMixId"].toString() == "night";
    }));
    EXPECT_TRUE(waitFor([&] { return listener.changes.size() >= signalsBefore + 3; }));
    EXPECT_EQ(command({"--status"}).out,
              "Enabled: true\nVolume: 30\nKit: chalk-clack\nMix: night\nSleeping: false\n");

    // Refused, each with a message, and nothing changes.
    const QJsonObject before = prefs();
    for (const QStringList& bad :
         {QStringList{"--volume", "150"}, QStringList{"--kit", "nosuch"},
          QStringList{"--mix", "nosuch"}, QStringList{"--settings", "nosuch"},
          QStringList{"--kit", "nosuch", "--volume", "10"}}) {
        const Outcome refused = command(bad);
        EXPECT_EQ(refused.code, 1) << bad.join(' ').toStdString();
        EXPECT_TRUE(refused.err.contains("nosuch") || refused.err.contains("0 to 100"))
            << refused.err.toStdString();
    }
    EXPECT_TRUE(command({"--kit", "nosuch"}).err.contains("gun-shotgun")); // lists the kits
    signalsBefore = listener.changes.size();
    EXPECT_EQ(command({"--mix", "none"}).code, 0);
    EXPECT_TRUE(waitFor([&] { return !prefs().contains("activeMixId"); }));
    EXPECT_EQ(prefs()["volume"], before["volume"]);
    EXPECT_EQ(prefs()["selectedPackId"], before["selectedPackId"]);
    EXPECT_TRUE(waitFor([&] { return listener.changes.size() == signalsBefore + 1; })); // the mix

    // The bus takes the ends of each range and an empty page (the last one shown), and
    // refuses what lies beyond with named errors.
    const struct {
        const char* member; // a property set, or OpenSettings called
        QVariant argument;
        const char* error;
        double volume; // after the call
    } calls[] = {
        {"Volume", 0.0, "", 0.0},
        {"Volume", -0.01, "app.morvane.tappix.Error.InvalidVolume", 0.0},
        {"Volume", 1.0, "", 1.0},
        {"Volume", 1.5, "app.morvane.tappix.Error.InvalidVolume", 1.0},
        {"Sleeping", true, "org.freedesktop.DBus.Error.PropertyReadOnly", 1.0},
        {"OpenSettings", QString(""), "", 1.0},
        {"OpenSettings", QString("nosuch"), "app.morvane.tappix.Error.UnknownPage", 1.0},
    };
    for (const auto& c : calls) {
        const bool method = QLatin1String(c.member) == "OpenSettings";
        QDBusMessage call = QDBusMessage::createMethodCall(
            kService, kPath, method ? kInterface : "org.freedesktop.DBus.Properties",
            method ? "OpenSettings" : "Set");
        if (method)
            call << c.argument;
        else
            call << QString(kInterface) << QString(c.member)
                 << QVariant::fromValue(QDBusVariant(c.argument));
        EXPECT_EQ(QDBusConnection::sessionBus().call(call).errorName(), c.error) << c.member;
        EXPECT_EQ(property("Volume").toDouble(), c.volume) << c.member;
    }
    EXPECT_TRUE(waitFor([&] { return prefs()["volume"].toDouble(-1) == 1.0; }));

    // The output's underrun count, read by tappix-doctor from the running Tappix.
    ASSERT_EQ(property("Underruns").metaType(), QMetaType::fromType<qulonglong>());
    const QString report = command({}, TAPPIX_DOCTOR_PATH).out;
    EXPECT_TRUE(
        QRegularExpression("underruns since Tappix started: \\d+\n").match(report).hasMatch())
        << report.toStdString();

    // Typed keys count, and not while toggled off (test_tray.py listens to the same switch).
    XvfbServer::xdotool({"key", "a"});
    EXPECT_EQ(command({"--toggle"}).code, 0);
    EXPECT_EQ(property("Enabled").toBool(), false);
    EXPECT_TRUE(waitFor([&] { return prefs()["isEnabled"].toBool(true) == false; }));
    XvfbServer::xdotool({"key", "s"});
    EXPECT_EQ(command({"--toggle"}).code, 0);
    EXPECT_EQ(property("Enabled").toBool(), true);
    XvfbServer::xdotool({"key", "d"});

    // Counters are written ten seconds after the last key, or at quit: two keys counted.
    const Outcome quit = command({"--quit"});
    EXPECT_EQ(quit.code, 0) << quit.err.toStdString();
    ASSERT_TRUE(tappix_.waitForFinished(5000));
    EXPECT_EQ(tappix_.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(tappix_.exitCode(), 0);
    EXPECT_EQ(prefs()["keystrokeCount"].toInteger(), 2);
}

#include "remote_control_test.moc"

// A window's first showing loads its views, which on a loaded machine outlasts a
// caller's timeout: each command answers first and acts after.
TEST(RemoteControlService, AnswersBeforeItActs) {
    test::app();
    test::FakeTime time;
    test::TempPrefs file;
    JsonFilePreferences prefs{file.path, time};
    SettingsStore settings{prefs, time};
    const SoundpackStore packs{QString(), QString()};
    QDBusPendingCall* pending = nullptr;
    std::vector<QString> acted;
    const auto act = [&](const QString& what) {
        acted.push_back(what + (waitFor([&] { return pending->isFinished(); }, 3000)
                                    ? QStringLiteral(" after the answer")
                                    : QStringLiteral(" before the answer")));
    };
    RemoteControlService service{
        settings,
        packs,
        {.showPanel = [&] { act(QStringLiteral("panel")); },
         .openSettings = [&](const QString&) { act(QStringLiteral("settings")); },
         .quit = [&] { act(QStringLiteral("quit")); },
         .isSleeping = {},
         .underruns = {}}};
    ASSERT_TRUE(service.publish(QDBusConnection::sessionBus()));
    const QDBusConnection caller =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("caller"));

    const std::vector<std::pair<QString, QVariantList>> calls{
        {"ShowPanel", {}}, {"OpenSettings", {QString()}}, {"Quit", {}}};
    for (const auto& [method, arguments] : calls) {
        QDBusMessage message = QDBusMessage::createMethodCall(kService, kPath, kInterface, method);
        message.setArguments(arguments);
        QDBusPendingCall call = caller.asyncCall(message);
        pending = &call;
        ASSERT_TRUE(waitFor([&] { return acted.size() == 1; })) << method.toStdString();
        EXPECT_EQ(call.reply().type(), QDBusMessage::ReplyMessage) << method.toStdString();
        EXPECT_TRUE(acted.front().endsWith(QStringLiteral(" after the answer")))
            << acted.front().toStdString();
        acted.clear();
    }
}
