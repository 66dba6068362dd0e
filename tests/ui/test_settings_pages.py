#!/usr/bin/python3
"""The settings pages driven through their controls as a person would: what each one
stores, what the keys then sound like, the autostart entry, the shortcut recorder,
the palette on screen, a kit chosen from the keyboard and played, a pack from another
program imported and played, a designed kit saved and played, and a mix that gives Return
another kit."""

import time
import array
import json
import math
import os
import re
import shutil
import unittest
import wave
import zipfile

import tappix_ui as ui

NEEDS_MODIFIER = "Hold Ctrl, Alt or Super with the key, so typing never sets it off."
NO_MIX_PLAYING = ("No mix is playing, so every key is on the main kit. Pick one above to "
                  "put it back on the board.")
AUTOSTART_PROBLEM = "Tappix could not change your desktop's autostart folder."


# ---- sound measures ---------------------------------------------------------------

def envelope(recording, frame_ms=5):
    """The recording's mean level (0 … 1) in frames of `frame_ms`, both channels summed."""
    with wave.open(recording.path, "rb") as f:
        samples = array.array("h")
        samples.frombytes(f.readframes(f.getnframes()))
    frame = 2 * ui.harness.SAMPLE_RATE * frame_ms // 1000
    return [sum(map(abs, samples[i:i + frame])) / frame / 32768.0
            for i in range(0, len(samples), frame)]


def onsets(recording, loud=0.02, quiet=0.01, quiet_frames=16):
    """How many separate sounds the recording holds: rises above `loud` that leave at
    least `quiet_frames` frames (80 ms) below `quiet`."""
    count, calm, armed = 0, quiet_frames, False
    for level in envelope(recording):
        if level < quiet:
            calm += 1
            continue
        if calm:
            # A rise: a new sound when the quiet before it lasted.
            armed = calm >= quiet_frames
            calm = 0
        if armed and level >= loud:
            count += 1
            armed = False
    return count


def tone_share(recording, hz, frame=480):
    """How much of the recording's energy lies at `hz` (0 … 1): a pure tone gives about
    1, a click spread over many frequencies little. Measured in 10 ms frames, each with
    its own phase, so separate keystrokes add up whatever their timing."""
    with wave.open(recording.path, "rb") as f:
        samples = array.array("h")
        samples.frombytes(f.readframes(f.getnframes()))
    mono = [samples[i] + samples[i + 1] for i in range(0, len(samples) - 1, 2)]
    step = 2 * math.pi * hz / ui.harness.SAMPLE_RATE
    cosines = [math.cos(step * n) for n in range(frame)]
    sines = [math.sin(step * n) for n in range(frame)]
    tone = total = 0.0
    for start in range(0, len(mono) - frame + 1, frame):
        chunk = mono[start:start + frame]
        energy = sum(x * x for x in chunk)
        if not energy:
            continue
        real = sum(x * c for x, c in zip(chunk, cosines))
        imaginary = sum(x * s for x, s in zip(chunk, sines))
        tone += 2 * (real * real + imaginary * imaginary) / frame
        total += energy
    return tone / total if total else 0.0


def press_and_release(session, keys, hold=0.3):
    """Each key down, held, up, then a pause as long: one xdotool run, so the spacing
    is the same however loaded the machine is."""
    steps = []
    for key in keys:
        steps += ["keydown", key, "sleep", hold, "keyup", key, "sleep", hold]
    return session.record(0.4, action=lambda: session.xdotool(*steps))


def write_tone(path, hz, ms=60):
    """A 48 kHz 16-bit mono sine at `hz`, faded in and out over 5 ms."""
    frames = 48000 * ms // 1000
    fade = 240
    samples = array.array("h", (
        int(16000 * min(1.0, i / fade, (frames - i) / fade) * math.sin(2 * math.pi * hz * i / 48000))
        for i in range(frames)))
    with wave.open(path, "wb") as out:
        out.setnchannels(1)
        out.setsampwidth(2)
        out.setframerate(48000)
        out.writeframes(samples.tobytes())


