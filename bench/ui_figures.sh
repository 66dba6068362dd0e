#!/usr/bin/env bash
# Figures for tappix's desktop UI: resident memory at a login start and after the panel
# and the settings window were opened and closed, how soon the panel shows, CPU while
# idling in the tray, and key-to-sound latency with the tray icon up. Everything runs on
# a private Xvfb, PulseAudio and session bus, with a StatusNotifierWatcher
# (tests/ui/sni_host.py) there before tappix starts, so the tray icon is a real item.
#   bench/ui_figures.sh [BUILD_DIR] [SECONDS] [PAIRED_SCRIPT]
# SECONDS (default 60) is the idle spell; the latency part is key_latency_paired.sh with
# 30 keys, PAIRED_SCRIPT passed on to it.
set -euo pipefail
here=$(dirname "$0")
build=$(realpath "${1:-build}")
seconds=${2:-60}
. "$here/private_session.sh"
private_x 1280x800x24
private_pulse
tappix_home '{"hasSeenWelcome": true}'
# A private bus; its daemon's complaint that it may not raise its fd limit is dropped.
private_bus() { dbus-run-session -- "$@" 2> >(grep --line-buffered -v "Failed to set fd limit" >&2); }
(export $tappix_env; private_bus /usr/bin/python3 "$here/ui_figures.py" "$build/tappix" "$seconds")

echo "key-to-sound latency with the tray icon shown, ms beyond the reference (before the UI," \
    "keys 0.35 s apart: p50 -0.12 to 0.12, p90 0.67 to 0.90):"
private_bus /usr/bin/python3 "$here/ui_figures.py" --tray-host \
    "$here/key_latency_paired.sh" "$build" 30 ${3:+"$3"}
