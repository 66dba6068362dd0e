#!/usr/bin/python3
"""The settings window: the page it opens on, the About page's counters, a second launch
bringing it back, and Ctrl+Q. (test_screenshots.py walks every tab.)"""

import subprocess
import unittest

import tappix_ui as ui

class SettingsWindow(unittest.TestCase):

    def test_pages_counters_second_launch_and_ctrl_q(self):
        # A start by hand opens the window; a page it does not know shows the first one.
        # Counts are grouped in thousands in the C locale too; pinned so that a runner's
        # own locale never changes what the page says.
        s = ui.start(self, dict(ui.COUNTERS, lastSettingsPage="nonsense"), login_start=False,
                     env={"LC_ALL": "C.UTF-8"})
        window = ui.settings_window(s)
        ui.heading(s, "Sound", window)

        with self.subTest("About shows the stored counters"):
            s.press(s.find("page tab", "About", root=window), "Press")
            for name in ("Keystrokes: 1,234,567", "Dings: 5", "Clicks: 1,042",
                         "Best speed: 88 wpm", "Average speed: 65 wpm", "Accuracy: 97.5%"):
                ui.label(s, name, root=window, timeout=5)

        with self.subTest("a second launch brings the window back on its page"):
            s.press(s.find("page tab", "Behaviour", root=window), "Press")
            s.wait_for_preference("lastSettingsPage", "behaviour")
            ui.close_window(s, ui.SETTINGS)
            second = subprocess.run([s.program], env=s.app_env(), stdin=subprocess.DEVNULL,
                                    capture_output=True, text=True, timeout=30)
            self.assertEqual(second.returncode, 0, second.stdout + second.stderr)
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
