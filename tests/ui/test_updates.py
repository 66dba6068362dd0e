#!/usr/bin/python3
"""The update check against a feed served over HTTPS on 127.0.0.1, trusted through
SSL_CERT_FILE: "Check Now" and the tray's "Check for Updates…" say what the check found."""

import os
import re
import subprocess
import sys
import tempfile
import unittest

import harness as ui

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


class UpdateCheck(unittest.TestCase):

    def test_check_now_and_the_tray_say_what_the_check_found(self):
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

        def serve(version):
            with open(appcast, "w", encoding="utf-8") as f:
                f.write(feed(version))

        # Every answer comes 1.5 s late, so that the page is seen checking.
        s = ui.start(self, {"automaticUpdateChecks": False, "lastSettingsPage": "behaviour"},
                     login_start=False, env={
                         "TAPPIX_UPDATE_FEED": "https://127.0.0.1:%d/slow/appcast.xml" % port,
                         "SSL_CERT_FILE": os.path.join(scratch.name, "server.pem")})
        window = ui.settings_window(s)
        version = re.search(r"Tappix (\S+) running", s.log()).group(1)

        newer = "Tappix 99.0 is available; you have %s. Read about it at %s99.0" % (
            version, NOTES)
        for served, answer, picture in (
                (None, "Couldn't check for updates: the server answered 404.", "failed"),
                (version, "Tappix %s is the newest version." % version, "newest"),
                ("99.0", newer, "newer")):
            with self.subTest(answer):
                if served:
                    serve(served)
                s.press(ui.button(s, "Check Now", window))
                ui.label(s, "Checking for updates…", root=window)
                ui.label(s, answer, root=window)
                ui.screenshot(s, "settings-behaviour-update-%s-dark" % picture)

        with self.subTest("the tray's Check for Updates…"):
            os.remove(appcast)
            s.tray.click("Check for Updates…")
            ui.label(s, "Checking for updates…", root=window)
            ui.label(s, "Couldn't check for updates: the server answered 404.", root=window)


if __name__ == "__main__":
    unittest.main()
