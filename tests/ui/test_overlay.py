#!/usr/bin/python3
"""The key-cast overlay under a real X server: keys typed anywhere become chips read from
the accessibility tree, never more than six; the window lets clicks through to what lies
below and never takes the focus; a picture in a small and a large size."""

import unittest

from Xlib import X, display as xdisplay
from Xlib.ext import shape

import tappix_ui as ui

OVERLAY = "Tappix key cast"
MARGIN = 48


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


class Overlay(unittest.TestCase):

    def start(self, size, position="bottomCenter"):
        s = ui.start(self, {"visualizerEnabled": True, "visualizerSize": size,
                            "visualizerPosition": position}, tray=False,
                     env={"LC_ALL": "C.UTF-8"})
        catcher = ClickCatcher(s)
        self.addCleanup(catcher.close)
        return s, catcher

    def chips(self, s):
        frames = s.find_all(None, OVERLAY, max_depth=2)
        if not frames:
            return []
        return [c.get_name() for c in s.find_all("label", root=frames[0], showing=True)]

    def overlay_window(self, s):
        return s.wait_until(
            lambda: next((w for w in s.x_windows() if w["title"] == OVERLAY), None), 5,
            message="the overlay's X window")

    def test_typed_keys_show_as_at_most_six_chips_and_clicks_go_through(self):
        s, catcher = self.start("large")
        s.type_text("asdfjklg", delay_ms=20)
        most = []

        def last_chip_shows():
            chips = self.chips(s)
            most.append(len(chips))
            return chips and chips[-1] == "G"
        s.wait_until(last_chip_shows, 5, interval=0.02,
                     message=lambda: "the chip G (seen %s)" % most)
        self.assertLessEqual(max(most), 6, most)
        # All gone a moment after the last key.
        s.wait_until(lambda: not ui.showing(s, OVERLAY), 5, message="the overlay to hide")

        # Ctrl held keeps its chip, and the window, on screen.
        s.key_down("Control_L")
        self.addCleanup(lambda: s.key_up("Control_L"))
        window = self.overlay_window(s)
        s.wait_until(lambda: self.chips(s) == ["\u2303"], 5, message="the chip \u2303")
        self.assertEqual(window["y"] + window["height"], 800 - MARGIN, window)
        self.assertAlmostEqual(window["x"] + window["width"] / 2, 640, delta=1)

        # Nothing of it takes a click: the window under it gets them.
        connection = xdisplay.Display(s.display)
        self.addCleanup(connection.close)
        overlay = connection.create_resource_object("window", window["id"])
        self.assertEqual(overlay.shape_get_rectangles(shape.SK.Input).rectangles, [])
        # Nor the focus: it tells window managers it takes no keyboard input.
        self.assertEqual(overlay.get_wm_hints().input, 0)
        # No compositor draws its clear parts here, so the window is cut to its chip: the
        # chip's middle is in it, the rounded corner's outside is not.

        def covered(x, y):
            rectangles = overlay.shape_get_rectangles(shape.SK.Bounding).rectangles
            return any(r.x <= x < r.x + r.width and r.y <= y < r.y + r.height
                       for r in rectangles)
        s.wait_until(lambda: not covered(1, 1), 5, message="the window cut to its chip")
        self.assertTrue(covered(window["width"] // 2, window["height"] // 2))
        catcher.presses()
        s.click_at(window["x"] + window["width"] // 2, window["y"] + window["height"] // 2)
        s.wait_until(lambda: catcher.presses() > 0, 5, message="the click below the overlay")
        ui.screenshot(s, "overlay-large")
        s.key_up("Control_L")
        s.wait_until(lambda: self.chips(s) in ([], ["\u2303"]), 5)

    def test_small_in_the_top_right_corner(self):
        s, catcher = self.start("small", "topRight")
        # A compositing manager (here just its selection) draws the clear parts, so the
        # window keeps its whole shape and its chips' soft edges.
        compositor = catcher.connection.intern_atom("_NET_WM_CM_S0")
        catcher.window.set_selection_owner(compositor, X.CurrentTime)
        catcher.connection.sync()
        s.key_down("Control_L")
        self.addCleanup(lambda: s.key_up("Control_L"))
        s.key("shift+z")
        s.key("c")
        s.wait_until(lambda: self.chips(s)[-2:] == ["\u2303\u21e7Z", "\u2303C"], 5,
                     message=lambda: "the chips \u2303\u21e7Z \u2303C (%s)" % self.chips(s))
        window = self.overlay_window(s)
        self.assertEqual(window["y"], MARGIN, window)
        self.assertEqual(window["x"] + window["width"], 1280 - MARGIN, window)
        connection = xdisplay.Display(s.display)
        self.addCleanup(connection.close)
        bounding = connection.create_resource_object("window", window["id"]).shape_get_rectangles(
            shape.SK.Bounding).rectangles
        self.assertEqual([(r.x, r.y, r.width, r.height) for r in bounding],
                         [(0, 0, window["width"], window["height"])])
        ui.screenshot(s, "overlay-small")


if __name__ == "__main__":
    unittest.main()
