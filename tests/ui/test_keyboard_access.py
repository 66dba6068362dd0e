#!/usr/bin/python3
"""Keyboard access in one click, as a new user meets it. As root, AsANewUser makes a user, a
group and (in a private mount namespace) a keyboard that group reads; a stand-in pkexec hands
its command to root. The module runs again as that user, where UserSession drives it."""

import glob
import grp
import os
import pwd
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import harness as ui

HERE = os.path.dirname(os.path.abspath(__file__))
GROUP = os.environ.get("TAPPIX_ACCESS_GROUP", "")
SPOOL = os.environ.get("TAPPIX_ACCESS_SPOOL", "")
WELCOME = "Welcome to Tappix"
ALLOW = "Allow Keyboard Access…"

# Runs as root inside the new mount namespace, then becomes the user. /dev/input may not
# exist (a container): an overlay adds it for this namespace only. Q, A, Z and Space make
# the node a keyboard by the kernel's account.
NAMESPACE_SETUP = r"""
set -e
ns=$1 group=$2 build=$3 ui=$4; shift 4
mount -t tmpfs tmpfs "$ns"
mkdir "$ns/upper" "$ns/work" "$ns/dev"
mount --rbind /dev "$ns/dev"
mount -t overlay overlay -o "lowerdir=/dev,upperdir=$ns/upper,workdir=$ns/work" /dev
for sub in pts shm mqueue hugepages; do
    if mountpoint -q "$ns/dev/$sub"; then mount --rbind "$ns/dev/$sub" "/dev/$sub"; fi
done
mkdir -p /dev/input
mount -t tmpfs -o mode=0755 tmpfs /dev/input
install -m 0660 -o root -g "$group" /dev/null /dev/input/event0
mount -t tmpfs tmpfs /sys/class/input
mkdir -p /sys/class/input/event0/device/capabilities
echo 200100040010000 > /sys/class/input/event0/device/capabilities/key
mount -t tmpfs -o mode=0755 tmpfs /mnt
mkdir /mnt/build /mnt/ui
mount --bind "$build" /mnt/build
mount --bind "$ui" /mnt/ui
exec "$@"
"""

# Stands in for pkexec: leaves its command line in the spool and answers as root says.
PKEXEC = r"""#!/bin/sh
spool=%s
printf '%%s\n' "$@" > "$spool/request.tmp" && mv "$spool/request.tmp" "$spool/request"
while [ ! -e "$spool/answer" ]; do sleep 0.05; done
tail -n +2 "$spool/answer" >&2
code=$(head -n 1 "$spool/answer")
rm -f "$spool/answer"
exit "$code"
"""

# How a password prompt ends without the change (pkexec's exit code and words) and the
# line the window then shows.
REFUSALS = [("126\nError executing command as another user: Request dismissed",
             "You closed the password prompt. Nothing was changed."),
            ("127\nError executing command as another user: No authentication agent found.",
             "No password prompt can open here: use the command instead.")]


