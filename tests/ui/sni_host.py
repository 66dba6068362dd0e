#!/usr/bin/python3
"""A StatusNotifierWatcher and host for the tray tests, on the session bus.

Qt only exports its tray icon over D-Bus (StatusNotifierItem plus a dbusmenu
menu) when a watcher owns org.kde.StatusNotifierWatcher and says a host is
registered *before* the icon is created; otherwise it falls back to XEmbed,
which nothing under Xvfb shows. So the host has to be started first.

The watcher serves from its own GLib main context on a thread, on a bus
connection of its own, so it keeps answering while the test thread is blocked
(in an AT-SPI call, a sleep, a synchronous D-Bus call of its own). Its handlers
only record and reply: a blocking call back into the application from there
would deadlock against the application's own call into us.

Test-side calls (properties, Activate, the menu) are synchronous calls on the
same connection from the calling thread.

    host = SniHost(); host.start()
    ... launch the application ...
    service = host.wait_for_item()
    host.item_properties(service)["ToolTip"]
    host.click(service, "Quit")

Run as a script it serves on the current session bus and prints what happens,
which is handy when poking at an application by hand.
"""

import collections
import threading
import time

import gi

gi.require_version("Gio", "2.0")
gi.require_version("GLib", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

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
    <signal name="StatusNotifierHostRegistered"/>
    <signal name="StatusNotifierHostUnregistered"/>
  </interface>
</node>
"""

ITEM_PROPERTIES = ("Id", "Category", "Status", "Title", "ToolTip", "IconName", "IconPixmap",
                   "AttentionIconName", "AttentionIconPixmap", "OverlayIconName", "Menu",
                   "ItemIsMenu", "WindowId", "IconThemePath")

# One entry of a flattened dbusmenu layout. `label` keeps the mnemonic
# underscores as sent; `kind` is "standard" or "separator"; `toggle_state` is
# -1 (not checkable), 0 or 1; `parent` is the id of the enclosing menu (0 = root).
MenuEntry = collections.namedtuple(
    "MenuEntry", "id label enabled visible toggle_state kind parent")

# A signal seen from an item or its menu: `seq` counts from 1 in arrival order.
Signal = collections.namedtuple("Signal", "seq sender path interface name args")


def plain_label(label):
    """A menu label as a user reads it: mnemonic markers removed."""
    return label.replace("__", "\0").replace("_", "").replace("\0", "_").replace("&", "")


class SniHost:
    """Owns org.kde.StatusNotifierWatcher on the session bus and records items and signals."""

    def __init__(self, bus_address=None):
        self._address = bus_address
        self._lock = threading.Condition()
        self._items = []          # registered item strings, as the watcher publishes them
        self._targets = {}        # item string -> (bus name, object path)
        self._signals = []
        self._thread = None
        self._loop = None
        self._context = None
        self._connection = None
        self._startup_error = None

    # ---- lifetime -------------------------------------------------------

    def start(self, timeout=10):
        """Connects, takes the watcher name and returns once it is served."""
        ready = threading.Event()
        self._thread = threading.Thread(target=self._serve, args=(ready,), name="sni-host",
                                        daemon=True)
        self._thread.start()
        if not ready.wait(timeout):
            raise RuntimeError("StatusNotifierWatcher did not start in %ss" % timeout)
        if self._startup_error:
            raise RuntimeError("StatusNotifierWatcher failed: %s" % self._startup_error)
        return self

    def stop(self):
        if self._loop is not None:
            loop, context = self._loop, self._context
            context.invoke_full(GLib.PRIORITY_DEFAULT, lambda: (loop.quit(), False)[1])
            self._thread.join(5)
            self._loop = None
        if self._connection is not None:
            try:
                self._connection.close_sync(None)
            except GLib.Error:
                pass
            self._connection = None

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc):
        self.stop()

    def _serve(self, ready):
        self._context = GLib.MainContext.new()
        self._context.push_thread_default()
        try:
            address = self._address or Gio.dbus_address_get_for_bus_sync(Gio.BusType.SESSION, None)
            self._connection = Gio.DBusConnection.new_for_address_sync(
                address,
                Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
                | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION,
                None, None)
            info = Gio.DBusNodeInfo.new_for_xml(WATCHER_XML).interfaces[0]
            self._connection.register_object(WATCHER_PATH, info, self._on_call, self._on_get, None)
            # Signals are delivered to the context that is thread-default now: this one.
            self._connection.signal_subscribe(None, ITEM_INTERFACE, None, None, None,
                                              Gio.DBusSignalFlags.NONE, self._on_signal)
            self._connection.signal_subscribe(None, MENU_INTERFACE, None, None, None,
                                              Gio.DBusSignalFlags.NONE, self._on_signal)
            self._connection.signal_subscribe("org.freedesktop.DBus", "org.freedesktop.DBus",
                                              "NameOwnerChanged", "/org/freedesktop/DBus", None,
                                              Gio.DBusSignalFlags.NONE, self._on_owner_changed)
            reply = self._connection.call_sync(
                "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                "RequestName", GLib.Variant("(su)", (WATCHER_NAME, 4)),  # DO_NOT_QUEUE
                GLib.VariantType("(u)"), Gio.DBusCallFlags.NONE, CALL_TIMEOUT_MS, None)
            if reply.unpack()[0] not in (1, 4):  # primary owner / already owner
                raise RuntimeError("%s is owned by someone else" % WATCHER_NAME)
            self._loop = GLib.MainLoop.new(self._context, False)
        except Exception as error:  # reported to start()
            self._startup_error = error
            ready.set()
            return
        ready.set()
        self._loop.run()
        self._context.pop_thread_default()

    # ---- watcher side (runs on the host thread; never blocks) -----------

    def _on_call(self, connection, sender, path, interface, method, params, invocation):
        if method == "RegisterStatusNotifierItem":
            service = params.unpack()[0]
            if service.startswith("/"):  # some items send only their object path
                target, name = (sender, service), sender + service
            else:
                target, name = (service, ITEM_PATH), service
            with self._lock:
                if name not in self._items:
                    self._items.append(name)
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
        if prop == "RegisteredStatusNotifierItems":
            with self._lock:
                return GLib.Variant("as", list(self._items))
        if prop == "IsStatusNotifierHostRegistered":
            return GLib.Variant("b", True)
        if prop == "ProtocolVersion":
            return GLib.Variant("i", 0)
        return None

    def _on_signal(self, connection, sender, path, interface, name, params):
        with self._lock:
            self._signals.append(Signal(len(self._signals) + 1, sender, path, interface, name,
                                        params.unpack()))
            self._lock.notify_all()

    def _on_owner_changed(self, connection, sender, path, interface, name, params):
        bus_name, _old, new = params.unpack()
        if new:
            return
        with self._lock:
            gone = [item for item, (owner, _p) in self._targets.items()
                    if owner == bus_name or item.startswith(bus_name + "/")]
            for item in gone:
                self._items.remove(item)
                del self._targets[item]
            self._lock.notify_all()
        for item in gone:
            connection.emit_signal(None, WATCHER_PATH, WATCHER_NAME,
                                   "StatusNotifierItemUnregistered", GLib.Variant("(s)", (item,)))

    # ---- items ------------------------------------------------------------

    def items(self):
        """The registered item names, oldest first (e.g. "org.kde.StatusNotifierItem-123-1")."""
        with self._lock:
            return list(self._items)

    def wait_for_item(self, timeout=10):
        """The first registered item, waiting for one to register."""
        with self._lock:
            if not self._lock.wait_for(lambda: self._items, timeout):
                raise TimeoutError("no StatusNotifierItem registered within %ss" % timeout)
            return self._items[0]

    def wait_until_no_items(self, timeout=10):
        with self._lock:
            return self._lock.wait_for(lambda: not self._items, timeout)

    def _target(self, item):
        if item is None:
            item = self.wait_for_item()
        with self._lock:
            return self._targets.get(item, (item, ITEM_PATH))

    def _call(self, bus_name, path, interface, method, args=None, reply_type=None):
        reply = self._connection.call_sync(
            bus_name, path, interface, method, args,
            GLib.VariantType(reply_type) if reply_type else None,
            Gio.DBusCallFlags.NONE, CALL_TIMEOUT_MS, None)
        return reply.unpack() if reply is not None else ()

    def item_property(self, name, item=None):
        """One property of the item, unpacked to Python values."""
        bus_name, path = self._target(item)
        return self._call(bus_name, path, "org.freedesktop.DBus.Properties", "Get",
                          GLib.Variant("(ss)", (ITEM_INTERFACE, name)), "(v)")[0]

    def item_properties(self, item=None):
        """All properties of the item as a dict: ToolTip is (icon name, [(w, h, ARGB bytes)],
        title, description); IconPixmap is [(w, h, ARGB32 big-endian bytes)]."""
        bus_name, path = self._target(item)
        return self._call(bus_name, path, "org.freedesktop.DBus.Properties", "GetAll",
                          GLib.Variant("(s)", (ITEM_INTERFACE,)), "(a{sv})")[0]

    def activate(self, x=0, y=0, item=None):
        """A primary click on the icon (Qt: QSystemTrayIcon::Trigger)."""
        bus_name, path = self._target(item)
        self._call(bus_name, path, ITEM_INTERFACE, "Activate", GLib.Variant("(ii)", (x, y)))

    def secondary_activate(self, x=0, y=0, item=None):
        """A middle click on the icon (Qt: QSystemTrayIcon::MiddleClick)."""
        bus_name, path = self._target(item)
        self._call(bus_name, path, ITEM_INTERFACE, "SecondaryActivate",
                   GLib.Variant("(ii)", (x, y)))

    def context_menu(self, x=0, y=0, item=None):
        """A right click on the icon (Qt: QSystemTrayIcon::Context)."""
        bus_name, path = self._target(item)
        self._call(bus_name, path, ITEM_INTERFACE, "ContextMenu", GLib.Variant("(ii)", (x, y)))

    def scroll(self, delta, orientation="vertical", item=None):
        bus_name, path = self._target(item)
        self._call(bus_name, path, ITEM_INTERFACE, "Scroll",
                   GLib.Variant("(is)", (delta, orientation)))

    # ---- menu -------------------------------------------------------------

    def _menu_target(self, item):
        bus_name, _path = self._target(item)
        return bus_name, self.item_property("Menu", item)

    def menu(self, item=None, about_to_show=True):
        """The item's menu, flattened depth-first, as MenuEntry tuples (the root itself left out).

        AboutToShow(0) is sent first, as a tray host does before it opens the menu,
        so menus filled in on aboutToShow are complete."""
        bus_name, path = self._menu_target(item)
        if about_to_show:
            self._call(bus_name, path, MENU_INTERFACE, "AboutToShow",
                       GLib.Variant("(i)", (0,)), "(b)")
        _revision, layout = self._call(bus_name, path, MENU_INTERFACE, "GetLayout",
                                       GLib.Variant("(iias)", (0, -1, [])), "(u(ia{sv}av))")
        entries = []

        def walk(node, parent):
            for child in node[2]:
                entry_id, props, _children = child
                entries.append(MenuEntry(
                    entry_id, props.get("label", ""), props.get("enabled", True),
                    props.get("visible", True),
                    props.get("toggle-state", -1) if props.get("toggle-type") else -1,
                    props.get("type", "standard"), parent))
                walk(child, entry_id)

        walk(layout, 0)
        return entries

    def menu_entry(self, label, item=None):
        """The first menu entry whose label reads `label` (mnemonics ignored)."""
        for entry in self.menu(item):
            if plain_label(entry.label) == plain_label(label):
                return entry
        raise LookupError("no menu entry %r in %s" % (
            label, [plain_label(e.label) for e in self.menu(item, about_to_show=False)]))

    def click(self, label_or_id, item=None):
        """Clicks a menu entry by label (mnemonics ignored) or by id; returns its entry or id."""
        entry = label_or_id if isinstance(label_or_id, int) else self.menu_entry(label_or_id, item)
        entry_id = entry if isinstance(entry, int) else entry.id
        bus_name, path = self._menu_target(item)
        self._call(bus_name, path, MENU_INTERFACE, "Event",
                   GLib.Variant("(isvu)", (entry_id, "clicked", GLib.Variant("i", 0),
                                           int(time.time()) & 0xFFFFFFFF)))
        return entry

    # ---- signals ----------------------------------------------------------

    def mark(self):
        """A point in the signal history, for wait_for_signal(since=...)."""
        with self._lock:
            return len(self._signals)

    def signals(self, since=0):
        with self._lock:
            return self._signals[since:]

    def wait_for_signal(self, name, since=0, timeout=5):
        """The first signal called `name` (NewIcon, NewToolTip, NewStatus, NewTitle,
        LayoutUpdated, ItemsPropertiesUpdated, ...) after `since`, waiting for it."""
        def found():
            return next((s for s in self._signals[since:] if s.name == name), None)
        with self._lock:
            signal = self._lock.wait_for(found, timeout)
        if signal is None:
            raise TimeoutError("no %s signal within %ss (saw %s)" % (
                name, timeout, [s.name for s in self.signals(since)]))
        return signal


def main():
    host = SniHost().start()
    print("serving %s; Ctrl-C to stop" % WATCHER_NAME, flush=True)
    seen_items, seen_signals = [], 0
    try:
        while True:
            time.sleep(0.5)
            for item in host.items():
                if item not in seen_items:
                    seen_items.append(item)
                    print("item:", item, flush=True)
                    try:
                        for key, value in sorted(host.item_properties(item).items()):
                            if key in ("IconPixmap", "AttentionIconPixmap"):
                                value = [(w, h, "%d bytes" % len(data)) for w, h, data in value]
                            print("  %s = %r" % (key, value))
                        for entry in host.menu(item):
                            print("  menu", entry)
                    except GLib.Error as error:
                        print("  ", error.message)
            for signal in host.signals(seen_signals):
                print("signal:", signal.sender, signal.interface, signal.name, flush=True)
            seen_signals = host.mark()
    except KeyboardInterrupt:
        pass
    finally:
        host.stop()


if __name__ == "__main__":
    main()
