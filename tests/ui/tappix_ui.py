#!/usr/bin/python3
"""What the desktop test modules share: starting tappix as a user's desktop would, its
command line, kit names, sound measures, windows and screenshots."""

import json
import os
import re
import subprocess
import time

import harness

PANEL = "Tappix"
SETTINGS = "Tappix Settings"
SHORTCUT = "Ctrl+Super+K"

# Letters only: typed while a Tappix window has the focus, they change nothing there.
TYPED_KEYS = ("a", "s", "d", "f", "j", "k", "l", "g")

# Sound comparisons leave out what varies from press to press.
STEADY_SOUND = {"pitchVariation": False, "stereoPanning": False, "spatialAudio": False}

# Twelve saved mixes, more than the panel's mixes page shows at once: one that changes
# three parts of the board, one that changes none, ten that change one.
TWELVE_MIXES = [
    {"id": "desk", "name": "Desk", "assignments": {
        "letters": {"packId": "crisp-click"}, "space": {"packId": "velvet"},
        "enter": {"packId": "gun-pistol"}}},
    {"id": "quiet", "name": "Quiet", "assignments": {}},
] + [{"id": "mix-%d" % n, "name": "Mix %d" % n, "assignments": {"space": {"packId": "velvet"}}}
     for n in range(3, 13)]

# Lifetime counters as the About page gets them.
COUNTERS = {
    "keystrokeCount": 1234567, "dingCount": 5, "clickCount": 1042, "bestWPM": 88.4,
    # 9,750 productive keys in 30 minutes: 65 wpm; 250 corrections: 97.5% accurate.
    "productiveKeys": 9750, "corrections": 250, "typingSeconds": 1800,
}


def start(test, preferences=None, login_start=True, tray=True, env=None, before_launch=None,
          hears_keys=True, welcome_seen=True):
    """Starts a session running tappix, closed by `test`'s cleanup (a TestCase or, from
    setUpClass, its class). login_start: an autostart entry present, so tappix starts
    quietly as at login, not as by hand with a window. hears_keys: waits for key capture.
    before_launch(session) runs once its folders exist."""
    session = harness.Session(tray=tray, env=env)
    (test.addClassCleanup if isinstance(test, type) else test.addCleanup)(session.close)
    try:
        session.start()
        session.write_preferences(dict({"hasSeenWelcome": welcome_seen}, **(preferences or {})))
        if login_start:
            autostart = os.path.join(session.config_home, "autostart")
            os.makedirs(autostart, exist_ok=True)
            with open(os.path.join(autostart, "app.morvane.tappix.desktop"), "w") as f:
                f.write("[Desktop Entry]\nType=Application\nName=Tappix\nExec=tappix\n")
        if before_launch:
            before_launch(session)
        session.launch()
        session.wait_for_log(re.compile(r"Tappix \S+ running"), timeout=30)
        if hears_keys:
            # Capture may take the 2 s retry when the display refuses a first connection.
            session.wait_for_log("global backend: X11 raw events", timeout=15)
        # A login start makes no window until one is asked for, and Qt only joins the
        # accessibility bus with a window: look for it then.
        if not login_start:
            session.app(timeout=20)
    except BaseException:
        session.report()
        raise
    return session


def cli_ok(test, session, *args):
    """Runs `tappix ARGS` against the running instance and checks it succeeded."""
    done = subprocess.run([session.program, *args], env=session.app_env(),
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=15)
    test.assertEqual(done.returncode, 0, "tappix %s: %s%s" % (" ".join(args), done.stdout,
                                                              done.stderr))
    return done


def panel(session, timeout=10):
    return session.window(PANEL, timeout=timeout)


def settings_window(session, timeout=10):
    return session.window(SETTINGS, timeout=timeout)


def showing(session, title):
    return title in session.windows()


def wait_gone(session, title, timeout=10):
    return session.wait_until(lambda: not showing(session, title), timeout,
                              message=lambda: "%r to close (showing: %s)" % (
                                  title, session.windows()))


def open_panel(test, session):
    """Opens the panel from the command line and returns its frame."""
    cli_ok(test, session, "--panel")
    return panel(session)


def close_panel(session):
    if showing(session, PANEL):
        session.key("Escape")
        wait_gone(session, PANEL)


def button(session, name, root, timeout=10):
    return session.find(harness.BUTTONS, name, root=root, timeout=timeout, showing=True)


