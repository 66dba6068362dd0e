// Notifications through a real session bus (the test runs under dbus-run-session)
// to a small notification server of its own.

#include "platform/dbus/freedesktop_notifier.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QElapsedTimer>
#include <QVariantMap>

using namespace tappix;

namespace {

/// The desktop's side: records each Notify call and hands out ids.
class NotificationServer final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Call {
        QString app;
        uint replaces;
        QString title, body;
    };
    std::vector<Call> calls;

public Q_SLOTS:
    uint Notify(const QString& app, uint replaces, const QString&, const QString& title,
                const QString& body, const QStringList&, const QVariantMap&, int) {
        calls.push_back({app, replaces, title, body});
        return replaces != 0 ? replaces : ++next_;
    }

private:
    uint next_ = 40;
};

bool waitFor(const std::function<bool()>& condition) {
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < 3000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return condition();
}

} // namespace

TEST(Notifications, PostedToTheDesktopAndReplacedByTheNext) {
    int argc = 0;
    QCoreApplication app(argc, nullptr);
    ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()) << "run under dbus-run-session";

    FreedesktopNotifier notifier;
    // No notification service yet: nothing shown, nothing breaks.
    notifier.post("tappix.sleep", "Sleeping", "The microphone is live");
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 300)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);

    QDBusConnection serverBus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, "desktop");
    NotificationServer server;
    ASSERT_TRUE(serverBus.registerObject("/org/freedesktop/Notifications", &server,
                                         QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(serverBus.registerService("org.freedesktop.Notifications"));

    notifier.post("tappix.sleep", "Sleeping", "The microphone is live");
    ASSERT_TRUE(waitFor([&] { return server.calls.size() == 1; }));
    QElapsedTimer replyTime;
    replyTime.start();
    while (replyTime.elapsed() < 200) // let the reply with the id come back
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    notifier.post("tappix.sleep", "Clacking again", "Keystroke sounds are back");
    ASSERT_TRUE(waitFor([&] { return server.calls.size() == 2; }));

    EXPECT_EQ(server.calls[0].app, "Tappix");
    EXPECT_EQ(server.calls[0].title, "Sleeping");
    EXPECT_EQ(server.calls[0].body, "The microphone is live");
    EXPECT_EQ(server.calls[0].replaces, 0u);
    EXPECT_EQ(server.calls[1].title, "Clacking again");
    EXPECT_EQ(server.calls[1].body, "Keystroke sounds are back");
    EXPECT_EQ(server.calls[1].replaces, 41u); // replaces the first
}

#include "notifications_test.moc"
