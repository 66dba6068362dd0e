// Notifications through a real session bus (the test runs under dbus-run-session)
// to a small notification server of its own.

#include "platform/dbus/freedesktop_notifier.h"

#include "support/core_app.h"

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QVariantMap>

using namespace tappix;

namespace {

/// The desktop's side: records each Notify call and hands out ids.
class NotificationServer final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    std::vector<QString> calls;

public Q_SLOTS:
    uint Notify(const QString& app, uint replaces, const QString&, const QString& title,
                const QString& body, const QStringList&, const QVariantMap&, int) {
        calls.push_back(QStringLiteral("%1|%2|%3|%4").arg(app).arg(replaces).arg(title, body));
        return replaces != 0 ? replaces : ++next_;
    }

private:
    uint next_ = 40;
};

} // namespace

TEST(Notifications, PostedToTheDesktopAndReplacedByTheNext) {
    test::app();
    ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()) << "run under dbus-run-session";

    FreedesktopNotifier notifier;
    // No notification service yet: nothing shown, nothing breaks.
    notifier.post("tappix.sleep", "Sleeping", "The microphone is live");
    test::waitFor([] { return false; }, 300);

    QDBusConnection serverBus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, "desktop");
    NotificationServer server;
    ASSERT_TRUE(serverBus.registerObject("/org/freedesktop/Notifications", &server,
                                         QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(serverBus.registerService("org.freedesktop.Notifications"));

    notifier.post("tappix.sleep", "Sleeping", "The microphone is live");
    ASSERT_TRUE(test::waitFor([&] { return server.calls.size() == 1; }));
    test::waitFor([] { return false; }, 200); // the reply with the id comes back
    notifier.post("tappix.sleep", "Clacking again", "Keystroke sounds are back");
    ASSERT_TRUE(test::waitFor([&] { return server.calls.size() == 2; }));
    EXPECT_EQ(server.calls,
              (std::vector<QString>{"Tappix|0|Sleeping|The microphone is live",
                                    "Tappix|41|Clacking again|Keystroke sounds are back"}));
}

#include "notifications_test.moc"
