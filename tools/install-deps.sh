#!/usr/bin/env bash
# Installs the Debian packages Tappix needs, and nothing when they are all present
# already. Uses sudo when not run as root. Debian 12 (bookworm) and 13 (trixie).
#
#   tools/install-deps.sh            building and running Tappix (make run)
#   tools/install-deps.sh --test     and the tests and benchmarks (make test)
#   tools/install-deps.sh --package  and the .deb with its checks (make package)
#   tools/install-deps.sh --fuzz     and the fuzz targets (make fuzz)
#
# An entry "a|b" is the first of its names that the release's package sources have:
# releases rename and split packages (Qt's SVG plugins left libqt6svg6 for
# qt6-svg-plugins in Qt 6.7), and the first name is the newer one.
set -euo pipefail

packages=(
    # toolchain and build
    g++ cmake ninja-build pkg-config
    # libraries
    qt6-base-dev qt6-base-dev-tools libsndfile1-dev libsoxr-dev libpulse-dev
    libevdev-dev libx11-dev libxi-dev libxcb1-dev libxcb-xinput-dev libzip-dev
    # the desktop application: Qt Quick, the QML modules it loads,
    # SVG icons and their image and icon plugins
    qt6-declarative-dev qt6-declarative-dev-tools qt6-svg-dev
    "qt6-svg-plugins|libqt6svg6"
    qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-templates
    qml6-module-qtquick-layouts qml6-module-qtquick-window qml6-module-qtqml-workerscript
    qml6-module-qtquick-dialogs qml6-module-qt-labs-folderlistmodel
    # recordings the bundled buckling-spring kit is built from
    bucklespring-data
)

test_packages=(
    ccache clang-format
    libgtest-dev libgmock-dev libbenchmark-dev libfftw3-dev libxtst-dev qml6-module-qttest
    xvfb xauth xdotool pulseaudio pulseaudio-utils sox dbus bc
    # the window in front on KDE Plasma Wayland: KWin on a virtual screen, Qt's Wayland client
    kwin-wayland qt6-wayland
    # the same audio tests on PipeWire with its PulseAudio layer
    pipewire pipewire-pulse wireplumber
    # HTTPS feed servers with certificates made at test time
    openssl python3
    # windows driven through the accessibility tree, screenshots
    at-spi2-core python3-pyatspi python3-gi gir1.2-atspi-2.0 python3-xlib imagemagick
    # what desktops read about Tappix, validated
    appstream desktop-file-utils
)

# The .deb, its icons, and the checks of what it installs (a fresh root made by mmdebstrap).
package_packages=(dpkg-dev file librsvg2-bin appstream desktop-file-utils man-db mmdebstrap)

# The fuzz targets need clang and its libFuzzer runtime, of the release's default clang.
fuzz_packages=(clang libclang-rt-dev sox)

case ${1:-} in
"") ;;
--test) packages+=("${test_packages[@]}") ;;
--package) packages+=("${package_packages[@]}") ;;
--fuzz) packages+=("${fuzz_packages[@]}") ;;
*)
    echo "usage: $0 [--test | --package | --fuzz]" >&2
    exit 2
    ;;
esac

installed() { [ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null)" = "install ok installed" ]; }
known() { [[ $(apt-cache policy "$1" 2>/dev/null) =~ Candidate:\ [^\(] ]]; }

# An entry is met when the first of its names the package sources know is installed.
missing=()
for entry in "${packages[@]}"; do
    IFS='|' read -r -a names <<<"$entry"
    met=false
    for name in "${names[@]}"; do
        if installed "$name"; then
            met=true
            break
        fi
        known "$name" && break
    done
    $met || missing+=("$entry")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
chosen=()
for entry in "${missing[@]}"; do
    IFS='|' read -r -a names <<<"$entry"
    pick=""
    for name in "${names[@]}"; do
        if known "$name"; then
            pick=$name
            break
        fi
    done
    if [ -z "$pick" ]; then
        echo "None of '${entry//|/, }' is in this system's package sources." >&2
        exit 1
    fi
    chosen+=("$pick")
done
echo "Installing missing packages: ${chosen[*]}"
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${chosen[@]}"
