#!/usr/bin/python3
"""Keyboard access in one click, as a new user of this machine meets it.

As root: makes a user and a group of its own, and, in a private mount namespace, a
stand-in keyboard: /dev/input/event0 owned by the group with mode 0660, which the kernel's
list under /sys/class/input calls a keyboard (letters and Space). pkexec is a stand-in
that hands the command Tappix gives it to this process, which checks it is exactly
`gpasswd -a USER GROUP` and runs it for real when the session says the password was
given. sg is the real one. The user's desktop session, Tappix and the screen reader run as
that user in keyboard_access_session.py; its screenshots land with the others.

Skipped unless root: only root can make users and groups."""

import glob
import os
import pwd
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
# Q 16, A 30, Z 44 and Space 57: a keyboard by the kernel's account.
KEYBOARD_KEYS = "200100040010000"

# Runs as root inside the new mount namespace, then becomes the user.
NAMESPACE_SETUP = r"""
set -e
ns=$1 group=$2 build=$3 ui=$4; shift 4
mount -t tmpfs tmpfs "$ns"
mkdir "$ns/upper" "$ns/work" "$ns/dev"
mount --rbind /dev "$ns/dev"
# /dev/input may not exist here (a container): an overlay adds it for this namespace only.
mount -t overlay overlay -o "lowerdir=/dev,upperdir=$ns/upper,workdir=$ns/work" /dev
for sub in pts shm mqueue hugepages; do
    if mountpoint -q "$ns/dev/$sub"; then mount --rbind "$ns/dev/$sub" "/dev/$sub"; fi
done
mkdir -p /dev/input
mount -t tmpfs -o mode=0755 tmpfs /dev/input
install -m 0660 -o root -g "$group" /dev/null /dev/input/event0
mount -t tmpfs tmpfs /sys/class/input
mkdir -p /sys/class/input/event0/device/capabilities
echo "$KEYBOARD_KEYS" > /sys/class/input/event0/device/capabilities/key
# The build tree and these scripts where the user can reach them, wherever the clone is.
mount -t tmpfs -o mode=0755 tmpfs /mnt
mkdir /mnt/build /mnt/ui
mount --bind "$build" /mnt/build
mount --bind "$ui" /mnt/ui
exec "$@"
"""

# Stands in for pkexec: hands its command line to the root test and answers as pkexec does.
PKEXEC = r"""#!/bin/sh
spool=%s
id=$$
printf '%%s\n' "$@" > "$spool/request-$id.tmp"
mv "$spool/request-$id.tmp" "$spool/request-$id"
while [ ! -e "$spool/answer-$id" ]; do sleep 0.05; done
tail -n +2 "$spool/answer-$id" >&2
code=$(head -n 1 "$spool/answer-$id")
rm -f "$spool/answer-$id"
exit "$code"
"""


class Root(threading.Thread):
    """What root does for the session: answers the stand-in pkexec as planned (running
    the group change for real when the password is "given"), and joins or leaves the
    group on request, as the user would in a terminal."""

    def __init__(self, spool, user, group):
        super().__init__(name="root", daemon=True)
        self.spool, self.user, self.group = spool, user, group
        self.asked = []         # every command line pkexec was given
        self.wrong = []         # those that were not exactly the one group change
        self.stopping = threading.Event()

    def gpasswd(self, flag):
        done = subprocess.run(["gpasswd", flag, self.user, self.group], capture_output=True,
                              text=True, timeout=30)
        return done.returncode, done.stderr

    def path(self, name):
        return os.path.join(self.spool, name)

    def take(self, name):
        try:
            with open(self.path(name)) as f:
                text = f.read()
        except FileNotFoundError:
            return None
        os.unlink(self.path(name))
        return text

    def answer(self, ident, code, said=""):
        with open(self.path("answer-%s.tmp" % ident), "w") as f:
            f.write("%d\n%s" % (code, said))
        os.rename(self.path("answer-%s.tmp" % ident), self.path("answer-" + ident))

    def run(self):
        while not self.stopping.wait(0.05):
            for command, flag in (("join", "-a"), ("leave", "-d")):
                if self.take(command) is not None:
                    self.gpasswd(flag)
                    open(self.path(command + "-done"), "w").close()
            for request in sorted(glob.glob(self.path("request-*[0-9]"))):
                args = open(request).read().splitlines()
                ident = request.rsplit("-", 1)[1]
                if not self.asked or self.asked[-1][0] != ident:
                    self.asked.append((ident, args))
                if (len(args) != 4 or not os.path.isabs(args[0])
                        or os.path.basename(args[0]) != "gpasswd"
                        or args[1:] != ["-a", self.user, self.group]):
                    self.wrong.append(args)
                    os.unlink(request)
                    self.answer(ident, 127, "Not authorized")
                    continue
                plan = self.take("plan")
                if plan is None:
                    continue  # the prompt stays open until the session says how it ends
                os.unlink(request)
                if plan == "real":
                    code, said = self.gpasswd("-a")
                else:
                    code, _, said = plan.partition("\n")
                    code = int(code)
                self.answer(ident, code, said)


