#!/usr/bin/python3
"""Tappix run as a desktop runs it (start()): a private Xvfb and PulseAudio, optionally the
tray host of sni_host (before the application, or Qt picks XEmbed), fresh HOME and XDG
folders, the session bus the test runs under, windows read through AT-SPI."""

import array
import atexit
import contextlib
import ctypes
import json
import math
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, Gio, GLib  # noqa: E402

SAMPLE_RATE = 48000
_libc = ctypes.CDLL(None, use_errno=True)


def wait_until(predicate, timeout=10.0, interval=0.05, message=None):
    # Errors from AT-SPI or D-Bus while the application changes count as "not yet".
    deadline, last_error = time.monotonic() + timeout, None
    while True:
        try:
            result = predicate()
            if result:
                return result
        except (GLib.Error, LookupError, OSError, ValueError) as error:
            last_error = error
        if time.monotonic() >= deadline:
            detail = (message() if callable(message) else message) or "condition"
            raise TimeoutError("timed out after %.1fs waiting for %s%s" % (
                timeout, detail, " (last error: %s)" % last_error if last_error else ""))
        time.sleep(interval)


def _spawn(args, **kwargs):
    # Children go when the test process goes, even when it is killed outright.
    return subprocess.Popen(args, preexec_fn=lambda: _libc.prctl(1, signal.SIGTERM), **kwargs)


def _stop(process, grace=5.0, sig=signal.SIGTERM):
    if process is None or process.poll() is not None:
        return
    with contextlib.suppress(ProcessLookupError):
        process.send_signal(sig)
    try:
        process.wait(grace)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait(5)


class Pulse:
    """Laid out like tests/support/pulse_server.h: sinks tappix_a (default), tappix_b."""

    def __init__(self, directory):
        socket = os.path.join(directory, "native")
        self.server_env = {"PULSE_SERVER": "unix:" + socket,
                           "PULSE_CLIENTCONFIG": os.path.join(directory, "client.conf")}
        env = dict(os.environ, HOME=directory, XDG_RUNTIME_DIR=directory,
                   PULSE_RUNTIME_PATH=os.path.join(directory, "runtime"))
        env.pop("DBUS_SESSION_BUS_ADDRESS", None)
        sink = ("module-null-sink sink_name=%s rate=48000 format=float32le channels=2 "
                "sink_properties=device.description=%s")
        self.process = _spawn(
            ["pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
             "-L", "module-native-protocol-unix socket=%s auth-anonymous=1" % socket,
             "-L", sink % ("tappix_a", "Speakers-A"), "-L", sink % ("tappix_b", "Speakers-B"),
             "-L", "module-null-source source_name=tappix_mic"],
            env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: "Server Name" in self.pactl("info"), 10, message="PulseAudio")
        self.pactl("set-default-source", "tappix_mic")

    def env(self):
        return dict(os.environ, **self.server_env)

    def pactl(self, *args):
        if self.process.poll() is not None:
            raise RuntimeError("PulseAudio exited")
        return subprocess.run(["pactl", *args], env=self.env(), capture_output=True, text=True,
                              timeout=10).stdout


class Recording:
    def __init__(self, samples):
        self.samples = samples
        self.rms = math.sqrt(sum(s * s for s in samples) / len(samples)) / 32768 if samples else 0

    def heard(self, threshold=0.001):  # a null sink is exact zeros
        return self.rms > threshold

    def __repr__(self):
        return "Recording(%.2fs, rms=%.5f)" % (len(self.samples) / 2 / SAMPLE_RATE, self.rms)


