#!/usr/bin/python3
"""Pictures of the panel's three pages and the six settings pages (at the window's first size
and at its smallest) in a dark and a light theme, saved under $TAPPIX_UI_ARTIFACTS for a
person to look over (nothing compares them).
Each run also walks the panel's pages, checks each tab stores its page, and ends with
the panel's Quit row."""

import os
import unittest

import tappix_ui as ui


# Each settings page by its tab, the heading that shows it is on screen, and its stored id.
SETTINGS_PAGES = [("Sound", "Sound", "sounds"), ("Mix", "Mix", "mix"),
                  ("Create", "Design your own switch", "create"),
                  ("Behaviour", "Behaviour", "behaviour"), ("Look", "Look", "look"),
                  ("About", "Tappix", "about")]


# The settings window's smallest size.
MINIMUM_SIZE = (700, 520)


def write_desktop_file(s):
    folder = os.path.join(s.data_home, "applications")
    os.makedirs(folder, exist_ok=True)
    icon = "/usr/share/icons/Adwaita/48x48/legacy/accessories-text-editor.png"
    with open(os.path.join(folder, "org.example.Notes.desktop"), "w", encoding="utf-8") as f:
        f.write("[Desktop Entry]\nType=Application\nName=Quiet Notes\nIcon=%s\n"
                "StartupWMClass=Notes\nExec=notes\n" % icon)


class Screenshots(unittest.TestCase):

    def shoot(self, theme_id, suffix):
        prefs = dict(ui.COUNTERS, soundMixes=ui.TWELVE_MIXES, activeMixId="desk",
                     selectedPackId="ibm-buckling-spring", sleepEnabled=True,
                     sleepTriggerApps=True, sleepAppIds=["org.example.Notes", "XTerm"])
        if theme_id:
            prefs["themeID"] = theme_id
        # One listed app with a desktop file and an icon of its own, one without either.
        s = ui.start(self, prefs, env={"LC_ALL": "C.UTF-8"}, before_launch=write_desktop_file)
        shots = []

        panel = ui.open_panel(self, s)
        kit = ui.kit_name(s, "ibm-buckling-spring")
        ui.button(s, "Sound kit: " + kit, panel)
        shots.append(ui.screenshot(s, "panel-main-" + suffix))

        s.press(ui.button(s, "Sound kit: " + kit, panel))
        ui.button(s, kit + ", chosen", panel)
        shots.append(ui.screenshot(s, "panel-kits-" + suffix))
        # The kits page opens on the chosen kit, the first time too, so that Return
        # right away keeps it (checked after the picture, which is wanted either way).
        with self.subTest("the kits page opens with the chosen kit focused"):
            s.wait_until(lambda: s.focused(panel) == kit + ", chosen", 5,
                         message=lambda: "the chosen kit's row to have the focus (focused: %s)"
                         % s.focused(panel))

        s.press(ui.button(s, "Back", panel))
        s.press(ui.button(s, "Mix: Desk", panel))
        ui.button(s, "Desk, chosen", panel)
        shots.append(ui.screenshot(s, "panel-mixes-" + suffix))
        ui.close_panel(s)

        ui.cli_ok(self, s, "--settings", "sounds")
        window = ui.settings_window(s)
        for tab, heading, page in SETTINGS_PAGES:
            s.press(s.find("page tab", tab, root=window), "Press")
            ui.heading(s, heading, window)
            s.wait_for_preference("lastSettingsPage", page)
            if tab == "About":
                ui.label(s, "Waiting for keystrokes", root=window)
            shots.append(ui.screenshot(s, "settings-%s-%s" % (tab.lower(), suffix)))
            if tab == "Behaviour":
                # Down to the sleep triggers and the list of apps.
                (box,) = [w for w in s.x_windows() if w["title"] == ui.SETTINGS]
                s.xdotool("mousemove", box["x"] + box["width"] // 2, box["y"] + box["height"] // 2,
                          "click", "--repeat", 12, "--delay", 30, 5)
                ui.button(s, "Remove Quiet Notes", window)
                shots.append(ui.screenshot(s, "settings-behaviour-sleep-" + suffix))
        # Every page again at the window's smallest, where rows are the most crowded, and
        # scrolled to its end (over the page's margin, which no list covers).
        (box,) = [w for w in s.x_windows() if w["title"] == ui.SETTINGS]
        s.xdotool("windowsize", "--sync", box["id"], *MINIMUM_SIZE)
        for tab, heading, _ in SETTINGS_PAGES:
            s.press(s.find("page tab", tab, root=window), "Press")
            ui.heading(s, heading, window)
            shots.append(ui.screenshot(s, "settings-%s-smallest-%s" % (tab.lower(), suffix)))
            s.xdotool("mousemove", box["x"] + MINIMUM_SIZE[0] - 22, box["y"] + MINIMUM_SIZE[1] // 2,
                      "click", "--repeat", 30, "--delay", 20, 5)
            shots.append(ui.screenshot(s, "settings-%s-smallest-end-%s" % (tab.lower(), suffix)))
        ui.close_window(s, ui.SETTINGS)

        panel = ui.open_panel(self, s)
        s.press(ui.button(s, "Quit", panel))
        ui.assert_exits_cleanly(self, s)
        for shot in filter(None, shots):
            self.assertGreater(os.path.getsize(shot), 1000, shot)

    def test_dark(self):
        self.shoot(None, "dark")

    def test_light(self):
        self.shoot("milk", "light")


if __name__ == "__main__":
    unittest.main()
