# Helpers of the payloads that run inside the booted root (sourced, as root).

marker=/var/tmp/kairo-marker
user=tester
user_home=/home/tester
user_runtime=/run/user/1000
agents=$user_home/Library/LaunchAgents
user_units=$user_home/.config/systemd/user
failures=0

ok() { echo "ok - $*"; }
not_ok() {
    echo "not ok - $*"
    failures=$((failures + 1))
}
# check DESCRIPTION COMMAND...: ok when the command succeeds.
check() {
    description=$1
    shift
    if "$@"; then ok "$description"; else not_ok "$description"; fi
}

# A command as the ordinary user, in the environment of that user's session.
as_user() {
    runuser -u "$user" -- env -i HOME="$user_home" USER="$user" LOGNAME="$user" \
        PATH=/usr/local/bin:/usr/bin:/bin XDG_RUNTIME_DIR="$user_runtime" \
        DBUS_SESSION_BUS_ADDRESS="unix:path=$user_runtime/bus" "$@"
}

now() { date +%s; }
# The same with its fraction, for counting only what fired after a step ended.
stamp() { date +%s.%N; }

wait_for() { # SECONDS COMMAND...: polls every half second
    limit=$(($(now) + $1))
    shift
    until "$@"; do
        [ "$(now)" -lt "$limit" ] || return 1
        sleep 0.5
    done
}

# Up to the user manager's socket: the system's boot is over by then.
wait_for_user_manager() {
    wait_for 120 test -S "$user_runtime/systemd/private" || return 1
    # Running or degraded: either way its start-up is over.
    timeout 60 runuser -u "$user" -- env XDG_RUNTIME_DIR="$user_runtime" \
        systemctl --user is-system-running --wait >/dev/null
    return 0
}

# Whole seconds of the marker's lines of one command id, in order.
firings() { # COMMAND-ID [AFTER-SECONDS]
    [ -f "$marker" ] || return 0
    awk -v id="$1" -v after="${2:-0}" '$3 == id && $1 + 0 >= after + 0 { print int($1) }' "$marker"
}
count_firings() { firings "$@" | wc -l; }

# The job file of the user's task with that command id.
job_of() { grep -l "<string>$1</string>" "$agents"/com.vantreel.ScheduledTask*.plist 2>/dev/null | head -n 1; }
label_of() { basename "$1" .plist; }
quiet() { "$@" >/dev/null 2>&1; }
