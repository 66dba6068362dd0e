#!/usr/bin/python3
"""Runs tappix the way the desktop tests need it, and reaches into it from outside.

A Session brings up a private X server (Xvfb), a private PulseAudio server with null
sinks, optionally the StatusNotifierWatcher from sni_host (before the application, or Qt
picks XEmbed for its tray icon), then the application with fresh HOME/XDG directories and
accessibility forced on; tappix_ui.start() is the one way tests make one. The session bus
is not ours: the tests run under `dbus-run-session --`.

Windows are reached through AT-SPI. Qt 6.4 quirks worth knowing: a QML Button needs
`Accessible.onPressAction: clicked()` for press() to click it; a Slider reports min/max 0
but still takes a value; a Text needs Accessible.name; windows of type Qt::Popup are left
out of the accessibility tree altogether.
"""

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
import wave

HERE = os.path.dirname(os.path.abspath(__file__))
if HERE not in sys.path:
    sys.path.insert(0, HERE)

import gi  # noqa: E402

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, Gio, GLib  # noqa: E402

SAMPLE_RATE = 48000
_live_sessions = []


def wait_until(predicate, timeout=10.0, interval=0.05, message=None):
    """Polls `predicate` until it returns something truthy and returns that; raises
    TimeoutError after `timeout` seconds, naming `message` (a string, or a callable asked
    then). Errors from AT-SPI or D-Bus while the application changes count as "not yet"."""
    deadline = time.monotonic() + timeout
    last_error = None
    while True:
        try:
            result = predicate()
            if result:
                return result
        except TimeoutError:
            raise  # a nested wait already gave up
        except (GLib.Error, LookupError, OSError, ValueError) as error:
            last_error = error
        if time.monotonic() >= deadline:
            detail = (message() if callable(message) else message) or "condition"
            if last_error is not None:
                detail += " (last error: %s)" % last_error
            raise TimeoutError("timed out after %.1fs waiting for %s" % (timeout, detail))
        time.sleep(interval)


# ---- child processes and private servers -------------------------------------------

_libc = ctypes.CDLL(None, use_errno=True)


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


def _x_environment(env, display):
    env["DISPLAY"] = display
    env.pop("WAYLAND_DISPLAY", None)
    env["XDG_SESSION_TYPE"] = "x11"
    return env


