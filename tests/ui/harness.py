#!/usr/bin/python3
"""Runs tappix the way the desktop tests need it, and reaches into it from outside.

A Session brings up, in this order: a private X server (Xvfb, exported as
DISPLAY), a private PulseAudio server with null sinks (exported as
PULSE_SERVER), optionally the StatusNotifierWatcher from sni_host (before the
application, or Qt picks XEmbed for its tray icon), then the application with
fresh HOME/XDG directories and accessibility forced on. Everything is torn down
on exit, failure included.

The session bus is not ours: run the tests under `dbus-run-session --`, so the
application, the AT-SPI bus and the tray host all meet on a private bus.

    with harness.Session() as s:           # program from TAPPIX_PATH
        ok = s.find(role="push button", name="Apply")
        s.press(ok)
        s.wait_until(lambda: s.preferences().get("volume") == 0.5)

Windows are reached through AT-SPI. Qt 6.4 quirks worth knowing: a QML
Button needs `Accessible.onPressAction: clicked()` for press() to click it; a
Slider reports min/max 0 but still takes a value; a Text needs Accessible.name;
windows of type Qt::Popup are left out of the accessibility tree altogether.
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
import time
import wave

HERE = os.path.dirname(os.path.abspath(__file__))
if HERE not in sys.path:
    sys.path.insert(0, HERE)

import gi  # noqa: E402

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, Gio, GLib  # noqa: E402

APP_NAME = "Tappix"
SAMPLE_RATE = 48000
_live_sessions = []


# ---- waiting --------------------------------------------------------------------

def wait_until(predicate, timeout=10.0, interval=0.05, message=None):
    """Polls `predicate` until it returns something truthy and returns that; raises
    TimeoutError after `timeout` seconds, naming `message` (a string, or a callable
    asked at that moment). Exceptions from AT-SPI or D-Bus while
    the application changes under us count as "not yet"; the last one is reported."""
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
            detail = message() if callable(message) else message
            detail = detail or getattr(predicate, "__name__", "condition")
            if last_error is not None:
                detail += " (last error: %s)" % last_error
            raise TimeoutError("timed out after %.1fs waiting for %s" % (timeout, detail))
        time.sleep(interval)


# ---- child processes --------------------------------------------------------------

_libc = ctypes.CDLL(None, use_errno=True)
_PR_SET_PDEATHSIG = 1


def _die_with_parent():
    # Children go when the test process goes, even when it is killed outright.
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGTERM)


def _spawn(args, **kwargs):
    return subprocess.Popen(args, preexec_fn=_die_with_parent, **kwargs)


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


class Xvfb:
    """A private X server on a display number it picks itself."""

    def __init__(self, screen="1280x800x24"):
        read_end, write_end = os.pipe()
        try:
            self.process = _spawn(["Xvfb", "-displayfd", str(write_end), "-screen", "0", screen,
                                   "-nolisten", "tcp"],
                                  pass_fds=(write_end,), stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL)
        finally:
            os.close(write_end)
        # The number arrives once the server accepts connections.
        with os.fdopen(read_end, "rb") as pipe:
            number = pipe.readline().strip().decode()
        if not number:
            _stop(self.process)
            raise RuntimeError("Xvfb did not start")
        self.display = ":" + number

    def stop(self):
        _stop(self.process)


class Pulse:
    """A private PulseAudio server laid out like tests/support/pulse_server.h: 48 kHz
    float null sinks "tappix_a" (the default) and "tappix_b", and a null source
    "tappix_mic" as the default microphone, on a socket in `directory`."""

    def __init__(self, directory):
        self.directory = directory
        self.socket = os.path.join(directory, "native")
        self.server_env = {"PULSE_SERVER": "unix:" + self.socket,
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
                 "-L", "module-native-protocol-unix socket=%s auth-anonymous=1" % self.socket,
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
        done = subprocess.run(["pactl", *args], env=self.env(), capture_output=True, text=True,
                              timeout=10)
        return done.stdout

    def stop(self):
        _stop(self.process)


class Recording:
    """What a sink's monitor carried: 16-bit stereo at 48 kHz, kept as a WAV file."""

    def __init__(self, path, samples):
        self.path = path
        self.frames = len(samples) // 2
        scale = 1.0 / 32768.0
        self.rms = math.sqrt(sum(s * s for s in samples) / len(samples)) * scale if samples else 0.0
        self.peak = max(map(abs, samples), default=0) * scale
        self.seconds = self.frames / SAMPLE_RATE

    def heard(self, threshold=0.001):
        """Whether anything above the noise floor played (a null sink is exact zeros)."""
        return self.rms > threshold

    def __repr__(self):
        return "Recording(%.2fs, rms=%.5f, peak=%.4f, %s)" % (self.seconds, self.rms, self.peak,
                                                              self.path)


