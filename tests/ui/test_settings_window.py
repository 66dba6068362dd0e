#!/usr/bin/python3
"""The settings window: the page it opens on, its page tabs, the About page's counters,
a second launch bringing it back, and Ctrl+Q."""

import subprocess
import time
import unittest

import tappix_ui as ui

PAGES = [("Sound", "sounds"), ("Mix", "mix"), ("Create", "create"),
         ("Behaviour", "behaviour"), ("Look", "look"), ("About", "about")]

class SettingsWindow(unittest.TestCase):

    def test_pages_counters_second_launch_and_ctrl_q(self):
        # A start by hand (no autostart entry) opens the window; a page it does not
        # know shows the first one.
        # Counts are grouped in thousands in the C locale too; pinned so that a runner's
        # own locale never changes what the page says.
        s = ui.start(self, dict(ui.COUNTERS, lastSettingsPage="nonsense"), login_start=False,
                     env={"LC_ALL": "C.UTF-8"})
        window = ui.settings_window(s)
        ui.heading(s, "Sound", window)

        with self.subTest("the tabs store the page shown"):
            for title, page in PAGES:
                s.press(s.find("page tab", title, root=window), "Press")
                s.wait_for_preference("lastSettingsPage", page)
                # About opens under the program's name instead.
                # The studio pages head themselves with what they do.
                heading = {"about": "Tappix", "create": "Design your own switch"}.get(page, title)
                ui.heading(s, heading, window)

        with self.subTest("About shows the stored counters and says what each one counts"):
            for name, counts in (("Keystrokes: 1,234,567", "since you installed it"),
                                 ("Dings: 5", "Turn it on on the Sound page."),
                                 ("Clicks: 1,042", "Turn them on on the Sound page."),
                                 ("Best speed: 88 wpm", "at least 25 keystrokes"),
                                 ("Average speed: 65 wpm", "Pauses longer than four seconds"),
                                 ("Accuracy: 97.5%", "Ctrl+⌫ counts as one correction")):
                counter = ui.label(s, name, root=window, timeout=5)
                self.assertIn(counts, counter.get_description() or "", name)
            ui.label(s, "Waiting for keystrokes", root=window, timeout=5)

        with self.subTest("a second launch brings the window back on its page"):
            s.press(s.find("page tab", "Behaviour", root=window), "Press")
            s.wait_for_preference("lastSettingsPage", "behaviour")
            ui.close_window(s, ui.SETTINGS)
            started = time.monotonic()
            second = subprocess.run([s.program], env=s.app_env(), stdin=subprocess.DEVNULL,
                                    capture_output=True, text=True, timeout=30)
            elapsed = time.monotonic() - started
            self.assertEqual(second.returncode, 0, second.stdout + second.stderr)
            # It only hands over and leaves: well under a second on a desktop, 3 s
            # leaves room for a sanitizer build on a loaded machine.
            self.assertLess(elapsed, 3.0)
            window = ui.settings_window(s)
            ui.heading(s, "Behaviour", window)
            self.assertTrue(s.running())

        with self.subTest("Ctrl+Q quits"):
            ui.focus_window(s, ui.SETTINGS)
            s.wait_until(lambda: "active" in s.states(ui.settings_window(s)), 5,
                         message="the settings window to be active")
            s.key("ctrl+q")
            ui.assert_exits_cleanly(self, s)


if __name__ == "__main__":
    unittest.main()
