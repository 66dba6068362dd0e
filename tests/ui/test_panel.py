#!/usr/bin/python3
"""The panel driven through its controls, with no tray host: what each control stores, and
what the keys then sound like."""

import time
import unittest

import harness as ui


class Panel(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.s = ui.start(cls, dict(ui.STEADY_SOUND, volume=0.8, soundMixes=ui.TWELVE_MIXES,
                                   selectedPackId="ibm-buckling-spring"), tray=False)
        cls.windows_at_start = cls.s.windows()
        cls.buckling = ui.kit_name(cls.s, "ibm-buckling-spring")
        cls.pistol = ui.kit_name(cls.s, "gun-pistol")

    def setUp(self):
        self.panel = ui.open_panel(self, self.s)

    def tearDown(self):
        ui.close_panel(self.s)
        if ui.showing(self.s, ui.SETTINGS):
            ui.close_window(self.s, ui.SETTINGS)

    def press(self, name):
        self.s.press(ui.button(self.s, name, self.panel))

    def test_runs_without_a_tray_host(self):
        self.assertEqual(self.windows_at_start, [])
        lines = [line for line in self.s.log().splitlines() if "tray" in line.lower()]
        self.assertEqual(len(lines), 1, lines)
        self.assertIn("no tray host", lines[0])
        # `tappix --panel` puts it in the top right corner.
        (window,) = [w for w in self.s.x_windows() if w["title"] == ui.PANEL]
        self.assertLessEqual(window["y"], 16, window)
        self.assertGreaterEqual(window["x"] + window["width"], 1280 - 16, window)

    def test_sounds_switch_flips_the_sounds(self):
        switch = self.s.find("check box", "Sounds", root=self.panel)
        self.assertIn("checked", self.s.states(switch))
        self.s.press(switch)
        self.s.wait_for_preference("isEnabled", False)
        self.s.wait_until(lambda: "checked" not in self.s.states(switch), 5)
        self.s.press(switch)
        self.s.wait_for_preference("isEnabled", True)

    def test_volume_slider_sets_the_level_heard(self):
        s = self.s
        heard = []
        for level in (1.0, 0.25):
            s.set_value(s.find("slider", "Volume", root=self.panel), level)
            s.wait_for_preference("volume", level)
            ui.close_panel(s)
            heard.append(ui.record_typing(s))
            self.panel = ui.open_panel(self, s)
        loud, quiet = heard

        self.assertTrue(quiet.heard(), quiet)
        self.assertLess(quiet.rms, 0.5 * loud.rms, (quiet, loud))
        s.set_value(s.find("slider", "Volume", root=self.panel), 0.8)
        s.wait_for_preference("volume", 0.8)

    def test_closes_when_the_focus_moves_away_and_stays_when_opened_again_at_once(self):
        s = self.s
        # Opened right after a closing, whose loss of focus X reports late, it stays.
        for _ in range(4):
            s.key("Escape")
            ui.wait_gone(s, ui.PANEL)
            self.panel = ui.open_panel(self, s)
            time.sleep(0.7)
            self.assertTrue(ui.showing(s, ui.PANEL), s.log()[-600:])
        ui.cli_ok(self, s, "--settings", "sounds")
        ui.settings_window(s)
        ui.wait_gone(s, ui.PANEL)
        self.assertIn("panel closed: the focus moved elsewhere", s.log())

    def test_kit_rows_choose_the_kit_heard(self):
        s = self.s
        ui.close_panel(s)
        spring = ui.record_typing(s)

        self.panel = ui.open_panel(self, s)
        self.press("Sound kit: " + self.buckling)
        ui.button(s, "Back", self.panel)
        ui.button(s, self.buckling + ", chosen", self.panel)
        for section in ("Clicky", "Fun"):
            s.find("heading", section, root=self.panel)
        # Rows scrolled out of the list's view are there, but not showing.
        pistol_row = s.find("push button", self.pistol, root=self.panel)
        # Choosing plays a short audition of the kit.
        # The audition waits behind the kit's decoding, slow in a sanitized build.
        audition = s.record(2.5, action=lambda: s.press(pistol_row))
        s.wait_for_preference("selectedPackId", "gun-pistol")
        self.assertTrue(audition.heard(), audition)
        s.find("push button", self.pistol + ", chosen", root=self.panel)
        ui.button(s, self.buckling, self.panel)

        # Escape closes; the next opening starts on the main page.
        ui.close_panel(s)
        self.panel = ui.open_panel(self, s)
        ui.button(s, "Sound kit: " + self.pistol, self.panel)
        self.assertFalse(s.find_all("push button", "Back", root=self.panel, showing=True))
        ui.close_panel(s)
        pistol = ui.record_typing(s)

        self.assertTrue(pistol.heard(), pistol)
        # The same keys: the pistol's crack carries about 1.7 times the spring's energy,
        # the spring's rattle sits about 1.4 times higher.
        spring_brightness, pistol_brightness = ui.brightness(spring), ui.brightness(pistol)
        detail = (spring, pistol, spring_brightness, pistol_brightness)
        self.assertGreater(pistol.rms, 1.3 * spring.rms, detail)
        self.assertGreater(spring_brightness, 1.2 * pistol_brightness, detail)

        ui.cli_ok(self, s, "--kit", "ibm-buckling-spring")
        s.wait_for_preference("selectedPackId", "ibm-buckling-spring")

    def test_mix_rows_set_and_clear_the_mix_and_rows_open_the_settings_window(self):
        s = self.s
        self.press("Mix: Off")
        ui.button(s, "Off — main kit only, chosen", self.panel)
        desk = ui.button(s, "Desk", self.panel)
        # The summary the list model makes reaches the row.
        self.assertEqual(desk.get_description(), "3 of 8 parts")
        s.press(desk)
        s.wait_for_preference("activeMixId", "desk")
        ui.button(s, "Desk, chosen", self.panel)
        ui.button(s, "Off — main kit only", self.panel)
        self.press("Back")
        ui.button(s, "Mix: Desk", self.panel)

        self.press("Mix: Desk")
        self.press("Off — main kit only")
        s.wait_until(lambda: "activeMixId" not in s.preferences(), 10)
        ui.button(s, "Off — main kit only, chosen", self.panel)

        # Rows that open the settings window close the panel; Settings keeps the last page.
        for row, page, heading in (("Edit this mix", "mix", "Mix"), ("Settings", "mix", "Mix"),
                                   ("Design a switch", "create", "Design your own switch")):
            if not ui.showing(s, ui.PANEL):
                self.panel = ui.open_panel(self, s)
            self.press(row)
            window = ui.settings_window(s)
            ui.wait_gone(s, ui.PANEL)
            s.wait_for_preference("lastSettingsPage", page)
            ui.heading(s, heading, window)
            ui.close_window(s, ui.SETTINGS)

    def test_twelve_mixes_are_each_reached_from_the_keyboard_inside_the_panel(self):
        s = self.s
        self.press("Mix: Off")
        off = ui.button(s, "Off — main kit only, chosen", self.panel)
        (window,) = [w for w in s.x_windows() if w["title"] == ui.PANEL]
        top, bottom = window["y"], window["y"] + window["height"]

        def inside(name):
            (row,) = s.find_all("push button", name, root=self.panel, state="focused")
            box = s.extents(row)
            return box.height > 0 and top <= box.y <= bottom - box.height

        self.assertEqual(s.focused(self.panel), off.get_name())
        # Tab walks the rows in order, each scrolled into sight when it takes the focus,
        # and ends on the way to the editor below them.
        for name in [mix["name"] for mix in ui.TWELVE_MIXES] + ["Edit this mix"]:
            s.key("Tab")
            s.wait_until(lambda: inside(name), 5)
        s.key("shift+Tab", "Return")
        s.wait_for_preference("activeMixId", "mix-12")
        ui.button(s, "Mix 12, chosen", self.panel)
        # Choosing keeps the focus where it was.
        self.assertEqual(s.focused(self.panel), "Mix 12, chosen")
        ui.screenshot(s, "panel-mixes-twelve-dark")
        # Scrolled out of sight above, but there for a screen reader.
        s.press(s.find("push button", "Off — main kit only", root=self.panel))
        s.wait_until(lambda: "activeMixId" not in s.preferences(), 10)


if __name__ == "__main__":
    unittest.main()
