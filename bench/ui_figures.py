#!/usr/bin/python3
"""Figures for tappix's desktop UI, printed one a line with the figure it should stay under.

    ui_figures.py TAPPIX SECONDS
        Starts a StatusNotifierWatcher (tests/ui/sni_host.py), then TAPPIX, and measures:
        resident memory at start, how soon the panel maps after a tray click, after the
        ShowPanel D-Bus call and after `tappix --panel`, resident memory once the panel and
        the settings window have been opened and closed, and CPU over SECONDS of idling.
    ui_figures.py --tray-host COMMAND [ARGS...]
        Runs COMMAND with the watcher on the bus, so the tappix it starts shows a tray icon.

Needs DISPLAY (no window manager: windows map as they are asked to), a session bus of its
own (dbus-run-session), PULSE_SERVER, and the scratch HOME/XDG directories in the
environment; bench/ui_figures.sh sets all of that up. python3-xlib and python3-gi."""

import os
import select
import signal
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "ui"))

import sni_host  # noqa: E402
from gi.repository import Gio  # noqa: E402
from Xlib import X, XK, display, protocol  # noqa: E402
from Xlib.ext import xtest  # noqa: E402

PANEL, SETTINGS = "Tappix", "Tappix Settings"
LATER_OPENINGS = 10


class Screen:
    """Map and unmap notifications of top-level windows, as the X server sends them."""

    def __init__(self):
        self.d = display.Display()
        self.root = self.d.screen().root
        self.root.change_attributes(event_mask=X.SubstructureNotifyMask)
        self.d.sync()
        self.names = {}

    def name(self, window):
        if window.id not in self.names:
            try:
                self.names[window.id] = window.get_wm_name()
            except Exception:  # gone already
                return None
        return self.names[window.id]

    def drain(self):
        while self.d.pending_events():
            self.d.next_event()

    def wait(self, name, kind, timeout=10.0):
        """The monotonic time at which a window called `name` mapped (kind X.MapNotify) or
        was unmapped or destroyed (X.UnmapNotify), and the window."""
        deadline = time.monotonic() + timeout
        while True:
            while self.d.pending_events():
                event = self.d.next_event()
                now = time.monotonic()
                gone = kind == X.UnmapNotify and event.type == X.DestroyNotify
                if (event.type == kind or gone) and self.name(event.window) == name:
                    return now, event.window
            left = deadline - time.monotonic()
            if left <= 0:
                raise TimeoutError("window %r: no %s in %.0f s" % (
                    name, "map" if kind == X.MapNotify else "unmap", timeout))
            select.select([self.d.fileno()], [], [], left)

    def key(self, keysym_name):
        code = self.d.keysym_to_keycode(XK.string_to_keysym(keysym_name))
        xtest.fake_input(self.d, X.KeyPress, code)
        xtest.fake_input(self.d, X.KeyRelease, code)
        self.d.sync()

    def drawn(self, window, since, settle=1.0):
        """When the window's pixels last changed within `settle` s of `since` (its map):
        the time its content, as it then stays, reached the screen."""
        geometry = window.get_geometry()
        shots = []
        while time.monotonic() < since + settle:
            image = window.get_image(0, 0, geometry.width, geometry.height, X.ZPixmap,
                                     0xFFFFFFFF).data
            shots.append((time.monotonic(), hash(image)))
            time.sleep(0.002)
        final = shots[-1][1]
        return next(t for t, image in shots if image == final)

    def close(self, window):
        """What a window manager sends for the close button: WM_DELETE_WINDOW."""
        protocols = self.d.intern_atom("WM_PROTOCOLS")
        delete = self.d.intern_atom("WM_DELETE_WINDOW")
        event = protocol.event.ClientMessage(window=window, client_type=protocols,
                                             data=(32, [delete, X.CurrentTime, 0, 0, 0]))
        window.send_event(event, event_mask=X.NoEventMask)
        self.d.sync()


def status(pid):
    fields = {}
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            key, _, value = line.partition(":")
            if key in ("VmRSS", "RssAnon", "RssFile", "RssShmem"):
                fields[key] = int(value.split()[0]) / 1024.0
    return fields


def gl_driver_mb(pid):
    """Resident memory in mappings of the OpenGL driver: Mesa's DRI modules and the LLVM
    that llvmpipe compiles with."""
    total, counting = 0, False
    with open("/proc/%d/smaps" % pid) as f:
        for line in f:
            head = line.split()
            if "-" in head[0] and not head[0].endswith(":"):
                path = head[5] if len(head) > 5 else ""
                counting = any(part in path for part in ("/dri/", "libLLVM", "libgallium",
                                                          "libGLX_mesa", "libglapi"))
            elif counting and head[0] == "Rss:":
                total += int(head[1])
    return total / 1024.0


