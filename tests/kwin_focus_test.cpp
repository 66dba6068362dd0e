// The window in front in a KDE Plasma Wayland session: a real KWin on a virtual screen
// and a private session bus (the test runs under dbus-run-session), with real Wayland
// windows of apps of their own.

#include "platform/dbus/kwin_focus_source.h"
#include "platform/focus_backends.h"

#include "support/leash.h"
#include "support/x11_desk.h"

#include <gtest/gtest.h>

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <functional>
#include <memory>

using namespace tappix;

namespace {

/// Runs the event loop until `done` holds; false after ten seconds (KWin draws in
/// software on a shared machine).
bool waitFor(const std::function<bool()>& done) {
    return test::waitFor(done, 10000);
}

/// KWin's answer whether the script `pluginName` is loaded.
QDBusMessage isScriptLoaded(const QString& pluginName) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        QStringLiteral("org.kde.KWin"), QStringLiteral("/Scripting"),
        QStringLiteral("org.kde.kwin.Scripting"), QStringLiteral("isScriptLoaded"));
    message.setArguments({pluginName});
    return QDBusConnection::sessionBus().call(message);
}

bool scriptLoaded(const QString& pluginName) {
    const QDBusMessage reply = isScriptLoaded(pluginName);
    return !reply.arguments().isEmpty() && reply.arguments().first().toBool();
}

/// KWin on a virtual screen with its own runtime and configuration directories, on the
/// test's session bus; Wayland clients started by `window` connect to it.
class KWinSession {
public:
    static constexpr const char* kSocket = "tappix-kwin-test";

    KWinSession() {
        QFile::setPermissions(dir_.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        // The package gives kwin_wayland a file capability that a container's bounding
        // set may lack, which makes exec fail; a plain copy runs anywhere.
        const QString binary = dir_.filePath(QStringLiteral("kwin_wayland"));
        QFile::copy(QStringLiteral("/usr/bin/kwin_wayland"), binary);
        QProcessEnvironment env = environment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        kwin_.setProcessEnvironment(env);
        kwin_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        kwin_.setStandardOutputFile(QProcess::nullDevice());
        test::leash(kwin_);
        kwin_.start(binary, {QStringLiteral("--virtual"), QStringLiteral("--no-lockscreen"),
                             QStringLiteral("--socket"), QString::fromLatin1(kSocket),
                             QStringLiteral("--width"), QStringLiteral("640"),
                             QStringLiteral("--height"), QStringLiteral("480")});
    }
    ~KWinSession() {
        for (auto& window : windows_)
            stop(*window);
        stop(kwin_);
    }

    /// Whether KWin started and its scripting answers on the bus (it takes its name
    /// before it registers its objects).
    bool ready() {
        return kwin_.waitForStarted() && waitFor([] {
                   return isScriptLoaded(QStringLiteral("none")).type() ==
                          QDBusMessage::ReplyMessage;
               });
    }
    /// A window of the app `appId`, shown.
    QProcess& window(const QString& appId) {
        windows_.push_back(std::make_unique<QProcess>());
        QProcess& window = *windows_.back();
        QProcessEnvironment env = environment();
        env.insert(QStringLiteral("WAYLAND_DISPLAY"), QString::fromLatin1(kSocket));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
        window.setProcessEnvironment(env);
        window.setProcessChannelMode(QProcess::ForwardedChannels);
        window.start(QStringLiteral(TAPPIX_WAYLAND_WINDOW_PATH), {appId});
        return window;
    }
    /// Ends KWin.
    void quit() { stop(kwin_); }
    /// The runtime directory clients of this KWin share.
    QString runtimeDir() const { return dir_.path(); }

private:
    QProcessEnvironment environment() const {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir_.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir_.filePath(QStringLiteral("config")));
        env.remove(QStringLiteral("DISPLAY"));
        return env;
    }
    static void stop(QProcess& process) {
        if (process.state() == QProcess::NotRunning)
            return;
        process.terminate();
        if (!process.waitForFinished(5000))
            process.kill();
        process.waitForFinished();
    }

    QTemporaryDir dir_;
    QProcess kwin_;
    std::vector<std::unique_ptr<QProcess>> windows_;
};

} // namespace

