#!/bin/sh
# Screenshots of the main window, the task editor sheet in its states, an alert and the
# preferences, as the real application draws them on fresh demonstration sandboxes under
# Xvfb: at the desktop's defaults, and again with a dark palette (dark/), at a 2x scale
# factor (scale2/) and with a large font (large-font/). Two more sandboxes show the empty
# states (empty/: no task, no client application) and the sheet while a large
# Applications folder is searched (looking/).
# Usage: scripts/screenshots.sh [BUILD_DIR]
# Writes PNG files under BUILD_DIR/screenshots and lists them.
set -eu

BUILD="$(cd "${1:-build}" && pwd)"
SOURCE="$(cd "$(dirname "$0")/.." && pwd)"
APP="$BUILD/bin/kairo-planner"
MACOS="$BUILD/Kairo Planner.app/Contents/MacOS"
OUT="$BUILD/screenshots"

for tool in xvfb-run "$APP" "$MACOS/kairo-launchctl"; do
    if ! command -v "$tool" >/dev/null 2>&1 && [ ! -x "$tool" ]; then
        echo "screenshots: $tool is missing (build first; xvfb-run comes from scripts/install-deps.sh)" >&2
        exit 1
    fi
done
rm -rf "$OUT"
mkdir -p "$OUT"

# sandbox NAME: a fresh home and local root under BUILD, with the same stand-ins as the
# demonstration: systemctl calls are recorded, and the privileged helper runs as yourself,
# so nothing outside the sandbox changes and no password is asked.
sandbox() {
    SANDBOX="$BUILD/screenshots-sandbox/$1"
    rm -rf "$SANDBOX"
    mkdir -p "$SANDBOX/home/Applications" "$SANDBOX/root/Applications" \
        "$SANDBOX/root/Library/Logs/Vantreel" "$SANDBOX/bin"
    cat > "$SANDBOX/bin/systemctl" <<SCRIPT
#!/bin/sh
printf '%s\n' "systemctl \$*" >> "$SANDBOX/systemctl.log"
SCRIPT
    cat > "$SANDBOX/bin/elevate" <<SCRIPT
#!/bin/sh
exec "\$1" --allow-unprivileged
SCRIPT
    chmod 755 "$SANDBOX/bin/systemctl" "$SANDBOX/bin/elevate"
    export HOME="$SANDBOX/home"
    export VT_LOCAL_ROOT="$SANDBOX/root"
    export VT_CONSOLE_USER="$(id -un)"
    export VT_CONSOLE_HOME="$HOME"
    export VT_SYSTEMCTL="$SANDBOX/bin/systemctl"
    export VT_ELEVATE="$SANDBOX/bin/elevate"
    export VT_LAUNCHCTL="$MACOS/kairo-launchctl"
}

# shoot FOLDER [VARIABLE=VALUE...]: runs the window until it has saved its screenshots.
shoot() {
    folder="$1"
    shift
    mkdir -p "$folder"
    env "$@" KAIRO_SCREENSHOTS="$folder" timeout 120 \
        xvfb-run -a -s "-screen 0 1600x1200x24 -dpi 96" "$APP"
    if [ ! -s "$folder/main-window.png" ]; then
        echo "screenshots: $folder/main-window.png was not written" >&2
        exit 1
    fi
}

export DBUS_SESSION_BUS_ADDRESS="disabled:"
unset XDG_CONFIG_HOME XDG_DATA_HOME VT_APP_SEARCH_PATH QT_QPA_PLATFORM QT_SCALE_FACTOR \
    QT_FONT_DPI WAYLAND_DISPLAY KAIRO_SCREENSHOTS_PALETTE

# The demonstration clients, Inkwell only in the user's own Applications folder: it runs,
# but the grid (which searches the machine's Applications folder) never shows it. A few
# tasks, made the way client applications make them; an empty calendar matches no
# schedule type.
sandbox demo
for bundle in Quill.app Tessel.app; do
    cp -R "$SOURCE/examples/$bundle" "$SANDBOX/root/Applications/"
done
cp -R "$SOURCE/examples/Vantreel/Inkwell.app" "$SANDBOX/home/Applications/"
"$APP" -add com.vantreel.Quill backup 7 "30,2,,," >/dev/null
"$APP" -add com.vantreel.Quill compact 4 >/dev/null
"$APP" -add com.vantreel.Tessel thumbnails 1 >/dev/null
"$APP" -add com.vantreel.Quill repair 5 >/dev/null
"$APP" -add com.vantreel.Inkwell spellcheck 3 -enable 0 >/dev/null
"$APP" -add com.vantreel.Inkwell spellcheck 7 ",,,," >/dev/null
"$APP" -add com.vantreel.Tessel import 0 >/dev/null

shoot "$OUT"
shoot "$OUT/dark" KAIRO_SCREENSHOTS_PALETTE=dark
shoot "$OUT/scale2" QT_SCALE_FACTOR=2
shoot "$OUT/large-font" QT_FONT_DPI=168

sandbox empty
shoot "$OUT/empty"

# Enough folders that the search lasts a moment.
sandbox looking
cp -R "$SOURCE/examples/Quill.app" "$SANDBOX/root/Applications/"
(cd "$SANDBOX/root/Applications" && for a in 0 1 2 3 4 5 6 7 8 9; do
    for b in 0 1 2 3 4 5 6 7 8 9; do
        mkdir -p "Tools$a/Set$b/0/1/2/3/4/5/6/7" "Tools$a/Set$b/a/b/c/d/e/f/g/h"
    done
done)
shoot "$OUT/looking"

find "$OUT" -name '*.png' | sort
