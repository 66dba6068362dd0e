// Under a real KWin on a virtual screen and a private session bus, with real Wayland windows.

#include "platform/dbus/kwin_focus_source.h"
#include "platform/focus_backends.h"

#include "support/leash.h"
#include "support/x11_desk.h"

#include <gtest/gtest.h>

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <functional>

using namespace tappix;

namespace {

constexpr char kSocket[] = "tappix-kwin-test";

/// Ten seconds: KWin draws in software on a shared machine.
bool waitFor(const std::function<bool()>& done) {
    return test::waitFor(done, 10000);
}

/// KWin's answer whether the script `pluginName` is loaded.
QDBusMessage isScriptLoaded(const QString& pluginName) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        "org.kde.KWin", "/Scripting", "org.kde.kwin.Scripting", "isScriptLoaded");
    message.setArguments({pluginName});
    return QDBusConnection::sessionBus().call(message);
}

} // namespace

TEST(KWinFocus, FollowsTheAppInFrontAndItsFullScreenUntilKWinGoes) {
    test::app();
    ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()) << "run under dbus-run-session";
    QTemporaryDir dir;
    ASSERT_TRUE(test::writeNotesEntry(dir.path(), "notes-icon"));
    qputenv("XDG_DATA_HOME", dir.path().toLocal8Bit());
    qputenv("XDG_DATA_DIRS", dir.filePath("none").toLocal8Bit());
    QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_RUNTIME_DIR", dir.path());
    env.insert("XDG_CONFIG_HOME", dir.filePath("config"));
    env.remove("DISPLAY");
    env.remove("WAYLAND_DISPLAY");
    // The package gives kwin_wayland a file capability that a container's bounding set
    // may lack, which makes exec fail; a plain copy runs anywhere.
    QFile::copy("/usr/bin/kwin_wayland", dir.filePath("kwin_wayland"));
    QProcess kwin;
    env.insert("QT_QPA_PLATFORM", "offscreen");
    kwin.setProcessEnvironment(env);
    kwin.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    kwin.setStandardOutputFile(QProcess::nullDevice());
    test::leash(kwin);
    kwin.start(dir.filePath("kwin_wayland"), {"--virtual", "--no-lockscreen", "--socket", kSocket,
                                              "--width", "640", "--height", "480"});
    // KWin takes its name before it registers its objects.
    ASSERT_TRUE(waitFor([] { return isScriptLoaded("none").type() == QDBusMessage::ReplyMessage; }))
        << "kwin_wayland did not answer on the bus";
    env.insert("WAYLAND_DISPLAY", kSocket);
    env.insert("QT_QPA_PLATFORM", "wayland");
    qputenv("WAYLAND_DISPLAY", kSocket);
    qputenv("XDG_RUNTIME_DIR", dir.path().toLocal8Bit());
    QProcess notes, scratchpad;
    const auto show = [&](QProcess& window, const QString& appId) {
        test::leash(window);
        window.setProcessEnvironment(env);
        window.setProcessChannelMode(QProcess::ForwardedChannels);
        window.start(TAPPIX_WAYLAND_WINDOW_PATH, {appId});
    };

    auto source = makeFocusSource();
    auto* kwinSource = dynamic_cast<KWinFocusSource*>(source.get());
    ASSERT_NE(kwinSource, nullptr) << source->unavailableReason().toStdString();
    EXPECT_EQ(source->unavailableReason(), QString());
    const QString plugin = kwinSource->pluginName();
    EXPECT_TRUE(isScriptLoaded(plugin).arguments().value(0).toBool());

    // An app with a desktop file, known by the id its window gives.
    show(notes, "org.example.Notes");
    ASSERT_TRUE(waitFor([&] { return source->focused().has_value(); }));
    EXPECT_EQ(source->focused()->app,
              (AppIdentity{"org.example.Notes", "Quiet Notes", "notes-icon"}));
    EXPECT_FALSE(source->focused()->fullScreen);
    EXPECT_TRUE(FocusSource::matches(*source->focused(), {"org.example.notes"}));

    notes.write("full\n");
    ASSERT_TRUE(waitFor([&] { return source->focused()->fullScreen; }));

    // A second app without a desktop file comes in front: known by its own id.
    show(scratchpad, "scratchpad");
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
    EXPECT_FALSE(isScriptLoaded(plugin).arguments().value(0).toBool());

    // KWin ends under a running source: nothing in front, and the reason.
    source = makeFocusSource();
    ASSERT_NE(dynamic_cast<KWinFocusSource*>(source.get()), nullptr);
    ASSERT_TRUE(waitFor([&] { return source->focused().has_value(); }));
    kwin.terminate();
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