def _xvfb(screen):
    """A private X server on a display number it picks itself: (process, ":N")."""
    read_end, write_end = os.pipe()
    try:
        process = _spawn(["Xvfb", "-displayfd", str(write_end), "-screen", "0", screen,
                          "-nolisten", "tcp"], pass_fds=(write_end,),
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    finally:
        os.close(write_end)
    # The number arrives once the server accepts connections.
    with os.fdopen(read_end, "rb") as pipe:
        number = pipe.readline().strip().decode()
    if not number:
        _stop(process)
        raise RuntimeError("Xvfb did not start")
    return process, ":" + number


class Pulse:
    """A private PulseAudio server laid out like tests/support/pulse_server.h: 48 kHz
    float null sinks "tappix_a" (the default) and "tappix_b", and a null source
    "tappix_mic" as the default microphone, on a socket in `directory`."""

    def __init__(self, directory):
        socket = os.path.join(directory, "native")
        self.server_env = {"PULSE_SERVER": "unix:" + socket,
                           "PULSE_CLIENTCONFIG": os.path.join(directory, "client.conf")}
        env = dict(os.environ, HOME=directory, XDG_RUNTIME_DIR=directory,
                   PULSE_RUNTIME_PATH=os.path.join(directory, "runtime"))
        env.pop("DBUS_SESSION_BUS_ADDRESS", None)
        sink = ("module-null-sink sink_name=%s rate=48000 format=float32le channels=2 "
                "sink_properties=device.description=%s")
        self.log_path = os.path.join(directory, "server.log")
        with open(self.log_path, "wb") as log:
            self.process = _spawn(
                ["pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
                 "--log-target=stderr",
                 "-L", "module-native-protocol-unix socket=%s auth-anonymous=1" % socket,
                 "-L", sink % ("tappix_a", "Speakers-A"), "-L", sink % ("tappix_b", "Speakers-B"),
                 "-L", "module-null-source source_name=tappix_mic"],
                env=env, stdout=subprocess.DEVNULL, stderr=log)
        wait_until(lambda: "Server Name" in self.pactl("info"), 10, message="PulseAudio")
        self.pactl("set-default-source", "tappix_mic")

    def env(self):
        return dict(os.environ, **self.server_env)

    def pactl(self, *args):
        if self.process.poll() is not None:
            raise RuntimeError("PulseAudio exited; see " + self.log_path)
        return subprocess.run(["pactl", *args], env=self.env(), capture_output=True, text=True,
                              timeout=10).stdout


class Recording:
    """What a sink's monitor carried: 16-bit stereo at 48 kHz, kept as a WAV file."""

    def __init__(self, path, samples):
        self.path = path
        self.rms = math.sqrt(sum(s * s for s in samples) / len(samples)) / 32768 if samples else 0
        self.seconds = len(samples) / 2 / SAMPLE_RATE

    def heard(self, threshold=0.001):
        """Whether anything above the noise floor played (a null sink is exact zeros)."""
        return self.rms > threshold

    def samples(self):
        with wave.open(self.path, "rb") as f:
            samples = array.array("h")
            samples.frombytes(f.readframes(f.getnframes()))
        return samples

    def __repr__(self):
        return "Recording(%.2fs, rms=%.5f, %s)" % (self.seconds, self.rms, self.path)


class BusThread:
    """A connection of its own to the session bus, served from a GLib main context on a
    thread of its own, so that it keeps answering while the test thread blocks (in AT-SPI,
    a sleep, a call of its own). `setup(connection)` registers objects and subscribes to
    signals there (they are delivered to that context) before the loop runs."""

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
    """Makes the accessibility bus this session bus will start private to it: without
    XDG_RUNTIME_DIR at-spi-bus-launcher puts its socket under ~/.cache/at-spi, shared by
    test runs side by side. The launcher is started on demand with the bus's activation
    environment, so give that a runtime directory of our own first."""
    if getattr(_private_accessibility_bus, "done", False):
        return
    _private_accessibility_bus.done = True
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)

    def call(method, args, reply):
        return bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", method, args, GLib.VariantType(reply),
                             Gio.DBusCallFlags.NONE, 5000, None).unpack()

    if call("NameHasOwner", GLib.Variant("(s)", ("org.a11y.Bus",)), "(b)")[0]:
        return  # already running: nothing left to choose
    folder = tempfile.mkdtemp(prefix="tappix-a11y-")
    atexit.register(shutil.rmtree, folder, True)
    call("UpdateActivationEnvironment",
         GLib.Variant("(a{ss})", ({"XDG_RUNTIME_DIR": folder},)), "()")


# ---- AT-SPI -------------------------------------------------------------------------

def _role(role):
    """`role` as an Atspi.Role, from its constant's name ("push button" or "PUSH_BUTTON"):
    roles are compared as constants, as at-spi2-core 2.53 renamed some of their names."""
    if isinstance(role, str):
        constant = getattr(Atspi.Role, role.upper().replace(" ", "_"), None)
        if not isinstance(constant, Atspi.Role):
            raise ValueError("no AT-SPI role %r" % role)
        return constant
    return role


def _matches(value, wanted):
    if wanted is None:
        return True
    if callable(wanted):
        return bool(wanted(value))
    if isinstance(wanted, re.Pattern):
        return wanted.search(value or "") is not None
    return value == wanted


def children(accessible):
    """The children of `accessible`, skipping any that vanish while we look."""
    try:
        count = accessible.get_child_count()
    except GLib.Error:
        return []
    result = []
    for index in range(count):
        with contextlib.suppress(GLib.Error):
            child = accessible.get_child_at_index(index)
            if child is not None:
                result.append(child)
    return result


def states(accessible):
    """The accessible's state names, e.g. {"enabled", "showing", "checked", "focused"}."""
    return {Atspi.StateType(s).value_nick for s in accessible.get_state_set().get_states()}


