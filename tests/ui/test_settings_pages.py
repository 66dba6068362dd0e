#!/usr/bin/python3
"""The settings pages driven through their controls as a person would, and what the keys
then sound like."""

import os
import shutil
import time
import unittest

import harness as ui

def open_page(test, session, page, heading):
    ui.cli_ok(test, session, "--settings", page)
    window = ui.settings_window(session)
    # The page may come back scrolled down, its heading out of sight.
    session.find("heading", heading, root=window)
    return window


def focus(session, accessible):
    ui.focus_window(session, ui.SETTINGS)
    session.press(accessible, "SetFocus")
    session.wait_until(lambda: "focused" in session.states(accessible), 5)


def window_background(session):
    """(r, g, b) just inside the window's bottom right corner, where no control sits."""
    from Xlib import X, display as xdisplay
    (w,) = [w for w in session.x_windows() if w["title"] == ui.SETTINGS]
    connection = xdisplay.Display(session.display)
    try:
        blue, green, red = connection.screen().root.get_image(
            w["x"] + w["width"] - 4, w["y"] + w["height"] - 4, 1, 1, X.ZPixmap, 0xFFFFFFFF).data[:3]
        return (red, green, blue)
    finally:
        connection.close()


class SettingsPages(unittest.TestCase):

    def test_mix_create_sound_behaviour_and_look_pages_in_one_run(self):
        # Started by hand (no autostart entry), so the window opens; the output device
        # changes last of what is heard.
        s = ui.start(self, dict(ui.STEADY_SOUND, volume=0.8, selectedPackId="ibm-buckling-spring",
                                soundMixes=[{"id": "quiet", "name": "Quiet", "assignments": {}}],
                                lastSettingsPage="mix"), login_start=False)
        for page in (self.mix_page, self.create_page, self.sound_page,
                     self.behaviour_and_look_pages):
            page(s)

    def mix_page(self, s):
        pistol = ui.kit_name(s, "gun-pistol")
        # Return would press the focused button: the keys go nowhere with the window shut.
        ui.close_window(s, ui.SETTINGS)
        spring = ui.record_typing(s, ["Return"] * 3, 250)

        window = open_page(self, s, "mix", "Mix")
        s.press(ui.button(s, "New mix", window))
        # The dialog offers a name that is free; Create takes it.
        self.assertEqual(s.text(s.find("text", "Name", root=window, showing=True)), "Mix")
        s.press(ui.button(s, "Create", window))
        mix_id = s.wait_until(lambda: s.preferences().get("activeMixId"), 5)

        # A part's editor opens on Return, gives it the pistol, and closes.
        s.press(ui.button(s, "Return: Main kit", window))
        ui.heading(s, "Return", window)
        s.press(ui.button(s, "Fun", window))
        s.press(ui.button(s, pistol, window))
        ui.button(s, "Return: " + pistol, window)
        s.press(ui.button(s, "Done", window))
        s.gone("heading", "Return", root=window, showing=True)

        def assignments():
            mix = next(m for m in s.preferences().get("soundMixes", []) if m["id"] == mix_id)
            return mix.get("assignments", {})
        s.wait_until(lambda: list(assignments()) == ["enter"]
                     and assignments()["enter"].get("packId") == "gun-pistol", 5)

        ui.close_window(s, ui.SETTINGS)
        shot = ui.record_typing(s, ["Return"] * 3, 250)
        self.assertTrue(shot.heard(), shot)
        # The spring's Return is a low clunk; the pistol's crack sits nearly twice as high.
        detail = (spring, shot, ui.brightness(spring), ui.brightness(shot))
        self.assertGreater(ui.brightness(shot), 1.3 * ui.brightness(spring), detail)

        window = open_page(self, s, "mix", "Mix")
        # Scrolled out of sight below the board, as the window left it.
        s.press(s.find("push button", "Delete Mix", root=window))
        s.press(ui.button(s, "Delete", window))
        s.wait_until(lambda: "activeMixId" not in s.preferences(), 5)
        self.assertEqual([m["id"] for m in s.preferences()["soundMixes"]], ["quiet"])

    def create_page(self, s):
        window = open_page(self, s, "create", "Design your own switch")
        kits = os.path.join(s.data_home, "Tappix", "Soundpacks")

        with self.subTest("Save makes a kit of one's own, chooses it, and typing plays it"):
            s.press(ui.button(s, "Preset Velvet", window))
            focus(s, s.find("text", "Pack name", root=window))
            s.type_text("Desk Thock")
            save = ui.button(s, "Save", window)
            s.wait_until(lambda: "enabled" in s.states(save), 5)
            s.press(save)
            s.wait_for_preference("selectedPackId", "custom-desk-thock")
            self.assertTrue(os.path.isfile(os.path.join(kits, "custom-desk-thock", "config.json")))
            designed = ui.record_typing(s)
            self.assertTrue(designed.heard(), designed)
            ui.cli_ok(self, s, "--kit", "ibm-buckling-spring")
            s.wait_for_preference("selectedPackId", "ibm-buckling-spring")

        with self.subTest("a kits folder that cannot be written: the reason, no change"):
            shutil.move(kits, kits + ".aside")
            with open(kits, "w", encoding="utf-8") as f:
                f.write("in the way\n")
            window = open_page(self, s, "create", "Design your own switch")
            focus(s, s.find("text", "Pack name", root=window))
            s.key("ctrl+a")
            s.type_text("Blocked")
            s.press(ui.button(s, "Save", window))
            status = s.find("label", lambda n: n.startswith("Could not save: "), root=window)
            self.assertGreater(len(status.get_name()), len("Could not save: "))
            self.assertEqual(s.preferences().get("selectedPackId"), "ibm-buckling-spring")
            os.remove(kits)
            shutil.move(kits + ".aside", kits)

    def sound_page(self, s):
        window = open_page(self, s, "sounds", "Sound")
        spring_name = ui.kit_name(s, "ibm-buckling-spring")
        ui.label(s, "Switch kit: " + spring_name, root=window)
        spring = ui.record_typing(s)

        with self.subTest("a kit chosen from the keyboard alone is the one heard"):
            muted = ui.kit_name(s, "gun-suppressed")
            kit_list = s.find("list", "Sound kits", root=window)
            ui.focus_window(s, ui.SETTINGS)
            # Tab reaches the list on the kit in use (pressed until it does, the screen
            # reader's view catching up between presses); the Fun shelf comes next.
            self.assertEqual(s.wait_until(lambda: s.focused(kit_list) or s.key("Tab"), 10,
                                          interval=0.2), spring_name + ", chosen")
            # Pistol, Shotgun, then Suppressed, each named to the reader as it is reached,
            # rows that scroll into the list too.
            for kit in ("gun-pistol", "gun-shotgun", "gun-suppressed"):
                name = ui.kit_name(s, kit)
                s.key("Down")
                s.wait_until(lambda: s.focused(kit_list) == name, 5, message=name + " in focus")
            s.key("Return")
            s.wait_for_preference("selectedPackId", "gun-suppressed")
            ui.label(s, "Switch kit: " + muted, root=window)
            thumps = ui.record_typing(s)
            self.assertTrue(thumps.heard(), thumps)
            # Muted thumps sit far below the spring's rattle.
            detail = (spring, thumps, ui.brightness(spring), ui.brightness(thumps))
            self.assertGreater(ui.brightness(spring), 2 * ui.brightness(thumps), detail)

        with self.subTest("a darker tone, at the same pitch, from the tone pad's arrow keys"):
            ui.cli_ok(self, s, "--kit", "ibm-buckling-spring")
            s.wait_for_preference("selectedPackId", "ibm-buckling-spring")
            pad = s.find("slider", "Tone pad", root=window)
            focus(s, pad)
            # Each arrow moves the dot by a 25th of the pad; down is darker.
            s.xdotool("key", "--delay", 40, *["Down"] * 15)
            s.wait_until(lambda: abs(s.preferences().get("toneBrightness", 1) - 0.40) < 0.005,
                         5)
            self.assertEqual(s.preferences().get("tonePitch", 1.0), 1.0)
            after = ui.record_typing(s)
            self.assertTrue(after.heard(), after)
            detail = (spring, after, ui.brightness(spring), ui.brightness(after))
            self.assertGreater(ui.brightness(spring), 1.25 * ui.brightness(after), detail)

        with self.subTest("the device chosen from the list is heard"):
            focus(s, s.find("combo box", "Play sound through", root=window))
            s.key("space")

            def rows():
                return [item.get_name() for item in s.find_all("list item", root=window)]
            listed = s.wait_until(lambda: "Speakers-B" in rows() and rows(), 10)
            # The list opens on the device in use: the system default, first.
            s.xdotool("key", "--delay", 60, *["Down"] * listed.index("Speakers-B"), "Return")
            s.wait_for_preference("outputDeviceUID", "tappix_b")
            # Letters typed at the list would pick a device by its first letter.
            focus(s, pad)
            typed = ui.record_typing(s, sink="tappix_b")
            self.assertTrue(typed.heard(), typed)

    def behaviour_and_look_pages(self, s):
        window = open_page(self, s, "behaviour", "Behaviour")
        entry = os.path.join(s.config_home, "autostart", "app.morvane.tappix.desktop")

        with self.subTest("Launch at login writes and removes the autostart entry"):
            switch = s.find("check box", "Launch at login", root=window)
            s.press(switch)
            s.wait_until(lambda: os.path.exists(entry), 5)
            with open(entry, encoding="utf-8") as f:
                self.assertIn("Exec=" + os.path.realpath(s.program), f.read())
            s.press(switch)
            s.wait_until(lambda: not os.path.exists(entry), 5)

        with self.subTest("the shortcut recorder refuses a bare letter and takes a chord"):
            field = s.find("push button", "Toggle keystroke sounds: Ctrl+Super+K", root=window)
            ui.focus_window(s, ui.SETTINGS)
            s.press(field)
            s.find("push button", "Toggle keystroke sounds: Type a shortcut…", root=window)
            s.key("j")
            ui.label(s, "Hold Ctrl, Alt or Super with the key, so typing never sets it off.",
                     root=window)
            s.key("super+j")
            s.wait_for_preference("toggleSoundsShortcut", "Super+J")
            # Typing it into the recorder did not also run it.
            self.assertNotIn("by the shortcut", s.log())

        with self.subTest("the new shortcut turns the sounds off and on"):
            # The recorder keeps the shortcut quiet until the recorded keys are up.
            time.sleep(1.0)
            s.key("super+j")
            s.wait_for_preference("isEnabled", False)
            s.key("super+j")
            s.wait_for_preference("isEnabled", True)

        with self.subTest("a palette recolours the window"):
            s.press(s.find("page tab", "Look", root=window), "Press")
            ui.heading(s, "Look", window)
            dark = window_background(s)
            s.press(ui.button(s, "Milk", window))
            s.wait_for_preference("themeID", "milk")
            light = s.wait_until(lambda: window_background(s) != dark and window_background(s),
                                 5)
            self.assertGreater(sum(light), sum(dark) + 300, (dark, light))


if __name__ == "__main__":
    unittest.main()