# ---- AT-SPI -------------------------------------------------------------------------

def _role(role):
    """`role` as an Atspi.Role. Roles are compared as constants, never by their names:
    at-spi2-core 2.53 renamed some ("push button" is "button" there). A string names
    the constant, "push button" or "PUSH_BUTTON" for Atspi.Role.PUSH_BUTTON."""
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
        try:
            child = accessible.get_child_at_index(index)
        except GLib.Error:
            continue
        if child is not None:
            result.append(child)
    return result


def find_all(root, role=None, name=None, predicate=None, showing=None, max_depth=64):
    """Every descendant of `root` (root included) matching all of: `role` (an
    Atspi.Role, or its constant's name such as "push button", "slider", "check box",
    "toggle button", "label", "frame"), `name` (exact string, compiled regex or callable),
    `predicate(accessible)`, and `showing` (True: on screen). Breadth-first."""
    wanted_role = _role(role) if role is not None else None
    found, level = [], [root]
    for _depth in range(max_depth):
        next_level = []
        for accessible in level:
            try:
                if ((wanted_role is None or accessible.get_role() == wanted_role)
                        and _matches(accessible.get_name(), name)
                        and (showing is None or is_showing(accessible) == showing)
                        and (predicate is None or predicate(accessible))):
                    found.append(accessible)
            except GLib.Error:
                continue  # gone while we looked
            # Each child is a round trip to the application: none below the last level.
            if _depth + 1 < max_depth:
                next_level.extend(children(accessible))
        if not next_level:
            break
        level = next_level
    return found


def states(accessible):
    """The accessible's state names, e.g. {"enabled", "showing", "checked", "focused"}."""
    state_set = accessible.get_state_set()
    return {Atspi.StateType(s).value_nick for s in state_set.get_states()}


def is_showing(accessible):
    return "showing" in states(accessible)


def is_enabled(accessible):
    return "enabled" in states(accessible)


def is_checked(accessible):
    """A switch's, check box's or checkable button's checked state."""
    return "checked" in states(accessible)


def actions(accessible):
    action = accessible.get_action_iface()
    if action is None:
        return []
    return [action.get_action_name(i) for i in range(action.get_n_actions())]


def press(accessible, action=None):
    """Runs the accessible's action `action` (a name such as "Press" or "Toggle",
    case-insensitive) or its first one."""
    iface = accessible.get_action_iface()
    if iface is None:
        raise LookupError("%s has no actions" % describe(accessible))
    index = 0
    if action is not None:
        names = [n.lower() for n in actions(accessible)]
        if action.lower() not in names:
            raise LookupError("%s has no action %r (has %s)"
                              % (describe(accessible), action, names))
        index = names.index(action.lower())
    try:
        done = iface.do_action(index)
    except GLib.Error as error:
        # The action was delivered; the application is still busy with what it set off
        # (a window made on first need) and answers after the reader's timeout. Tests
        # check the effect, as a screen reader user would.
        if "Did not receive a reply" not in str(error):
            raise
        done = True
    if not done:
        raise RuntimeError("action %d on %s refused" % (index, describe(accessible)))


def value(accessible):
    return accessible.get_value_iface().get_current_value()


def set_value(accessible, new_value):
    """Sets a slider's (spin box's, ...) value and returns the value it then reports."""
    iface = accessible.get_value_iface()
    if iface is None:
        raise LookupError("%s has no value" % describe(accessible))
    iface.set_current_value(float(new_value))
    return iface.get_current_value()


def text(accessible):
    """A label's text: its Text interface's content when it has one, else its name."""
    iface = accessible.get_text_iface()
    if iface is not None:
        content = iface.get_text(0, iface.get_character_count())
        if content:
            return content
    return accessible.get_name()


def describe(accessible):
    try:
        return "[%s %r]" % (accessible.get_role_name(), accessible.get_name())
    except GLib.Error:
        return "[gone]"


def dump_tree(root, max_depth=12):
    """The tree under `root` as indented text, for failure messages."""
    lines = []

    def walk(accessible, depth):
        try:
            extra = sorted(states(accessible) & {"showing", "checked", "focused"})
            if "enabled" not in states(accessible):
                extra.append("disabled")
            lines.append("%s%s %s" % ("  " * depth, describe(accessible), " ".join(extra)))
        except GLib.Error:
            return
        if depth < max_depth:
            for child in children(accessible):
                walk(child, depth + 1)

    walk(root, 0)
    return "\n".join(lines)


