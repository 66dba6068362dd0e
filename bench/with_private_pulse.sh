#!/usr/bin/env bash
# Runs a command against a private PulseAudio server with one 48 kHz float null sink,
# started here and stopped afterwards. Nothing system-wide is touched.
#   bench/with_private_pulse.sh COMMAND [ARGS...]
set -euo pipefail
. "$(dirname "$0")/private_session.sh"
private_pulse
"$@"
