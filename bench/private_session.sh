# Sourced by the bench scripts: a private X server and PulseAudio server for this run,
# and a scratch home for tappix, all in $session_dir. Whatever is started here (and
# whatever the script adds to session_pids) is stopped, and the directory removed, when
# the script exits. Nothing system-wide is touched.
#   private_x        Xvfb on a free display; exports DISPLAY
#   private_pulse    PulseAudio with one 48 kHz float null sink "bench"; exports PULSE_SERVER
#   private_pipewire the same sink on PipeWire + WirePlumber + pipewire-pulse, inside a
#                    session bus of their own, with WirePlumber's device monitors off
#   private_sound    private_pipewire when SOUND_SERVER=pipewire, else private_pulse
#   start_tappix BUILD_DIR
#                    runs BUILD_DIR/tappix in that home, its log in $log and its pid in
#                    $tappix, and waits until it captures keys
#   tappix_home PREFERENCES_JSON
#                    preferences and an autostart entry under $session_dir/home, so tappix
#                    starts as it does at login: in the tray, no window. Sets tappix_env to
#                    the HOME/XDG assignments to run it with (env $tappix_env tappix).
session_dir=$(mktemp -d)
session_pids=()
session_stop() {
    local p
    # A negative id is a process group (a whole server stack).
    for p in "${session_pids[@]}"; do kill -- "$p" 2>/dev/null || true; done
    for p in "${session_pids[@]}"; do wait "${p#-}" 2>/dev/null || true; done
    rm -rf "$session_dir"
}
trap session_stop EXIT

private_x() {
    Xvfb -displayfd 1 -screen 0 "${1:-640x480x24}" -nolisten tcp >"$session_dir/display" 2>/dev/null &
    session_pids+=($!)
    for _ in $(seq 100); do [ -s "$session_dir/display" ] && break; sleep 0.05; done
    export DISPLAY=":$(head -1 "$session_dir/display")" XDG_SESSION_TYPE=x11
    unset WAYLAND_DISPLAY
}

private_pulse() {
    HOME=$session_dir XDG_RUNTIME_DIR=$session_dir PULSE_RUNTIME_PATH=$session_dir/runtime \
        pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --log-target=stderr \
        -L "module-null-sink sink_name=bench rate=48000 format=float32le channels=2 sink_properties=device.description=Bench" \
        -L "module-native-protocol-unix socket=$session_dir/native auth-anonymous=1" \
        2>"$session_dir/pulse.log" &
    session_pids+=($!)
    export PULSE_SERVER=unix:$session_dir/native PULSE_CLIENTCONFIG=$session_dir/client.conf
    for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.05; done
}

private_pipewire() {
    local rt=$session_dir/pw-runtime wp=$session_dir/pw-config/wireplumber
    mkdir -p "$rt" "$wp/main.lua.d" "$wp/bluetooth.lua.d"
    chmod 700 "$rt"
    printf 'alsa_monitor.enabled = false\nv4l2_monitor.enabled = false\nlibcamera_monitor.enabled = false\n' \
        >"$wp/main.lua.d/51-bench.lua"
    printf 'bluez_monitor.enabled = false\n' >"$wp/bluetooth.lua.d/51-bench.lua"
    # Its own process group (setsid), so stopping the session takes the whole stack.
    env -u PULSE_SERVER -u DBUS_SESSION_BUS_ADDRESS -u DISPLAY HOME=$session_dir XDG_RUNTIME_DIR=$rt \
        XDG_CONFIG_HOME=$session_dir/pw-config XDG_STATE_HOME=$session_dir/pw-state \
        setsid dbus-run-session -- sh -c 'pipewire & i=0; while [ ! -S "$XDG_RUNTIME_DIR/pipewire-0" ] && [ $i -lt 100 ]; do sleep 0.05; i=$((i+1)); done; wireplumber & pipewire-pulse & wait' \
        2>"$session_dir/pipewire.log" &
    session_pids+=(-$!)
    export PULSE_SERVER=unix:$rt/pulse/native PULSE_CLIENTCONFIG=$session_dir/client.conf
    for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.05; done
    pactl load-module module-null-sink sink_name=bench rate=48000 format=float32le channels=2 \
        sink_properties=device.description=Bench >/dev/null
    for _ in $(seq 50); do
        pactl set-default-sink bench
        pactl info | grep -q '^Default Sink: bench$' && break
        sleep 0.1
    done
}

private_sound() {
    if [ "${SOUND_SERVER:-pulseaudio}" = pipewire ]; then private_pipewire; else private_pulse; fi
}

# A session bus of its own, for the remote control and the tray.
private_bus() {
    dbus-daemon --session --nofork --print-address=3 3>"$session_dir/bus" 2>/dev/null &
    session_pids+=($!)
    for _ in $(seq 100); do [ -s "$session_dir/bus" ] && break; sleep 0.05; done
    export DBUS_SESSION_BUS_ADDRESS=$(head -1 "$session_dir/bus")
}

tappix_home() {
    local home=$session_dir/home
    mkdir -p "$home/.config/tappix" "$home/.config/autostart" "$home/.local/share" "$home/runtime"
    chmod 700 "$home/runtime"
    printf '%s\n' "$1" >"$home/.config/tappix/preferences.json"
    printf '[Desktop Entry]\nType=Application\nName=Tappix\nExec=tappix\n' \
        >"$home/.config/autostart/app.morvane.tappix.desktop"
    tappix_env="HOME=$home XDG_CONFIG_HOME=$home/.config XDG_DATA_HOME=$home/.local/share XDG_RUNTIME_DIR=$home/runtime"
}

start_tappix() {
    log=$session_dir/tappix.log
    env $tappix_env "$1/tappix" 2>"$log" &
    tappix=$!
    session_pids+=($tappix)
    for _ in $(seq 100); do grep -q "global backend" "$log" && break; sleep 0.1; done
}

# type_steadily KEYS RATE HOLD_MS [CHARS] [TIMES]: XTest presses at a steady RATE a second
# (xdotool type paces itself unevenly, and at about twice the rate its --delay suggests),
# each released HOLD_MS after its press, cycling through CHARS (default "a"); every
# press's wall-clock time goes to the file TIMES when given. Run with &, the typist is the
# background job itself, so $! names it for kill and wait.
type_steadily() {
    local run=
    ((BASH_SUBSHELL)) && run=exec
    $run /usr/bin/python3 -c '
import sys, time
from Xlib import X, XK, display
from Xlib.ext import xtest
d = display.Display()
keys, rate, hold = int(sys.argv[1]), float(sys.argv[2]), float(sys.argv[3]) / 1000
codes = [d.keysym_to_keycode(XK.string_to_keysym(c)) for c in sys.argv[4]]
out = open(sys.argv[5], "w", buffering=1) if sys.argv[5] else None
t0 = time.monotonic()
for i in range(keys):
    time.sleep(max(0.0, t0 + i / rate - time.monotonic()))
    code = codes[i % len(codes)]
    if out:
        out.write(f"{time.time():.6f}\n")
    xtest.fake_input(d, X.KeyPress, code); d.sync()
    if hold:
        time.sleep(hold)
    xtest.fake_input(d, X.KeyRelease, code); d.sync()
' "$1" "$2" "$3" "${4:-a}" "${5:-}"
}