# ---- the accessibility bus -----------------------------------------------------------

_a11y_runtime_dir = None


def _private_accessibility_bus():
    """Makes the accessibility bus this session bus will start private to it.

    at-spi-bus-launcher puts the bus socket in its runtime directory, falling back
    to ~/.cache/at-spi without XDG_RUNTIME_DIR: test runs side by side (ctest -j)
    would then share or steal one socket. The launcher is started on demand with
    the bus's activation environment, so give that a runtime directory of our own
    before anything asks for org.a11y.Bus. It lives as long as this process, as
    the launcher does."""
    global _a11y_runtime_dir
    if _a11y_runtime_dir is not None:
        return
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)

    def call(method, args, reply):
        return bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", method, args, GLib.VariantType(reply),
                             Gio.DBusCallFlags.NONE, 5000, None).unpack()

    if call("NameHasOwner", GLib.Variant("(s)", ("org.a11y.Bus",)), "(b)")[0]:
        _a11y_runtime_dir = ""  # already running: nothing left to choose
        return
    _a11y_runtime_dir = tempfile.mkdtemp(prefix="tappix-a11y-")
    atexit.register(shutil.rmtree, _a11y_runtime_dir, True)
    call("UpdateActivationEnvironment",
         GLib.Variant("(a{ss})", ({"XDG_RUNTIME_DIR": _a11y_runtime_dir},)), "()")


# ---- the session ---------------------------------------------------------------------

