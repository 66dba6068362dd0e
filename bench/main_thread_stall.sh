#!/usr/bin/env bash
# The longest stall of Tappix's main-thread event loop over SECONDS with every sleep
# trigger on (microphone, camera, headphones, speakers, full screen, listed apps): a
# precise 1 ms timer's lateness on that thread (bench/main_thread_stall.cpp). None of the
# triggers holds, so every poll asks every question. The last line leaves out the stalls the
# machine caused (see the program's comment): that is the figure to judge. Runs in a
# private session: Xvfb, a private sound server with one null sink (SOUND_SERVER=pipewire
# for PipeWire), a private session bus and a scratch home. With TRIGGERS=off the same run has every trigger off,
# as a control for what the machine's own load adds. With HUNG_SERVER=1 the sound server
# is stopped (SIGSTOP) once Tappix runs, so every device question waits out its timeout.
#   bench/main_thread_stall.sh [BUILD_DIR] [SECONDS]
set -euo pipefail
build=$(realpath "${1:-build}")
seconds=${2:-60}
. "$(dirname "$0")/private_session.sh"
private_x
private_sound
server=${session_pids[-1]}
private_bus
on=true
[ "${TRIGGERS:-on}" = off ] && on=false
tappix_home "{\"selectedPackId\": \"crisp-click\", \"hasSeenWelcome\": true, \"sleepEnabled\": $on,
  \"sleepTriggerMicrophone\": $on, \"sleepTriggerCamera\": $on, \"sleepTriggerHeadphones\": $on,
  \"sleepTriggerSpeakers\": $on, \"sleepTriggerFullScreen\": $on, \"sleepTriggerApps\": $on,
  \"sleepAppIds\": [\"org.example.Notes\"]}"
echo "processes on this machine: $(ls -d /proc/[0-9]* | wc -l); load average: $(cut -d' ' -f1-3 /proc/loadavg)"
env $tappix_env "$build/bench/main_thread_stall" "$seconds" 2>"$session_dir/tappix.log" &
bench=$!
if [ "${HUNG_SERVER:-0}" = 1 ]; then
    sleep 2
    kill -STOP -- "$server"
fi
wait $bench
[ "${HUNG_SERVER:-0}" = 1 ] && kill -CONT -- "$server"
grep -E 'sleeping|camera|cannot watch' "$session_dir/tappix.log" || true
