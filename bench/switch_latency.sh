#!/usr/bin/env bash
# Key-to-sound latency while kits change: the paired measurement (keys 0.35 s apart
# against a 2 ms-buffer reference stream, see key_latency_paired.sh) run twice on the
# same private session, first with nothing else going on, then with tappix's kit switched
# and its mix changed once a second each, alternately, over the bus (cycling through
# KITS, and between no mix and a mix that gives Space and Return to other kits).
#   bench/switch_latency.sh [BUILD_DIR] [KEYS] [PAIRED_SCRIPT]
# Prints one JSON line per run. SOUND_SERVER=pipewire runs it on PipeWire.
set -euo pipefail
build=$(realpath "${1:-build}")
keys=${2:-60}
script=${3:-$(dirname "$0")/../../shared/bench/key_latency_paired.py}
kits=(${KITS:-crisp-click walnut-thock ibm-buckling-spring})
. "$(dirname "$0")/private_session.sh"
private_x
private_sound
private_bus
export LAT_SINK=bench
mix='{"id": "switching", "name": "Switching", "assignments": {"space": {"packId": "'"${kits[1]}"'"}, "enter": {"packId": "'"${kits[2]}"'"}}}'
prefs='{"selectedPackId": "'"${kits[0]}"'", "keyUpSoundsEnabled": false, "pitchVariation": false, "hasSeenWelcome": true, "soundMixes": ['"$mix"']}'

set_property() { # NAME VALUE
    dbus-send --session --print-reply --dest=app.morvane.tappix /app/morvane/tappix \
        org.freedesktop.DBus.Properties.Set string:app.morvane.tappix.Control "string:$1" \
        "variant:string:$2" >/dev/null 2>&1
}
switcher() {
    local i=0
    while :; do
        sleep 1
        if ((i % 2 == 0)); then
            set_property Kit "${kits[$(((i / 2 + 1) % ${#kits[@]}))]}" || true
        elif ((i % 4 == 1)); then
            set_property Mix switching || true
        else
            set_property Mix "" || true
        fi
        i=$((i + 1))
    done
}

for mode in steady switching; do
    tappix_home "$prefs"
    run="env $tappix_env $build/tappix"
    switcher_pid=
    if [ "$mode" = switching ]; then
        switcher &
        switcher_pid=$!
        session_pids+=($switcher_pid)
    fi
    printf '%s: ' "$mode"
    GAP=0.35
    /usr/bin/python3 "$script" "$session_dir/work-$mode" "$keys" "$GAP" --cmd "$run"
    [ -z "$switcher_pid" ] || kill "$switcher_pid" 2>/dev/null || true
done
echo "load average at the end: $(cut -d' ' -f1-3 /proc/loadavg)"
