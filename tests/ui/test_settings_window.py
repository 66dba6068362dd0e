#!/usr/bin/python3
"""The settings window in one run: the page it opens on, the About counters, each tab
storing its page, a second launch, Ctrl+Q and the panel's Quit; on the way, pictures of
the panel's pages and every settings page (first size and smallest), dark and light."""

import os
import subprocess
import unittest

import harness as ui

# Each settings page by its tab, the heading that shows it is on screen, and its stored id.
SETTINGS_PAGES = [("Sound", "Sound", "sounds"), ("Mix", "Mix", "mix"),
                  ("Create", "Design your own switch", "create"),
                  ("Behaviour", "Behaviour", "behaviour"), ("Look", "Look", "look"),
                  ("About", "Tappix", "about")]
MINIMUM_SIZE = (700, 520)


def write_desktop_file(s):
    folder = os.path.join(s.data_home, "applications")
    os.makedirs(folder, exist_ok=True)
    icon = "/usr/share/icons/Adwaita/48x48/legacy/accessories-text-editor.png"
    with open(os.path.join(folder, "org.example.Notes.desktop"), "w", encoding="utf-8") as f:
        f.write("[Desktop Entry]\nType=Application\nName=Quiet Notes\nIcon=%s\n"
                "StartupWMClass=Notes\nExec=notes\n" % icon)


class SettingsWindow(unittest.TestCase):

    def panel_pictures(self, s, theme):
        panel = ui.open_panel(self, s)
        kit = ui.kit_name(s, "ibm-buckling-spring")
        ui.screenshot(s, "panel-main-" + theme)
        s.press(ui.button(s, "Sound kit: " + kit, panel))
        # The kits page opens on the chosen kit, the first time too, so that Return keeps it.
        s.wait_until(lambda: s.focused(panel) == kit + ", chosen", 5)
        ui.screenshot(s, "panel-kits-" + theme)
        s.press(ui.button(s, "Back", panel))
        s.press(ui.button(s, "Mix: Desk", panel))
        ui.button(s, "Desk, chosen", panel)
        ui.screenshot(s, "panel-mixes-" + theme)
        ui.close_panel(s)

    def settings_pictures(self, s, window, theme):
        (box,) = [w for w in s.x_windows() if w["title"] == ui.SETTINGS]
        for tab, heading, page in SETTINGS_PAGES:
            s.press(s.find("page tab", tab, root=window), "Press")
            ui.heading(s, heading, window)
            s.wait_for_preference("lastSettingsPage", page)
            ui.screenshot(s, "settings-%s-%s" % (tab.lower(), theme))
            if tab == "Behaviour":
                # Down to the sleep triggers and the list of apps.
                s.xdotool("mousemove", box["x"] + box["width"] // 2, box["y"] + box["height"] // 2,
                          "click", "--repeat", 12, "--delay", 30, 5)
                ui.button(s, "Remove Quiet Notes", window)
                ui.screenshot(s, "settings-behaviour-sleep-" + theme)
        # Every page again at the window's smallest, and scrolled to its end.
        s.xdotool("windowsize", "--sync", box["id"], *MINIMUM_SIZE)
        for tab, heading, _ in SETTINGS_PAGES:
            s.press(s.find("page tab", tab, root=window), "Press")
            ui.heading(s, heading, window)
            ui.screenshot(s, "settings-%s-smallest-%s" % (tab.lower(), theme))
            s.xdotool("mousemove", box["x"] + MINIMUM_SIZE[0] - 22, box["y"] + MINIMUM_SIZE[1] // 2,
                      "click", "--repeat", 30, "--delay", 20, 5)
            ui.screenshot(s, "settings-%s-smallest-end-%s" % (tab.lower(), theme))
        s.xdotool("windowsize", "--sync", box["id"], box["width"], box["height"])

    def test_pages_counters_pictures_second_launch_and_quit(self):
        # A page it does not know shows the first one. Counts are grouped in thousands in
        # the C locale too; pinned, so that a runner's own locale never changes the page.
        s = ui.start(self, dict(ui.COUNTERS, lastSettingsPage="nonsense",
                                soundMixes=ui.TWELVE_MIXES, activeMixId="desk",
                                selectedPackId="ibm-buckling-spring", sleepEnabled=True,
                                sleepTriggerApps=True, sleepAppIds=["org.example.Notes", "XTerm"]),
                     login_start=False, env={"LC_ALL": "C.UTF-8"},
                     before_launch=write_desktop_file)
        window = ui.settings_window(s)
        ui.heading(s, "Sound", window)

        with self.subTest("About shows the stored counters"):
            s.press(s.find("page tab", "About", root=window), "Press")
            for name in ("Keystrokes: 1,234,567", "Dings: 5", "Clicks: 1,042",
                         "Best speed: 88 wpm", "Average speed: 65 wpm", "Accuracy: 97.5%"):
                ui.label(s, name, root=window, timeout=5)

        for theme in ("dark", "light"):
            if theme == "light":
                s.press(s.find("page tab", "Look", root=window), "Press")
                s.press(ui.button(s, "Milk", window))
                s.wait_for_preference("themeID", "milk")
            self.settings_pictures(s, window, theme)
            self.panel_pictures(s, theme)

        with self.subTest("a second launch brings the window back on its page"):
            ui.close_window(s, ui.SETTINGS)
            second = subprocess.run([s.program], env=s.app_env(), stdin=subprocess.DEVNULL,
                                    capture_output=True, text=True, timeout=30)
            self.assertEqual(second.returncode, 0, second.stdout + second.stderr)
            ui.heading(s, "Tappix", ui.settings_window(s))  # About, the last tab walked
            self.assertTrue(s.running())

        with self.subTest("Ctrl+Q quits"):
            ui.focus_window(s, ui.SETTINGS)
            s.wait_until(lambda: "active" in s.states(ui.settings_window(s)), 5)
            s.key("ctrl+q")
            ui.assert_exits_cleanly(self, s)

        with self.subTest("the panel's Quit quits"):
            s.launch()
            ui.settings_window(s, timeout=20)
            s.press(ui.button(s, "Quit", ui.open_panel(self, s)))
            ui.assert_exits_cleanly(self, s)


if __name__ == "__main__":
    unittest.main()
