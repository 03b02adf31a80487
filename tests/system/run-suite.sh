#!/bin/bash
# Boots a Debian 12 root with systemd as PID 1 (systemd-nspawn), installs the build into
# it, and runs a payload script inside it as root once the machine is up; the payload
# drives the real kairo-planner and kairo-launchctl against the real systemd.
#
#   run-suite.sh BUILD-DIR [PAYLOAD]     PAYLOAD: checks.sh (default) or another script here
#
# Exit 0: every check passed; 1: a check failed; 77: this machine cannot boot the
# container (not root, no systemd-nspawn, no Debian packages reachable), said in one line.
set -uo pipefail

here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: run-suite.sh BUILD-DIR [PAYLOAD]}" && pwd)
payload=${2:-checks.sh}
boot_limit=${KAIRO_SYSTEM_TIMEOUT:-420}

skip() {
    echo "SKIPPED: the system suite cannot run here: $*"
    exit 77
}

[ "$(id -u)" -eq 0 ] || skip "it needs root"
command -v systemd-nspawn >/dev/null 2>&1 || skip "systemd-nspawn is missing"
command -v debootstrap >/dev/null 2>&1 || skip "debootstrap is missing"
base=$("$here/make-root.sh") || skip "no Debian 12 root could be made (Debian packages unreachable?)"

work=$(mktemp -d /var/tmp/kairo-system.XXXXXX)
root="$work/root"
nspawn_pid=""
cleanup() {
    if [ -n "$nspawn_pid" ] && kill -0 "$nspawn_pid" 2>/dev/null; then
        kill "$nspawn_pid" 2>/dev/null
        wait "$nspawn_pid" 2>/dev/null
    fi
    mountpoint -q "$root" && umount "$root"
    rm -rf "$work"
}
trap cleanup EXIT

# The cached root stays untouched: every run writes into an overlay of its own, or into a
# copy where overlays are not available.
mkdir -p "$root" "$work/upper" "$work/overlay-work"
if ! mount -t overlay overlay \
    -o "lowerdir=$base,upperdir=$work/upper,workdir=$work/overlay-work" "$root" 2>/dev/null; then
    cp -a "$base/." "$root/" || skip "no room for a copy of the root"
fi

# What is installed into the root. One place, so that installing the Debian package
# instead changes only this.
# The Debian package of the build, installed as a user installs it: dpkg checks its
# dependencies against the root and its postinst makes the machine-wide folders.
install_build() {
    cpack --config "$build/CPackConfig.cmake" -B "$work/package" >"$work/install.log" 2>&1 || return 1
    set -- "$work"/package/kairo-planner_*.deb
    [ -f "$1" ] || return 1
    cp "$1" "$root/tmp/kairo-planner.deb" &&
        chroot "$root" dpkg -i /tmp/kairo-planner.deb >>"$work/install.log" 2>&1
}
install_build || {
    cat "$work/install.log"
    echo "FAILED: installing the package into the root"
    exit 1
}

# An ordinary user whose user manager runs from boot on (lingering).
chroot "$root" useradd --create-home --uid 1000 --shell /bin/sh tester || exit 1
mkdir -p "$root/var/lib/systemd/linger"
touch "$root/var/lib/systemd/linger/tester"

# The client application: every run appends "time bundle-id command-id arguments" to the
# marker file; "-fail" makes it exit 1.
"$here/make-probe.sh" "$root/Applications/Probe.app" || exit 1

# The payload runs once the machine is up and powers it off when done.
install -m 755 "$here/$payload" "$root/usr/local/sbin/kairo-system-payload"
install -m 644 "$here/common.sh" "$root/usr/local/lib/kairo-system-common.sh"
cat >"$root/etc/systemd/system/kairo-system-payload.service" <<EOF
[Unit]
Description=Kairo Planner system suite payload
After=multi-user.target user@1000.service

[Service]
Type=exec
Environment=KAIRO_BENCH_JOBS=${KAIRO_BENCH_JOBS:-100}
ExecStart=/usr/local/sbin/kairo-system-payload
ExecStopPost=/bin/systemctl poweroff --no-block
StandardOutput=file:/var/tmp/kairo-payload.out
StandardError=inherit

[Install]
WantedBy=multi-user.target
EOF
ln -sf /etc/systemd/system/kairo-system-payload.service \
    "$root/etc/systemd/system/multi-user.target.wants/kairo-system-payload.service"

start=$(date +%s)
systemd-nspawn --register=no --keep-unit --console=read-only -b -D "$root" \
    >"$work/boot.log" 2>&1 </dev/null &
nspawn_pid=$!
deadline=$((start + boot_limit))
while kill -0 "$nspawn_pid" 2>/dev/null && [ "$(date +%s)" -lt "$deadline" ]; do
    sleep 1
done
if kill -0 "$nspawn_pid" 2>/dev/null; then
    echo "the container did not finish within ${boot_limit}s"
    kill "$nspawn_pid"
fi
wait "$nspawn_pid" 2>/dev/null
nspawn_pid=""

results="$root/var/tmp/kairo-payload.out"
if [ ! -s "$results" ]; then
    tail -n 40 "$work/boot.log"
    if grep -q "Failed to" "$work/boot.log" && ! grep -q "Reached target" "$work/boot.log"; then
        skip "the container did not boot (see the lines above)"
    fi
    echo "FAILED: the payload left no results"
    exit 1
fi
cat "$results"
echo "wall time: $(($(date +%s) - start))s"
grep -q '^not ok' "$results" && exit 1
grep -q '^done$' "$results" || exit 1
exit 0
