#!/usr/bin/env bash
# A long stretch of typing with kit switches and sound-server restarts: tappix in a private
# session (Xvfb, a private sound server with one null sink, a private session bus), typed
# at RATE keys a second (press and release, release sounds on) for SECONDS, its kit
# switched over the bus every SWITCH_S seconds (cycling through KITS), and the sound
# server killed every RESTART_S seconds and started again OUTAGE_S seconds later.
# Prints tappix's resident memory every minute and its growth from the end of the first
# minute (every kit decoded once by then) to the end, and for each restart: the keys typed
# while the server was away, and over what the sink played in the first seconds after it
# came back (on a fresh PulseAudio the recording starts about 2 s late, partly the
# recorder's own start, partly a sink that asks for nothing at first): the loudest 10 ms
# against the loudest single key before the restart, and the key sounds against the keys
# typed in that stretch (a release far enough from its press counts as a sound of its own).
#   bench/soak_figures.sh [BUILD_DIR] [SECONDS] [RATE]
# SOUND_SERVER=pipewire runs it on PipeWire.
set -euo pipefail
build=$(realpath "${1:-build}")
seconds=${2:-600}
rate=${3:-10}
switch_s=${SWITCH_S:-7}
restart_s=${RESTART_S:-60}
outage_s=${OUTAGE_S:-3}
kits=(${KITS:-crisp-click walnut-thock ibm-buckling-spring})
. "$(dirname "$0")/private_session.sh"
private_x
private_sound
server=${session_pids[-1]}
private_bus
tappix_home '{"selectedPackId": "'"${kits[0]}"'", "keyUpSoundsEnabled": true, "pitchVariation": false, "hasSeenWelcome": true}'
start_tappix "$build"
sleep 2

rss_kb() { awk '/VmRSS/ {print $2}' /proc/$tappix/status; }
set_kit() {
    dbus-send --session --print-reply --dest=app.morvane.tappix /app/morvane/tappix \
        org.freedesktop.DBus.Properties.Set string:app.morvane.tappix.Control string:Kit \
        "variant:string:$1" >/dev/null 2>&1 || echo "could not switch to $1"
}
now() { date +%s.%N; }
record() { # FILE: the sink's monitor, until the server goes away or the script ends
    parec --device=bench.monitor --format=float32le --rate=48000 --channels=2 \
        --latency-msec=10 >"$1" 2>/dev/null &
    recorder=$!
}
kill_server() {
    kill -KILL -- "$server" 2>/dev/null || true
    wait "${server#-}" 2>/dev/null || true
    # A killed PipeWire leaves its sockets behind; the next start makes them anew.
    rm -f "$session_dir"/pw-runtime/pipewire-0 "$session_dir"/pw-runtime/pipewire-0.lock \
        "$session_dir"/pw-runtime/pulse/native
}

# The typist: XTest presses at a steady rate, each release 30 ms after its press; every
# press's wall-clock time goes to keys.txt.
keys=$((seconds * rate))
type_steadily "$keys" "$rate" 30 asdfjkl "$session_dir/keys.txt" &
typist=$!
session_pids+=($typist)

start=$(now)
round=0
record "$session_dir/before-1.raw"
restarts=()
memory=("0 $(rss_kb)")
next_switch=$switch_s
next_restart=$restart_s
next_memory=60
kit=0
while kill -0 "$typist" 2>/dev/null; do
    sleep 0.2
    t=$(echo "$(now) - $start" | bc -l)
    if (($(echo "$t >= $next_switch" | bc -l))); then
        kit=$(((kit + 1) % ${#kits[@]}))
        set_kit "${kits[$kit]}"
        next_switch=$((next_switch + switch_s))
    fi
    if (($(echo "$t >= $next_memory" | bc -l))); then
        memory+=("$next_memory $(rss_kb)")
        next_memory=$((next_memory + 60))
    fi
    if (($(echo "$t >= $next_restart" | bc -l))) && ((next_restart + outage_s + 2 < seconds)); then
        round=$((round + 1))
        killed=$(now)
        kill_server
        kill "$recorder" 2>/dev/null || true
        sleep "$outage_s"
        private_sound
        server=${session_pids[-1]}
        back=$(now)
        record "$session_dir/after-$round.raw"
        sleep 4
        kill -INT "$recorder" 2>/dev/null || true
        stopped=$(now)
        record "$session_dir/before-$((round + 1)).raw"
        restarts+=("$round $killed $back $stopped")
        next_restart=$((next_restart + restart_s))
    fi
done
kill -INT "$recorder" 2>/dev/null || true
memory+=("end $(rss_kb)")

echo "typed $keys keys at $rate a second over $seconds s (release sounds on), kit switched" \
    "every $switch_s s, server restarted every $restart_s s ($outage_s s away)" \
    "on ${SOUND_SERVER:-pulseaudio}"
echo "load average at the end: $(cut -d' ' -f1-3 /proc/loadavg)"
for m in "${memory[@]}"; do
    set -- $m
    echo "resident memory at $1 s: $(echo "$2 / 1024" | bc -l | xargs printf '%.1f') MB"
done
first=$(echo "${memory[1]:-${memory[0]}}" | cut -d' ' -f2)
last=$(echo "${memory[-1]}" | cut -d' ' -f2)
echo "growth from 60 s to the end: $(echo "($last - $first) / 1024" | bc -l | xargs printf '%.2f') MB"
echo "sounds tappix dropped rather than play late: $(grep -o 'dropped [0-9]* sounds' "$log" |
    awk '{n += $2} END {print n + 0}')"
for r in "${restarts[@]}"; do
    set -- $r
    /usr/bin/python3 -c '
import array, sys
round_, killed, back, stopped = sys.argv[1], float(sys.argv[2]), float(sys.argv[3]), float(sys.argv[4])
work = sys.argv[5]
typed = [float(x) for x in open(f"{work}/keys.txt")]
away = sum(killed <= t < back for t in typed)
def envelope(path):
    s = array.array("f")
    try:
        s.frombytes(open(path, "rb").read())
    except OSError:
        pass
    block = 480 * 2  # 10 ms of stereo
    return [max(map(abs, s[i:i + block])) for i in range(0, len(s) - block + 1, block)]
before = envelope(f"{work}/before-{round_}.raw")
heard = envelope(f"{work}/after-{round_}.raw")
# The recording ends when it was stopped, so it began its length before that.
began = stopped - len(heard) * 0.01
after = sum(began <= t < stopped - 0.1 for t in typed)
single = max(before) if before else 0
loudest = max(heard) if heard else 0
onsets, last = 0, -100
for i in range(1, len(heard)):
    if heard[i] > 0.02 and heard[i] > 2 * heard[i - 1] and i - last >= 4:
        onsets += 1
        last = i
if not heard:
    print(f"restart {round_}: {away} keys typed while the server was away; nothing was "
          f"recorded in the {stopped - back:.1f} s after it came back")
    sys.exit()
print(f"restart {round_}: {away} keys typed while the server was away; the sink played "
      f"again {began - back:.1f} s after it came back, and in the {stopped - began:.1f} s "
      f"recorded from then the loudest 10 ms was {loudest:.2f} (a single key before: "
      f"{single:.2f}), {onsets} key sounds for {after} keys typed")
' "$1" "$2" "$3" "$4" "$session_dir"
done