def write_pack_zip(directory, name, hz):
    """A .zip of a keyboard-sound pack for another program: one sine for the letters
    TYPED_KEYS holds (PC scan codes), and one key whose file is missing. Its path."""
    folder = os.path.join(directory, "pack")
    os.makedirs(folder, exist_ok=True)
    write_tone(os.path.join(folder, "key.wav"), hz)
    scan_codes = {"a": 30, "s": 31, "d": 32, "f": 33, "g": 34, "j": 36, "k": 37, "l": 38}
    defines = {str(scan_codes[k]): "key.wav" for k in ui.TYPED_KEYS}
    defines["57"] = "space.wav"  # not in the pack
    config = {"id": "sine", "name": name, "key_define_type": "multi", "includes_numpad": False,
              "sound": "key.wav", "defines": defines}
    path = os.path.join(directory, "pack.zip")
    with zipfile.ZipFile(path, "w") as archive:
        archive.writestr("Sine Pack/config.json", json.dumps(config))
        archive.write(os.path.join(folder, "key.wav"), "Sine Pack/key.wav")
    return path


def choose_in_file_dialog(session, window, path, shot=None):
    """Types `path` into the open file dialog's location field (Ctrl+L) and takes it;
    saves a picture of the dialog as `shot` first."""
    session.find("push button", "Open", root=window, showing=True)
    if shot:
        ui.screenshot(session, shot)
    ui.focus_window(session, ui.SETTINGS)
    session.key("ctrl+l")
    session.wait_until(lambda: session.find_all("text", root=window, showing=True,
                                                predicate=lambda a: "focused" in session.states(a)),
                       5, message="the dialog's location field to take the focus")
    session.type_text(path, delay_ms=5)
    session.key("Return")


def record_returns(session):
    return session.record(0.8, action=lambda: session.xdotool("key", "--delay", 250,
                                                              "Return", "Return", "Return"))


# ---- windows --------------------------------------------------------------------------

def open_page(test, session, page, heading):
    """Opens the settings window on `page` from the command line; returns the window."""
    ui.cli_ok(test, session, "--settings", page)
    window = ui.settings_window(session)
    # The page may come back scrolled down, its heading out of sight.
    session.find("heading", heading, root=window)
    return window


def focus(session, accessible):
    """Gives `accessible` the keyboard focus, in a window that has the X input focus."""
    ui.focus_window(session, ui.SETTINGS)
    session.press(accessible, "SetFocus")
    session.wait_until(lambda: "focused" in session.states(accessible), 5,
                       message=lambda: "%s to take the focus" % accessible.get_name())


def pixel(session, x, y):
    """The screen's colour at (x, y) as (r, g, b)."""
    from Xlib import X, display as xdisplay
    connection = xdisplay.Display(session.display)
    try:
        image = connection.screen().root.get_image(x, y, 1, 1, X.ZPixmap, 0xFFFFFFFF)
        blue, green, red = image.data[:3]
        return (red, green, blue)
    finally:
        connection.close()


def window_background(session):
    """The colour just inside the settings window's bottom right corner, where no
    control sits on any page."""
    (window,) = [w for w in session.x_windows() if w["title"] == ui.SETTINGS]
    return pixel(session, window["x"] + window["width"] - 4, window["y"] + window["height"] - 4)


def device_rows(session, window):
    """The names the open device list shows."""
    return [item.get_name() for item in session.find_all("list item", root=window)]


def focused_row(session, kit_list):
    """The name of the kit list's row that has the keyboard, or None."""
    rows = session.find_all("push button", root=kit_list,
                            predicate=lambda a: "focused" in session.states(a))
    return rows[0].get_name() if rows else None


def shelf_above(session, kit_list, row_name):
    """The shelf heading drawn nearest above the kit list's row `row_name`."""
    def top(accessible):
        return accessible.get_extents(ui.harness.Atspi.CoordType.SCREEN).y
    row = top(session.find("push button", row_name, root=kit_list))
    above = sorted((top(h), h.get_name()) for h in session.find_all("heading", root=kit_list)
                   if top(h) < row)
    return above[-1][1] if above else None


def keys_until(session, key, done, tries=30):
    """Taps `key` until `done()` holds, as a person watching the screen would; what
    `done()` last said."""
    for _ in range(tries):
        found = done()
        if found:
            return found
        session.key(key)
        time.sleep(0.2)  # the screen reader's view catches up
    return done()


# ---- the pages ------------------------------------------------------------------------

