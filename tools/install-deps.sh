#!/usr/bin/env bash
# Installs the Debian packages Tappix needs to build, run and test, and nothing
# when they are all present already. Uses sudo when not run as root.
set -euo pipefail

packages=(
    # toolchain and build
    g++ cmake ninja-build pkg-config clang-format ccache
    # libraries
    qt6-base-dev qt6-base-dev-tools libsndfile1-dev libsoxr-dev libpulse-dev
    libevdev-dev libx11-dev libxi-dev libxtst-dev libxcb1-dev libzip-dev
    # the desktop application: Qt Quick, its QML modules, SVG icons
    qt6-declarative-dev qt6-declarative-dev-tools qt6-svg-dev qt6-qpa-plugins
    qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-templates
    qml6-module-qtquick-layouts qml6-module-qtquick-window qml6-module-qtqml-workerscript
    qml6-module-qtquick-dialogs qml6-module-qt-labs-folderlistmodel qml6-module-qttest
    # tests and benchmarks
    libgtest-dev libgmock-dev libbenchmark-dev libfftw3-dev
    xvfb xauth xdotool pulseaudio pulseaudio-utils sox dbus bc
    # the window in front on KDE Plasma Wayland: KWin on a virtual screen, Qt's Wayland client
    kwin-wayland qt6-wayland
    # the same audio tests on PipeWire with its PulseAudio layer
    pipewire pipewire-pulse wireplumber
    # HTTPS feed servers with certificates made at test time
    openssl python3
    # windows driven through the accessibility tree, screenshots
    at-spi2-core python3-pyatspi python3-gi gir1.2-atspi-2.0 python3-xlib imagemagick
    # make package: the .deb, its icons, and the checks of what it installs
    dpkg-dev librsvg2-bin appstream desktop-file-utils man-db mmdebstrap
    # recordings the bundled buckling-spring kit is built from
    bucklespring-data
)

# The fuzz targets (make fuzz) also need clang and its libFuzzer runtime.
if [ "${1:-}" = "--fuzz" ]; then
    packages+=(clang libclang-rt-14-dev)
fi

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing missing packages: ${missing[*]}"
sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
