#!/usr/bin/env bash
# Figures for the running tappix: key-to-sound latency, CPU while idle and while
# typing, resident memory. Starts its own Xvfb, PulseAudio (one null sink) and tappix
# with a scratch home, and stops them afterwards.
#   bench/tappix_figures.sh [BUILD_DIR] [SECONDS]
set -euo pipefail
build=$(realpath "${1:-build}")
seconds=${2:-60}
dir=$(mktemp -d)
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; sleep 0.5; rm -rf "$dir"; }
trap cleanup EXIT

Xvfb -displayfd 1 -screen 0 640x480x24 -nolisten tcp >"$dir/display" 2>/dev/null & pids+=($!)
for _ in $(seq 100); do [ -s "$dir/display" ] && break; sleep 0.05; done
export DISPLAY=":$(head -1 "$dir/display")" XDG_SESSION_TYPE=x11
unset WAYLAND_DISPLAY

HOME=$dir XDG_RUNTIME_DIR=$dir PULSE_RUNTIME_PATH=$dir/runtime \
    pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no \
    -L "module-native-protocol-unix socket=$dir/native auth-anonymous=1" \
    -L "module-null-sink sink_name=bench rate=48000 format=float32le channels=2 sink_properties=device.description=Bench" \
    2>/dev/null & pids+=($!)
export PULSE_SERVER=unix:$dir/native PULSE_CLIENTCONFIG=$dir/client.conf
for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.05; done

mkdir -p "$dir/config/tappix"
cat > "$dir/config/tappix/preferences.json" <<'JSON'
{"selectedPackId": "crisp-click", "keyUpSoundsEnabled": false, "pitchVariation": false}
JSON
HOME=$dir XDG_CONFIG_HOME=$dir/config XDG_DATA_HOME=$dir/data XDG_RUNTIME_DIR=$dir "$build/tappix" 2>"$dir/tappix.log" &
tappix=$!; pids+=($tappix)
for _ in $(seq 100); do grep -q "global backend" "$dir/tappix.log" && break; sleep 0.1; done
sleep 3

rss() { awk '/VmRSS/ {printf "%.1f MB", $2/1024}' /proc/$tappix/status; }
cpu() { awk '{print ($14 + $15) / 100}' /proc/$tappix/stat; }  # seconds, at 100 ticks/s
echo "resident memory after start: $(rss)"

"$build/bench/key_latency" 200 bench

before=$(cpu); sleep "$seconds"; after=$(cpu)
echo "CPU over ${seconds} s idle: $(echo "$after - $before" | bc -l | xargs printf '%.2f') s"

text=$(head -c $((seconds * 10)) < /dev/zero | tr '\0' 'a')
before=$(cpu); xdotool type --delay 100 "$text"; after=$(cpu)
echo "CPU over ${seconds} s of typing at 10 keys/s: $(echo "$after - $before" | bc -l | xargs printf '%.2f') s"
echo "resident memory after typing: $(rss)"