class SoundPage(unittest.TestCase):

    def test_release_switch_tone_pad_and_device_list(self):
        s = ui.start(self, dict(ui.STEADY_SOUND, volume=0.8, lastSettingsPage="sounds"),
                     login_start=False)
        window = ui.settings_window(s)
        ui.heading(s, "Sound", window)

        with self.subTest("switching off release sounds leaves the presses alone"):
            keys = ("a", "s", "d")
            ui.wait_for_quiet(s)
            with_releases = press_and_release(s, keys)
            switch = s.find("check box", "Key release sounds", root=window)
            self.assertTrue(s.is_checked(switch))
            s.press(switch)
            s.wait_for_preference("keyUpSoundsEnabled", False)
            ui.wait_for_quiet(s)
            presses_only = press_and_release(s, keys)
            counts = (onsets(with_releases), onsets(presses_only))
            self.assertEqual(counts, (2 * len(keys), len(keys)), (with_releases, presses_only))

        with self.subTest("a darker, deeper tone from the tone pad's arrow keys"):
            ui.wait_for_quiet(s)
            before = ui.record_typing(s)
            pad = s.find("slider", "Tone pad", root=window)
            focus(s, pad)
            # Each arrow moves the dot by a 25th of the pad.
            s.xdotool("key", "--delay", 40, *(["Down"] * 15 + ["Left"] * 6))
            s.wait_until(lambda: pad.get_description() == "Pitch 72%, brightness 40%", 5,
                         message=lambda: "the pad to say where it is (%r)"
                         % pad.get_description())
            s.wait_until(lambda: abs(s.preferences().get("toneBrightness", 1) - 0.40) < 0.005
                         and abs(s.preferences().get("tonePitch", 1) - 0.72) < 0.005, 5,
                         message=lambda: "the tone to be stored (%s, %s)" % (
                             s.preferences().get("toneBrightness"),
                             s.preferences().get("tonePitch")))
            ui.wait_for_quiet(s)
            after = ui.record_typing(s)
            self.assertTrue(after.heard(), after)
            detail = (before, after, ui.brightness(before), ui.brightness(after))
            self.assertGreater(ui.brightness(before), 1.25 * ui.brightness(after), detail)

        with self.subTest("the device list follows the sinks and the choice is stored"):
            picker = s.find("combo box", "Play sound through", root=window)
            s.pulse.pactl("load-module", "module-null-sink", "sink_name=tappix_desk",
                          "rate=48000", "sink_properties=device.description=Desk-Speakers")
            focus(s, picker)
            s.key("space")
            rows = s.wait_until(lambda: "Desk-Speakers" in device_rows(s, window)
                                and device_rows(s, window), 10,
                                message=lambda: "Desk-Speakers to be listed (%s)"
                                % device_rows(s, window))
            self.assertIn("Speakers-B", rows)
            # The list opens on the device in use: the system default, first.
            s.xdotool("key", "--delay", 60, *["Down"] * rows.index("Speakers-B"), "Return")
            s.wait_for_preference("outputDeviceUID", "tappix_b")
            # Letters typed at the list would pick a device by its first letter.
            focus(s, s.find("slider", "Tone pad", root=window))
            s.wait_until(lambda: not s.record(0.3, sink="tappix_b").heard(), 10,
                         message="Speakers-B to fall silent")
            typed = s.record(0.8, action=lambda: ui.type_keys(s), sink="tappix_b")
            self.assertTrue(typed.heard(), typed)

    def test_kits_chosen_from_the_list_or_imported_are_heard(self):
        s = ui.start(self, dict(ui.STEADY_SOUND, volume=0.8, lastSettingsPage="sounds",
                                selectedPackId="ibm-buckling-spring"), login_start=False)
        window = ui.settings_window(s)
        ui.heading(s, "Sound", window)
        spring_name = ui.kit_name(s, "ibm-buckling-spring")
        ui.label(s, "Switch kit: " + spring_name, root=window)
        # Nothing of an import is read out before there is one.
        self.assertFalse(s.find_all("list", "Import problems", root=window))
        self.assertFalse(s.find_all("push button", "Dismiss", root=window))
        pack = write_pack_zip(s.root, "Sine Pack", 3000)
        ui.wait_for_quiet(s)
        spring = ui.record_typing(s)

        with self.subTest("a kit chosen from the keyboard alone is the one heard"):
            muted = ui.kit_name(s, "gun-suppressed")
            kit_list = s.find("list", "Sound kits", root=window)
            ui.focus_window(s, ui.SETTINGS)
            # Tab reaches the list on the kit in use; the Fun shelf comes next.
            self.assertEqual(keys_until(s, "Tab", lambda: focused_row(s, kit_list)),
                             spring_name + ", chosen")
            self.assertEqual(keys_until(s, "Down", lambda: focused_row(s, kit_list) == muted
                                        and muted), muted)
            s.key("Return")
            s.wait_for_preference("selectedPackId", "gun-suppressed")
            ui.label(s, "Switch kit: " + muted, root=window)
            ui.button(s, muted + ", chosen", kit_list)
            ui.wait_for_quiet(s)
            thumps = ui.record_typing(s)
            self.assertTrue(thumps.heard(), thumps)
            # Muted thumps sit far below the spring's rattle.
            detail = (spring, thumps, ui.brightness(spring), ui.brightness(thumps))
            self.assertGreater(ui.brightness(spring), 2 * ui.brightness(thumps), detail)

        with self.subTest("Import… from the keyboard, a .zip chosen in the file dialog"):
            focus(s, ui.button(s, "Import…", window))
            s.key("Return")
            choose_in_file_dialog(s, window, pack, shot="settings-sound-import-dialog")
            ui.label(s, "Imported “Sine Pack” and selected it. Type anywhere to hear it.",
                     root=window, timeout=60)
            s.wait_for_preference("selectedPackId", "imported-sine-pack")
            ui.label(s, "Switch kit: Sine Pack", root=window)
            # Listed under the user's own, each shelf still headed by its own name.
            kit_list = s.find("list", "Sound kits", root=window)
            self.assertEqual(shelf_above(s, kit_list, "Sine Pack, chosen"), "YOURS")
            self.assertEqual(shelf_above(s, kit_list, ui.kit_name(s, "gun-suppressed")), "Fun")
            ui.label(s, "One part could not be used:", root=window)
            problem = s.find("list item", lambda n: "space.wav" in (n or ""), root=window)
            self.assertIn("no such file", problem.get_name())
            ui.screenshot(s, "settings-sound-import-problems")

        with self.subTest("typing plays the pack's sine"):
            ui.wait_for_quiet(s)
            typed = ui.record_typing(s)
            self.assertTrue(typed.heard(), typed)
            # The keys now play the pack's 3 kHz sine; the spring's rattle spreads wide.
            detail = (spring, typed, tone_share(spring, 3000), tone_share(typed, 3000))
            self.assertGreater(tone_share(typed, 3000), 0.8, detail)
            self.assertLess(tone_share(spring, 3000), 0.2, detail)

        with self.subTest("a file that is no pack is refused and changes nothing"):
            junk = os.path.join(s.root, "junk.zip")
            with open(junk, "wb") as f:
                f.write(b"not an archive")
            s.press(ui.button(s, "Import…", window))
            choose_in_file_dialog(s, window, junk)
            status = s.find("label", lambda n: (n or "").startswith("Could not import “junk.zip”: "),
                            root=window, timeout=60)
            self.assertIn("not a readable zip file", status.get_name())
            ui.screenshot(s, "settings-sound-import-refused")
            self.assertEqual(s.preferences().get("selectedPackId"), "imported-sine-pack")
            ui.label(s, "Switch kit: Sine Pack", root=window)
            s.press(ui.button(s, "Dismiss", window))
            s.gone("label", lambda n: (n or "").startswith("Could not import"), root=window)


