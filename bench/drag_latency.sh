#!/usr/bin/env bash
# Key-to-sound latency while the settings window's tone pad is being dragged: the views
# write the tone many times a second, and the sounds must not notice. Same measurement
# as key_latency_paired.sh (keys 0.35 s apart), with tappix showing the Sound page and
# xdotool sweeping the pad back and forth with the button held.
#   bench/drag_latency.sh [BUILD_DIR] [KEYS] [PAIRED_SCRIPT]
set -euo pipefail
build=$(realpath "${1:-build}")
keys=${2:-60}
script=${3:-$(dirname "$0")/../../shared/bench/key_latency_paired.py}
. "$(dirname "$0")/private_session.sh"
private_x 1280x800x24
private_pulse
export LAT_SINK=bench
# Started by hand (no autostart entry), so the settings window opens on the Sound page.
tappix_home '{"selectedPackId": "crisp-click", "keyUpSoundsEnabled": false, "pitchVariation": false, "hasSeenWelcome": true, "lastSettingsPage": "sounds"}'
rm -f "$session_dir/home/.config/autostart/app.morvane.tappix.desktop"
# The command the measurement runs: tappix, and once its window is up, the sweep.
cat >"$session_dir/with-drag.sh" <<SCRIPT
#!/usr/bin/env bash
env $tappix_env "$build/tappix" & app=\$!
trap 'kill \$app \$sweep 2>/dev/null; wait \$app' TERM INT EXIT
for _ in \$(seq 100); do xdotool search --name "Tappix Settings" >/dev/null 2>&1 && break; sleep 0.05; done
# The pad spans about x 245-773, y 252-400 of the window at the screen's corner; stay
# near its bright top edge so the keys stay as loud.
(xdotool mousemove 300 262 mousedown 1
 while true; do
     for x in \$(seq 300 8 700) \$(seq 700 -8 300); do xdotool mousemove \$x 266; sleep 0.01; done
 done) & sweep=\$!
wait \$app
SCRIPT
chmod +x "$session_dir/with-drag.sh"
printf 'gap 0.35 s, tone pad dragged: '
/usr/bin/python3 "$script" "$session_dir/work" "$keys" 0.35 --cmd "$session_dir/with-drag.sh"
# The sweep really moved the tone (1 is where it starts).
printf 'tone written while typing: %s\n' \
    "$(grep -o '"tonePitch": [0-9.]*' "$session_dir/home/.config/tappix/preferences.json" || echo none)"
