#!/usr/bin/env bash
# Checks a built tappix .deb without installing it on this machine: its control fields
# and contents, that apt could install it here with every dependency met, that the
# desktop entry and AppStream file validate, and that the programs unpacked from it run
# on their own (no build tree, no display, no sound server, no input devices).
set -euo pipefail

deb=${1:?usage: check-package.sh PACKAGE.deb}
deb=$(realpath "$deb")
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
pass() { echo "ok:   $*"; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Control fields.
[ "$(dpkg-deb -f "$deb" Package)" = tappix ] && pass "package name" || fail "package name"
[ "$(dpkg-deb -f "$deb" Section)" = sound ] && pass "section sound" || fail "section"
depends=$(dpkg-deb -f "$deb" Depends)
# Libraries by their names on any release (t64: renamed by the 64-bit time transition),
# and what Qt loads at run time by the package that holds it on this machine.
qt=/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || gcc -print-multiarch)/qt6
owner() { dpkg-query -S "$1" 2>/dev/null | sed 's/[:,].*//'; }
for needed in libc6 'libqt6core6(t64)?' 'libqt6quick6(t64)?' 'libpulse0' 'libsndfile1' \
    'libevdev2' 'libzip[0-9]+(t64)?' \
    "$(owner $qt/qml/QtQuick/Controls/qmldir)" "$(owner $qt/qml/QtQuick/Dialogs/qmldir)" \
    "$(owner $qt/qml/Qt/labs/folderlistmodel/qmldir)" \
    "$(owner $qt/plugins/imageformats/libqsvg.so)" "$(owner $qt/plugins/iconengines/libqsvgicon.so)"; do
    [ -n "$needed" ] || { fail "a file Tappix loads at run time is not installed here"; continue; }
    grep -qE "(^|, )$needed( |,|$)" <<<"$depends" || fail "Depends lacks $needed"
done
pass "Depends: $depends"

# Contents.
dpkg-deb -c "$deb" | awk '{print $6}' | sed 's|^\./|/|' >"$work/contents"
for path in /usr/bin/tappix /usr/bin/tappix-kit /usr/bin/tappix-doctor \
    /usr/share/applications/app.morvane.tappix.desktop \
    /usr/share/metainfo/app.morvane.tappix.metainfo.xml \
    /usr/share/icons/hicolor/scalable/apps/app.morvane.tappix.svg \
    /usr/share/man/man1/tappix.1.gz /usr/share/man/man1/tappix-kit.1.gz \
    /usr/share/man/man1/tappix-doctor.1.gz \
    /usr/share/tappix/Soundpacks/crisp-click/config.json; do
    grep -qx "$path" "$work/contents" || fail "missing $path"
done
kits=$(grep -c '^/usr/share/tappix/Soundpacks/[^/]*/config.json$' "$work/contents" || true)
[ "$kits" -ge 9 ] && pass "$kits bundled kits" || fail "only $kits bundled kits"
grep -q '/\.made$' "$work/contents" && fail "build stamp packaged"
grep -qvE '^/usr/|^/$|^/usr$' "$work/contents" && fail "files outside /usr: $(grep -vE '^/usr/|^/$' "$work/contents" | head -3)"

# apt resolves every dependency from this machine's sources without installing anything.
if apt-get install --simulate -qq "$deb" >"$work/apt" 2>&1; then
    pass "apt-get install --simulate ($(grep -c '^Inst ' "$work/apt" || true) packages to install)"
else
    cat "$work/apt"
    fail "apt-get install --simulate"
fi

# Unpacked, the programs run from their own tree.
dpkg-deb -x "$deb" "$work/root"
root=$work/root
appstreamcli validate --no-net "$root/usr/share/metainfo/app.morvane.tappix.metainfo.xml" \
    >"$work/as" 2>&1 && pass "appstreamcli validate" || { cat "$work/as"; fail "metainfo"; }
desktop-file-validate "$root/usr/share/applications/app.morvane.tappix.desktop" \
    && pass "desktop-file-validate" || fail "desktop entry"
for page in tappix tappix-kit tappix-doctor; do
    man -l "$root/usr/share/man/man1/$page.1.gz" 2>&1 >/dev/null | grep . && fail "man page $page"
done
pass "man pages format"

alone=(env -i PATH=/usr/bin:/bin HOME="$work/home" XDG_RUNTIME_DIR="$work/run"
    PULSE_SERVER=unix:"$work/no-sound-server")
mkdir -p "$work/home" "$work/run"
chmod 700 "$work/run"
version=$("${alone[@]}" "$root/usr/bin/tappix" --version)
[ "$version" = "Tappix $(dpkg-deb -f "$deb" Version)" ] && pass "tappix --version: $version" \
    || fail "tappix --version said '$version'"
"${alone[@]}" "$root/usr/bin/tappix" --help | grep -q -- --status && pass "tappix --help" \
    || fail "tappix --help"
set +e
"${alone[@]}" "$root/usr/bin/tappix-doctor" >"$work/doctor" 2>&1
status=$?
set -e
[ $status -lt 128 ] && pass "tappix-doctor ends (status $status)" || fail "tappix-doctor died ($status)"
grep -q "$root/usr/share/tappix/Soundpacks\|crisp-click" "$work/doctor" \
    && pass "tappix-doctor finds the bundled kits" || { cat "$work/doctor"; fail "doctor kits"; }
for kit in "$root"/usr/share/tappix/Soundpacks/*/; do
    "${alone[@]}" "$root/usr/bin/tappix-kit" check "$kit" >"$work/kit" 2>&1 \
        || { cat "$work/kit"; fail "tappix-kit check $(basename "$kit")"; }
done
pass "tappix-kit check on every installed kit"

if [ $failures -ne 0 ]; then
    echo "$failures check(s) failed for $(basename "$deb")"
    exit 1
fi
echo "$(basename "$deb"): all checks passed"