def find_all(root, role=None, name=None, predicate=None, showing=None, state=None,
             max_depth=64):
    """Every descendant of `root` (root included), breadth-first, matching all of: `role`
    ("push button", "slider", "check box", "label", "frame", ...), `name` (exact string,
    compiled regex or callable), `predicate(accessible)`, `showing` (True: on screen) and
    `state` (a state it holds, such as "focused")."""
    wanted_role = _role(role) if role is not None else None
    found, level = [], [root]
    for depth in range(max_depth):
        next_level = []
        for accessible in level:
            try:
                if ((wanted_role is None or accessible.get_role() == wanted_role)
                        and _matches(accessible.get_name(), name)
                        and (showing is None or ("showing" in states(accessible)) == showing)
                        and (state is None or state in states(accessible))
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


def is_checked(accessible):
    return "checked" in states(accessible)


def press(accessible, action=None):
    """Runs the accessible's action `action` (a name such as "Press" or "SetFocus",
    case-insensitive) or its first one."""
    iface = accessible.get_action_iface()
    if iface is None:
        raise LookupError("%s has no actions" % describe(accessible))
    index = 0
    if action is not None:
        names = [iface.get_action_name(i).lower() for i in range(iface.get_n_actions())]
        if action.lower() not in names:
            raise LookupError("%s has no action %r (has %s)" % (describe(accessible), action,
                                                                names))
        index = names.index(action.lower())
    try:
        done = iface.do_action(index)
    except GLib.Error as error:
        # Delivered; the application is still busy with what it set off (a window made on
        # first need) and answers after the reader's timeout. Tests check the effect.
        if "Did not receive a reply" not in str(error):
            raise
        done = True
    if not done:
        raise RuntimeError("action %d on %s refused" % (index, describe(accessible)))


def set_value(accessible, new_value):
    """Sets a slider's value and returns the value it then reports."""
    iface = accessible.get_value_iface()
    iface.set_current_value(float(new_value))
    return iface.get_current_value()


def text(accessible):
    """A text field's content when it has one, else its name."""
    iface = accessible.get_text_iface()
    content = iface.get_text(0, iface.get_character_count()) if iface is not None else ""
    return content or accessible.get_name()


def extents(accessible):
    """Where `accessible` lies on the screen (x, y, width, height)."""
    return accessible.get_component_iface().get_extents(Atspi.CoordType.SCREEN)


def describe(accessible):
    try:
        return "[%s %r]" % (accessible.get_role_name(), accessible.get_name())
    except GLib.Error:
        return "[gone]"


def dump_tree(accessible, depth=0, max_depth=12):
    """The tree under `accessible` as indented text, for failure messages."""
    try:
        held = states(accessible)
        extra = sorted(held & {"showing", "checked", "focused"}) + (
            [] if "enabled" in held else ["disabled"])
        lines = ["%s%s %s" % ("  " * depth, describe(accessible), " ".join(extra))]
    except GLib.Error:
        return ""
    if depth < max_depth:
        lines += [dump_tree(child, depth + 1, max_depth) for child in children(accessible)]
    return "\n".join(line for line in lines if line)


# ---- the session ---------------------------------------------------------------------

class Session:
    """Xvfb + PulseAudio + (optionally) a tray host, and the application run in them with
    its own HOME and XDG folders; made by tappix_ui.start(), which launches it.

    program: path of the binary (default: $TAPPIX_PATH). tray: start the
    StatusNotifierWatcher host first (as `self.tray`). env: extra environment for the
    application."""

    def __init__(self, program=None, tray=True, env=None, screen="1280x800x24"):
        self.program = program or os.environ.get("TAPPIX_PATH")
        if not self.program:
            raise RuntimeError("no program: pass one or set TAPPIX_PATH")
        if not os.environ.get("DBUS_SESSION_BUS_ADDRESS"):
            raise RuntimeError("no session bus: run under `dbus-run-session --`")
        self.extra_env = dict(env or {})
        self.want_tray, self.screen = tray, screen
        self.x = self.pulse = self.tray = self.process = self._log_file = self._app = None
        self.root, self.log_path = None, ""

    def start(self):
        """Brings up the servers and the folders; close() takes them down, also after
        a start that failed half way."""
        _private_accessibility_bus()
        self.root = tempfile.mkdtemp(prefix="tappix-ui-")
        _live_sessions.append(self)
        self.home = self._dir("home")
        self.config_home = self._dir("home/.config")
        self.data_home = self._dir("home/.local/share")
        self.runtime_dir = self._dir("runtime")
        os.chmod(self.runtime_dir, 0o700)
        self.log_path = os.path.join(self.root, "app.log")
        self.x, self.display = _xvfb(self.screen)
        _x_environment(os.environ, self.display)  # for xdotool, import and AT-SPI's lookups
        self.pulse = Pulse(self._dir("pulse"))
        os.environ.update(self.pulse.server_env)
        if self.want_tray:
            import sni_host
            self.tray = sni_host.SniHost().start()

    def close(self):
        self.stop_app()
        for part in (self.tray, self.pulse and self.pulse.process, self.x):
            if isinstance(part, subprocess.Popen):
                _stop(part)
            elif part is not None:
                part.stop()
        self.tray = self.pulse = self.x = None
        if self in _live_sessions:
            _live_sessions.remove(self)
        if self.root and not os.environ.get("TAPPIX_UI_KEEP"):
            shutil.rmtree(self.root, ignore_errors=True)

    # A session made in a loop can be closed at the end of its round: `with start(...) as s`.
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
        env = _x_environment(dict(os.environ), self.display)
        env.update(self.pulse.server_env)
        env.update(HOME=self.home, XDG_CONFIG_HOME=self.config_home,
                   XDG_DATA_HOME=self.data_home, XDG_RUNTIME_DIR=self.runtime_dir,
                   QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", QT_QUICK_BACKEND="software",
                   QT_QPA_PLATFORM="xcb")
        for name in ("QT_QPA_PLATFORMTHEME", "QT_STYLE_OVERRIDE", "XDG_CURRENT_DESKTOP"):
            env.pop(name, None)
        env.update(self.extra_env)
        return env

    def launch(self):
        """Starts the application (again, after stop_app(): same HOME, same preferences);
        its output goes to the log, appended across launches."""
        if self.running():
            raise RuntimeError("the application is already running")
        self._app = None
        self._log_file = open(self.log_path, "ab")
        self.process = _spawn([self.program], env=self.app_env(), stdin=subprocess.DEVNULL,
                              stdout=self._log_file, stderr=subprocess.STDOUT)

    def running(self):
        return self.process is not None and self.process.poll() is None

    def stop_app(self, timeout=5.0):
        """Asks the application to quit (SIGTERM), kills it after `timeout`."""
        _stop(self.process, timeout)
        if self._log_file is not None:
            self._log_file.close()
            self._log_file = None

    def wait_for_exit(self, timeout=10.0):
        """Waits until the application exits by itself and returns its exit code."""
        try:
            return self.process.wait(timeout)
        except subprocess.TimeoutExpired:
            raise TimeoutError("the application still runs after %ss" % timeout) from None

    def log(self):
        """Everything the application wrote to stdout and stderr so far."""
        try:
            with open(self.log_path, "rb") as f:
                return f.read().decode(errors="replace")
        except OSError:
            return ""

    def wait_for_log(self, fragment, timeout=10.0):
        """Waits until the application has logged `fragment` (a string or compiled regex)."""
        def logged():
            found = _matches(self.log(), fragment if isinstance(fragment, re.Pattern)
                             else lambda log: fragment in log)
            if not found and not self.running():
                raise AssertionError("the application exited (%s) before logging %r" % (
                    self.process.returncode, fragment))
            return found
        return wait_until(logged, timeout, message="log line %r" % (fragment,))

    # -- accessibility

    def app(self, timeout=15.0):
        """The application's AT-SPI root, found by its process id."""
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
        """Every accessible under `root` (default: the application) matching; see find_all()."""
        return find_all(root or self.app(), role=role, name=name, **kwargs)

    def find(self, role=None, name=None, root=None, timeout=10.0, **kwargs):
        """The first accessible matching, waiting up to `timeout` for it to appear."""
        def first():
            found = self.find_all(role, name, root, **kwargs)
            return found[0] if found else None
        return wait_until(first, timeout, message="%s %r" % (role or "any role", name))

    def gone(self, role=None, name=None, root=None, timeout=10.0, **kwargs):
        """Waits until nothing matches any more."""
        return wait_until(lambda: not self.find_all(role, name, root, **kwargs), timeout,
                          message="%s %r to go" % (role or "any role", name))

    def focused(self, root, role="push button"):
        """The name of the control under `root` that has the keyboard focus, or None."""
        found = self.find_all(role, root=root, state="focused")
        return found[0].get_name() if found else None

    wait_until = staticmethod(wait_until)
    press = staticmethod(press)
    set_value = staticmethod(set_value)
    is_checked = staticmethod(is_checked)
    states = staticmethod(states)
    text = staticmethod(text)
    extents = staticmethod(extents)

    def windows(self):
        """Titles of the application's windows on screen. (Qt leaves Qt::Popup windows out
        of the tree, and only joins the bus with its first window.)"""
        try:
            root = self.app(timeout=3.0)
        except TimeoutError:
            return []
        titles = []
        for frame in children(root):
            with contextlib.suppress(GLib.Error):
                if "showing" in states(frame):
                    titles.append(frame.get_name())
        return titles

    def window(self, title, timeout=10.0):
        """The application's showing top-level window titled `title` (string or regex)."""
        return self.find(None, title, timeout=timeout, max_depth=2, showing=True,
                         predicate=lambda a: a.get_parent() is not None
                         and a.get_parent().get_role() == Atspi.Role.APPLICATION)

    # -- X11

    def x_windows(self):
        """The application's mapped top-level X windows as dicts with title, x, y, width,
        height and id (no window manager runs, so these are exactly what the app asked)."""
        from Xlib import X, display as xdisplay
        connection = xdisplay.Display(self.display)
        try:
            net_name = connection.intern_atom("_NET_WM_NAME")
            net_pid = connection.intern_atom("_NET_WM_PID")
            utf8 = connection.intern_atom("UTF8_STRING")
            found = []
            for window in connection.screen().root.query_tree().children:
                try:
                    if window.get_attributes().map_state != X.IsViewable:
                        continue
                    pid = window.get_full_property(net_pid, X.AnyPropertyType)
                    if pid is None or pid.value[0] != self.process.pid:
                        continue
                    name = window.get_full_property(net_name, utf8)
                    geometry = window.get_geometry()
                    found.append({"title": name.value.decode() if name else "",
                                  "x": geometry.x, "y": geometry.y, "width": geometry.width,
                                  "height": geometry.height, "id": window.id})
                except Exception:  # noqa: BLE001 - windows come and go
                    continue
            return found
        finally:
            connection.close()

    def screenshot(self, path):
        """Saves the whole screen as an image (format from the extension)."""
        subprocess.run(["import", "-window", "root", path], check=True, timeout=30,
                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        return path

    def xdotool(self, *args):
        subprocess.run(["xdotool", *map(str, args)], check=True, timeout=30,
                       env=_x_environment(dict(os.environ), self.display))

    def type_text(self, text_to_type, delay_ms=30):
        self.xdotool("type", "--delay", delay_ms, text_to_type)

    def key(self, *keys):
        """Taps keys or chords: key("a"), key("ctrl+shift+k", "Return")."""
        self.xdotool("key", *keys)

    # -- preferences

    @property
    def preferences_path(self):
        return os.path.join(self.config_home, "tappix", "preferences.json")

    def preferences(self):
        """The preferences file as a dict ({} while it does not exist)."""
        try:
            with open(self.preferences_path, encoding="utf-8") as f:
                return json.load(f)
        except FileNotFoundError:
            return {}

    def write_preferences(self, preferences):
        os.makedirs(os.path.dirname(self.preferences_path), exist_ok=True)
        with open(self.preferences_path, "w", encoding="utf-8") as f:
            json.dump(preferences, f, indent=2)

    def wait_for_preference(self, key, expected, timeout=10.0):
        """Waits until the file on disk holds `key` == `expected`."""
        return wait_until(lambda: self.preferences().get(key) == expected, timeout,
                          message=lambda: "preference %s == %r (now %r)" % (
                              key, expected, self.preferences().get(key)))

    # -- sound

    def record(self, seconds=1.0, action=None, sink="tappix_a"):
        """Records `sink`'s monitor: runs `action` once recording flows, then keeps
        recording for `seconds`. Returns a Recording."""
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
        path = os.path.join(self.root, "recording-%d.wav" % int(time.monotonic() * 1000))
        with wave.open(path, "wb") as out:
            out.setnchannels(2)
            out.setsampwidth(2)
            out.setframerate(SAMPLE_RATE)
            out.writeframes(samples.tobytes())
        return Recording(path, samples)

    # -- failure reports

    def report(self):
        """The application's state, log tail, accessibility tree and a screenshot, on
        stderr (the runner calls it for each session open when a test fails)."""
        code = None if self.process is None else self.process.poll()
        parts = ["---- %s (%s)" % (self.program, "not started" if self.process is None else
                                   "running" if code is None else "exited with %s" % code)]
        parts.append("---- last log lines of " + self.log_path)
        parts.extend(self.log().splitlines()[-60:])
        if self.running():
            try:
                parts += ["---- accessibility tree", dump_tree(self.app(timeout=2))]
            except Exception as error:  # noqa: BLE001 - only ever a diagnostic
                parts.append("(no accessibility tree: %s)" % error)
        artifacts = os.environ.get("TAPPIX_UI_ARTIFACTS")
        if artifacts and self.x is not None:
            os.makedirs(artifacts, exist_ok=True)
            with contextlib.suppress(Exception):
                parts.append("---- screenshot: " + self.screenshot(
                    os.path.join(artifacts, "screen-%d.png" % int(time.time() * 1000))))
        with contextlib.suppress(Exception):
            sys.stderr.write("\n".join(parts) + "\n")
            sys.stderr.flush()


def report_live_sessions():
    for session in list(_live_sessions):
        session.report()
