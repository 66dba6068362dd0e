#!/usr/bin/env bash
# Typing under load: tappix in a private session (Xvfb, a private sound server with one
# null sink, a private session bus) typed at for SECONDS at RATE keys a second while a
# CPU load runs beside it; prints the output's underruns (its Underruns property on the
# bus) and how many key sounds the sink's recording holds against the keys typed.
#   bench/underrun_figures.sh [BUILD_DIR] [SECONDS] [RATE]
# SOUND_SERVER=pipewire runs it on PipeWire; LOAD is the load command (default: two
# busy loops, one per core of a 2-core machine), e.g. LOAD="make -C ../other -j2".
set -euo pipefail
build=$(realpath "${1:-build}")
seconds=${2:-60}
rate=${3:-15}
. "$(dirname "$0")/private_session.sh"
private_x
private_sound
private_bus
tappix_home '{"selectedPackId": "crisp-click", "keyUpSoundsEnabled": false, "pitchVariation": false, "hasSeenWelcome": true}'
start_tappix "$build"
sleep 2

underruns() {
    dbus-send --session --print-reply=literal --dest=app.morvane.tappix /app/morvane/tappix \
        org.freedesktop.DBus.Properties.Get string:app.morvane.tappix.Control string:Underruns |
        awk '{print $NF}'
}

if [ -n "${LOAD:-}" ]; then
    setsid sh -c "$LOAD" >/dev/null 2>&1 &
    session_pids+=(-$!)
else
    for _ in 1 2; do
        setsid sh -c 'while :; do :; done' &
        session_pids+=(-$!)
    done
fi
sleep 1

recording=$session_dir/typing.raw
parec --device=bench.monitor --format=float32le --rate=48000 --channels=2 --latency-msec=10 \
    >"$recording" &
parec=$!
sleep 0.5
before=$(underruns)
# Machine-wide CPU use over the typing: busy and total jiffies from /proc/stat.
cpu_now() { awk '/^cpu /{print $2+$3+$4+$7+$8, $2+$3+$4+$5+$6+$7+$8}' /proc/stat; }
read -r busy0 total0 < <(cpu_now)
keys=$((seconds * rate))
start=$(date +%s.%N)
type_steadily "$keys" "$rate" 0
end=$(date +%s.%N)
read -r busy1 total1 < <(cpu_now)
sleep 1
kill -INT "$parec"
wait "$parec" || true
after=$(underruns)

echo "typed $keys keys in $(echo "$end - $start" | bc -l | xargs printf '%.1f') s" \
    "($(echo "$keys / ($end - $start)" | bc -l | xargs printf '%.1f') keys/s) under load"
echo "machine CPU busy while typing: $(( 100 * (busy1 - busy0) / (total1 - total0) )) % of both cores"
echo "underruns while typing: $((after - before)) (since start: $after)"
# A key sound is a sharp rise of the 1 ms peak envelope: above 0.02 and over twice the
# loudest of the 3-8 ms before it, at least 30 ms after the last one (sounds overlap at
# 15 keys a second, so there is no silence between them to wait for).
/usr/bin/python3 -c '
import array, sys
samples = array.array("f")
with open(sys.argv[1], "rb") as f:
    samples.frombytes(f.read())
block = 96  # 1 ms of stereo samples
env = [max(map(abs, samples[i:i + block])) for i in range(0, len(samples) - block + 1, block)]
onsets, last = 0, -1000
for i in range(8, len(env)):
    if env[i] > 0.02 and env[i] > 2 * max(env[i - 8:i - 2]) and i - last >= 30:
        onsets += 1
        last = i
print(f"key sounds in the recording: {onsets}")
' "$recording"
