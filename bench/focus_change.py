#!/usr/bin/python3
"""Plays the window manager for bench/focus_figures.sh (python3-xlib).

    focus_change.py setup CLASS...           makes one window per class, puts the first in
                                             front, prints their ids, and keeps them open
    focus_change.py measure IDS LOG N        switches between the first two windows N
                                             times and prints how long tappix took to log
                                             each sleep or wake (its log lines start with
                                             Qt's %{time boot}, the same clock as
                                             time.monotonic())
"""

import statistics
import sys
import time

from Xlib import X, Xatom, display


def activate(d, window_id):
    root = d.screen().root
    root.change_property(d.intern_atom("_NET_ACTIVE_WINDOW"), Xatom.WINDOW, 32, [window_id])
    d.sync()


def setup(classes):
    d = display.Display()
    ids = []
    for name in classes:
        w = d.screen().root.create_window(0, 0, 40, 40, 0, d.screen().root_depth)
        w.set_wm_class(name.lower(), name)
        ids.append(w.id)
    activate(d, ids[0])
    print(" ".join(map(str, ids)), flush=True)
    while True:
        time.sleep(3600)


def log_lines(path):
    with open(path, errors="replace") as f:
        return f.read().splitlines()


def measure(ids_path, log_path, count):
    with open(ids_path) as f:
        listed, other = map(int, f.read().split()[:2])
    d = display.Display()
    delays = []
    for i in range(count):
        target, wanted = (other, "awake") if i % 2 == 0 else (listed, "sleeping:")
        seen = len(log_lines(log_path))
        start = time.monotonic()
        activate(d, target)
        deadline = start + 5
        stamp = None
        while stamp is None and time.monotonic() < deadline:
            for line in log_lines(log_path)[seen:]:
                if wanted in line:
                    stamp = float(line.split()[0])
                    break
            else:
                time.sleep(0.005)
        if stamp is None:
            print("no %r line after a focus change" % wanted)
            continue
        delays.append((stamp - start) * 1000)
        time.sleep(0.3)
    delays.sort()
    if delays:
        print("focus change to sleep/wake decision (the duck), %d changes: median %.1f ms, "
              "p90 %.1f ms, max %.1f ms" % (
                  len(delays), statistics.median(delays),
                  delays[min(len(delays) - 1, int(0.9 * len(delays)))], delays[-1]))


if __name__ == "__main__":
    if sys.argv[1] == "setup":
        setup(sys.argv[2:])
    else:
        measure(sys.argv[2], sys.argv[3], int(sys.argv[4]))
