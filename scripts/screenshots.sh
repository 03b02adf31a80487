#!/bin/sh
# Screenshots of the main window and of the task editor sheet, as the real application draws
# them on a fresh demonstration sandbox under Xvfb, at the desktop's default font size.
# Usage: scripts/screenshots.sh [BUILD_DIR]
# Writes BUILD_DIR/screenshots/main-window.png and BUILD_DIR/screenshots/task-sheet.png.
set -eu

BUILD="$(cd "${1:-build}" && pwd)"
SOURCE="$(cd "$(dirname "$0")/.." && pwd)"
APP="$BUILD/bin/kairo-planner"
MACOS="$BUILD/Kairo Planner.app/Contents/MacOS"
OUT="$BUILD/screenshots"
SANDBOX="$BUILD/screenshots-sandbox"

for tool in xvfb-run "$APP" "$MACOS/kairo-launchctl"; do
    if ! command -v "$tool" >/dev/null 2>&1 && [ ! -x "$tool" ]; then
        echo "screenshots: $tool is missing (build first; xvfb-run comes from scripts/install-deps.sh)" >&2
        exit 1
    fi
done

rm -rf "$SANDBOX"
mkdir -p "$SANDBOX/home" "$SANDBOX/root/Applications" "$SANDBOX/root/Library/Logs/Vantreel" \
    "$SANDBOX/bin" "$OUT"
rm -f "$OUT/main-window.png" "$OUT/task-sheet.png"
for bundle in Quill.app Tessel.app Vantreel; do
    cp -R "$SOURCE/examples/$bundle" "$SANDBOX/root/Applications/"
done

# The same stand-ins as the demonstration: systemctl calls are recorded, and the privileged
# helper runs as yourself, so nothing outside the sandbox changes and no password is asked.
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
export DBUS_SESSION_BUS_ADDRESS="disabled:"
unset XDG_CONFIG_HOME XDG_DATA_HOME VT_APP_SEARCH_PATH QT_QPA_PLATFORM QT_SCALE_FACTOR \
    QT_FONT_DPI WAYLAND_DISPLAY

# A few tasks, made the way client applications make them.
"$APP" -add com.vantreel.Quill backup 7 "30,2,,," >/dev/null
"$APP" -add com.vantreel.Quill compact 4 >/dev/null
"$APP" -add com.vantreel.Tessel thumbnails 1 >/dev/null
"$APP" -add com.vantreel.Quill repair 5 >/dev/null
"$APP" -add com.vantreel.Inkwell spellcheck 3 -enable 0 >/dev/null
"$APP" -add com.vantreel.Tessel import 0 >/dev/null

KAIRO_SCREENSHOTS="$OUT" timeout 60 xvfb-run -a -s "-screen 0 1280x800x24 -dpi 96" "$APP"

for shot in main-window task-sheet; do
    if [ ! -s "$OUT/$shot.png" ]; then
        echo "screenshots: $OUT/$shot.png was not written" >&2
        exit 1
    fi
done
echo "$OUT/main-window.png"
echo "$OUT/task-sheet.png"