def rss_text(pid):
    s = status(pid)
    return "%.1f MB (anonymous %.1f, files %.1f, shared %.1f; the GL driver %.1f)" % (
        s["VmRSS"], s["RssAnon"], s["RssFile"], s["RssShmem"], gl_driver_mb(pid))


def cpu_seconds(pid):
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def ms(seconds):
    return "%.1f ms" % (seconds * 1000.0)


def main(program, seconds):
    screen = Screen()
    host = sni_host.SniHost().start()
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    log = tempfile.NamedTemporaryFile(prefix="tappix-ui-figures-", suffix=".log", delete=False)
    app = subprocess.Popen([program], stdin=subprocess.DEVNULL, stdout=log, stderr=log)
    try:
        host.wait_for_item(timeout=20)
        time.sleep(3)
        print("resident memory at a login start, no window opened: %s (target < 50 MB)"
              % rss_text(app.pid), flush=True)

        def show_panel():
            bus.call_sync("app.morvane.tappix", "/app/morvane/tappix",
                          "app.morvane.tappix.Control", "ShowPanel", None, None,
                          Gio.DBusCallFlags.NONE, 5000, None)

        clients = []

        def panel_cli():
            clients.append(subprocess.Popen([program, "--panel"], stdout=subprocess.DEVNULL))

        drawn = []

        def opening(trigger, frames=False):
            screen.drain()
            start = time.monotonic()
            trigger()
            mapped, window = screen.wait(PANEL, X.MapNotify)
            if frames:
                drawn.append(screen.drawn(window, mapped) - start)
            time.sleep(0.3)  # the panel takes the focus once it shows
            screen.key("Escape")
            screen.wait(PANEL, X.UnmapNotify)
            time.sleep(0.4)  # past the guard against a click reopening it at once
            return mapped - start

        first = opening(host.activate, frames=True)
        later = [opening(host.activate, frames=True) for _ in range(LATER_OPENINGS)]
        print("panel mapped after a tray click (Activate): first %s, then median %s, max %s "
              "over %d (target < 150 ms)" % (ms(first), ms(statistics.median(later)),
                                             ms(max(later)), len(later)), flush=True)
        print("  its content on screen: first %s, then median %s, max %s" % (
            ms(drawn[0]), ms(statistics.median(drawn[1:])), ms(max(drawn[1:]))), flush=True)
        later = [opening(show_panel) for _ in range(LATER_OPENINGS)]
        print("panel mapped after the ShowPanel D-Bus call: median %s, max %s over %d "
              "(target < 150 ms)" % (ms(statistics.median(later)), ms(max(later)), len(later)),
              flush=True)
        later = [opening(panel_cli) for _ in range(5)]
        for client in clients:
            client.wait(10)
        print("panel mapped after running `tappix --panel`, its own start included: median %s "
              "over %d" % (ms(statistics.median(later)), len(later)), flush=True)

        screen.drain()
        start = time.monotonic()
        subprocess.run([program, "--settings", "about"], check=True)
        mapped, window = screen.wait(SETTINGS, X.MapNotify, timeout=20)
        print("settings window mapped after `tappix --settings about`, first opening: %s"
              % ms(mapped - start), flush=True)
        time.sleep(1)
        screen.close(window)
        screen.wait(SETTINGS, X.UnmapNotify)
        time.sleep(3)
        print("resident memory after the panel and the settings window were opened and closed: "
              "%s (target < 150 MB)" % rss_text(app.pid), flush=True)

        before = cpu_seconds(app.pid)
        time.sleep(seconds)
        used = cpu_seconds(app.pid) - before
        print("CPU over %g s idle with the tray icon shown (after the windows closed): %.2f s, "
              "%.3f %% of a core (target < 0.5 %%)" % (seconds, used, 100.0 * used / seconds),
              flush=True)
    except BaseException:
        log.flush()
        with open(log.name, errors="replace") as f:
            sys.stderr.write("tappix's log:\n" + f.read()[-4000:])
        raise
    finally:
        app.send_signal(signal.SIGTERM)
        try:
            app.wait(10)
        except subprocess.TimeoutExpired:
            app.kill()
            app.wait()
        host.stop()
        log.close()
        os.unlink(log.name)


def with_tray_host(command):
    host = sni_host.SniHost().start()
    try:
        return subprocess.run(command).returncode
    finally:
        host.stop()


if __name__ == "__main__":
    if not os.environ.get("DBUS_SESSION_BUS_ADDRESS"):
        sys.exit("ui_figures.py: run it under dbus-run-session")
    if len(sys.argv) > 2 and sys.argv[1] == "--tray-host":
        sys.exit(with_tray_host(sys.argv[2:]))
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(os.path.abspath(sys.argv[1]), float(sys.argv[2]))