class BehaviourAndLookPages(unittest.TestCase):

    def test_autostart_app_list_shortcut_and_palette(self):
        # Started by hand (no autostart entry), so the window opens; quieting down is on.
        s = ui.start(self, {"lastSettingsPage": "behaviour", "sleepEnabled": True}, login_start=False)
        window = ui.settings_window(s)
        ui.heading(s, "Behaviour", window)
        entry = os.path.join(s.config_home, "autostart", "app.morvane.tappix.desktop")

        with self.subTest("Launch at login writes and removes the autostart entry"):
            switch = s.find("check box", "Launch at login", root=window)
            self.assertFalse(s.is_checked(switch))
            s.press(switch)
            s.wait_until(lambda: os.path.exists(entry), 5, message=lambda: (
                "%s to be written (problem shown: %s)" % (
                    entry, bool(s.find_all("label", AUTOSTART_PROBLEM, root=window)))))
            with open(entry, encoding="utf-8") as f:
                text = f.read()
            self.assertIn("Exec=" + os.path.realpath(s.program), text)
            self.assertTrue(s.is_checked(switch))
            s.press(switch)
            s.wait_until(lambda: not os.path.exists(entry), 5, message="the entry to go")
            self.assertFalse(s.find_all("label", AUTOSTART_PROBLEM, root=window))

        with self.subTest("the app last in front goes on the list and its name is the reason"):
            desk = ui.Desk(s)
            self.addCleanup(desk.close)
            notes = desk.window("notes", "Notes")
            desk.activate(notes)
            s.find("push button", "Add Notes", root=window)
            # The user comes back to Tappix's window to add it: Tappix itself is in front.
            (settings_id,) = [w["id"] for w in s.x_windows() if w["title"] == ui.SETTINGS]
            desk.activate(settings_id)
            s.press(s.find("check box", "One of these apps is in front", root=window))
            s.wait_for_preference("sleepTriggerApps", True)
            s.press(s.find("push button", "Add Notes", root=window))
            s.wait_for_preference("sleepAppIds", ["Notes"])
            s.find("push button", "Remove Notes", root=window)

            desk.activate(notes)
            s.wait_for_log("sleeping: Notes is in front")
            panel = ui.open_panel(self, s)
            ui.label(s, "Sleeping · Notes is in front", root=panel)
            ui.close_panel(s)
            desk.activate(settings_id)
            s.wait_for_log(re.compile(r"sleeping: Notes is in front(.|\n)*awake"))
            s.press(s.find("push button", "Remove Notes", root=window))
            s.wait_for_preference("sleepAppIds", [])

        with self.subTest("the shortcut recorder refuses a bare letter and takes a chord"):
            field = s.find("push button", "Toggle keystroke sounds: " + ui.SHORTCUT, root=window)
            ui.focus_window(s, ui.SETTINGS)
            s.press(field)
            s.find("push button", "Toggle keystroke sounds: Type a shortcut…", root=window)
            s.key("j")
            ui.label(s, NEEDS_MODIFIER, root=window)
            s.key("ctrl+alt+j")
            s.wait_for_preference("toggleSoundsShortcut", "Ctrl+Alt+J")
            s.find("push button", "Toggle keystroke sounds: Ctrl+Alt+J", root=window)


        with self.subTest("typing a combination into the recorder does not also run it"):
            # The round trips above leave the key queue plenty of time to act on it.
            self.assertNotIn("by the shortcut", s.log())
            self.assertNotEqual(s.preferences().get("isEnabled"), False)

        with self.subTest("the new shortcut turns the sounds off and on"):
            was = s.preferences().get("isEnabled", True)
            # The recorder keeps the shortcut quiet until the recorded keys are up.
            time.sleep(1.0)
            s.key("ctrl+alt+j")
            s.wait_for_preference("isEnabled", not was)
            s.key("ctrl+alt+j")
            s.wait_for_preference("isEnabled", was)

        s.press(s.find("page tab", "Look", root=window), "Press")
        ui.heading(s, "Look", window)

        with self.subTest("a palette recolours the window"):
            dark = window_background(s)
            s.press(ui.button(s, "Milk", window))
            s.wait_for_preference("themeID", "milk")
            light = s.wait_until(lambda: window_background(s) != dark and window_background(s),
                                 5, message=lambda: "the background to change from %s" % (dark,))
            self.assertGreater(sum(light), sum(dark) + 300, (dark, light))


