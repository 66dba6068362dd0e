#!/usr/bin/env bash
# Figures for the running tappix: key-to-sound latency, CPU while idle and while
# typing, resident memory. Starts its own Xvfb, PulseAudio (one null sink) and tappix
# with a scratch home, and stops them afterwards.
#   bench/tappix_figures.sh [BUILD_DIR] [SECONDS]
# KEY_UP=true plays release sounds too (two sounds a key typed); KIT names the kit.
set -euo pipefail
build=$(realpath "${1:-build}")
seconds=${2:-60}
. "$(dirname "$0")/private_session.sh"
private_x
private_sound
tappix_home '{"selectedPackId": "'"${KIT:-crisp-click}"'", "keyUpSoundsEnabled": '"${KEY_UP:-false}"', "pitchVariation": false, "hasSeenWelcome": true}'
start_tappix "$build"
sleep 3

rss() { awk '/VmRSS/ {printf "%.1f MB", $2/1024}' /proc/$tappix/status; }
cpu() { awk '{print ($14 + $15) / 100}' /proc/$tappix/stat; }  # seconds, at 100 ticks/s
echo "resident memory after start: $(rss)"

"$build/bench/key_latency" 200 bench || echo "key_latency: no figure (see above)"

before=$(cpu); sleep "$seconds"; after=$(cpu)
echo "CPU over ${seconds} s idle: $(echo "$after - $before" | bc -l | xargs printf '%.2f') s"

# CPU ticks of each thread, by name: "name ticks" lines.
threads() {
    for t in /proc/$tappix/task/*; do
        printf '%s %s\n' "$(tr ' ' _ <"$t/comm")" "$(sed 's/.*) //' "$t/stat" | awk '{print $12 + $13}')"
    done | awk '{n[$1] += $2} END {for (k in n) print k, n[k]}' | sort
}
text=$(head -c $((seconds * 10)) < /dev/zero | tr '\0' 'a')
threads >"$session_dir/threads-before"
before=$(cpu); xdotool type --delay 100 "$text"; after=$(cpu)
threads >"$session_dir/threads-after"
echo "CPU over ${seconds} s of typing at 10 keys/s: $(echo "$after - $before" | bc -l | xargs printf '%.2f') s"
echo "  by thread (s): $(join "$session_dir/threads-before" "$session_dir/threads-after" |
    awk '$3 > $2 {printf "%s %.2f, ", $1, ($3 - $2) / 100}' | sed 's/, $//')"
echo "resident memory after typing: $(rss)"
