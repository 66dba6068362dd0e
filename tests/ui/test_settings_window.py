#!/usr/bin/python3
"""The settings window in one run: the page it opens on, the About counters, the update
check against a feed served over HTTPS, each tab storing its page, a second launch, Ctrl+Q,
the panel's Quit; pictures of the panel and every settings page, dark and light."""

import os
import re
import subprocess
import sys
import tempfile
import unittest

import harness as ui

# Each settings page by its tab, the heading that shows it is on screen, and its stored id.
SETTINGS_PAGES = [("Sound", "Sound", "sounds"), ("Mix", "Mix", "mix"),
                  ("Create", "Design your own switch", "create"),
                  ("Behaviour", "Behaviour", "behaviour"), ("Look", "Look", "look"),
                  ("About", "Tappix", "about")]
MINIMUM_SIZE = (700, 520)
SERVER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support",
                      "https_feed_server.py")
NOTES = "https://morvane.app/tappix/notes/"


def make_certificate(folder):
    """A certificate for 127.0.0.1 that is its own authority."""
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-keyout", "server.key",
                    "-out", "server.pem", "-subj", "/CN=127.0.0.1", "-addext",
                    "subjectAltName=IP:127.0.0.1"], cwd=folder, check=True, capture_output=True,
                   timeout=60)


def feed(version):
    return ('<?xml version="1.0"?><rss version="2.0" '
            'xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>'
            '<title>Tappix</title><item><title>Tappix %s</title>'
            '<sparkle:releaseNotesLink>%s%s</sparkle:releaseNotesLink>'
            '<enclosure url="https://morvane.app/tappix-%s.deb" sparkle:shortVersionString="%s"/>'
            '</item></channel></rss>' % (version, NOTES, version, version, version))


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

    def test_pages_counters_updates_pictures_second_launch_and_quit(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        make_certificate(scratch.name)
        www = os.path.join(scratch.name, "www")
        os.makedirs(www)
        server = subprocess.Popen(
            [sys.executable, SERVER, "serve", os.path.join(scratch.name, "server.pem"),
             os.path.join(scratch.name, "server.key"), www], stdout=subprocess.PIPE, text=True)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        port = int(server.stdout.readline())
        appcast = os.path.join(www, "appcast.xml")

        # A page it does not know shows the first one. Counts are grouped in thousands in
        # the C locale too; pinned, so that a runner's own locale never changes the page.
        s = ui.start(self, dict(ui.COUNTERS, lastSettingsPage="nonsense",
                                soundMixes=ui.TWELVE_MIXES, activeMixId="desk",
                                selectedPackId="ibm-buckling-spring", sleepEnabled=True,
                                sleepTriggerApps=True, sleepAppIds=["org.example.Notes", "XTerm"],
                                automaticUpdateChecks=False),
                     login_start=False, before_launch=write_desktop_file, env={
                         "LC_ALL": "C.UTF-8",
                         "SSL_CERT_FILE": os.path.join(scratch.name, "server.pem"),
                         # Every answer comes 1.5 s late, so that the page is seen checking.
                         "TAPPIX_UPDATE_FEED": "https://127.0.0.1:%d/slow/appcast.xml" % port})
        window = ui.settings_window(s)
        ui.heading(s, "Sound", window)

        with self.subTest("About shows the stored counters"):
            s.press(s.find("page tab", "About", root=window), "Press")
            for name in ("Keystrokes: 1,234,567", "Dings: 5", "Clicks: 1,042",
                         "Best speed: 88 wpm", "Average speed: 65 wpm", "Accuracy: 97.5%"):
                ui.label(s, name, root=window, timeout=5)

        version = re.search(r"Tappix (\S+) running", s.log()).group(1)
        newer = "Tappix 99.0 is available; you have %s. Read about it at %s99.0" % (
            version, NOTES)
        s.press(s.find("page tab", "Behaviour", root=window), "Press")
        for served, answer, picture in (
                (None, "Couldn't check for updates: the server answered 404.", "failed"),
                (version, "Tappix %s is the newest version." % version, "newest"),
                ("99.0", newer, "newer")):
            with self.subTest(answer):
                if served:
                    with open(appcast, "w", encoding="utf-8") as f:
                        f.write(feed(served))
                    s.press(ui.button(s, "Check Now", window))
                else:
                    s.tray.click("Check for Updates…")
                ui.label(s, "Checking for updates…", root=window)
                ui.label(s, answer, root=window)
                ui.screenshot(s, "settings-behaviour-update-%s-dark" % picture)

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
