#!/usr/bin/python3
"""The desktop session of a new user who cannot read the keyboard, run by
test_keyboard_access.py as that user (it makes the user, the group, a stand-in keyboard
readable by the group, and a stand-in pkexec that hands its command to the root test).

Dark: refusals of the password prompt each say so; the password given, Tappix starts itself
again through sg with the group, the new one takes over and hears the keyboard. Light: the
user joins in a terminal instead and Tappix notices by itself. Every state is shot."""

import grp
import os
import re
import shlex
import signal
import subprocess
import time
import unittest

import tappix_ui as ui

GROUP = os.environ.get("TAPPIX_ACCESS_GROUP", "")
SPOOL = os.environ.get("TAPPIX_ACCESS_SPOOL", "")
WELCOME = "Welcome to Tappix"
ALLOW = "Allow Keyboard Access…"
PERMISSION_ROW = "Turn on sound for typing"
# How a password prompt ends without the change: pkexec's exit code and words, the line
# the window then shows, and the picture's name.
CANCELLED = ("126\nError executing command as another user: Request dismissed",
             "You closed the password prompt. Nothing was changed.", "cancelled")
NO_PROMPT = ("127\nError executing command as another user: No authentication agent found.",
             "No password prompt can open here: use the command instead.", "noprompt")


# ---- the root side, through the spool ------------------------------------------------

def tell(name, text=""):
    """Leaves `name` in the spool for the root test to act on."""
    path = os.path.join(SPOOL, name)
    with open(path + ".tmp", "w") as f:
        f.write(text)
    os.rename(path + ".tmp", path)


def answer_prompt(how):
    """How the next password prompt ends: "real" (the password given: the group change
    runs for real), or pkexec's exit code and what it prints."""
    tell("plan", how)


def system(command):
    """Has root run "join" (the user's own `sudo usermod` in a terminal) or "leave"."""
    tell(command)
    ui.harness.wait_until(lambda: os.path.exists(os.path.join(SPOOL, command + "-done")), 15,
                       message="root to " + command)
    os.unlink(os.path.join(SPOOL, command + "-done"))


# ---- processes --------------------------------------------------------------------------

class Adopted:
    """The parts of subprocess.Popen the harness uses, for a process that is not our
    child (the Tappix that sg started)."""

    def __init__(self, pid):
        self.pid = pid
        self.returncode = None

    def poll(self):
        if self.returncode is None and not os.path.exists("/proc/%d" % self.pid):
            self.returncode = 0
        return self.returncode

    def send_signal(self, sig):
        os.kill(self.pid, sig)

    def kill(self):
        self.send_signal(signal.SIGKILL)

    def wait(self, timeout=None):
        deadline = time.monotonic() + (timeout or 3600)
        while self.poll() is None:
            if time.monotonic() > deadline:
                raise subprocess.TimeoutExpired("tappix", timeout)
            time.sleep(0.05)
        return self.returncode


def tappix_processes(program):
    """Pids of this user's processes running `program`."""
    found = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            if (os.readlink("/proc/%s/exe" % entry) == program
                    and os.stat("/proc/" + entry).st_uid == os.getuid()):
                found.append(int(entry))
        except OSError:
            continue
    return found


def groups_of(pid):
    """A process's primary group and its other groups, by number."""
    with open("/proc/%d/status" % pid) as f:
        status = dict(line.split(":", 1) for line in f if ":" in line)
    return int(status["Gid"].split()[0]), {int(g) for g in status["Groups"].split()}


def doctor(session, with_group=False):
    """tappix-doctor's access lines, run as this user (through sg with the group)."""
    command = [os.path.join(os.path.dirname(session.program), "tappix-doctor")]
    if with_group:
        command = ["sg", GROUP, "-c", "exec " + shlex.quote(command[0])]
    done = subprocess.run(command, env=session.app_env(), capture_output=True, text=True,
                          timeout=60, stdin=subprocess.DEVNULL)
    return "\n".join(line for line in done.stdout.splitlines()
                     if line.startswith("access:") or line.startswith("     "))


