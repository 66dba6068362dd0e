#!/usr/bin/env bash
# Runs a command inside a root of another Debian release on this machine's kernel, with
# this work tree at /src: how Tappix is built, tested and packaged for a release other
# than the machine's own. The root starts as Debian's minimal base plus make; the
# command's own set-up (tools/install-deps.sh) installs the rest, as on a new machine.
#
#   tools/debian-root.sh [--fresh | --keep DIR] RELEASE [COMMAND...]
#
#   --fresh     a new root in a temporary directory, removed afterwards (CI)
#   --keep DIR  the root kept in DIR, made there the first time (the default is
#               $TAPPIX_ROOTS/RELEASE, TAPPIX_ROOTS defaulting to ~/.cache/tappix/roots)
#   COMMAND     run in /src by bash; `make test` when none is given
#
# The package sources are this machine's, with its release's name replaced
# (tools/debian-sources.sh). Build trees
# go to build-RELEASE-* in the work tree, so they never mix with this machine's. The
# compiler cache is shared (mounted at the same place), and so are downloaded packages
# (~/.cache/tappix/apt/RELEASE), so a second run rebuilds and downloads little.
# Needs root (sudo is used otherwise), mmdebstrap, and mount.
set -euo pipefail

usage() {
    sed -n '7,12p' "$0" | sed 's/^# \{0,1\}//' >&2
    exit 2
}

args=("$@")
fresh=false
root=""
while [ $# -gt 0 ]; do
    case $1 in
    --fresh) fresh=true; shift ;;
    --keep) root=${2:?--keep needs a directory}; shift 2 ;;
    -h | --help) usage ;;
    -*) echo "unknown option $1" >&2; usage ;;
    *) break ;;
    esac
done
release=${1:-}
[ -n "$release" ] || usage
shift
command=${*:-make test}

if [ "$(id -u)" -ne 0 ]; then
    exec sudo --preserve-env=TAPPIX_ROOTS,CCACHE_DIR,CI,JOBS,FUZZ_SECONDS "$0" "${args[@]}"
fi

src=$(cd "$(dirname "$0")/.." && pwd)
cache=${XDG_CACHE_HOME:-$HOME/.cache}
if $fresh; then
    root=$(mktemp -d "${TMPDIR:-/var/tmp}/tappix-$release.XXXXXX")
elif [ -z "$root" ]; then
    root=${TAPPIX_ROOTS:-$cache/tappix/roots}/$release
fi
root=$(realpath -m "$root")

# The compiler cache this machine uses, if any.
ccache_dir=${CCACHE_DIR:-}
if [ -z "$ccache_dir" ] && command -v ccache >/dev/null; then
    ccache_dir=$(ccache -k cache_dir 2>/dev/null || true)
fi
[ -n "$ccache_dir" ] || ccache_dir=$cache/ccache
mkdir -p "$ccache_dir"
archives=$cache/tappix/apt/$release
mkdir -p "$archives"

mounted=()
cleanup() {
    local status=$?
    # Whatever the command left running inside (session buses, sound servers) holds the
    # mounts: it goes first.
    local pid
    for pid in $(ls /proc | grep -E '^[0-9]+$'); do
        [ "$(readlink "/proc/$pid/root" 2>/dev/null)" = "$root" ] && kill -KILL "$pid" 2>/dev/null
    done
    local i
    for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do
        umount "${mounted[i]}" 2>/dev/null || umount -l "${mounted[i]}" || true
    done
    if $fresh; then
        rm -rf --one-file-system "$root"
    fi
    exit $status
}
trap cleanup EXIT INT TERM

if [ ! -x "$root/usr/bin/apt-get" ]; then
    sources=$(mktemp -d)
    mapfile -t mirrors < <("$src/tools/debian-sources.sh" "$release" "$sources")
    echo "Making a Debian $release root in $root…"
    mkdir -p "$root"
    started=$SECONDS
    # A root is thrown away rather than repaired: dpkg need not sync every file it writes.
    mmdebstrap --mode=root --variant=minbase --include=make,ca-certificates --quiet \
        --dpkgopt=force-unsafe-io --skip=essential/unlink \
        --setup-hook='mkdir -p "$1"/var/cache/apt/archives' \
        --setup-hook="sync-in '$archives' /var/cache/apt/archives" \
        --customize-hook="sync-out /var/cache/apt/archives '$archives'" \
        "$release" "$root" "${mirrors[@]}" </dev/null
    rm -rf "$sources"
    echo "Root made in $((SECONDS - started)) s"
fi

bind() { # bind SOURCE TARGET
    mkdir -p "$2"
    mount --bind "$1" "$2"
    mounted+=("$2")
}
# The root is a mount point of its own, private to this machine's mounts, as / is on a
# machine: a test that makes a private mount namespace (unshare) needs that.
mount --bind "$root" "$root"
mounted+=("$root")
mount --make-private "$root"
bind /proc "$root/proc"
bind /sys "$root/sys"
bind /dev "$root/dev"
bind /dev/pts "$root/dev/pts"
for dir in dev/shm run tmp; do
    mkdir -p "$root/$dir"
    mount -t tmpfs -o mode=1777 tmpfs "$root/$dir"
    mounted+=("$root/$dir")
done
chmod 755 "$root/run"
bind "$src" "$root/src"
bind "$ccache_dir" "$root/root/.cache/ccache"
bind "$archives" "$root/var/cache/apt/archives"
cp /etc/resolv.conf "$root/etc/resolv.conf" 2>/dev/null || true
# apt keeps what it downloads, for the next root of this release.
echo 'Binary::apt::APT::Keep-Downloaded-Packages "true";' >"$root/etc/apt/apt.conf.d/10keep"
rm -f "$root/etc/apt/apt.conf.d/docker-clean"
echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/unsafe-io"

echo "Running '$command' in Debian $release ($root)"
set +e
chroot "$root" /usr/bin/env -i PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin \
    HOME=/root LANG=C.UTF-8 TERM="${TERM:-dumb}" CI="${CI:-}" \
    CCACHE_DIR=/root/.cache/ccache ${JOBS:+JOBS=$JOBS} ${FUZZ_SECONDS:+FUZZ_SECONDS=$FUZZ_SECONDS} \
    BUILD="build-$release" TEST_BUILD="build-$release-test" \
    PACKAGE_BUILD="build-$release-release" FUZZ_BUILD="build-$release-fuzz" \
    /bin/bash -c "cd /src && $command" &
# Waited for in the background, so that a signal reaches the clean-up at once.
wait $!
status=$?
set -e
exit $status
