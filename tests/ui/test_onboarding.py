#!/usr/bin/python3
"""The first-run window as a screen reader meets it, each step shot dark and light: the
move step, the permission step, the ready step and Done."""

import os
import unittest

import harness as ui

WELCOME = "Welcome to Tappix"

# Words of each step; a reader hears one step's words and no other's.
STEP_WORDS = {
    "move": ["Move Tappix off the temporary drive first", "Open Home Folder", "Show me Tappix"],
    "permission": ["Copy Command", "1.  Open a terminal"],
    "ready": ["You're all set", "Try typing here…"],
}
WORDS = sum(STEP_WORDS.values(), [])
THEMES = {"dark": {}, "light": {"themeID": "milk"}}


def hears_only(test, s, window, step):
    s.find("heading", "Tappix", root=window, showing=True)
    test.assertEqual({w: bool(s.find_all(name=w, root=window)) for w in WORDS},
                     {w: other == step for other, words in STEP_WORDS.items() for w in words})


class Onboarding(unittest.TestCase):

    def test_move_then_permission_then_ready_step(self):
        # One session per theme, dark with a tray and light without; Tappix is launched three
        # times: from /tmp in a Wayland session without a readable keyboard (its windows still
        # run through X), moved but still deaf, and moved under X11 where it hears keys.
        wayland = {"XDG_SESSION_TYPE": "wayland", "WAYLAND_DISPLAY": "tappix-test-no-compositor"}
        for theme, tray in (("dark", True), ("light", False)):
            with self.subTest(theme=theme), ui.start(
                    self, THEMES[theme], login_start=False, tray=tray, welcome_seen=False,
                    hears_keys=False, env=dict(wayland, APPIMAGE="/tmp/Tappix.AppImage")) as s:
                files = ui.FileManager()
                self.addCleanup(files.stop)
                window = s.window(WELCOME, timeout=20)
                ui.heading(s, "Move Tappix off the temporary drive first", window)
                hears_only(self, s, window, "move")
                ui.screenshot(s, "onboarding-move-" + theme)
                s.press(ui.button(s, "Show me Tappix", window), "Press")
                s.wait_until(lambda: files.shown, 10)
                self.assertEqual(files.shown, [("ShowItems", ["file:///tmp/Tappix.AppImage"])])
                files.stop()

                s.stop_app()
                s.extra_env["APPIMAGE"] = "/opt/Tappix.AppImage"
                s.launch()
                window = s.window(WELCOME, timeout=20)
                hears_only(self, s, window, "permission")
                ui.label(s, "2.  Run  sudo usermod -aG input $USER", root=window)
                # No polkit here (or Tappix runs as root): the guide stands alone.
                if os.geteuid() == 0:
                    self.assertFalse(s.find_all(name="Allow Keyboard Access…", root=window))
                s.press(ui.button(s, "Copy Command", window), "Press")
                ui.label(s, "Copied. Paste it into a terminal.", root=window)
                ui.screenshot(s, "onboarding-permission-guide-" + theme)

                s.stop_app()
                for name in wayland:
                    del s.extra_env[name]
                logged = len(s.log())
                s.launch()
                s.wait_until(lambda: "global backend: X11 raw events" in s.log()[logged:], 20)
                window = s.window(WELCOME, timeout=20)
                self.assertFalse(ui.showing(s, ui.SETTINGS), "the settings wait for a returning user")
                ui.heading(s, "You're all set", window)
                hears_only(self, s, window, "ready")
                ui.heading(s, "Tappix lives in your tray" if tray else "Tappix keeps running",
                           window)
                ui.screenshot(s, "onboarding-ready-%s-%s" % ("tray" if tray else "notray", theme))
                if not tray:
                    continue
                # Typing in its field makes sound; Done ends the first run and shows the panel.
                ui.focus_window(s, WELCOME)
                recording = ui.record_typing(s)
                self.assertTrue(recording.heard(), recording)
                s.press(ui.button(s, "Done", window), "Press")
                ui.wait_gone(s, WELCOME)
                s.wait_for_preference("hasSeenWelcome", True)
                ui.panel(s)


if __name__ == "__main__":
    unittest.main()
