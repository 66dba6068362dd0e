#!/usr/bin/env bash
# Key-to-sound latency of tappix against a steady 2 ms-buffer reference stream on the
# same sink, for keys typed close together and for keys after a quiet spell. Starts its
# own Xvfb and PulseAudio (one null sink) and runs tappix with a scratch home through
# the paired measurement script (python3-xlib, Debian's /usr/bin/python3).
#   bench/key_latency_paired.sh [BUILD_DIR] [KEYS] [PAIRED_SCRIPT]
# Prints one JSON line per spacing: keys 0.35 s apart, then keys 3 s apart (GAPS="0.35"
# for one of them).
set -euo pipefail
build=$(realpath "${1:-build}")
keys=${2:-60}
script=${3:-$(dirname "$0")/../../shared/bench/key_latency_paired.py}
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
export PULSE_SERVER=unix:$dir/native PULSE_CLIENTCONFIG=$dir/client.conf LAT_SINK=bench
for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.05; done

mkdir -p "$dir/config/tappix"
cat > "$dir/config/tappix/preferences.json" <<'JSON'
{"selectedPackId": "crisp-click", "keyUpSoundsEnabled": false, "pitchVariation": false}
JSON
run="env HOME=$dir XDG_CONFIG_HOME=$dir/config XDG_DATA_HOME=$dir/data $build/tappix"
for gap in ${GAPS:-0.35 3}; do
    n=$keys
    [ "$gap" = 3 ] && n=$(( (keys + 2) / 3 ))
    printf 'gap %s s: ' "$gap"
    /usr/bin/python3 "$script" "$dir/work-$gap" "$n" "$gap" --cmd "$run"
done