class CreatePage(unittest.TestCase):

    def test_saved_design_is_chosen_listed_and_heard_and_a_failed_save_says_why(self):
        s = ui.start(self, dict(ui.STEADY_SOUND, volume=0.8, lastSettingsPage="create",
                                selectedPackId="ibm-buckling-spring"), login_start=False)
        window = ui.settings_window(s)
        ui.heading(s, "Design your own switch", window)
        kits = os.path.join(s.data_home, "Tappix", "Soundpacks")

        with self.subTest("Save makes a kit of one's own and chooses it"):
            s.press(ui.button(s, "Preset Velvet", window))
            ui.button(s, "Preset Velvet, chosen", window)
            focus(s, s.find("text", "Pack name", root=window))
            s.type_text("Desk Thock")
            save = ui.button(s, "Save", window)
            s.wait_until(lambda: s.is_enabled(save), 5, message="Save to be enabled")
            s.press(save)
            ui.label(s, "Saved and selected. Type anywhere to hear it.", root=window)
            s.wait_for_preference("selectedPackId", "custom-desk-thock")
            kit = os.path.join(kits, "custom-desk-thock")
            self.assertTrue(os.path.isfile(os.path.join(kit, "config.json")), os.listdir(kits))
            ui.label(s, "Pack: Desk Thock", root=window)

        with self.subTest("typing plays it"):
            ui.wait_for_quiet(s)
            designed = ui.record_typing(s)
            self.assertTrue(designed.heard(), designed)
            ui.cli_ok(self, s, "--kit", "ibm-buckling-spring")
            s.wait_for_preference("selectedPackId", "ibm-buckling-spring")
            ui.wait_for_quiet(s)
            spring = ui.record_typing(s)
            # The velvet preset, the darkest, sits well below the spring's rattle.
            detail = (designed, spring, ui.brightness(designed), ui.brightness(spring))
            self.assertGreater(ui.brightness(spring), 1.3 * ui.brightness(designed), detail)

        with self.subTest("a kits folder that cannot be written: the reason, no change"):
            shutil.move(kits, kits + ".aside")
            with open(kits, "w", encoding="utf-8") as f:
                f.write("in the way\n")
            window = open_page(self, s, "create", "Design your own switch")
            name = s.find("text", "Pack name", root=window)
            focus(s, name)
            s.key("ctrl+a")
            s.type_text("Blocked")
            s.press(ui.button(s, "Save", window))
            status = s.find("label", lambda n: n.startswith("Could not save: "), root=window)
            self.assertGreater(len(status.get_name()), len("Could not save: "))
            self.assertEqual(s.preferences().get("selectedPackId"), "ibm-buckling-spring")
            self.assertFalse(os.path.exists(kits + ".aside/custom-blocked"))
            os.remove(kits)
            shutil.move(kits + ".aside", kits)


