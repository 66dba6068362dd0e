#!/usr/bin/python3
"""A StatusNotifierWatcher and host for the tray tests, on the session bus.

Qt exports its tray icon over D-Bus (StatusNotifierItem plus a dbusmenu menu) only when a
watcher owns org.kde.StatusNotifierWatcher and says a host is registered before the icon
is made; otherwise it falls back to XEmbed, which nothing under Xvfb shows. So the host
starts first. It serves from a harness.BusThread; its handlers only record and reply. The
test's calls (properties, Activate, the menu) are synchronous calls on that connection.
"""

import collections
import threading
import time

from gi.repository import Gio, GLib

import harness

WATCHER_NAME = "org.kde.StatusNotifierWatcher"
WATCHER_PATH = "/StatusNotifierWatcher"
ITEM_INTERFACE = "org.kde.StatusNotifierItem"
ITEM_PATH = "/StatusNotifierItem"
MENU_INTERFACE = "com.canonical.dbusmenu"
CALL_TIMEOUT_MS = 5000

WATCHER_XML = """
<node>
  <interface name="org.kde.StatusNotifierWatcher">
    <method name="RegisterStatusNotifierItem"><arg name="service" type="s" direction="in"/></method>
    <method name="RegisterStatusNotifierHost"><arg name="service" type="s" direction="in"/></method>
    <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
    <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
    <property name="ProtocolVersion" type="i" access="read"/>
    <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
    <signal name="StatusNotifierItemUnregistered"><arg type="s"/></signal>
  </interface>
</node>
"""

# One entry of a flattened dbusmenu layout: `label` keeps the mnemonic underscores as
# sent, `kind` is "standard" or "separator", `parent` the enclosing menu's id (0 = root).
MenuEntry = collections.namedtuple("MenuEntry", "id label enabled visible kind parent")
Signal = collections.namedtuple("Signal", "sender path interface name args")


def plain_label(label):
    """A menu label as a user reads it: mnemonic markers removed."""
    return label.replace("__", "\0").replace("_", "").replace("\0", "_").replace("&", "")


