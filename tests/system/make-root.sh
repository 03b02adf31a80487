#!/bin/sh
# Makes, or reuses, a Debian 12 root for the system suite and prints its path.
# The root is cached outside the clone, keyed by the package list, so it is made once
# per list and made again when the list changes. Exit 2: this machine cannot make one.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
cache=${KAIRO_SYSTEM_CACHE:-/var/cache/kairo-planner}
packages=$(grep -v '^#' "$here/packages.txt" | tr -s ' \n' '\n' | sed '/^$/d' | sort)
key=$(printf '%s\n' "$packages" | sha256sum | cut -c1-16)
root="$cache/system-root-$key"

if [ -f "$root/.complete" ]; then
    echo "$root"
    exit 0
fi
if [ "$(id -u)" -ne 0 ]; then
    echo "making the system root needs root" >&2
    exit 2
fi
if ! command -v debootstrap >/dev/null 2>&1; then
    echo "debootstrap is not installed" >&2
    exit 2
fi

mkdir -p "$cache"
# One maker at a time; a second caller waits and then reuses the first one's root.
exec 9>"$cache/.lock"
flock 9
if [ -f "$root/.complete" ]; then
    echo "$root"
    exit 0
fi

mirror=$(sed -n 's/^URIs: *\(http[^ ]*\/debian\)$/\1/p' /etc/apt/sources.list.d/debian.sources 2>/dev/null | head -n 1)
[ -n "$mirror" ] || mirror=http://deb.debian.org/debian
work="$cache/.making-$key"
rm -rf "$work"
include=$(printf '%s\n' "$packages" | paste -sd, -)
if ! debootstrap --variant=minbase --include="$include" bookworm "$work" "$mirror" >"$cache/debootstrap-$key.log" 2>&1; then
    echo "debootstrap failed (see $cache/debootstrap-$key.log)" >&2
    rm -rf "$work"
    exit 2
fi
# No console login waiting on a terminal nobody reads, and no network to wait for.
ln -sf /dev/null "$work/etc/systemd/system/console-getty.service"
ln -sf /dev/null "$work/etc/systemd/system/systemd-networkd-wait-online.service"
echo kairo-system >"$work/etc/hostname"
apt_clean() { rm -rf "$work/var/cache/apt/archives/"*.deb "$work/var/lib/apt/lists/"*; }
apt_clean
# Drop older roots of other package lists.
for old in "$cache"/system-root-*; do
    [ "$old" = "$root" ] || rm -rf "$old"
done
rm -rf "$root"
mv "$work" "$root"
touch "$root/.complete"
echo "$root"
