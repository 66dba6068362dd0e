// Under a real X server, the test playing the window manager that sets the properties.

#include "platform/x11/x11_focus_source.h"

#include "support/x11_desk.h"
#include "support/xvfb_server.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <unistd.h>

using namespace tappix;
using test::waitFor;

TEST(X11Focus, FollowsTheWindowInFrontAndWindowsOfNoAppUntilTheServerGoes) {
    test::app();
    // What the source logs about window triggers.
    static QStringList logged;
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
        if (message.startsWith(QLatin1String("window triggers")))
            logged << message;
    });
    auto server = std::make_unique<test::XvfbServer>(); // its own, to stop at the end
    ASSERT_TRUE(server->isRunning()) << "Xvfb did not start";
    QTemporaryDir data;
    ASSERT_TRUE(test::writeNotesEntry(data.path(), "notes-icon"));
    qputenv("XDG_DATA_HOME", data.path().toLocal8Bit());
    qputenv("XDG_DATA_DIRS", data.filePath("none").toLocal8Bit());
    static const char kNotes[] = "notes\0Notes";
    test::Desk desk;
    const xcb_window_t notes = desk.window(kNotes, sizeof kNotes);
    x11::X11FocusSource source;
    EXPECT_EQ(source.unavailableReason(), QString());
    EXPECT_FALSE(source.focused());

    desk.activate(notes);
    ASSERT_TRUE(waitFor([&] { return source.focused().has_value(); }));
    EXPECT_EQ(source.focused()->app,
              (AppIdentity{"org.example.Notes", "Quiet Notes", "notes-icon"}));
    EXPECT_EQ(source.focused()->classes, (QStringList{"notes", "Notes"}));
    EXPECT_FALSE(source.focused()->fullScreen);

    // Changes of the window in front arrive without its focus changing.
    static const char otherClass[] = "other\0Other";
    desk.setClass(notes, otherClass, sizeof otherClass);
    ASSERT_TRUE(waitFor([&] { return source.focused()->app.id == "Other"; }));
    EXPECT_EQ(source.focused()->app, (AppIdentity{"Other", "Other", "other"}));

    // One of Tappix's own windows is in front: the app before it is remembered.
    const xcb_window_t own = desk.window(nullptr, 0);
    desk.set(own, "_NET_WM_PID", XCB_ATOM_CARDINAL, {std::uint32_t(::getpid())});
    desk.activate(own);
    ASSERT_TRUE(waitFor([&] { return source.focused()->ownWindow; }));
    EXPECT_EQ(source.lastOtherApp()->id, QStringLiteral("Other"));

    // The window manager's client list, Tappix's own window left out, sorted by name.
    static const char termClass[] = "xterm\0XTerm";
    const xcb_window_t term = desk.window(termClass, sizeof termClass);
    desk.set(desk.root(), "_NET_CLIENT_LIST", XCB_ATOM_WINDOW, {term, notes, own, term});
    const auto running = source.runningApps();
    ASSERT_EQ(running.size(), 2u);
    EXPECT_EQ(running[0].id, QStringLiteral("Other"));
    EXPECT_EQ(running[1].id, QStringLiteral("XTerm"));
    EXPECT_EQ(source.describe("org.example.Notes").name, QStringLiteral("Quiet Notes"));
    EXPECT_EQ(source.describe("Gone").name, QStringLiteral("Gone"));
    EXPECT_EQ(logged, QStringList());

    // No class, a gone window and a restarting window manager each show no app.
    desk.setClass(notes, kNotes, sizeof kNotes);
    const xcb_window_t unnamed = desk.window(nullptr, 0);
    desk.activate(unnamed);
    ASSERT_TRUE(waitFor([&] { return source.focused().has_value(); }));
    EXPECT_EQ(source.focused()->app.id, QString());
    desk.set(unnamed, "_NET_WM_STATE", XCB_ATOM_ATOM,
             {desk.atom("_NET_WM_STATE_ABOVE"), desk.atom("_NET_WM_STATE_FULLSCREEN")});
    ASSERT_TRUE(waitFor([&] { return source.focused()->fullScreen; }));
    EXPECT_EQ(logged.filter("names no application").size(), 1); // once, not at every change

    // Gone between the window manager's word and the read.
    const xcb_window_t gone = desk.window(kNotes, sizeof kNotes);
    desk.destroy(gone);
    desk.activate(gone);
    ASSERT_TRUE(waitFor([&] { return !source.focused().has_value(); }));
    EXPECT_EQ(logged.filter("went before it could be read").size(), 1);

    desk.activate(notes);
    ASSERT_TRUE(waitFor([&] { return source.focused().has_value(); }));
    EXPECT_EQ(source.focused()->app.name, QStringLiteral("Quiet Notes"));

    // A window manager that restarts takes the property away, then sets it again.
    desk.clearActive();
    ASSERT_TRUE(waitFor([&] { return !source.focused().has_value(); }));
    desk.activate(notes);
    ASSERT_TRUE(waitFor([&] { return source.focused().has_value(); }));
    EXPECT_EQ(logged.size(), 2);

    // The server goes away: nothing in front, and one line.
    server.reset();
    ASSERT_TRUE(waitFor([&] { return !source.focused().has_value(); }));
    EXPECT_FALSE(source.unavailableReason().isEmpty());
    QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
    EXPECT_EQ(logged.size(), 3);
    EXPECT_EQ(logged.back(), "window triggers: lost the X display; they stay awake");
    EXPECT_TRUE(source.runningApps().empty());

    // In a Wayland session X11 sees only XWayland's windows: no source, and it says so.
    qputenv("XDG_SESSION_TYPE", "wayland");
    x11::X11FocusSource wayland;
    EXPECT_TRUE(wayland.unavailableReason().contains(QLatin1String("Wayland")));
    EXPECT_FALSE(wayland.focused());
    qInstallMessageHandler(nullptr);
}
