#!/usr/bin/env bash
# Figures for the window sleep triggers: wake-ups of the tappix process over an idle
# spell with the triggers off and on (nothing changes focus meanwhile), then the time from
# a focus change (the root's _NET_ACTIVE_WINDOW set by this script, as a window manager
# would) to tappix deciding to sleep or wake, which is the moment it sets the mixer's duck.
# Starts its own Xvfb, PulseAudio and tappix with a scratch home, and stops them after.
#   bench/focus_figures.sh [BUILD_DIR] [SECONDS] [CHANGES]
set -euo pipefail
build=$(realpath "${1:-build}")
seconds=${2:-60}
changes=${3:-40}
here=$(dirname "$(realpath "$0")")
. "$here/private_session.sh"
private_x
private_pulse

# Context switches of every thread of the process (or of the main thread, where the focus
# source lives): each is a wake-up or a preemption.
switches() {
    cat /proc/"$1"/task/${2:-*}/status 2>/dev/null |
        awk '/^(voluntary|nonvoluntary)_ctxt_switches/ {n += $2} END {print n}'
}

run() { # NAME PREFERENCES: starts tappix, waits for it to settle, counts over the spell
    tappix_home "$2"
    log=$session_dir/tappix-$1.log
    env $tappix_env QT_MESSAGE_PATTERN='%{time boot} %{message}' ASAN_OPTIONS=detect_leaks=0 \
        "$build/tappix" >"$log" 2>&1 &
    tappix=$!
    session_pids+=($tappix)
    for _ in $(seq 200); do grep -q "global backend" "$log" && break; sleep 0.1; done
    sleep 5
    local before after main_before main_after
    before=$(switches $tappix)
    main_before=$(switches $tappix $tappix)
    sleep "$seconds"
    after=$(switches $tappix)
    main_after=$(switches $tappix $tappix)
    printf '%-14s over %d s idle: %.2f context switches per second, main thread %.2f\n' \
        "$1:" "$seconds" "$(echo "($after - $before) / $seconds" | bc -l)" \
        "$(echo "($main_after - $main_before) / $seconds" | bc -l)"
}

stop_tappix() {
    kill "$tappix"
    wait "$tappix" 2>/dev/null || true
    rm -rf "$session_dir/home"
}

base='"hasSeenWelcome": true, "sleepEnabled": true, "sleepVolume": 0.0'
# A window of a listed class is made and put in front first, so "on" idles asleep.
/usr/bin/python3 "$here/focus_change.py" setup Notes Editor >"$session_dir/windows" &
session_pids+=($!)
for _ in $(seq 100); do [ -s "$session_dir/windows" ] && break; sleep 0.05; done

run "triggers off" "{$base}"
stop_tappix
run "triggers on" "{$base, \"sleepTriggerApps\": true, \"sleepTriggerFullScreen\": true, \"sleepAppIds\": [\"Notes\"]}"
/usr/bin/python3 "$here/focus_change.py" measure "$session_dir/windows" "$log" "$changes"
stop_tappix