@unittest.skipUnless(GROUP and SPOOL, "run by test_keyboard_access.py as a user of its own")
class KeyboardAccess(unittest.TestCase):

    def session(self, theme):
        system("leave")  # a newcomer, whatever ran before
        return ui.start(self, {"themeID": "milk"} if theme == "light" else {},
                        login_start=False, welcome_seen=False, hears_keys=False, env={
                            "XDG_SESSION_TYPE": "wayland",
                            "WAYLAND_DISPLAY": "tappix-test-no-compositor"})

    def permission_row(self, s):
        """Whether the panel asks for access, as the panel opened from the command line shows."""
        ui.cli_ok(self, s, "--panel")
        panel = ui.panel(s)
        s.find("push button", re.compile("^Sound kit"), root=panel)
        asks = bool(s.find_all("push button", PERMISSION_ROW, root=panel, showing=True))
        ui.close_panel(s)
        return asks

    def refused(self, s, window, theme, answers):
        """Presses "Allow Keyboard Access…" once per answer, and shoots the open prompt
        and each answer's line."""
        for number, (how, line, name) in enumerate(answers):
            s.press(ui.button(s, ALLOW, window))
            ui.label(s, "Waiting for your password…", root=window)
            if number == 0:
                ui.screenshot(s, "onboarding-permission-asking-" + theme)
            answer_prompt(how)
            ui.label(s, line, root=window)
            ui.screenshot(s, "onboarding-permission-%s-%s" % (name, theme))

    def take_over(self, s):
        """Waits for the old Tappix to make way for the one it started with the group,
        and points the session at the new one."""
        old = s.process
        self.assertEqual(s.wait_for_exit(30), 0, "the old Tappix quits cleanly for the new one")
        s.wait_for_log("took over from the Tappix that started this one", timeout=30)
        pids = [p for p in tappix_processes(os.path.realpath(s.program)) if p != old.pid]
        self.assertEqual(len(pids), 1, "one Tappix runs: %s" % pids)
        s.process = Adopted(pids[0])
        s._app = None
        return pids[0]

    def test_one_button_then_heard_at_once(self):
        s = self.session("dark")
        group = grp.getgrnam(GROUP)
        own = os.getgid()
        window = s.window(WELCOME, timeout=20)

        with self.subTest("not readable: asked for, in the window, the panel and the doctor"):
            ui.label(s, re.compile("^Tappix needs permission"), root=window)
            ui.label(s, "2.  Run  sudo usermod -aG %s $USER" % GROUP, root=window)
            ui.button(s, "Copy Command", window)
            ui.label(s, "Joining the %s group lets every program you run read the keyboards, "
                        "not only Tappix." % GROUP, root=window)
            self.assertIn("access: not a member", doctor(s))
            self.assertTrue(self.permission_row(s))
            window = s.window(WELCOME)
            ui.screenshot(s, "onboarding-permission-dark")

        with self.subTest("the prompt closed, or none can open: the step stays, one line says so"):
            self.refused(s, window, "dark", [CANCELLED, NO_PROMPT])
            ui.heading(s, "Tappix", window)
            self.assertNotIn(group.gr_gid, groups_of(s.process.pid)[1])

        with self.subTest("the password given: a member, but not in this process"):
            answer_prompt("real")
            s.press(ui.button(s, ALLOW, window))
            ui.label(s, "You're in the %s group now.\nTappix is starting again with it…" % GROUP,
                     root=window, timeout=20)
            ui.screenshot(s, "onboarding-restarting-dark")
            self.assertIn("access: a member, but this session started before it", doctor(s))

        with self.subTest("started again with the group, it took over and hears the keyboard"):
            pid = self.take_over(s)
            primary, others = groups_of(pid)
            self.assertEqual(primary, own, "the user's own group stays the primary one")
            self.assertIn(group.gr_gid, others)
            window = s.window(WELCOME, timeout=30)
            ui.heading(s, "You're all set", window)
            self.assertFalse(s.find_all(name=ALLOW, root=window))
            self.assertFalse(self.permission_row(s), "the panel stops asking")
            self.assertIn("access: readable", doctor(s, with_group=True))
            window = s.window(WELCOME)
            ui.heading(s, "You're all set", window)
            ui.screenshot(s, "onboarding-ready-after-access-dark")

        with self.subTest("the single instance went with it: a second launch reaches it"):
            second = subprocess.run([s.program], env=s.app_env(), capture_output=True, text=True,
                                    timeout=30, stdin=subprocess.DEVNULL)
            self.assertEqual(second.returncode, 0, second.stderr)
            ui.settings_window(s, timeout=20)
            self.assertEqual(tappix_processes(os.path.realpath(s.program)), [pid])

    def test_joined_in_a_terminal_heard_without_logging_out(self):
        s = self.session("light")
        window = s.window(WELCOME, timeout=20)
        ui.button(s, ALLOW, window)
        ui.screenshot(s, "onboarding-permission-light")

        with self.subTest("none can open, or the prompt closed: one line says so"):
            self.refused(s, window, "light", [NO_PROMPT, CANCELLED])

        with self.subTest("joined in a terminal: Tappix starts again with the group by itself"):
            system("join")
            ui.label(s, re.compile("^You're in the %s group now" % GROUP), root=window,
                     timeout=20)
            ui.screenshot(s, "onboarding-restarting-light")
            self.take_over(s)
            window = s.window(WELCOME, timeout=30)
            ui.heading(s, "You're all set", window)
            ui.screenshot(s, "onboarding-ready-after-access-light")


if __name__ == "__main__":
    unittest.main()
