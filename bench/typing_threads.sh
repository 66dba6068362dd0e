#!/usr/bin/env bash
# Where tappix spends CPU while typing: run time and wake-ups of each thread, from the
# scheduler's own counts (/proc/PID/task/*/schedstat), over SECONDS of typing at RATE
# keys a second (10 unless set), each released HOLD_MS after its press (50 unless set),
# with release sounds on: 20 sounds a second, evenly spaced. Starts its own Xvfb, sound
# server (SOUND_SERVER=pipewire for PipeWire) and tappix with a scratch home. The share
# of a core is taken over the typing's measured length.
#   bench/typing_threads.sh [BUILD_DIR] [SECONDS]
set -euo pipefail
build=$(realpath "${1:-build}")
seconds=${2:-20}
. "$(dirname "$0")/private_session.sh"
private_x
private_sound
private_bus
tappix_home '{"selectedPackId": "'"${KIT:-crisp-click}"'", "keyUpSoundsEnabled": '"${KEY_UP:-true}"', "pitchVariation": false, "hasSeenWelcome": true}'
start_tappix "$build"
sleep 3

# "name run_ns slices" per thread name, summed over threads of the same name.
threads() {
    for t in /proc/$tappix/task/*; do
        printf '%s %s\n' "$(tr ' ' _ <"$t/comm")" "$(cat "$t/schedstat" 2>/dev/null || echo '0 0 0')"
    done | awk '{n[$1] += $2; s[$1] += $4} END {for (k in n) print k, n[k], s[k]}' | sort
}
report() { # before after seconds (the length of what was measured)
    join "$1" "$2" | awk -v secs="$3" '
        { ms = ($4 - $2) / 1e6; w = ($5 - $3) / secs; if (ms > 0.05 || w > 0.5) {
              printf "  %-18s %7.1f ms  %6.1f wakes/s\n", $1, ms, w; tms += ms; tw += w } }
        END { printf "  %-18s %7.1f ms  %6.1f wakes/s  (%.2f %% of a core)\n", "all", tms, tw, tms / (secs * 10) }'
}
threads >"$session_dir/idle-before"; sleep "$seconds"; threads >"$session_dir/idle-after"
echo "idle, ${seconds} s:"; report "$session_dir/idle-before" "$session_dir/idle-after" "$seconds"
rate=${RATE:-10}
hold_ms=${HOLD_MS:-50}
threads >"$session_dir/typing-before"
start=$(date +%s.%N)
type_steadily "$((seconds * rate))" "$rate" "$hold_ms"
end=$(date +%s.%N)
threads >"$session_dir/typing-after"
elapsed=$(echo "$end - $start" | bc -l)
echo "typing at $rate keys/s, $(printf '%.1f' "$elapsed") s (release sounds: ${KEY_UP:-true}):"
report "$session_dir/typing-before" "$session_dir/typing-after" "$elapsed"
