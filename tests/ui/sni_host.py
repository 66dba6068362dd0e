#!/usr/bin/python3
"""A StatusNotifierWatcher and host on the session bus, for the tray tests and benches: Qt
exports its tray icon over D-Bus only when a host is registered before the icon is made
(else it falls back to XEmbed, which nothing under Xvfb shows)."""

import collections
import threading
import time

from gi.repository import Gio, GLib

import harness

WATCHER = "org.kde.StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"
WATCHER_XML = """<node><interface name="org.kde.StatusNotifierWatcher">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
</interface></node>"""

# `label` keeps the mnemonic underscores as sent; `parent` is 0 at the top.
MenuEntry = collections.namedtuple("MenuEntry", "id label enabled visible kind parent")


def plain_label(label):
    return label.replace("__", "\0").replace("_", "").replace("\0", "_").replace("&", "")


class SniHost:
    def __init__(self):
        self._lock = threading.Condition()
        self._targets = {}  # item name -> (bus name, object path)

    def start(self):
        self._bus = harness.BusThread(self._setup, "StatusNotifierWatcher")
        return self

    def stop(self):
        self._bus.stop()

    def _setup(self, connection):
        info = Gio.DBusNodeInfo.new_for_xml(WATCHER_XML).interfaces[0]
        connection.register_object("/StatusNotifierWatcher", info, self._on_call, self._on_get,
                                   None)
        harness.BusThread.own_name(connection, WATCHER)

    def _on_call(self, connection, sender, path, interface, method, params, invocation):
        if method == "RegisterStatusNotifierItem":
            name = params.unpack()[0]  # Qt's item sends its service name
            with self._lock:
                self._targets[name] = (name, "/StatusNotifierItem")
                self._lock.notify_all()
            connection.emit_signal(None, "/StatusNotifierWatcher", WATCHER,
                                   "StatusNotifierItemRegistered", GLib.Variant("(s)", (name,)))
        invocation.return_value(None)

    def _on_get(self, connection, sender, path, interface, prop):
        with self._lock:
            return {"RegisteredStatusNotifierItems": GLib.Variant("as", list(self._targets)),
                    "IsStatusNotifierHostRegistered": GLib.Variant("b", True),
                    "ProtocolVersion": GLib.Variant("i", 0)}.get(prop)

    def wait_for_item(self, timeout=10):
        with self._lock:
            if not self._lock.wait_for(lambda: self._targets, timeout):
                raise TimeoutError("no StatusNotifierItem registered within %ss" % timeout)
            return next(iter(self._targets.values()))

    def _call(self, interface, method, args=None, reply_type=None, path=None):
        bus_name, item_path = self.wait_for_item()
        reply = self._bus.connection.call_sync(
            bus_name, path or item_path, interface, method, args,
            GLib.VariantType(reply_type) if reply_type else None, Gio.DBusCallFlags.NONE, 5000,
            None)
        return reply.unpack() if reply is not None else ()

    def item_property(self, name):
        return self._call("org.freedesktop.DBus.Properties", "Get",
                          GLib.Variant("(ss)", (ITEM, name)), "(v)")[0]

    def activate(self, method="Activate"):
        """A click on the icon: Activate (left), SecondaryActivate (middle), ContextMenu."""
        self._call(ITEM, method, GLib.Variant("(ii)", (0, 0)))

    def _menu_call(self, method, args, reply_type=None):
        return self._call(MENU, method, args, reply_type, path=self.item_property("Menu"))

    def menu(self):
        """The menu flattened depth-first, after AboutToShow(0) as a host sends it."""
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
        (entry,) = [e for e in self.menu() if plain_label(e.label) == plain_label(label)]
        self._menu_call("Event", GLib.Variant("(isvu)", (entry.id, "clicked", GLib.Variant("i", 0),
                                                         int(time.time()) & 0xFFFFFFFF)))
