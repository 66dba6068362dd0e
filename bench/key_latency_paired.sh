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
. "$(dirname "$0")/private_session.sh"
private_x
private_sound
export LAT_SINK=bench
# EXTRA_PREFS adds preference members, e.g. EXTRA_PREFS='"visualizerEnabled": true'.
tappix_home '{"selectedPackId": "crisp-click", "keyUpSoundsEnabled": false, "pitchVariation": false, "hasSeenWelcome": true'"${EXTRA_PREFS:+, $EXTRA_PREFS}"'}'
run="env $tappix_env $build/tappix"
for gap in ${GAPS:-0.35 3}; do
    n=$keys
    [ "$gap" = 3 ] && n=$(( (keys + 2) / 3 ))
    printf 'gap %s s: ' "$gap"
    /usr/bin/python3 "$script" "$session_dir/work-$gap" "$n" "$gap" --cmd "$run"
done