@unittest.skipUnless(os.geteuid() == 0, "makes a user and a group: needs root")
class KeyboardAccessAsAUser(unittest.TestCase):

    def setUp(self):
        tag = "%d" % (os.getpid() % 100000)
        self.user, self.group = "tappixu" + tag, "tappixk" + tag
        self.root = tempfile.mkdtemp(prefix="tappix-access-")
        os.chmod(self.root, 0o755)
        self.addCleanup(shutil.rmtree, self.root, True)
        subprocess.run(["groupadd", self.group], check=True)
        self.addCleanup(subprocess.run, ["groupdel", self.group])
        self.home = os.path.join(self.root, "home")
        subprocess.run(["useradd", "--user-group", "--no-create-home", "--home-dir", self.home,
                        "--shell", "/usr/sbin/nologin", self.user], check=True)
        self.addCleanup(subprocess.run, ["userdel", self.user])
        self.addCleanup(self.end_user_processes)
        account = pwd.getpwnam(self.user)
        self.spool = os.path.join(self.root, "spool")
        for folder in (self.home, self.spool, os.path.join(self.spool, "bin"),
                       os.path.join(self.spool, "shots")):
            os.makedirs(folder, exist_ok=True)
            os.chown(folder, account.pw_uid, account.pw_gid)
        pkexec = os.path.join(self.spool, "bin", "pkexec")
        with open(pkexec, "w") as f:
            f.write(PKEXEC % self.spool)
        os.chmod(pkexec, 0o755)
        os.makedirs(os.path.join(self.root, "ns"))

    def end_user_processes(self):
        uid = pwd.getpwnam(self.user).pw_uid
        for entry in os.listdir("/proc"):
            try:
                if entry.isdigit() and os.stat("/proc/" + entry).st_uid == uid:
                    os.kill(int(entry), 9)
            except OSError:
                continue
        time.sleep(0.5)

    def test_the_whole_path_as_a_new_user(self):
        program = os.environ["TAPPIX_PATH"]
        root = Root(self.spool, self.user, self.group)
        root.start()
        self.addCleanup(root.stopping.set)
        env = {
            "PATH": os.path.join(self.spool, "bin") + ":/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin",
            "HOME": self.home, "LANG": "C.UTF-8", "KEYBOARD_KEYS": KEYBOARD_KEYS,
            "TAPPIX_PATH": "/mnt/build/" + os.path.basename(program),
            "TAPPIX_UI_ARTIFACTS": os.path.join(self.spool, "shots"),
            "TAPPIX_ACCESS_GROUP": self.group, "TAPPIX_ACCESS_SPOOL": self.spool,
        }
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TAPPIX_UI_KEEP"):
            if name in os.environ:
                env[name] = os.environ[name]
        command = ["unshare", "--mount", "--propagation", "private", "--",
                   "sh", "-c", NAMESPACE_SETUP, "setup", os.path.join(self.root, "ns"),
                   self.group, os.path.dirname(program), HERE,
                   "setpriv", "--reuid", self.user, "--regid", self.user, "--init-groups", "--",
                   "dbus-run-session", "--", "/usr/bin/python3", "/mnt/ui/run_ui_tests.py",
                   "/mnt/ui/keyboard_access_session.py"]
        done = subprocess.run(command, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=600)
        sys.stdout.write(done.stdout)
        artifacts = os.environ.get("TAPPIX_UI_ARTIFACTS")
        if artifacts:
            os.makedirs(artifacts, exist_ok=True)
            for shot in glob.glob(os.path.join(self.spool, "shots", "*.png")):
                shutil.copy(shot, artifacts)
        self.assertEqual(done.returncode, 0, "the user's session failed (output above)")
        self.assertIn("2 passed, 0 failed", done.stdout)
        self.assertTrue(root.asked, "pkexec was never asked")
        self.assertEqual(root.wrong, [], "asked for more than the one group change")


if __name__ == "__main__":
    unittest.main()
