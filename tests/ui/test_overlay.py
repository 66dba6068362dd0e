#!/usr/bin/python3
"""The key-cast overlay under a real X server: keys typed anywhere become chips read from
the accessibility tree, never more than six; combinations typed with xdotool give the
chips they should in both modes; the window lets clicks through to what lies below and
never takes the focus; pictures of each size in a dark and a light theme."""

import contextlib
import threading
import time
import unittest

from Xlib import X, display as xdisplay
from Xlib.ext import shape

import tappix_ui as ui

OVERLAY = "Tappix key cast"
MARGIN = 48
SHORTCUTS_ONLY = "Hide plain typing; show \u2318-combos"

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

# Size, position, whether a compositor runs, and where the window then lies on the
# 1280x800 screen.
PLACES = [
    ("large", "bottomCenter", False,
     lambda w: w["y"] + w["height"] == 800 - MARGIN and abs(w["x"] + w["width"] / 2 - 640) <= 1),
    ("small", "topRight", True,
     lambda w: w["y"] == MARGIN and w["x"] + w["width"] == 1280 - MARGIN),
]


class ClickCatcher:
    """A plain X window filling the screen, made before the overlay so it lies below it,
    that counts the button presses it gets."""

    def __init__(self, session):
        self.connection = xdisplay.Display(session.display)
        screen = self.connection.screen()
        self.window = screen.root.create_window(
            0, 0, screen.width_in_pixels, screen.height_in_pixels, 0, screen.root_depth,
            X.InputOutput, X.CopyFromParent, background_pixel=screen.white_pixel,
            event_mask=X.ButtonPressMask)
        self.window.map()
        self.connection.sync()

    def presses(self):
        count = 0
        while self.connection.pending_events():
            if self.connection.next_event().type == X.ButtonPress:
                count += 1
        return count

    def close(self):
        self.window.destroy()
        self.connection.close()