class BusThread:
    """A session bus connection served on a thread of its own; `setup` runs before its loop."""

    def __init__(self, setup, name, timeout=10):
        ready = threading.Event()
        self.error = self.loop = None

        def serve():
            context = GLib.MainContext.new()
            context.push_thread_default()
            try:
                self.connection = Gio.DBusConnection.new_for_address_sync(
                    Gio.dbus_address_get_for_bus_sync(Gio.BusType.SESSION, None),
                    Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
                    | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
                setup(self.connection)
                self.context, self.loop = context, GLib.MainLoop.new(context, False)
            except Exception as error:  # reported to the constructor's caller
                self.error = error
            ready.set()
            if self.loop is not None:
                self.loop.run()
            context.pop_thread_default()

        self.thread = threading.Thread(target=serve, name=name, daemon=True)
        self.thread.start()
        if not ready.wait(timeout) or self.error:
            raise RuntimeError("%s did not start: %s" % (name, self.error))

    @staticmethod
    def own_name(connection, name):
        reply = connection.call_sync(
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName", GLib.Variant("(su)", (name, 4)),  # DO_NOT_QUEUE
            GLib.VariantType("(u)"), Gio.DBusCallFlags.NONE, 5000, None)
        if reply.unpack()[0] not in (1, 4):  # primary owner / already owner
            raise RuntimeError("%s is owned by someone else" % name)

    def stop(self):
        if self.loop is not None:
            loop, self.loop = self.loop, None
            self.context.invoke_full(GLib.PRIORITY_DEFAULT, lambda: (loop.quit(), False)[1])
            self.thread.join(5)
            with contextlib.suppress(GLib.Error):
                self.connection.close_sync(None)


def _private_accessibility_bus():
    # Without XDG_RUNTIME_DIR the accessibility bus puts its socket under ~/.cache/at-spi,
    # shared by test runs side by side: give the bus's activation environment one of ours.
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)

    def call(method, args, reply):
        return bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", method, args, GLib.VariantType(reply),
                             Gio.DBusCallFlags.NONE, 5000, None).unpack()

    if not call("NameHasOwner", GLib.Variant("(s)", ("org.a11y.Bus",)), "(b)")[0]:
        folder = tempfile.mkdtemp(prefix="tappix-a11y-")
        atexit.register(shutil.rmtree, folder, True)
        call("UpdateActivationEnvironment",
             GLib.Variant("(a{ss})", ({"XDG_RUNTIME_DIR": folder},)), "()")


# ---- AT-SPI -------------------------------------------------------------------------

def children(accessible):
    result = []
    with contextlib.suppress(GLib.Error):
        for index in range(accessible.get_child_count()):
            with contextlib.suppress(GLib.Error):
                result.append(accessible.get_child_at_index(index))
    return [child for child in result if child is not None]


def states(accessible):
    return {Atspi.StateType(s).value_nick for s in accessible.get_state_set().get_states()}


# What a user presses. Qt 6.4 reports a control that asks for the radio button role (a
# segmented choice) as a push button; Qt 6.8 reports the role asked for.
BUTTONS = ("push button", "radio button")


def find_all(root, role=None, name=None, predicate=None, showing=None, state=None,
             max_depth=64):
    """`root` and its descendants, breadth-first, matching every filter given; roles are
    compared as constants (at-spi2-core renamed some), `name` is a string or callable."""
    roles = {getattr(Atspi.Role, r.upper().replace(" ", "_"))
             for r in ((role,) if isinstance(role, str) else role)} if role else None
    found, level = [], [root]
    for depth in range(max_depth):
        next_level = []
        for accessible in level:
            try:
                held = states(accessible) if showing is not None or state else set()
                if ((roles is None or accessible.get_role() in roles)
                        and (name is None or (name(accessible.get_name() or "") if callable(name)
                                              else accessible.get_name() == name))
                        and (showing is None or ("showing" in held) == showing)
                        and (state is None or state in held)
                        and (predicate is None or predicate(accessible))):
                    found.append(accessible)
            except GLib.Error:
                continue  # gone while we looked
            # Each child is a round trip to the application: none below the last level.
            if depth + 1 < max_depth:
                next_level.extend(children(accessible))
        if not next_level:
            break
        level = next_level
    return found


def press(accessible, action=None):
    iface = accessible.get_action_iface()
    names = [iface.get_action_name(i).lower() for i in range(iface.get_n_actions())]
    index = names.index(action.lower()) if action else 0
    try:
        done = iface.do_action(index)
    except GLib.Error as error:
        # Delivered; the application is busy with what it set off (a window made on first
        # need) and answers after the reader's timeout. Tests check the effect.
        if "Did not receive a reply" not in str(error):
            raise
        done = True
    if not done:
        raise RuntimeError("action %r on %r refused" % (action, accessible.get_name()))


def set_value(accessible, new_value):
    accessible.get_value_iface().set_current_value(float(new_value))


def text(accessible):
    iface = accessible.get_text_iface()
    # Called through Atspi.Text: newer at-spi2-core objects also have Accessible.get_text().
    content = (Atspi.Text.get_text(iface, 0, Atspi.Text.get_character_count(iface))
               if iface is not None else "")
    return content or accessible.get_name()


