#!/usr/bin/env bash
# Figures for the running tappix: key-to-sound latency, CPU while idle and while
# typing, resident memory. Starts its own Xvfb, PulseAudio (one null sink) and tappix
# with a scratch home, and stops them afterwards.
#   bench/tappix_figures.sh [BUILD_DIR] [SECONDS]
set -euo pipefail
build=$(realpath "${1:-build}")
seconds=${2:-60}
. "$(dirname "$0")/private_session.sh"
private_x
private_sound
tappix_home '{"selectedPackId": "crisp-click", "keyUpSoundsEnabled": false, "pitchVariation": false, "hasSeenWelcome": true}'
log=$session_dir/tappix.log
env $tappix_env "$build/tappix" 2>"$log" &
tappix=$!; session_pids+=($tappix)
for _ in $(seq 100); do grep -q "global backend" "$log" && break; sleep 0.1; done
sleep 3

rss() { awk '/VmRSS/ {printf "%.1f MB", $2/1024}' /proc/$tappix/status; }
cpu() { awk '{print ($14 + $15) / 100}' /proc/$tappix/stat; }  # seconds, at 100 ticks/s
echo "resident memory after start: $(rss)"

"$build/bench/key_latency" 200 bench || echo "key_latency: no figure (see above)"

before=$(cpu); sleep "$seconds"; after=$(cpu)
echo "CPU over ${seconds} s idle: $(echo "$after - $before" | bc -l | xargs printf '%.2f') s"

text=$(head -c $((seconds * 10)) < /dev/zero | tr '\0' 'a')
before=$(cpu); xdotool type --delay 100 "$text"; after=$(cpu)
echo "CPU over ${seconds} s of typing at 10 keys/s: $(echo "$after - $before" | bc -l | xargs printf '%.2f') s"
echo "resident memory after typing: $(rss)"
