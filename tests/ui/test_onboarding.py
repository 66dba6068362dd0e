#!/usr/bin/python3
"""The first-run window as a screen reader meets it: the common header on every step and
only the step on screen. On a first launch under X11 keys are heard: the success step,
typing in its field making sound, and Done ending the first run for good. Run from a
temporary place it asks to be moved first and shows Tappix in the file manager; where keys
cannot be heard it shows how to let Tappix hear them. Each step is shot in a dark and a
light theme. (Asking for the keyboards' group runs as a user of its own in
test_keyboard_access.py.)"""

import os
import unittest

import harness
import tappix_ui as ui

WELCOME = "Welcome to Tappix"
TAGLINE = "Give your keyboard a voice.\nEvery key, every app."
PERMISSION = ("Tappix needs permission to play a sound the moment you press\n"
              "a key. It never reads what you type — only that a key moved.\n"
              "Nothing is stored. Nothing leaves your computer.")
TRAY_TEXT = ("Click that icon for volume, switch kits and settings.\n"
             "Quit anytime with Ctrl+Q, or from its menu → Quit Tappix.")
NO_TRAY_TEXT = ("Open Tappix again from your applications, or run  tappix --panel, for volume, "
                "kits and settings.")

# What each step says, by the step; a reader hears one step's words and no other's.
STEP_WORDS = {
    "move": ["Move Tappix off the temporary drive first", "Open Home Folder", "Show me Tappix"],
    "permission": [PERMISSION, "Copy Command", "1.  Open a terminal"],
    "ready": ["You're all set", "Try typing here…",
              "It works in every app. This field is just for show."],
}
THEMES = {"dark": None, "light": "milk"}


def hears_only(test, s, window, step):
    """The header and `step`'s words are in the window's tree; no other step's are,
    shown or not."""
    s.find("heading", "Tappix", root=window, showing=True)
    ui.label(s, TAGLINE, root=window)
    for other, words in STEP_WORDS.items():
        for word in words:
            found = s.find_all(name=word, root=window)
            if other == step:
                test.assertTrue(found, "%r is missing on the %s step" % (word, step))
            else:
                test.assertFalse(found, "%r of the %s step is heard on the %s step"
                                 % (word, other, step))


def first_launch(theme):
    prefs = {"hasSeenWelcome": False}
    if THEMES[theme]:
        prefs["themeID"] = THEMES[theme]
    return prefs


class Onboarding(unittest.TestCase):

    def test_first_launch_ready_step_and_done(self):
        # Pinned somewhere the desktop remembers, wherever the build tree lies.
        s = ui.start(self, {"hasSeenWelcome": False}, login_start=False,
                     env={"APPIMAGE": "/opt/Tappix.AppImage"})
        window = s.window(WELCOME, timeout=15)
        self.assertFalse(ui.showing(s, ui.SETTINGS), "the settings wait for a returning user")

        with self.subTest("the success step, and only it"):
            ui.heading(s, "You're all set", window)
            hears_only(self, s, window, "ready")
            ui.heading(s, "Tappix lives in your tray", window)
            ui.label(s, TRAY_TEXT, root=window)
            ui.screenshot(s, "onboarding-ready-dark")

        with self.subTest("typing in its field makes sound"):
            ui.focus_window(s, WELCOME)
            recording = ui.record_typing(s)
            self.assertTrue(recording.heard(), recording)

        with self.subTest("Done ends the first run and shows where Tappix lives"):
            s.press(ui.button(s, "Done", window), "Press")
            ui.wait_gone(s, WELCOME)
            s.wait_for_preference("hasSeenWelcome", True)
            ui.panel(s)

    def test_success_step_with_and_without_a_tray(self):
        for theme, tray in (("light", True), ("dark", False), ("light", False)):
            with self.subTest(theme=theme, tray=tray), harness.Session(
                    tray=tray, preferences=first_launch(theme),
                    env={"APPIMAGE": "/opt/Tappix.AppImage"}) as s:
                window = s.window(WELCOME, timeout=20)
                ui.heading(s, "You're all set", window)
                if tray:
                    ui.heading(s, "Tappix lives in your tray", window)
                    ui.label(s, TRAY_TEXT, root=window)
                else:
                    ui.heading(s, "Tappix keeps running", window)
                    ui.label(s, NO_TRAY_TEXT, root=window)
                    self.assertFalse(s.find_all(name="Tappix lives in your tray", root=window))
                ui.screenshot(s, "onboarding-ready-%s-%s" % ("tray" if tray else "notray", theme))

    def test_move_step_then_permission_step(self):
        # A Wayland session without a readable keyboard: Tappix's windows still run
        # through X, but it cannot hear keys until the user joins the input group.
        for theme in THEMES:
            with self.subTest(theme=theme), harness.Session(
                    preferences=first_launch(theme),
                    env={"APPIMAGE": "/tmp/Tappix.AppImage", "XDG_SESSION_TYPE": "wayland",
                         "WAYLAND_DISPLAY": "tappix-test-no-compositor"}) as s:
                files = ui.FileManager()
                self.addCleanup(files.stop)

                # Run from /tmp, it asks to be moved first.
                window = s.window(WELCOME, timeout=20)
                ui.heading(s, "Move Tappix off the temporary drive first", window)
                hears_only(self, s, window, "move")
                ui.screenshot(s, "onboarding-move-" + theme)
                s.press(ui.button(s, "Show me Tappix", window), "Press")
                s.wait_until(lambda: files.shown, 10, message="the file manager to be asked")
                self.assertEqual(files.shown, [("ShowItems", ["file:///tmp/Tappix.AppImage"])])
                files.stop()

                # Moved, it shows how to let it hear keys.
                s.stop_app()
                s.extra_env["APPIMAGE"] = "/opt/Tappix.AppImage"
                s.launch()
                window = s.window(WELCOME, timeout=20)
                ui.label(s, PERMISSION, root=window)
                hears_only(self, s, window, "permission")
                ui.label(s, "2.  Run  sudo usermod -aG input $USER", root=window)
                # No polkit here (or Tappix runs as root): the guide stands alone.
                if os.geteuid() == 0:
                    self.assertFalse(s.find_all(name="Allow Keyboard Access…", root=window))
                s.press(ui.button(s, "Copy Command", window), "Press")
                ui.label(s, "Copied. Paste it into a terminal.", root=window)
                ui.screenshot(s, "onboarding-permission-guide-" + theme)


if __name__ == "__main__":
    unittest.main()
