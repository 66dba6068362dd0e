#!/usr/bin/python3
"""The first-run window on a first launch: the ready step (keys are heard under X11),
typing in its field making sound, and Done ending the first run for good; run from a
temporary place it asks to be moved first, and where keys cannot be heard it shows how to
let Tappix hear them."""

import unittest

import harness
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

    def test_move_step_then_permission_step(self):
        # A Wayland session without a readable keyboard: Tappix's windows still run
        # through X, but it cannot hear keys until the user joins the input group.
        s = harness.Session(launch=False, env={
            "APPIMAGE": "/tmp/Tappix.AppImage", "XDG_SESSION_TYPE": "wayland",
            "WAYLAND_DISPLAY": "tappix-test-no-compositor"})
        s.__enter__()
        self.addCleanup(s.close)
        s.write_preferences({"hasSeenWelcome": False})
        s.launch()

        with self.subTest("run from /tmp, it asks to be moved first"):
            window = s.window(WELCOME, timeout=20)
            ui.heading(s, "Move Tappix off the temporary drive first", window)
            ui.button(s, "Open Home Folder", window)
            ui.button(s, "Show me Tappix", window)
            ui.screenshot(s, "onboarding-move")

        with self.subTest("moved, it shows the command that lets it hear keys"):
            s.stop_app()
            s.extra_env["APPIMAGE"] = "/opt/Tappix.AppImage"
            s.launch()
            window = s.window(WELCOME, timeout=20)
            ui.heading(s, "Let Tappix hear your keys", window)
            s.find("label", "2.  Run  sudo usermod -aG input $USER", root=window, showing=True)
            ui.button(s, "Copy Command", window)
            self.assertFalse(s.find_all("push button", "Done", root=window, showing=True))
            ui.screenshot(s, "onboarding-permission")


if __name__ == "__main__":
    unittest.main()
