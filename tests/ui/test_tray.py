#!/usr/bin/python3
"""The tray icon as a StatusNotifier host sees it, in one run: its menu, what its clicks do,
its icon and tooltip following the sounds."""

import unittest

import harness as ui
from sni_host import plain_label

MENU = ["About Tappix", "Check for Updates…", "Settings…", "Sound Studio…", "Quit Tappix"]


def tooltip_title(tray):
    return tray.item_property("ToolTip")[2]


def icon(tray):
    return [(w, h, bytes(data)) for w, h, data in tray.item_property("IconPixmap")]


class Tray(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.s = ui.start(cls, dict(ui.STEADY_SOUND, clickTogglesSound=False))
        cls.tray = cls.s.tray
        cls.tray.wait_for_item()

    def tearDown(self):
        if self.s.running():  # the last test quits
            ui.close_panel(self.s)

    def test_menu_opens_the_settings_window_on_its_pages(self):
        self.tray.click("Sound Studio…")
        window = ui.settings_window(self.s)
        self.s.wait_for_preference("lastSettingsPage", "create")
        ui.heading(self.s, "Design your own switch", window)

        self.tray.click("About Tappix")
        self.s.wait_for_preference("lastSettingsPage", "about")
        ui.label(self.s, "Waiting for keystrokes", root=window)

        ui.close_window(self.s, ui.SETTINGS)
        self.tray.click("Settings…")
        window = ui.settings_window(self.s)
        # "Settings…" keeps the page last shown.
        ui.label(self.s, "Waiting for keystrokes", root=window)
        self.assertEqual(self.s.preferences().get("lastSettingsPage"), "about")
        ui.close_window(self.s, ui.SETTINGS)

    def test_with_each_click_setting_the_panel_or_the_sounds_then_quit(self):
        s, tray = self.s, self.tray

        def menu():
            return [plain_label(e.label) for e in tray.menu() if e.parent == 0 and e.visible
                    and e.enabled and e.kind != "separator"]
        self.assertEqual(menu(), MENU)
        # Until the Behaviour page says otherwise, a click opens the panel on its main page.
        tray.activate()
        ui.button(s, "Sound kit: " + ui.kit_name(s, "ibm-buckling-spring"), ui.panel(s))
        s.key("Escape")
        ui.wait_gone(s, ui.PANEL)
        ui.cli_ok(self, s, "--settings", "behaviour")
        s.press(s.find(ui.BUTTONS, "Clicking the tray icon: Toggles sound",
                       root=ui.settings_window(s)))
        s.wait_for_preference("clickTogglesSound", True)
        ui.close_window(s, ui.SETTINGS)
        on_icon = icon(tray)
        self.assertEqual(tooltip_title(tray), "Tappix: sounds on")

        tray.activate()
        s.wait_for_preference("isEnabled", False)
        s.wait_until(lambda: icon(tray) != on_icon, 5)
        s.wait_until(lambda: tooltip_title(tray) == "Tappix: sounds off", 5)
        # Activate is answered on the main thread, where the panel would be shown.
        self.assertNotIn(ui.PANEL, s.windows())
        tray.activate()
        s.wait_for_preference("isEnabled", True)
        s.wait_until(lambda: icon(tray) == on_icon, 5)
        s.wait_until(lambda: tooltip_title(tray) == "Tappix: sounds on", 5)
        self.assertNotIn(ui.PANEL, s.windows())

        # The panel stays one click away: the middle button, the right one where the tray
        # hands it over, and the menu where the tray shows that instead.
        self.assertEqual(menu(), ["Open Panel"] + MENU)
        for click in ("SecondaryActivate", "ContextMenu", None):
            tray.click("Open Panel") if click is None else tray.activate(click)
            ui.panel(s)
            s.key("Escape")
            ui.wait_gone(s, ui.PANEL)
        self.assertEqual(s.preferences().get("isEnabled", True), True)

        tray.click("Quit Tappix")
        ui.assert_exits_cleanly(self, s)


if __name__ == "__main__":
    unittest.main()