@unittest.skipUnless(os.geteuid() == 0, "makes a user and a group: needs root")
class AsANewUser(unittest.TestCase):

    def test_the_whole_path_as_a_new_user(self):
        tag = "%d" % (os.getpid() % 100000)
        user, group = "tappixu" + tag, "tappixk" + tag
        root = tempfile.mkdtemp(prefix="tappix-access-")
        os.chmod(root, 0o755)
        self.addCleanup(shutil.rmtree, root, True)
        subprocess.run(["groupadd", group], check=True)
        self.addCleanup(subprocess.run, ["groupdel", group])
        home, spool = os.path.join(root, "home"), os.path.join(root, "spool")
        subprocess.run(["useradd", "--user-group", "--no-create-home", "--home-dir", home,
                        "--shell", "/bin/sh", user], check=True)
        self.addCleanup(subprocess.run, ["userdel", user])
        self.addCleanup(time.sleep, 0.5)  # for the user's processes to go
        self.addCleanup(subprocess.run, ["pkill", "-KILL", "-U", user])
        account = pwd.getpwnam(user)
        for folder in (home, spool, spool + "/bin", spool + "/shots", root + "/ns"):
            os.makedirs(folder, exist_ok=True)
            os.chown(folder, account.pw_uid, account.pw_gid)
        with open(spool + "/bin/pkexec", "w") as f:
            f.write(PKEXEC % spool)
        os.chmod(spool + "/bin/pkexec", 0o755)

        # Root's side: each request must be exactly the one group change; it is answered
        # as the session's plan says, "real" running it.
        asked, wrong, stopping = [], [], threading.Event()
        self.addCleanup(stopping.set)

        def answer_requests():
            while not stopping.wait(0.05):
                if not (os.path.exists(spool + "/request") and os.path.exists(spool + "/plan")):
                    continue
                with open(spool + "/request") as f:
                    args = f.read().splitlines()
                with open(spool + "/plan") as f:
                    plan = f.read()
                os.unlink(spool + "/request")
                os.unlink(spool + "/plan")
                asked.append(args)
                if (len(args) != 4 or os.path.basename(args[0]) != "gpasswd"
                        or not os.path.isabs(args[0]) or args[1:] != ["-a", user, group]):
                    wrong.append(args)
                    plan = "127\nNot authorized"
                elif plan == "real":
                    done = subprocess.run(["gpasswd", "-a", user, group], capture_output=True,
                                          text=True, timeout=30)
                    plan = "%d\n%s" % (done.returncode, done.stderr)
                with open(spool + "/answer.tmp", "w") as f:
                    f.write(plan)
                os.rename(spool + "/answer.tmp", spool + "/answer")
        threading.Thread(target=answer_requests, daemon=True).start()

        program = os.environ["TAPPIX_PATH"]
        env = {"PATH": spool + "/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin",
               "HOME": home, "LANG": "C.UTF-8",
               "TAPPIX_PATH": "/mnt/build/" + os.path.basename(program),
               "TAPPIX_UI_ARTIFACTS": spool + "/shots",
               "TAPPIX_ACCESS_GROUP": group, "TAPPIX_ACCESS_SPOOL": spool}
        env.update({k: v for k, v in os.environ.items() if k.endswith("SAN_OPTIONS")})
        done = subprocess.run(
            ["unshare", "--mount", "--propagation", "private", "--", "sh", "-c",
             NAMESPACE_SETUP, "setup", root + "/ns", group, os.path.dirname(program), HERE,
             "setpriv", "--reuid", user, "--regid", user, "--init-groups", "--",
             "dbus-run-session", "--", sys.executable, "/mnt/ui/run_ui_tests.py",
             "/mnt/ui/test_keyboard_access.py"],
            env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            text=True, timeout=600)
        sys.stdout.write(done.stdout)
        if os.environ.get("TAPPIX_UI_ARTIFACTS"):
            # Copied into a folder that may not be there yet: never onto a file of its name.
            os.makedirs(os.environ["TAPPIX_UI_ARTIFACTS"], exist_ok=True)
            for shot in glob.glob(spool + "/shots/*.png"):
                shutil.copy(shot, os.environ["TAPPIX_UI_ARTIFACTS"])
        self.assertIn("1 passed, 0 failed", done.stdout)
        self.assertTrue(asked, "pkexec was never asked")
        self.assertEqual(wrong, [], "asked for more than the one group change")


class Adopted:
    # The parts of subprocess.Popen the session uses, for the Tappix sg started.

    def __init__(self, pid):
        self.pid, self.returncode = pid, None

    def poll(self):
        if self.returncode is None and not os.path.exists("/proc/%d" % self.pid):
            self.returncode = 0
        return self.returncode

    def send_signal(self, sig):
        os.kill(self.pid, sig)

    def kill(self):
        self.send_signal(signal.SIGKILL)

    def wait(self, timeout=3600):
        deadline = time.monotonic() + timeout
        while self.poll() is None:
            if time.monotonic() > deadline:
                raise subprocess.TimeoutExpired("tappix", timeout)
            time.sleep(0.05)
        return self.returncode


