#!/usr/bin/env bash
# Writes this machine's Debian package sources for RELEASE into DIR, one file for each
# of its own (the machine's release name replaced by RELEASE), and prints their paths:
# mmdebstrap's MIRROR arguments for a root of RELEASE that needs no other network access.
# Prints the plain mirror line when the machine has no Debian sources.
#   tools/debian-sources.sh RELEASE DIR
set -euo pipefail
release=${1:?usage: debian-sources.sh RELEASE DIR}
dir=${2:?usage: debian-sources.sh RELEASE DIR}
host=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
mkdir -p "$dir"
found=false
n=0
for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources; do
    [ -f "$file" ] && grep -qE '^[^#]*debian' "$file" || continue
    n=$((n + 1))
    out="$dir/$n-$(basename "$file")"
    if [ -n "$host" ]; then
        sed "s/\b$host\b/$release/g" "$file" >"$out"
    else
        cp "$file" "$out"
    fi
    echo "$out"
    found=true
done
$found || echo "deb http://deb.debian.org/debian $release main"
