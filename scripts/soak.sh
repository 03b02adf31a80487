#!/bin/sh
# Soak run of the headless commands, longer than the suite's checks: for ROUNDS rounds,
# PARALLEL processes add, list, disable and remove tasks at once on a sandbox, and some are
# killed with SIGKILL at random moments. Afterwards every job file must be a whole job, no
# temporary of a killed writer may survive a scan, and no command may have crashed, hung, or
# lost a log line to a rotation race.
#
#   scripts/soak.sh [BUILD-DIR] [ROUNDS] [PARALLEL]      (defaults: build 20 12)
set -eu

BUILD=${1:-build}
ROUNDS=${2:-20}
PARALLEL=${3:-12}
BIN="$(cd "$BUILD" && pwd)/bin/kairo-planner"
SRC="$(cd "$(dirname "$0")/.." && pwd)"

SANDBOX=$(mktemp -d /tmp/kairo-soak-XXXXXX)
trap 'rm -rf "$SANDBOX"' EXIT
mkdir -p "$SANDBOX/home" "$SANDBOX/root/Applications" "$SANDBOX/root/Library/LaunchDaemons"
cp -r "$SRC/examples/Quill.app" "$SANDBOX/root/Applications/"
export HOME="$SANDBOX/home" VT_LOCAL_ROOT="$SANDBOX/root" VT_LAUNCHCTL=/bin/true \
       QT_QPA_PLATFORM=offscreen
# The commands run as an ordinary user, as client applications run them (root: as nobody).
RUN=""
if [ "$(id -u)" -eq 0 ]; then
    chown -R nobody:nogroup "$SANDBOX"
    RUN="setpriv --reuid=65534 --regid=65534 --clear-groups --"
fi
AGENTS="$HOME/Library/LaunchAgents"
fail=0

for round in $(seq "$ROUNDS"); do
    pids=""
    for i in $(seq "$PARALLEL"); do
        case $((i % 4)) in
            0) $RUN "$BIN" -add com.vantreel.Quill backup 3 ;;
            1) $RUN "$BIN" -tasks ;;
            2) $RUN "$BIN" -enable ;;
            3) $RUN "$BIN" -remove "$AGENTS/com.vantreel.ScheduledTask$i.plist" ;;
        esac >/dev/null 2>>"$SANDBOX/stderr" &
        pids="$pids $!"
    done
    # Kill a few of them somewhere in their work.
    sleep "0.0$(shuf -i 1-9 -n 1)"
    for pid in $(echo $pids | tr ' ' '\n' | shuf -n 3); do
        kill -9 "$pid" 2>/dev/null || true
    done
    for pid in $pids; do
        wait "$pid" 2>/dev/null || true
    done
done

$RUN "$BIN" -tasks >/dev/null 2>>"$SANDBOX/stderr"
for job in "$AGENTS"/com.vantreel.ScheduledTask*.plist; do
    [ -e "$job" ] || continue
    if ! grep -q "<key>Label</key>" "$job"; then
        echo "incomplete job file: $job"
        fail=1
    fi
done
if ls -A "$AGENTS" | grep -q '^\.'; then
    echo "temporaries left after a scan:"
    ls -A "$AGENTS" | grep '^\.'
    fail=1
fi
if grep -E "Unable to move file|Unable to log|Assertion|Aborted" "$SANDBOX/stderr"; then
    fail=1
fi
[ "$fail" -eq 0 ] && echo "soak: $ROUNDS rounds of $PARALLEL processes, nothing lost"
exit "$fail"
