#!/bin/sh
# Installs every Debian package the build, the tests and the demonstration need.
# Does nothing when all of them are present already, so `make` can call it each time.
set -eu

PACKAGES="
build-essential cmake pkg-config git
qt6-base-dev qt6-base-dev-tools qt6-image-formats-plugins libgl-dev
libplist-dev libxkbcommon-dev libsystemd-dev
libgtest-dev libgmock-dev libbenchmark-dev
dbus-daemon dbus systemd
clang-format ccache
file dpkg-dev desktop-file-utils appstream
xvfb xauth fonts-dejavu-core
debootstrap systemd-container
"
# `make fuzz` (install-deps.sh fuzz): clang with libFuzzer's runtime.
if [ "${1:-}" = "fuzz" ]; then
    PACKAGES="$PACKAGES clang libclang-rt-14-dev"
fi
# `make coverage` (install-deps.sh coverage): gcovr reads gcc's gcov data.
if [ "${1:-}" = "coverage" ]; then
    PACKAGES="$PACKAGES gcovr"
fi

missing=""
for p in $PACKAGES; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $p"
    fi
done

[ -z "$missing" ] && exit 0

echo "Installing:$missing"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update
# shellcheck disable=SC2086
$SUDO apt-get install -y --no-install-recommends $missing
