#!/usr/bin/env bash
# The logic folders depend one way (core <- input <- settings, kits <- audio <- monitors)
# and never on the platform, the views or any GUI, sound-server or X11 header; the views
# depend on the logic only. src/analysis measures how kits sound for the bench and the
# tests: it sits on the kits, may use FFTW besides, and nothing that ships includes it.
set -u
src="$1/src"
declare -A allowed=(
    [core]="core"
    [input]="core input"
    [settings]="core input settings"
    [kits]="core input kits"
    [audio]="core input settings kits audio"
    [monitors]="core input settings kits audio monitors"
    [analysis]="core input kits analysis"
    [ui]="core input settings kits audio monitors ui"
)
status=0
for folder in "${!allowed[@]}"; do
    while IFS=: read -r file _ include; do
        target=$(sed -E 's/.*#include "([a-z_]+)\/.*/\1/' <<<"$include")
        if [[ " ${allowed[$folder]} " != *" $target "* ]]; then
            echo "$file includes $target/: $folder may use only ${allowed[$folder]}"
            status=1
        fi
    done < <(grep -rn '#include "[a-z_]*/' "$src/$folder")
    if [[ $folder != ui ]] && grep -rnE '#include <(Qt(Gui|Widgets|Quick|Qml|DBus|Network)|QGuiApplication|QWidget|QQuick|X11/|pulse/|sndfile|soxr|libevdev)' \
        "$src/$folder"; then
        echo "$folder includes a GUI or platform header"
        status=1
    fi
done
if grep -rn '#include "analysis/' "$src" | grep -v "^$src/analysis/"; then
    echo "only the bench and the tests may use analysis/"
    status=1
fi
[ $status -eq 0 ] && echo "layering OK"
exit $status