def label(session, name, root=None, timeout=10):
    return session.find("label", name, root=root, timeout=timeout)


def heading(session, name, root, timeout=10):
    return session.find("heading", name, root=root, timeout=timeout, showing=True)


def close_window(session, title):
    """Closes a top-level window as a window manager's close button does (WM_DELETE_WINDOW)."""
    from Xlib import X, display as xdisplay, protocol

    def ask():
        ids = [w["id"] for w in session.x_windows() if w["title"] == title]
        connection = xdisplay.Display(session.display)
        try:
            protocols = connection.intern_atom("WM_PROTOCOLS")
            delete = connection.intern_atom("WM_DELETE_WINDOW")
            for window_id in ids:
                window = connection.create_resource_object("window", window_id)
                event = protocol.event.ClientMessage(window=window, client_type=protocols,
                                                     data=(32, [delete, X.CurrentTime, 0, 0, 0]))
                window.send_event(event, event_mask=X.NoEventMask)
            connection.sync()
        finally:
            connection.close()

    # Now and then a request sent while the window is still settling goes unanswered;
    # a window manager's user would click again.
    for attempt in range(3):
        ask()
        try:
            return wait_gone(session, title, timeout=3 if attempt < 2 else 10)
        except TimeoutError:
            if attempt == 2:
                raise


def focus_window(session, title):
    window_id = next(w["id"] for w in session.x_windows() if w["title"] == title)
    session.xdotool("windowfocus", "--sync", window_id)


class FileManager:
    """A file manager on the session bus (org.freedesktop.FileManager1) that records the
    items it is asked to show."""

    XML = """<node><interface name="org.freedesktop.FileManager1">
      <method name="ShowItems"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
      <method name="ShowFolders"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
    </interface></node>"""

    def __init__(self):
        from gi.repository import Gio
        self.shown = []

        def call(_connection, _sender, _path, _interface, method, params, invocation):
            self.shown.append((method, params.unpack()[0]))
            invocation.return_value(None)

        def setup(connection):
            connection.register_object("/org/freedesktop/FileManager1",
                                       Gio.DBusNodeInfo.new_for_xml(self.XML).interfaces[0],
                                       call, None, None)
            harness.BusThread.own_name(connection, "org.freedesktop.FileManager1")

        self.stop = harness.BusThread(setup, "file-manager").stop


def kit_name(session, kit_id):
    """A bundled kit's display name, from its config.json next to the program."""
    path = os.path.join(os.path.dirname(session.program), "share", "tappix", "Soundpacks",
                        kit_id, "config.json")
    with open(path, encoding="utf-8") as f:
        return json.load(f)["metadata"]["name"]


def type_keys(session):
    """Taps TYPED_KEYS with room between them for each sound."""
    session.xdotool("key", "--delay", 160, *TYPED_KEYS)


def record_typing(session):
    return session.record(0.8, action=lambda: type_keys(session))


def wait_for_quiet(session, timeout=10):
    """Waits until nothing plays (an audition or an earlier key fading out)."""
    return session.wait_until(lambda: not session.record(0.3).heard(), timeout,
                              message="the sink to fall silent")


def brightness(recording):
    """Zero crossings per second over the samples that carry sound: a rough measure of
    where a sound's energy sits (a click crosses far more often than a thud)."""
    samples = recording.samples
    mono = [samples[i] + samples[i + 1] for i in range(0, len(samples) - 1, 2)]
    floor = 0.01 * 65536
    crossings = loud = 0
    previous = 0
    for sample in mono:
        if abs(sample) < floor:
            continue
        loud += 1
        if (sample > 0) != (previous > 0):
            crossings += 1
        previous = sample
    return crossings * harness.SAMPLE_RATE / loud if loud else 0.0


def screenshot(session, name):
    """Saves the screen as NAME.png under $TAPPIX_UI_ARTIFACTS for a person to look at."""
    folder = os.environ.get("TAPPIX_UI_ARTIFACTS")
    if not folder:
        return None
    os.makedirs(folder, exist_ok=True)
    # Let the window finish drawing what it was just asked to show.
    time.sleep(0.4)
    return session.screenshot(os.path.join(folder, name + ".png"))


def assert_exits_cleanly(test, session, timeout=15):
    """Waits for tappix to end by itself and checks it ended with 0 (a sanitizer's report
    at exit changes the code)."""
    test.assertEqual(session.wait_for_exit(timeout), 0, session.log()[-3000:])