class MixPage(unittest.TestCase):

    def test_return_on_another_kit_then_the_mix_deleted(self):
        s = ui.start(self, dict(ui.STEADY_SOUND, volume=0.8, selectedPackId="ibm-buckling-spring",
                                soundMixes=[{"id": "quiet", "name": "Quiet", "assignments": {}}],
                                lastSettingsPage="mix"), login_start=False)
        pistol = ui.kit_name(s, "gun-pistol")
        # Return would press the focused button: the keys go nowhere with the window shut.
        ui.close_window(s, ui.SETTINGS)
        ui.wait_for_quiet(s)
        spring = record_returns(s)

        window = open_page(self, s, "mix", "Mix")
        s.find("label", NO_MIX_PLAYING, root=window, showing=True)
        s.press(ui.button(s, "New mix", window))
        # The dialog offers a name that is free; Create takes it.
        name_field = s.find("text", "Name", root=window, showing=True)
        self.assertEqual(s.text(name_field), "Mix")
        s.press(ui.button(s, "Create", window))
        mix_id = s.wait_until(lambda: s.preferences().get("activeMixId"), 5,
                              message="the new mix to play")
        ui.button(s, "Mix, chosen", window)

        s.press(ui.button(s, "Return: Main kit", window))
        ui.heading(s, "Return", window)
        s.press(ui.button(s, "Fun", window))
        s.press(s.find("push button", pistol, root=window))
        ui.button(s, "Return: " + pistol, window)

        def assignments():
            mix = next(m for m in s.preferences().get("soundMixes", []) if m["id"] == mix_id)
            return mix.get("assignments", {})
        s.wait_until(lambda: assignments().get("enter", {}).get("packId") == "gun-pistol", 5,
                     message=lambda: "Return on the pistol (%s)" % assignments())
        self.assertEqual(list(assignments()), ["enter"])

        ui.close_window(s, ui.SETTINGS)
        ui.wait_for_quiet(s)
        shot = record_returns(s)
        self.assertTrue(shot.heard(), shot)
        # The spring's Return is a low clunk; the pistol's crack sits nearly twice as high.
        detail = (spring, shot, ui.brightness(spring), ui.brightness(shot))
        self.assertGreater(ui.brightness(shot), 1.3 * ui.brightness(spring), detail)

        window = open_page(self, s, "mix", "Mix")
        # Scrolled out of sight below the board, as the window left it.
        s.press(s.find("push button", "Delete Mix", root=window))
        ui.heading(s, "Delete “Mix”?", window)
        s.press(ui.button(s, "Delete", window))
        s.wait_until(lambda: "activeMixId" not in s.preferences(), 5,
                     message="activeMixId to be removed")
        self.assertEqual([m["id"] for m in s.preferences()["soundMixes"]], ["quiet"])
        s.find("label", NO_MIX_PLAYING, root=window, showing=True)
        ui.button(s, "Off — main kit only, chosen", window)


if __name__ == "__main__":
    unittest.main()