class SniHost:
    """Owns org.kde.StatusNotifierWatcher on the session bus and records items and signals."""

    def __init__(self):
        self._lock = threading.Condition()
        self._targets = {}  # item name -> (bus name, object path), oldest first
        self._signals = []

    def start(self):
        """Takes the watcher name and returns once it is served."""
        self._bus = harness.BusThread(self._setup, "StatusNotifierWatcher")
        self._connection = self._bus.connection
        return self

    def stop(self):
        self._bus.stop()

    def _setup(self, connection):
        info = Gio.DBusNodeInfo.new_for_xml(WATCHER_XML).interfaces[0]
        connection.register_object(WATCHER_PATH, info, self._on_call, self._on_get, None)
        for interface in (ITEM_INTERFACE, MENU_INTERFACE):
            connection.signal_subscribe(None, interface, None, None, None,
                                        Gio.DBusSignalFlags.NONE, self._on_signal)
        connection.signal_subscribe("org.freedesktop.DBus", "org.freedesktop.DBus",
                                    "NameOwnerChanged", "/org/freedesktop/DBus", None,
                                    Gio.DBusSignalFlags.NONE, self._on_owner_changed)
        harness.BusThread.own_name(connection, WATCHER_NAME)

    # ---- watcher side (runs on the host thread; never blocks) -----------

    def _on_call(self, connection, sender, path, interface, method, params, invocation):
        if method == "RegisterStatusNotifierItem":
            service = params.unpack()[0]
            if service.startswith("/"):  # some items send only their object path
                target, name = (sender, service), sender + service
            else:
                target, name = (service, ITEM_PATH), service
            with self._lock:
                self._targets[name] = target
                self._lock.notify_all()
            invocation.return_value(None)
            connection.emit_signal(None, WATCHER_PATH, WATCHER_NAME,
                                   "StatusNotifierItemRegistered", GLib.Variant("(s)", (name,)))
        elif method == "RegisterStatusNotifierHost":
            invocation.return_value(None)
        else:
            invocation.return_dbus_error("org.freedesktop.DBus.Error.UnknownMethod", method)

    def _on_get(self, connection, sender, path, interface, prop):
        with self._lock:
            return {"RegisteredStatusNotifierItems": GLib.Variant("as", list(self._targets)),
                    "IsStatusNotifierHostRegistered": GLib.Variant("b", True),
                    "ProtocolVersion": GLib.Variant("i", 0)}.get(prop)

    def _on_signal(self, connection, sender, path, interface, name, params):
        with self._lock:
            self._signals.append(Signal(sender, path, interface, name, params.unpack()))
            self._lock.notify_all()

    def _on_owner_changed(self, connection, sender, path, interface, name, params):
        # An application that quit takes its item with it: a later start registers anew.
        bus_name, _old, new = params.unpack()
        if new:
            return
        with self._lock:
            gone = [item for item, (owner, _p) in self._targets.items() if owner == bus_name]
            for item in gone:
                del self._targets[item]
        for item in gone:
            connection.emit_signal(None, WATCHER_PATH, WATCHER_NAME,
                                   "StatusNotifierItemUnregistered", GLib.Variant("(s)", (item,)))

    # ---- the test's side --------------------------------------------------

    def wait_for_item(self, timeout=10):
        """The first registered item, waiting for one to register."""
        with self._lock:
            if not self._lock.wait_for(lambda: self._targets, timeout):
                raise TimeoutError("no StatusNotifierItem registered within %ss" % timeout)
            return next(iter(self._targets))

    def _call(self, bus_name, path, interface, method, args=None, reply_type=None):
        reply = self._connection.call_sync(
            bus_name, path, interface, method, args,
            GLib.VariantType(reply_type) if reply_type else None,
            Gio.DBusCallFlags.NONE, CALL_TIMEOUT_MS, None)
        return reply.unpack() if reply is not None else ()

    def _item_call(self, method, args=None, reply_type=None, interface=ITEM_INTERFACE):
        item = self.wait_for_item()
        with self._lock:
            bus_name, path = self._targets.get(item, (item, ITEM_PATH))
        return self._call(bus_name, path, interface, method, args, reply_type)

    def item_property(self, name):
        """One property of the item, unpacked: ToolTip is (icon name, pixmaps, title,
        description); IconPixmap is [(w, h, ARGB32 big-endian bytes)]."""
        return self._item_call("Get", GLib.Variant("(ss)", (ITEM_INTERFACE, name)), "(v)",
                               "org.freedesktop.DBus.Properties")[0]

    def activate(self):
        """A primary click on the icon."""
        self._item_call("Activate", GLib.Variant("(ii)", (0, 0)))

    def secondary_activate(self):
        """A middle click on the icon."""
        self._item_call("SecondaryActivate", GLib.Variant("(ii)", (0, 0)))

    def context_menu(self):
        """A right click on the icon (Qt: QSystemTrayIcon::Context)."""
        self._item_call("ContextMenu", GLib.Variant("(ii)", (0, 0)))

    def _menu_call(self, method, args, reply_type=None):
        bus_name = self._targets[self.wait_for_item()][0]
        return self._call(bus_name, self.item_property("Menu"), MENU_INTERFACE, method, args,
                          reply_type)

    def menu(self):
        """The item's menu, flattened depth-first, as MenuEntry tuples (the root left out).
        AboutToShow(0) goes first, as a tray host sends it before it opens the menu."""
        self._menu_call("AboutToShow", GLib.Variant("(i)", (0,)), "(b)")
        _revision, layout = self._menu_call("GetLayout", GLib.Variant("(iias)", (0, -1, [])),
                                            "(u(ia{sv}av))")
        entries = []

        def walk(node, parent):
            for child in node[2]:
                entry_id, props, _children = child
                entries.append(MenuEntry(entry_id, props.get("label", ""),
                                         props.get("enabled", True), props.get("visible", True),
                                         props.get("type", "standard"), parent))
                walk(child, entry_id)

        walk(layout, 0)
        return entries

    def click(self, label):
        """Clicks the menu entry that reads `label` (mnemonics ignored)."""
        entries = self.menu()
        entry = next((e for e in entries if plain_label(e.label) == plain_label(label)), None)
        if entry is None:
            raise LookupError("no menu entry %r in %s" % (label,
                                                         [plain_label(e.label) for e in entries]))
        self._menu_call("Event", GLib.Variant("(isvu)", (entry.id, "clicked", GLib.Variant("i", 0),
                                                         int(time.time()) & 0xFFFFFFFF)))

    def mark(self):
        """A point in the signal history, for wait_for_signal(since=...)."""
        with self._lock:
            return len(self._signals)

    def wait_for_signal(self, name, since=0, timeout=5):
        """The first signal called `name` (NewIcon, NewToolTip, LayoutUpdated, …) after
        `since`, waiting for it."""
        def found():
            return next((s for s in self._signals[since:] if s.name == name), None)
        with self._lock:
            signal = self._lock.wait_for(found, timeout)
            seen = [s.name for s in self._signals[since:]]
        if signal is None:
            raise TimeoutError("no %s signal within %ss (saw %s)" % (name, timeout, seen))
        return signal
