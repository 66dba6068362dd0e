#!/usr/bin/env bash
# Runs a command against a private PulseAudio server with one 48 kHz float null sink,
# started here and stopped afterwards. Nothing system-wide is touched.
#   bench/with_private_pulse.sh COMMAND [ARGS...]
set -euo pipefail
dir=$(mktemp -d)
trap 'kill "$server" 2>/dev/null; wait "$server" 2>/dev/null; rm -rf "$dir"' EXIT
HOME=$dir XDG_RUNTIME_DIR=$dir PULSE_RUNTIME_PATH=$dir/runtime \
    pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --log-target=stderr \
    -L "module-native-protocol-unix socket=$dir/native auth-anonymous=1" \
    -L "module-null-sink sink_name=bench rate=48000 format=float32le channels=2 sink_properties=device.description=Bench" \
    2>"$dir/server.log" &
server=$!
export PULSE_SERVER=unix:$dir/native PULSE_CLIENTCONFIG=$dir/client.conf
for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.05; done
"$@"