class Session:
    """Xvfb + PulseAudio + (optionally) a tray host + the application, as a context manager.

    program: path of the binary (default: $TAPPIX_PATH).
    args: its command line arguments.
    tray: start the StatusNotifierWatcher host first (exposed as `self.tray`).
    preferences: a dict written as XDG_CONFIG_HOME/tappix/preferences.json before launch.
    launch: start the application on entry (False: call launch() yourself).
    env: extra environment for the application.
    """

    def __init__(self, program=None, args=(), tray=True, preferences=None, launch=True,
                 env=None, screen="1280x800x24", app_name=APP_NAME):
        self.program = program or os.environ.get("TAPPIX_PATH")
        if not self.program:
            raise RuntimeError("no program: pass one or set TAPPIX_PATH")
        self.args = list(args)
        self.want_tray = tray
        self.initial_preferences = preferences
        self.launch_on_enter = launch
        self.extra_env = dict(env or {})
        self.screen = screen
        self.app_name = app_name
        self.root = self.log_path = None
        self.x = self.pulse = self.tray = self.process = None
        self._log_file = None
        self._app = None
        self._reported = False

    # -- lifetime

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self._report(sys.exc_info())
            self.close()
            raise
        return self

    def __exit__(self, exc_type, exc, tb):
        if exc_type is not None and not self._reported:
            self._report((exc_type, exc, tb))
        self.close()
        return False

    def start(self):
        if not os.environ.get("DBUS_SESSION_BUS_ADDRESS"):
            raise RuntimeError("no session bus: run under `dbus-run-session --`")
        _private_accessibility_bus()
        self.root = tempfile.mkdtemp(prefix="tappix-ui-")
        _live_sessions.append(self)
        self.home = self._dir("home")
        self.config_home = self._dir("home/.config")
        self.data_home = self._dir("home/.local/share")
        self.runtime_dir = self._dir("runtime")
        os.chmod(self.runtime_dir, 0o700)
        self.log_path = os.path.join(self.root, "app.log")
        self.x = Xvfb(self.screen)
        self.display = self.x.display
        _x_environment(os.environ, self.display)  # for xdotool, import and AT-SPI's own lookups
        self.pulse = Pulse(self._dir("pulse"))
        os.environ.update(self.pulse.server_env)
        if self.want_tray:
            import sni_host
            self.tray = sni_host.SniHost().start()
        if self.initial_preferences is not None:
            self.write_preferences(self.initial_preferences)
        if self.launch_on_enter:
            self.launch()

    def close(self):
        self.stop_app()
        if self.tray is not None:
            self.tray.stop()
            self.tray = None
        for part in (self.pulse, self.x):
            if part is not None:
                part.stop()
        self.pulse = self.x = None
        if self in _live_sessions:
            _live_sessions.remove(self)
        if self.root and not os.environ.get("TAPPIX_UI_KEEP"):
            shutil.rmtree(self.root, ignore_errors=True)

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

    def launch(self, args=None):
        """Starts the application (again, after stop_app(): same HOME, same preferences);
        its stdout and stderr go to the log, appended across launches."""
        if self.running():
            raise RuntimeError("the application is already running")
        self._app = None
        self._log_file = open(self.log_path, "ab")
        self._log_file.write(b"==== launch %s\n" % " ".join([self.program] + list(
            self.args if args is None else args)).encode())
        self._log_file.flush()
        self.process = _spawn([self.program] + list(self.args if args is None else args),
                              env=self.app_env(), stdin=subprocess.DEVNULL,
                              stdout=self._log_file, stderr=subprocess.STDOUT)
        return self.process

    def running(self):
        return self.process is not None and self.process.poll() is None

    def stop_app(self, timeout=5.0):
        """Asks the application to quit (SIGTERM), kills it after `timeout`; returns its
        exit code (None when it was not started)."""
        if self.process is None:
            return None
        _stop(self.process, timeout)
        if self._log_file is not None:
            self._log_file.close()
            self._log_file = None
        self._app = None
        return self.process.returncode

    def wait_for_exit(self, timeout=10.0):
        """Waits until the application exits by itself and returns its exit code."""
        try:
            return self.process.wait(timeout)
        except subprocess.TimeoutExpired:
            raise TimeoutError("the application still runs after %ss" % timeout) from None

    def log(self):
        """Everything the application wrote to stdout and stderr so far."""
        if self.log_path is None:
            return ""
        try:
            with open(self.log_path, "rb") as f:
                return f.read().decode(errors="replace")
        except OSError:
            return ""

    def wait_for_log(self, fragment, timeout=10.0):
        """Waits until the application has logged `fragment` (a string or compiled regex)."""
        def logged():
            if not self.running() and not _matches(self.log(), _as_pattern(fragment)):
                raise AssertionError("the application exited (%s) before logging %r" % (
                    self.process.returncode, fragment))
            return _matches(self.log(), _as_pattern(fragment))
        return wait_until(logged, timeout, message="log line %r" % (fragment,))

    # -- accessibility

    def app(self, timeout=15.0):
        """The application's AT-SPI root, found by name or by process id."""
        if self._app is not None:
            try:
                if self._app.get_process_id() == self.process.pid:
                    return self._app
            except GLib.Error:
                pass
            self._app = None

        def lookup():
            if not self.running():
                raise AssertionError("the application exited (%s)" % self.process.returncode)
            named = None
            for candidate in children(Atspi.get_desktop(0)):
                try:
                    pid = candidate.get_process_id()
                    if pid == self.process.pid:
                        return candidate
                    # Started through a wrapper: the name, from one of our descendants.
                    if (candidate.get_name() == self.app_name
                            and _descends_from(pid, self.process.pid)):
                        named = candidate
                except GLib.Error:
                    continue
            return named

        self._app = wait_until(lookup, timeout,
                               message="%s on the accessibility bus" % self.app_name)
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
            found = find_all(root or self.app(), role=role, name=name, **kwargs)
            return found[0] if found else None
        # On failure the session's report shows the tree as it then was.
        return wait_until(first, timeout, message="%s %r" % (role or "any role", name))

    def gone(self, role=None, name=None, root=None, timeout=10.0, **kwargs):
        """Waits until nothing matches any more (e.g. a closed window)."""
        return wait_until(lambda: not self.find_all(role, name, root, **kwargs), timeout,
                          message="%s %r to go" % (role or "any role", name))

    wait_until = staticmethod(wait_until)
    press = staticmethod(press)
    set_value = staticmethod(set_value)
    value = staticmethod(value)
    is_checked = staticmethod(is_checked)
    is_enabled = staticmethod(is_enabled)
    is_showing = staticmethod(is_showing)
    states = staticmethod(states)
    text = staticmethod(text)
    actions = staticmethod(actions)

    def windows(self, showing_only=True):
        """Titles of the application's windows as AT-SPI frames; by default only those on
        screen. (Qt leaves Qt::Popup windows out of the tree.)"""
        titles = []
        # Qt joins the accessibility bus with its first window: an application that is
        # not there yet has made none.
        try:
            root = self.app(timeout=3.0)
        except TimeoutError:
            return titles
        for frame in children(root):
            try:
                if showing_only and not is_showing(frame):
                    continue
                titles.append(frame.get_name())
            except GLib.Error:
                continue
        return titles

    def window(self, title, timeout=10.0):
        """The application's showing top-level window (frame) titled `title` (string or regex)."""
        return self.find(None, title, root=self.app(), timeout=timeout, max_depth=2,
                         predicate=lambda a: a.get_parent() is not None
                         and a.get_parent().get_role() == Atspi.Role.APPLICATION and is_showing(a))

    def tree(self):
        try:
            return dump_tree(self.app(timeout=2))
        except Exception as error:  # noqa: BLE001 - only ever a diagnostic
            return "(no accessibility tree: %s)" % error

    # -- X11

    def x_windows(self):
        """The application's mapped top-level X windows as dicts with title, x, y,
        width, height (no window manager runs, so these are exactly what the app asked)."""
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
                    title = name.value.decode() if name else (window.get_wm_name() or "")
                    geometry = window.get_geometry()
                    found.append({"title": title, "x": geometry.x, "y": geometry.y,
                                  "width": geometry.width, "height": geometry.height,
                                  "id": window.id})
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

    # -- keyboard and mouse (xdotool on this session's display)

    def xdotool(self, *args):
        subprocess.run(["xdotool", *map(str, args)], check=True, timeout=30,
                       env=_x_environment(dict(os.environ), self.display))

    def type_text(self, text_to_type, delay_ms=30):
        self.xdotool("type", "--delay", delay_ms, text_to_type)

    def key(self, *keys):
        """Taps keys or chords: key("a"), key("ctrl+shift+k", "Return")."""
        self.xdotool("key", *keys)

    def key_down(self, key):
        self.xdotool("keydown", key)

    def key_up(self, key):
        self.xdotool("keyup", key)

    def click_at(self, x, y, button=1):
        self.xdotool("mousemove", "--sync", x, y, "click", button)

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

    def record(self, seconds=1.0, action=None, sink="tappix_a", path=None):
        """Records `sink`'s monitor: runs `action` once recording flows, then keeps
        recording for `seconds`. Returns a Recording (rms, peak, heard(), path of a WAV)."""
        raw = os.path.join(self.root, "recording.raw")
        with open(raw, "wb") as out:
            parec = _spawn(["parec", "--device=%s.monitor" % sink, "--format=s16le",
                            "--rate=%d" % SAMPLE_RATE, "--channels=2", "--latency-msec=10"],
                           env=self.pulse.env(), stdout=out, stderr=subprocess.DEVNULL)
        try:
            # A null sink's monitor is silent until someone plays, but parec still
            # delivers zeros: wait until they arrive before acting.
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
        path = path or os.path.join(self.root, "recording-%d.wav" % int(time.monotonic() * 1000))
        with wave.open(path, "wb") as out:
            out.setnchannels(2)
            out.setsampwidth(2)
            out.setframerate(SAMPLE_RATE)
            out.writeframes(samples.tobytes())
        return Recording(path, samples)

    # -- failure reports

    def diagnostics(self, tail_lines=60):
        parts = ["---- %s (pid %s, %s)" % (self.program, self.process.pid if self.process else "-",
                                          self._status())]
        log_lines = self.log().splitlines()
        parts.append("---- last %d log lines of %s" % (min(tail_lines, len(log_lines)),
                                                       self.log_path))
        parts.extend(log_lines[-tail_lines:])
        if self.running():
            parts.append("---- accessibility tree")
            parts.append(self.tree())
        artifacts = os.environ.get("TAPPIX_UI_ARTIFACTS")
        if artifacts and self.x is not None:
            os.makedirs(artifacts, exist_ok=True)
            shot = os.path.join(artifacts, "screen-%d.png" % int(time.time() * 1000))
            with contextlib.suppress(Exception):
                parts.append("---- screenshot: " + self.screenshot(shot))
        return "\n".join(parts)

    def _status(self):
        if self.process is None:
            return "not started"
        code = self.process.poll()
        return "running" if code is None else "exited with %s" % code

    def _report(self, exc_info):
        self._reported = True
        with contextlib.suppress(Exception):
            sys.stderr.write(self.diagnostics() + "\n")
            sys.stderr.flush()


def _descends_from(pid, ancestor):
    for _hop in range(32):
        if pid == ancestor:
            return True
        if pid <= 1:
            return False
        try:
            with open("/proc/%d/stat" % pid) as f:
                pid = int(f.read().rsplit(")", 1)[1].split()[1])
        except (OSError, ValueError, IndexError):
            return False
    return False


def _as_pattern(fragment):
    return fragment if isinstance(fragment, re.Pattern) else (lambda log: fragment in log)


def live_sessions():
    """Sessions still open, for the runner's failure reports."""
    return list(_live_sessions)


def report_live_sessions():
    for session in live_sessions():
        session._report(None)
