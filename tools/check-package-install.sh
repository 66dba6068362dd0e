#!/usr/bin/env bash
# Installs a built tappix .deb into a fresh root of the Debian release this runs on (the
# one it was built for), the way a user would on a new machine, and runs what it
# installed there: apt brings every dependency from the package sources, then tappix
# --version, tappix-doctor, tappix-kit check on every kit, and a first launch of tappix on
# a virtual display, which must show its welcome window with no library, plugin or QML
# module missing and no QML warning. Nothing on this machine is installed or changed.
#
# The root is made by mmdebstrap: as root with plain chroot, otherwise in a user namespace.
# The display server and xdotool installed next to Tappix are the test's own tools.
set -euo pipefail

deb=${1:?usage: check-package-install.sh PACKAGE.deb}
deb=$(realpath "$deb")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mode=unshare
[ "$(id -u)" -eq 0 ] && mode=root

# The same package sources this machine uses, so the check needs no other network access.
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
mapfile -t mirrors < <("$(dirname "$0")/debian-sources.sh" "$release" "$work/sources")

# Runs inside the new root after apt installed the package and the test's tools.
cat >"$work/inside.sh" <<'EOF'
set -u
export HOME=/tmp/home XDG_RUNTIME_DIR=/tmp/run PULSE_SERVER=unix:/tmp/no-sound-server
mkdir -p "$HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
pass() { echo "ok:   $*"; }

version=$(tappix --version 2>&1)
[ "$version" = "Tappix $TAPPIX_VERSION" ] && pass "tappix --version: $version" \
    || fail "tappix --version said '$version'"
tappix-doctor >/tmp/doctor 2>&1
status=$?
[ $status -lt 128 ] && pass "tappix-doctor ends (status $status)" || fail "tappix-doctor died ($status)"
grep -q /usr/share/tappix/Soundpacks /tmp/doctor && pass "tappix-doctor finds the bundled kits" \
    || { cat /tmp/doctor; fail "doctor kits"; }
for kit in /usr/share/tappix/Soundpacks/*/; do
    tappix-kit check "$kit" >/tmp/kit 2>&1 || { cat /tmp/kit; fail "tappix-kit check $kit"; }
done
pass "tappix-kit check on every installed kit"

# A first launch opens the welcome window; every QML module it loads must be installed.
Xvfb :77 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
sleep 1
DISPLAY=:77 tappix >/tmp/tappix.log 2>&1 &
tappix=$!
shown=""
for _ in $(seq 1 40); do
    shown=$(DISPLAY=:77 xdotool search --onlyvisible --name '^Welcome to Tappix$' 2>/dev/null)
    [ -n "$shown" ] && break
    sleep 0.25
done
kill -TERM $tappix 2>/dev/null
wait $tappix
status=$?
kill $xvfb 2>/dev/null
[ -n "$shown" ] && pass "first launch shows the welcome window" || fail "no welcome window"
[ $status -lt 128 ] && pass "tappix quits on SIGTERM (status $status)" || fail "tappix died ($status)"
if grep -E -i 'is not installed|module .* not found|cannot load library|error while loading|could not (find|load) the qt platform plugin|QQmlApplicationEngine failed' /tmp/tappix.log; then
    fail "tappix could not load part of itself"
fi
if grep -E '\.qml:[0-9]+' /tmp/tappix.log; then
    fail "QML warnings on the first launch"
fi
[ -f "$HOME/.config/tappix/preferences.json" ] && pass "preferences written on quit" \
    || fail "no preferences file after quit"
[ $failures -eq 0 ] || { echo "--- tappix log"; cat /tmp/tappix.log; }
exit $failures
EOF

echo "Installing $(basename "$deb") into a fresh Debian $release root ($mode mode)…"
version=$(dpkg-deb -f "$deb" Version)
set +e
mmdebstrap --mode="$mode" --variant=minbase --quiet \
    --customize-hook="copy-in '$deb' '$work/inside.sh' /tmp" \
    --customize-hook='chroot "$1" apt-get install -y -qq --no-install-recommends /tmp/'"$(basename "$deb")"' xvfb xauth xdotool >/dev/null' \
    --customize-hook='chroot "$1" env TAPPIX_VERSION='"$version"' bash /tmp/inside.sh' \
    "$release" /dev/null "${mirrors[@]}" </dev/null
status=$?
set -e
if [ $status -ne 0 ]; then
    echo "FAIL: the package did not install and run in a fresh root (mmdebstrap status $status)"
    exit 1
fi
echo "$(basename "$deb"): installs and runs in a fresh Debian $release root"