def tappix_processes(program):
    # By command line: started through util-linux's sg, Tappix cannot be traced, so its
    # /proc/PID/exe is closed even to its own user.
    found = subprocess.run(["pgrep", "-f", "^%s( |$)" % program], capture_output=True, text=True)
    return [int(pid) for pid in found.stdout.split()]


def groups_of(pid):
    with open("/proc/%d/status" % pid) as f:
        status = dict(line.split(":", 1) for line in f if ":" in line)
    return int(status["Gid"].split()[0]), {int(g) for g in status["Groups"].split()}


def doctor(session, with_group=False):
    command = [os.path.join(os.path.dirname(session.program), "tappix-doctor")]
    if with_group:
        command = ["sg", GROUP, "-c", "exec " + shlex.quote(command[0])]
    done = subprocess.run(command, env=session.app_env(), capture_output=True, text=True,
                          timeout=60, stdin=subprocess.DEVNULL)
    return next((line for line in done.stdout.splitlines() if line.startswith("access:")), "")


@unittest.skipUnless(GROUP and SPOOL, "run by AsANewUser as a user of its own")
class UserSession(unittest.TestCase):

    def test_one_button_then_heard_at_once(self):
        s = ui.start(self, {}, login_start=False, welcome_seen=False, hears_keys=False, env={
            "XDG_SESSION_TYPE": "wayland", "WAYLAND_DISPLAY": "tappix-test-no-compositor"})
        group = grp.getgrnam(GROUP)
        window = s.window(WELCOME, timeout=20)
        ui.label(s, "2.  Run  sudo usermod -aG %s $USER" % GROUP, root=window)
        self.assertIn("access: not a member", doctor(s))

        with self.subTest("the prompt closed, or none can open: the step stays, one line says so"):
            for how, line in REFUSALS:
                s.press(ui.button(s, ALLOW, window))
                ui.label(s, "Waiting for your password…", root=window)
                ui.screenshot(s, "onboarding-permission-asking-dark")
                with open(SPOOL + "/plan", "w") as f:
                    f.write(how)
                ui.label(s, line, root=window)
            self.assertNotIn(group.gr_gid, groups_of(s.process.pid)[1])

        with self.subTest("the password given: a member, but not in this process"):
            with open(SPOOL + "/plan", "w") as f:
                f.write("real")
            s.press(ui.button(s, ALLOW, window))
            ui.label(s, "You're in the %s group now.\nTappix is starting again with it…" % GROUP,
                     root=window, timeout=20)
            ui.screenshot(s, "onboarding-restarting-dark")
            self.assertIn("access: a member, but this session started before it", doctor(s))

        with self.subTest("started again with the group, it took over and hears the keyboard"):
            old = s.process.pid
            self.assertEqual(s.process.wait(30), 0, "the old Tappix quits for the new one")
            s.wait_for_log("took over from the Tappix that started this one", timeout=30)
            program = os.path.realpath(s.program)
            (pid,) = [p for p in tappix_processes(program) if p != old]
            s.process, s._app = Adopted(pid), None
            primary, others = groups_of(pid)
            self.assertEqual(primary, group.gr_gid)
            self.assertIn(os.getgid(), others, "the user's own group stays")
            ui.heading(s, "You're all set", s.window(WELCOME, timeout=30))
            self.assertIn("access: readable", doctor(s, with_group=True))
            ui.screenshot(s, "onboarding-ready-after-access-dark")

        with self.subTest("the single instance went with it: a second launch reaches it"):
            second = subprocess.run([s.program], env=s.app_env(), capture_output=True, text=True,
                                    timeout=30, stdin=subprocess.DEVNULL)
            self.assertEqual(second.returncode, 0, second.stderr)
            ui.settings_window(s, timeout=20)
            self.assertEqual(tappix_processes(program), [pid])


if __name__ == "__main__":
    unittest.main()