@contextlib.contextmanager
def keep_typing(s, key, every=0.2):
    """Taps `key` every `every` seconds, so chips keep coming while the test looks."""
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

    def start(self, size, position="bottomCenter", theme=None, catch_clicks=True):
        prefs = {"visualizerEnabled": True, "visualizerSize": size,
                 "visualizerPosition": position}
        if theme:
            prefs["themeID"] = theme
        s = ui.start(self, prefs, tray=False, env={"LC_ALL": "C.UTF-8"})
        if not catch_clicks:
            return s, None
        catcher = ClickCatcher(s)
        self.addCleanup(catcher.close)
        return s, catcher

    def frame(self, s):
        """The overlay's frame: looked for among the windows only, as every step below
        the application is a round trip to it, and kept, as the window is made once."""
        if getattr(s, "overlay_frame", None) is None:
            frames = s.find_all(None, OVERLAY, max_depth=2)
            s.overlay_frame = frames[0] if frames else None
        return s.overlay_frame

    def chips(self, s):
        frame = self.frame(s)
        if frame is None:
            return []
        return [c.get_name() for c in s.find_all("label", root=frame, showing=True)]

    def overlay_window(self, s):
        return s.wait_until(
            lambda: next((w for w in s.x_windows() if w["title"] == OVERLAY), None), 5,
            message="the overlay's X window")

    def warm_up(self, s):
        """The window is made for the first chip, which may be gone before the window is on
        the accessibility bus: type until chips are read, then let them go."""
        with keep_typing(s, "x"):
            s.wait_until(lambda: "X" in self.chips(s), 10, message="the first chips")
        s.wait_until(lambda: not ui.showing(s, OVERLAY), 5, message="the overlay to hide")

    def wait_for_chips(self, s, expected):
        s.wait_until(lambda: self.chips(s) == expected, 5, interval=0.02,
                     message=lambda: "the chips %s (showing %s)" % (expected, self.chips(s)))

    def test_in_its_corner_at_most_six_chips_letting_clicks_through(self):
        for size, position, compositor, placed in PLACES:
            with self.subTest(position=position):
                s, catcher = self.start(size, position)
                if compositor:
                    # A compositing manager (here just its selection) draws the clear
                    # parts, so the window keeps its whole shape and its chips' soft edges.
                    atom = catcher.connection.intern_atom("_NET_WM_CM_S0")
                    catcher.window.set_selection_owner(atom, X.CurrentTime)
                    catcher.connection.sync()
                self.warm_up(s)
                s.type_text("asdfjklg", delay_ms=20)
                most = []

                def last_chip_shows():
                    chips = self.chips(s)
                    most.append(len(chips))
                    return chips[-1:] == ["G"]
                s.wait_until(last_chip_shows, 5, interval=0.02,
                             message=lambda: "the chip G (seen %s)" % most)
                self.assertLessEqual(max(most), 6, most)
                # All gone a moment after the last key.
                s.wait_until(lambda: not ui.showing(s, OVERLAY), 5,
                             message="the overlay to hide")
                # While keys keep coming the window stays, in its corner.
                with keep_typing(s, "ctrl"):
                    s.wait_until(lambda: set(self.chips(s)) == {"\u2303"}, 5,
                                 message="the chips \u2303")
                    window = s.wait_until(
                        lambda: placed(self.overlay_window(s)) and self.overlay_window(s), 5,
                        message=lambda: "the window placed (%s)" % self.overlay_window(s))
                    self.check_clicks_go_through(s, catcher, window, compositor)

    def check_clicks_go_through(self, s, catcher, window, compositor):
        connection = xdisplay.Display(s.display)
        self.addCleanup(connection.close)
        overlay = connection.create_resource_object("window", window["id"])
        # Nothing of it takes a click or the focus.
        self.assertEqual(overlay.shape_get_rectangles(shape.SK.Input).rectangles, [])
        self.assertEqual(overlay.get_wm_hints().input, 0)

        def bounding():
            return [(r.x, r.y, r.width, r.height)
                    for r in overlay.shape_get_rectangles(shape.SK.Bounding).rectangles]
        if compositor:
            # Chips come and go: the window and its shape are read together.
            s.wait_until(lambda: bounding() == [(0, 0, self.overlay_window(s)["width"],
                                                 self.overlay_window(s)["height"])],
                         5, message="the window's whole shape")
            return

        # No compositor draws its clear parts here, so the window is cut to its chips: a
        # chip's middle is in it, the first one's rounded corner's outside is not.
        def covered(x, y):
            return any(rx <= x < rx + w and ry <= y < ry + h for rx, ry, w, h in bounding())

        def on_a_chip():
            labels = s.find_all("label", root=self.frame(s), showing=True)
            box = s.extents(labels[len(labels) // 2])
            x, y = box.x + box.width // 2, box.y + box.height // 2
            return covered(x - window["x"], y - window["y"]) and (x, y)
        s.wait_until(lambda: not covered(1, 1), 5, message="the window cut to its chips")
        x, y = s.wait_until(on_a_chip, 5, message="a chip inside the window's shape")
        catcher.presses()
        s.xdotool("mousemove", "--sync", x, y, "click", 1)
        s.wait_until(lambda: catcher.presses() > 0, 5, message="the click below the overlay")

    def test_typed_combinations_give_their_chips_in_both_modes(self):
        s, _ = self.start("medium")
        self.warm_up(s)
        for keys, chips, _ in COMBINATIONS:
            with self.subTest(keys=" ".join(keys)):
                s.xdotool(*keys)
                self.wait_for_chips(s, chips)
                s.wait_until(lambda: not ui.showing(s, OVERLAY), 5, message="the overlay to hide")

        ui.cli_ok(self, s, "--settings", "look")
        window = ui.settings_window(s)
        s.press(s.find("check box", SHORTCUTS_ONLY, root=window))
        s.wait_for_preference("visualizerShortcutsOnly", True)
        ui.close_window(s, ui.SETTINGS)
        # Typed one after the other: modifiers alone and plain keys add nothing between.
        s.xdotool(*[word for keys, _, _ in COMBINATIONS for word in keys])
        self.wait_for_chips(s, [chip for _, _, only in COMBINATIONS for chip in only])

    def test_pictures_of_each_size_in_a_dark_and_a_light_theme(self):
        chips = ["\u2303", "\u2325", "\u2303\u2325C", "A", "\u2423", "\u2318"]
        for theme, suffix in ((None, "dark"), ("milk", "light")):
            s, _ = self.start("medium", theme=theme, catch_clicks=False)
            self.warm_up(s)
            ui.cli_ok(self, s, "--settings", "look")
            window = ui.settings_window(s)
            for size in ("Small", "Medium", "Large"):
                s.press(ui.button(s, "Size: " + size, window))
                s.wait_for_preference("visualizerSize", size.lower())
                typed = time.monotonic()
                s.xdotool("key", "ctrl+alt+c", "a", "space", "super")
                self.wait_for_chips(s, chips)
                # About a second after the keys every chip has sprung in (slowly, in a
                # sanitized build) and none has gone (the screenshot waits 0.4 s itself).
                time.sleep(max(0.0, typed + 0.6 - time.monotonic()))
                ui.screenshot(s, "overlay-%s-%s" % (size.lower(), suffix))
                s.wait_until(lambda: not ui.showing(s, OVERLAY), 5, message="the overlay to hide")
            s.close()


if __name__ == "__main__":
    unittest.main()
