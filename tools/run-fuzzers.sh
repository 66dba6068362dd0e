#!/usr/bin/env bash
# Runs every fuzz target built in BUILD for SECONDS each, starting from the seed
# corpora in fuzz/corpus (copied, so the seeds stay as committed) plus audio seeds
# made here with sox. Crash inputs land in BUILD/artifacts; exits 1 if any target
# found one. Usage: tools/run-fuzzers.sh BUILD SECONDS [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
seconds=$2
shift 2
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(kit_manifest pack_config preferences settings_json shortcut
                                     audio_file input_recording)

audio_seeds="$build/corpus/audio_file"
mkdir -p "$audio_seeds"
if [ -z "$(ls -A "$audio_seeds")" ]; then
    for format in "-r 48000 -b 16 s16.wav" "-r 44100 -b 24 s24.wav" "-r 44100 -b 16 tone.flac" \
                  "-r 44100 tone.ogg" "-r 22050 -e floating-point -b 32 f32.wav"; do
        read -r -a args <<<"$format"
        out=${args[-1]}
        unset 'args[-1]'
        sox -n -c 1 "${args[@]}" "$audio_seeds/$out" synth 0.02 sine 1000 vol 0.5 2>/dev/null || true
    done
fi

failed=0
mkdir -p "$build/artifacts"
for target in "${targets[@]}"; do
    corpus="$build/corpus/$target"
    mkdir -p "$corpus"
    [ -d "fuzz/corpus/$target" ] && cp -n fuzz/corpus/"$target"/* "$corpus"/ 2>/dev/null || true
    log="$build/fuzz_$target.log"
    echo "fuzz_$target: ${seconds}s"
    if ! "$build/fuzz/fuzz_$target" "$corpus" -max_total_time="$seconds" -timeout=10 \
            -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 \
            -artifact_prefix="$build/artifacts/$target-" >"$log" 2>&1; then
        echo "fuzz_$target FAILED; see $log"
        grep -m5 -E "ERROR|SUMMARY|Test unit written" "$log" || true
        failed=1
    fi
    grep -E "^stat::(number_of_executed_units|average_exec_per_sec|new_units_added|peak_rss_mb)" \
        "$log" | sed "s/^/  /" || true
    # The last progress line: coverage (cov), features (ft) and the corpus (corp: files/bytes).
    grep -E "^#[0-9]+.*cov: [0-9]+" "$log" | tail -n1 | sed "s/^/  /" || true
done
exit $failed
