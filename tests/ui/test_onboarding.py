#!/usr/bin/python3
"""The first-run window on a first launch: the ready step (keys are heard under X11),
typing in its field making sound, and Done ending the first run for good."""

import unittest

import tappix_ui as ui

WELCOME = "Welcome to Tappix"


class Onboarding(unittest.TestCase):

    def test_first_launch_ready_step_and_done(self):
        # Pinned somewhere the desktop remembers, wherever the build tree lies.
        s = ui.start(self, {"hasSeenWelcome": False}, login_start=False,
                     env={"APPIMAGE": "/opt/Tappix.AppImage"})
        window = s.window(WELCOME, timeout=15)
        self.assertFalse(ui.showing(s, ui.SETTINGS), "the settings wait for a returning user")

        with self.subTest("the ready step"):
            ui.heading(s, "Tappix is ready", window)
            ui.heading(s, "Tappix lives in your tray", window)
            s.find("text", "Type here to hear it", root=window, showing=True)
            self.assertFalse(s.find_all("push button", "Copy Command", root=window,
                                        showing=True))
            ui.screenshot(s, "onboarding-ready-tray")

        with self.subTest("typing in its field makes sound"):
            ui.focus_window(s, WELCOME)
            recording = ui.record_typing(s)
            self.assertTrue(recording.heard(), recording)

        with self.subTest("Done ends the first run and shows where Tappix lives"):
            s.press(ui.button(s, "Done", window), "Press")
            ui.wait_gone(s, WELCOME)
            s.wait_for_preference("hasSeenWelcome", True)
            ui.panel(s)


if __name__ == "__main__":
    unittest.main()
