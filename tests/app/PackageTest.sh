#!/bin/sh
# The Debian package: its control data and files, and its maintainer scripts run by dpkg in
# a scratch root (chrootless, with DPKG_ROOT) through install, remove and purge, with the
# installed layout and a run of the installed program. Then the same folders from cmake
# --install as root.
# Usage: PackageTest.sh BUILD-DIR VERSION
set -eu

build=$1
version=$2
if [ "$(id -u)" -ne 0 ]; then
    echo "skipped: dpkg --root and the folders' owners need root"
    exit 77
fi

# dpkg wants ldconfig and start-stop-daemon on the PATH.
PATH="$PATH:/usr/sbin:/sbin"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

if ! cpack --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1; then
    cat "$work/cpack.log" >&2
    exit 1
fi
arch=$(dpkg --print-architecture)
deb="$work/out/kairo-planner_${version}_${arch}.deb"
[ -f "$deb" ] || { ls "$work/out" >&2; fail "no $deb"; exit 1; }

# Control data: the project's version, the build's architecture, the libraries of every
# executable of the bundle, and what is loaded or run by name.
[ "$(dpkg-deb -f "$deb" Package)" = kairo-planner ] || fail "Package"
[ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || fail "Version"
[ "$(dpkg-deb -f "$deb" Architecture)" = "$arch" ] || fail "Architecture"
depends=$(dpkg-deb -f "$deb" Depends)
for package in libc6 libqt6widgets6 libqt6dbus6 libplist libsystemd0 libxkbcommon0 \
    qt6-qpa-plugins qt6-image-formats-plugins systemd; do
    case "$depends" in
    *"$package"*) ;;
    *) fail "Depends has no $package: $depends" ;;
    esac
done
dpkg-deb -c "$deb" >"$work/contents"
if grep -q -e ' \./Library' -e ' \./Applications' "$work/contents"; then
    fail "the package itself holds the folders the postinst makes"
fi

# Install into a scratch root whose /Applications exists already.
root="$work/root"
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/log"
: >"$root/var/lib/dpkg/status"
mkdir -m 755 "$root/Applications"
dpkg_root() {
    dpkg --root="$root" --force-script-chrootless --force-depends "$@" >"$work/dpkg.log" 2>&1 ||
        { cat "$work/dpkg.log" >&2; fail "dpkg $*"; }
}
dpkg_root -i "$deb"

# owned PATH 'UID:GID MODE TYPE'
owned() {
    got=$(stat -c '%u:%g %a %F' "$1" 2>&1) || true
    [ "$got" = "$2" ] || fail "$1: $got, not $2"
}
app="$root/usr/lib/kairo-planner/Kairo Planner.app/Contents"
for program in "Kairo Planner" kairo-launchctl kairo-helper kairo-alert; do
    owned "$app/MacOS/$program" "0:0 755 regular file"
done
for file in "$app/Info.plist" "$app/Resources/KairoPlanner.icns" "$app/Resources/disableall.png" \
    "$root/usr/share/polkit-1/actions/com.vantreel.KairoPlanner.policy" \
    "$root/usr/share/applications/com.vantreel.KairoPlanner.desktop" \
    "$root/usr/share/metainfo/com.vantreel.KairoPlanner.metainfo.xml" \
    "$root/usr/share/icons/hicolor/256x256/apps/com.vantreel.KairoPlanner.png"; do
    owned "$file" "0:0 644 regular file"
done
for folder in /Library /Library/LaunchDaemons /Library/Logs/Vantreel /Library/Preferences \
    /Applications; do
    owned "$root$folder" "0:0 755 directory"
done
if [ -n "$(find "$root/usr" ! -type l -perm /6022)" ]; then
    fail "writable by others or set-id: $(find "$root/usr" ! -type l -perm /6022)"
fi
for command in kairo-planner kairo-launchctl; do
    [ -x "$root/usr/bin/$command" ] || fail "$command is not on the PATH"
done
for entry in CFBundleIdentifier:com.vantreel.KairoPlanner CFBundleVersion:$version; do
    grep -A1 "<key>${entry%%:*}</key>" "$app/Info.plist" | grep -q "<string>${entry#*:}</string>" ||
        fail "Info.plist: no $entry"
done
for line in Exec=kairo-planner Icon=com.vantreel.KairoPlanner; do
    grep -q -x "$line" "$root/usr/share/applications/com.vantreel.KairoPlanner.desktop" ||
        fail "the menu entry has no $line"
done
# The installed program works: a headless listing on an empty machine of its own.
mkdir -p "$work/machine/home" "$work/machine/local"
listing=$(env -u DISPLAY -u WAYLAND_DISPLAY -u VT_CONSOLE_USER -u VT_CONSOLE_HOME \
    -u VT_LAUNCHCTL -u VT_APP_SEARCH_PATH -u XDG_RUNTIME_DIR HOME="$work/machine/home" \
    VT_LOCAL_ROOT="$work/machine/local" DBUS_SESSION_BUS_ADDRESS=disabled: VT_ELEVATE=/bin/false \
    "$root/usr/bin/kairo-planner" -tasks 2>"$work/listing.log") ||
    { cat "$work/listing.log" >&2; fail "the installed program"; }
[ "$listing" = "$(printf '{\n}')" ] || fail "the installed program listed: $listing"
grep -q -F "/usr/lib/kairo-planner/Kairo Planner.app/Contents/MacOS/kairo-helper" \
    "$root/usr/share/polkit-1/actions/com.vantreel.KairoPlanner.policy" ||
    fail "the policy does not name the installed helper"
desktop-file-validate "$root/usr/share/applications/com.vantreel.KairoPlanner.desktop" ||
    fail "desktop-file-validate"
metainfo="$root/usr/share/metainfo/com.vantreel.KairoPlanner.metainfo.xml"
appstreamcli validate --no-net "$metainfo" >"$work/appstream.log" 2>&1 ||
    { cat "$work/appstream.log" >&2; fail "appstreamcli validate"; }
grep -q "<release version=\"$version\"" "$metainfo" || fail "no release $version in the metainfo"

# Removing leaves the tasks and says so; purging removes the empty folders it made.
job="$root/Library/LaunchDaemons/com.vantreel.RootScheduledTask1.plist"
: >"$job"
dpkg_root -r kairo-planner
grep -q "scheduled tasks are left as they are" "$work/dpkg.log" || fail "remove is silent"
[ -f "$job" ] || fail "remove took a job file"
[ ! -e "$root/usr/lib/kairo-planner" ] || fail "remove left the bundle"
[ -d "$root/Library/Preferences" ] || fail "remove took a folder"
dpkg_root -P kairo-planner
for gone in /Library/Preferences /Library/Logs /var/lib/kairo-planner; do
    [ ! -e "$root$gone" ] || fail "purge left $gone"
done
for kept in /Library/LaunchDaemons /Applications; do
    [ -d "$root$kept" ] || fail "purge took $kept"
done

# cmake --install as root makes the same folders (into DPKG_ROOT, like the postinst).
mkdir "$work/cmake"
DPKG_ROOT="$work/cmake" cmake --install "$build" --component folders >"$work/cmake.log" 2>&1 ||
    { cat "$work/cmake.log" >&2; fail "cmake --install"; }
owned "$work/cmake/Library/LaunchDaemons" "0:0 755 directory"
owned "$work/cmake/Applications" "0:0 755 directory"

[ "$failures" -eq 0 ]
