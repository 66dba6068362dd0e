#!/usr/bin/python3
"""The key-cast overlay in one run: chips from keys typed anywhere, a window that takes no
click or focus, combinations in both modes; pictures of each size, dark and light."""

import contextlib
import threading
import time
import unittest

from Xlib import X, display as xdisplay
from Xlib.ext import shape

import harness as ui

OVERLAY = "Tappix key cast"

# What xdotool types (one call), the chips it makes, and those it makes with shortcuts only.
COMBINATIONS = [
    (["key", "super"], ["\u2318"], []),
    (["key", "super+k"], ["\u2318", "\u2318K"], ["\u2318K"]),
    (["keydown", "alt", "keydown", "ctrl", "key", "c", "keyup", "ctrl", "keyup", "alt"],
     ["\u2325", "\u2303", "\u2303\u2325C"], ["\u2303\u2325C"]),
    (["keydown", "ctrl", "keydown", "alt", "key", "c", "keyup", "alt", "keyup", "ctrl"],
     ["\u2303", "\u2325", "\u2303\u2325C"], ["\u2303\u2325C"]),
    (["key", "shift+a"], ["\u21e7", "\u21e7A"], ["\u21e7A"]),
    (["key", "h", "i"], ["H", "I"], []),
]


@contextlib.contextmanager
def keep_typing(s, key, every=0.2):
    stop = threading.Event()

    def tap():
        while not stop.is_set():
            s.key(key)
            stop.wait(every)
    thread = threading.Thread(target=tap, daemon=True)
    thread.start()
    try:
        yield
    finally:
        stop.set()
        thread.join()


class Overlay(unittest.TestCase):

    def chips(self):
        # Looked for among the windows only (each level below is a round trip), and kept,
        # as the window is made once.
        if getattr(self, "frame", None) is None:
            self.frame = next(iter(self.s.find_all(None, OVERLAY, max_depth=2)), None)
        if self.frame is None:
            return []
        return [c.get_name() for c in self.s.find_all("label", root=self.frame, showing=True)]

    def wait_for_chips(self, expected):
        self.s.wait_until(lambda: self.chips() == expected, 5, interval=0.02)

    def wait_hidden(self):
        self.s.wait_until(lambda: not ui.showing(self.s, OVERLAY), 5)

    def bounding(self):
        (window,) = [w for w in self.s.x_windows() if w["title"] == OVERLAY]
        overlay = self.x.create_resource_object("window", window["id"])
        self.assertEqual(overlay.shape_get_rectangles(shape.SK.Input).rectangles, [])
        self.assertEqual(overlay.get_wm_hints().input, 0)
        return window, [(r.x, r.y, r.width, r.height)
                        for r in overlay.shape_get_rectangles(shape.SK.Bounding).rectangles]

    def test_chips_shape_combinations_and_pictures(self):
        s = self.s = ui.start(self, {"visualizerEnabled": True, "visualizerSize": "medium"},
                              tray=False, env={"LC_ALL": "C.UTF-8"})
        self.x = xdisplay.Display(s.display)
        self.addCleanup(self.x.close)
        # The window is made for the first chip, which may be gone before the window is on
        # the accessibility bus: type until chips are read, then let them go.
        with keep_typing(s, "x"):
            s.wait_until(lambda: "X" in self.chips(), 10)
        self.wait_hidden()

        with self.subTest("at most six chips, all gone a moment after the last key"):
            s.type_text("asdfjklg", delay_ms=20)
            most = []
            s.wait_until(lambda: most.append(len(self.chips())) or self.chips()[-1:] == ["G"],
                         5, interval=0.02)
            self.assertLessEqual(max(most), 6, most)
            self.wait_hidden()

        with self.subTest("no compositor: no click, no focus, the window cut to its chips"):
            self.wait_hidden()
            with keep_typing(s, "ctrl"):
                self.wait_for_chips(["\u2303"])

                def chip_inside():
                    window, rects = self.bounding()
                    labels = s.find_all("label", root=self.frame, showing=True)
                    box = s.extents(labels[len(labels) // 2])
                    x = box.x + box.width // 2 - window["x"]
                    y = box.y + box.height // 2 - window["y"]
                    covered = [rx <= x < rx + w and ry <= y < ry + h for rx, ry, w, h in rects]
                    # The chip's middle is in the shape, its rounded corner's outside is not.
                    return any(covered) and not any(rx <= 1 < rx + w and ry <= 1 < ry + h
                                                    for rx, ry, w, h in rects)
                s.wait_until(chip_inside, 5)

        with self.subTest("a compositor (its selection) draws the clear parts: the whole window"):
            self.wait_hidden()
            owner = self.x.screen().root.create_window(0, 0, 1, 1, 0, X.CopyFromParent)
            owner.set_selection_owner(self.x.intern_atom("_NET_WM_CM_S0"), X.CurrentTime)
            self.x.sync()
            with keep_typing(s, "ctrl"):
                self.wait_for_chips(["\u2303"])

                def whole():
                    window, rects = self.bounding()
                    return rects == [(0, 0, window["width"], window["height"])]
                s.wait_until(whole, 5)
            owner.destroy()  # no compositor answers the windows made later
            self.x.sync()

        for keys, chips, _ in COMBINATIONS:
            with self.subTest(keys=" ".join(keys)):
                self.wait_hidden()
                s.xdotool(*keys)
                self.wait_for_chips(chips)
                self.wait_hidden()

        ui.cli_ok(self, s, "--settings", "look")
        window = ui.settings_window(s)
        for theme in ("dark", "light"):
            if theme == "light":
                s.press(ui.button(s, "Milk", window))
                s.wait_for_preference("themeID", "milk")
            for size in ("Small", "Medium", "Large"):
                s.press(ui.button(s, "Size: " + size, window))
                s.wait_for_preference("visualizerSize", size.lower())
                typed = time.monotonic()
                s.xdotool("key", "ctrl+alt+c", "a", "space", "super")
                self.wait_for_chips(["\u2303", "\u2325", "\u2303\u2325C", "A", "\u2423", "\u2318"])
                # Every chip has sprung in (slowly, in a sanitized build) and none has gone
                # (the screenshot waits 0.4 s itself).
                time.sleep(max(0.0, typed + 0.6 - time.monotonic()))
                ui.screenshot(s, "overlay-%s-%s" % (size.lower(), theme))
                self.wait_hidden()

        with self.subTest("shortcuts only: modifiers alone and plain keys add nothing between"):
            s.press(s.find("check box", "Hide plain typing; show \u2318-combos", root=window))
            s.wait_for_preference("visualizerShortcutsOnly", True)
            ui.close_window(s, ui.SETTINGS)
            s.xdotool(*[word for keys, _, _ in COMBINATIONS for word in keys])
            self.wait_for_chips([chip for _, _, only in COMBINATIONS for chip in only])


if __name__ == "__main__":
    unittest.main()