# ---- the session ---------------------------------------------------------------------

class Session:
    def __init__(self, tray=True, env=None):
        self.program, self.extra_env = os.environ["TAPPIX_PATH"], dict(env or {})
        self.want_tray = tray
        self.x = self.pulse = self.tray = self.process = self._log_file = self._app = None
        self.root, self.log_path = None, ""

    def start(self):
        LIVE.add(self)
        _private_accessibility_bus()
        self.root = tempfile.mkdtemp(prefix="tappix-ui-")
        self.home = self._dir("home")
        self.config_home = self._dir("home/.config")
        self.preferences_file = os.path.join(self.config_home, "tappix", "preferences.json")
        self.data_home = self._dir("home/.local/share")
        self.runtime_dir = self._dir("runtime")
        os.chmod(self.runtime_dir, 0o700)
        self.log_path = os.path.join(self.root, "app.log")
        read_end, write_end = os.pipe()
        self.x = _spawn(["Xvfb", "-displayfd", str(write_end), "-screen", "0", "1280x800x24",
                         "-nolisten", "tcp", "-noreset"], pass_fds=(write_end,),
                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(write_end)
        with os.fdopen(read_end, "rb") as pipe:  # the number comes once it takes connections
            self.display = ":" + pipe.readline().strip().decode()
        # For xdotool, import and AT-SPI's own lookups too.
        os.environ.update(DISPLAY=self.display, XDG_SESSION_TYPE="x11")
        os.environ.pop("WAYLAND_DISPLAY", None)
        self.pulse = Pulse(self._dir("pulse"))
        os.environ.update(self.pulse.server_env)
        if self.want_tray:
            import sni_host
            self.tray = sni_host.SniHost().start()

    def close(self):
        LIVE.discard(self)
        self.stop_app()
        if self.tray is not None:
            self.tray.stop()
        for process in (self.pulse and self.pulse.process, self.x):
            _stop(process)
        self.tray = self.pulse = self.x = None
        if self.root and not os.environ.get("TAPPIX_UI_KEEP"):
            shutil.rmtree(self.root, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_exc):
        self.close()

    def _dir(self, relative):
        path = os.path.join(self.root, relative)
        os.makedirs(path, exist_ok=True)
        return path

    # -- the application

    def app_env(self):
        env = dict(os.environ, DISPLAY=self.display, HOME=self.home, XDG_CONFIG_HOME=self.config_home,
                   XDG_DATA_HOME=self.data_home, XDG_RUNTIME_DIR=self.runtime_dir,
                   QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", QT_QUICK_BACKEND="software",
                   QT_QPA_PLATFORM="xcb")
        for name in ("QT_QPA_PLATFORMTHEME", "QT_STYLE_OVERRIDE", "XDG_CURRENT_DESKTOP"):
            env.pop(name, None)
        env.update(self.pulse.server_env, **self.extra_env)
        return env

    def launch(self):
        self._app = None
        self._log_file = open(self.log_path, "ab")
        self.process = _spawn([self.program], env=self.app_env(), stdin=subprocess.DEVNULL,
                              stdout=self._log_file, stderr=subprocess.STDOUT)

    def running(self):
        return self.process is not None and self.process.poll() is None

    def stop_app(self, timeout=5.0):
        _stop(self.process, timeout)
        if self._log_file is not None:
            self._log_file.close()
            self._log_file = None

    def log(self):
        with contextlib.suppress(OSError), open(self.log_path, "rb") as f:
            return f.read().decode(errors="replace")
        return ""

    def wait_for_log(self, fragment, timeout=10.0):
        def logged():
            running, log = self.running(), self.log()
            found = fragment.search(log) if isinstance(fragment, re.Pattern) else fragment in log
            if not found and not running:
                raise AssertionError("the application exited (%s) before logging %r" % (
                    self.process.returncode, fragment))
            return found
        return wait_until(logged, timeout, message="log line %r" % (fragment,))

    # -- accessibility

    def app(self, timeout=15.0):
        with contextlib.suppress(GLib.Error, AttributeError):
            if self._app.get_process_id() == self.process.pid:
                return self._app

        def lookup():
            if not self.running():
                raise AssertionError("the application exited (%s)" % self.process.returncode)
            return next((c for c in children(Atspi.get_desktop(0))
                         if c.get_process_id() == self.process.pid), None)

        self._app = wait_until(lookup, timeout, message="the application on the AT-SPI bus")
        # States and names change under us; never serve them from a stale cache.
        with contextlib.suppress(Exception):
            self._app.set_cache_mask(Atspi.Cache.NONE)
        return self._app

    def find_all(self, role=None, name=None, root=None, **kwargs):
        return find_all(root or self.app(), role=role, name=name, **kwargs)

    def find(self, role=None, name=None, root=None, timeout=10.0, **kwargs):
        return wait_until(lambda: next(iter(self.find_all(role, name, root, **kwargs)), None),
                          timeout, message="%s %r" % (role or "any role", name))

    def gone(self, role=None, name=None, root=None, timeout=10.0, **kwargs):
        return wait_until(lambda: not self.find_all(role, name, root, **kwargs), timeout,
                          message="%s %r to go" % (role or "any role", name))

    def focused(self, root, role=BUTTONS):
        found = self.find_all(role, root=root, state="focused")
        return found[0].get_name() if found else None

    wait_until, press, set_value, states, text = map(
        staticmethod, (wait_until, press, set_value, states, text))

    def extents(self, accessible):
        return accessible.get_component_iface().get_extents(Atspi.CoordType.SCREEN)

    def windows(self):
        try:
            frames = children(self.app(timeout=3.0))
        except TimeoutError:
            return []
        return [f.get_name() for f in frames if "showing" in states(f)]

    def window(self, title, timeout=10.0):
        return self.find(None, title, timeout=timeout, max_depth=2, showing=True,
                         predicate=lambda a: a.get_parent() is not None
                         and a.get_parent().get_role() == Atspi.Role.APPLICATION)

    # -- X11

    def x_windows(self):
        """The application's mapped top-level X windows, as it placed them (no window manager)."""
        from Xlib import X, display as xdisplay
        connection = xdisplay.Display(self.display)
        net_name, net_pid, utf8 = (connection.intern_atom(a) for a in
                                   ("_NET_WM_NAME", "_NET_WM_PID", "UTF8_STRING"))
        found = []
        for window in connection.screen().root.query_tree().children:
            with contextlib.suppress(Exception):  # windows come and go
                pid = window.get_full_property(net_pid, X.AnyPropertyType)
                if (window.get_attributes().map_state != X.IsViewable or pid is None
                        or pid.value[0] != self.process.pid):
                    continue
                name = window.get_full_property(net_name, utf8)
                g = window.get_geometry()
                found.append({"title": name.value.decode() if name else "", "x": g.x, "y": g.y,
                              "width": g.width, "height": g.height, "id": window.id})
        connection.close()
        return found

    def xdotool(self, *args):
        subprocess.run(["xdotool", *map(str, args)], check=True, timeout=30,
                       env=dict(os.environ, DISPLAY=self.display))

    def type_text(self, text_to_type, delay_ms=30):
        self.xdotool("type", "--delay", delay_ms, text_to_type)

    def key(self, *keys):
        self.xdotool("key", *keys)

    # -- preferences

    def preferences(self):
        try:
            with open(self.preferences_file, encoding="utf-8") as f:
                return json.load(f)
        except FileNotFoundError:
            return {}

    def wait_for_preference(self, key, expected, timeout=10.0):
        return wait_until(lambda: self.preferences().get(key) == expected, timeout,
                          message=lambda: "preference %s == %r (now %r)" % (
                              key, expected, self.preferences().get(key)))

    # -- sound

    def record(self, seconds=1.0, action=None, sink="tappix_a"):
        raw = os.path.join(self.root, "recording.raw")
        with open(raw, "wb") as out:
            parec = _spawn(["parec", "--device=%s.monitor" % sink, "--format=s16le",
                            "--rate=%d" % SAMPLE_RATE, "--channels=2", "--latency-msec=10"],
                           env=self.pulse.env(), stdout=out, stderr=subprocess.DEVNULL)
        try:
            # A null sink's monitor delivers zeros while nothing plays: wait for them.
            wait_until(lambda: os.path.getsize(raw) >= 4096, 5, interval=0.005,
                       message="the recording to start")
            if action is not None:
                action()
            time.sleep(seconds)  # the recording's length, not a wait for anything
        finally:
            _stop(parec, 3, signal.SIGINT)  # parec flushes on SIGINT only
        with open(raw, "rb") as f:
            data = f.read()
        samples = array.array("h")
        samples.frombytes(data[: len(data) // 4 * 4])
        return Recording(samples)

    # -- failure reports

    def report(self):
        code = None if self.process is None else self.process.poll()
        sys.stderr.write("---- %s %s; last log lines:\n%s\n" % (
            self.program, "running" if code is None else "exited with %s" % code,
            "\n".join(self.log().splitlines()[-60:])))
        sys.stderr.flush()


# Sessions still open: a test that fails while one is up shows its log (run_ui_tests.py).
LIVE = set()


# ---- what the test modules share --------------------------------------------------

PANEL = "Tappix"
SETTINGS = "Tappix Settings"

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
    """A session running tappix, closed by `test`'s (or, from setUpClass, its class's) cleanup.
    login_start: an autostart entry present, so tappix starts quietly as at login."""
    session = Session(tray=tray, env=env)
    (test.addClassCleanup if isinstance(test, type) else test.addCleanup)(session.close)
    try:
        session.start()
        os.makedirs(os.path.dirname(session.preferences_file))
        with open(session.preferences_file, "w", encoding="utf-8") as f:
            json.dump(dict({"hasSeenWelcome": welcome_seen}, **(preferences or {})), f)
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
    cli_ok(test, session, "--panel")
    # The first showing loads the panel's views: slow under the sanitizers on a busy machine.
    return panel(session, timeout=30)


def close_panel(session):
    if showing(session, PANEL):
        session.key("Escape")
        wait_gone(session, PANEL)


def button(session, name, root, timeout=10):
    return session.find(BUTTONS, name, root=root, timeout=timeout, showing=True)


def label(session, name, root=None, timeout=10):
    return session.find("label", name, root=root, timeout=timeout)


def heading(session, name, root, timeout=10):
    return session.find("heading", name, root=root, timeout=timeout, showing=True)


def close_window(session, title):
    # As a window manager's close button does (WM_DELETE_WINDOW).
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
    """org.freedesktop.FileManager1 on the session bus, recording what it is asked to show."""

    XML = """<node><interface name="org.freedesktop.FileManager1">
      <method name="ShowItems"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
      <method name="ShowFolders"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
    </interface></node>"""

    def __init__(self):
        self.shown = []

        def call(_connection, _sender, _path, _interface, method, params, invocation):
            self.shown.append((method, params.unpack()[0]))
            invocation.return_value(None)

        def setup(connection):
            connection.register_object("/org/freedesktop/FileManager1",
                                       Gio.DBusNodeInfo.new_for_xml(self.XML).interfaces[0],
                                       call, None, None)
            BusThread.own_name(connection, "org.freedesktop.FileManager1")

        self.stop = BusThread(setup, "file-manager").stop


def kit_name(session, kit_id):
    path = os.path.join(os.path.dirname(session.program), "share", "tappix", "Soundpacks",
                        kit_id, "config.json")
    with open(path, encoding="utf-8") as f:
        return json.load(f)["metadata"]["name"]


def record_typing(session, keys=("a", "s", "d", "f", "j", "k", "l", "g"), delay_ms=160,
                  sink="tappix_a"):
    """Once `sink` is silent, what it plays while `keys` are typed: by default letters, which
    change nothing in a Tappix window that has the focus."""
    session.wait_until(lambda: not session.record(0.3, sink=sink).heard(), 10,
                       message="the sink to fall silent")
    return session.record(0.8, sink=sink,
                          action=lambda: session.xdotool("key", "--delay", delay_ms, *keys))


def brightness(recording):
    """Zero crossings per second over the loud samples: a click crosses far more than a thud."""
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
    return crossings * SAMPLE_RATE / loud if loud else 0.0


def screenshot(session, name):
    folder = os.environ.get("TAPPIX_UI_ARTIFACTS")
    if not folder:
        return None
    os.makedirs(folder, exist_ok=True)
    # Let the window finish drawing what it was just asked to show.
    time.sleep(0.4)
    path = os.path.join(folder, name + ".png")
    subprocess.run(["import", "-window", "root", path], check=True, timeout=30,
                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    return path


def assert_exits_cleanly(test, session, timeout=15):
    # A sanitizer's report at exit changes the code.
    test.assertEqual(session.process.wait(timeout), 0, session.log()[-3000:])