TEST(KWinFocus, FollowsTheAppInFrontAndItsFullScreenUntilKWinGoes) {
    test::app();
    ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()) << "run under dbus-run-session";
    QTemporaryDir data;
    ASSERT_TRUE(test::writeNotesEntry(data.path(), "notes-icon"));
    qputenv("XDG_DATA_HOME", data.path().toLocal8Bit());
    qputenv("XDG_DATA_DIRS", data.filePath("none").toLocal8Bit());
    KWinSession kwin;
    ASSERT_TRUE(kwin.ready()) << "kwin_wayland did not take org.kde.KWin";
    // Tappix in the Wayland session KWin leads.
    qputenv("WAYLAND_DISPLAY", KWinSession::kSocket);
    qputenv("XDG_RUNTIME_DIR", kwin.runtimeDir().toLocal8Bit());

    auto source = makeFocusSource();
    auto* kwinSource = dynamic_cast<KWinFocusSource*>(source.get());
    ASSERT_NE(kwinSource, nullptr) << source->unavailableReason().toStdString();
    EXPECT_EQ(source->unavailableReason(), QString());
    const QString plugin = kwinSource->pluginName();
    EXPECT_TRUE(scriptLoaded(plugin));

    // An app with a desktop file, known by the id its window gives.
    QProcess& notes = kwin.window(QStringLiteral("org.example.Notes"));
    ASSERT_TRUE(waitFor([&] { return source->focused().has_value(); }));
    EXPECT_EQ(source->focused()->app,
              (AppIdentity{"org.example.Notes", "Quiet Notes", "notes-icon"}));
    EXPECT_FALSE(source->focused()->fullScreen);
    EXPECT_TRUE(FocusSource::matches(*source->focused(), {"org.example.notes"}));

    notes.write("full\n");
    ASSERT_TRUE(waitFor([&] { return source->focused()->fullScreen; }));

    // A second app without a desktop file comes in front: known by its own id.
    kwin.window(QStringLiteral("scratchpad"));
    ASSERT_TRUE(waitFor([&] { return source->focused()->app.id == "scratchpad"; }));
    EXPECT_EQ(source->focused()->app, (AppIdentity{"scratchpad", "scratchpad", "scratchpad"}));
    EXPECT_FALSE(source->focused()->fullScreen);
    EXPECT_EQ(source->lastOtherApp()->id, QStringLiteral("scratchpad"));
    const auto running = source->runningApps();
    ASSERT_EQ(running.size(), 2u);
    EXPECT_EQ(running[0].name, QStringLiteral("Quiet Notes"));
    EXPECT_EQ(running[1].id, QStringLiteral("scratchpad"));

    // Anyone but KWin is turned away.
    QDBusConnection other =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("other"));
    QDBusMessage forged = QDBusMessage::createMethodCall(
        QDBusConnection::sessionBus().baseService(), KWinFocusSource::kObjectPath,
        QStringLiteral("app.morvane.tappix.KWinFocus"), QStringLiteral("Report"));
    forged.setArguments({QStringLiteral("{\"active\":null,\"windows\":[]}")});
    // Asked asynchronously: the answer comes from this thread's own event loop.
    const QDBusPendingCall answer = other.asyncCall(forged);
    ASSERT_TRUE(waitFor([&] { return answer.isFinished(); }));
    EXPECT_EQ(answer.error().type(), QDBusError::AccessDenied);
    EXPECT_EQ(source->focused()->app.id, QStringLiteral("scratchpad"));

    // Going, the source takes its script out of KWin.
    source.reset();
    EXPECT_FALSE(scriptLoaded(plugin));

    // KWin ends under a running source: nothing in front, and the reason.
    source = makeFocusSource();
    ASSERT_NE(dynamic_cast<KWinFocusSource*>(source.get()), nullptr);
    ASSERT_TRUE(waitFor([&] { return source->focused().has_value(); }));
    kwin.quit();
    ASSERT_TRUE(waitFor([&] { return !source->unavailableReason().isEmpty(); }));
    EXPECT_FALSE(source->focused());
    source.reset();

    // Without KWin a Wayland session has no source, as before, and says so.
    source = makeFocusSource();
    EXPECT_EQ(dynamic_cast<KWinFocusSource*>(source.get()), nullptr);
    EXPECT_TRUE(source->unavailableReason().contains(QLatin1String("Wayland")))
        << source->unavailableReason().toStdString();
    qunsetenv("WAYLAND_DISPLAY");
}
