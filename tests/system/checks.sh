#!/bin/bash
# The system suite's checks, run as root inside the booted root once it is up. Each check
# prints "ok - ..." or "not ok - ..."; the last line is "done". The slow waits overlap: all
# tasks are added first, then each is judged from the marker file's times.
. /usr/local/lib/kairo-system-common.sh
set -u
export TZ=UTC

install -m 666 /dev/null "$marker"
mkdir -p /mnt/kairo-probe "$user_home/inbox"
chown "$user:$user" "$user_home/inbox"

if ! wait_for_user_manager; then
    not_ok "the user manager of $user runs"
    echo done
    exit 1
fi
ok "the user manager of $user runs"

add() { # COMMAND-ID TYPE [VALUE]: as the user
    if ! as_user kairo-planner -add com.vantreel.Probe "$@" >/var/tmp/kairo-add.out 2>&1; then
        not_ok "-add $*"
        sed 's/^/# /' /var/tmp/kairo-add.out
    fi
}
next_elapse() { # UNIT: the timer's next elapse as list-timers prints it, or nothing
    as_user systemctl --user list-timers --all --no-legend --no-pager |
        awk -v unit="$1" '$0 ~ unit { print $1, $2, $3, $4 }' | head -n 1
}
# The first top of an hour after now whose date, formatted, is as wanted.
first_after() { # FORMAT WANTED
    t=$((($(now) / 3600 + 1) * 3600))
    while [ "$(date -d "@$t" "+$1")" != "$2" ]; do t=$((t + 3600)); done
    echo "$t"
}
shown() { date -d "@$1" '+%a %Y-%m-%d %H:%M:%S UTC'; }
list_row() { # LABEL: the fields of kairo-launchctl list, tab-separated
    as_user kairo-launchctl list | awk -F'\t' -v label="$1" '$1 == label'
}

# --- Add every task. ----------------------------------------------------------------------
start=$(now)
# Type 7 at one minute at least a minute ahead; never minute 59, so that the next minute of
# the same hour exists: launchd's per-element reading would fire then.
target=$((((start + 70) / 60 + 1) * 60))
[ "$(date -d "@$target" +%M)" = 59 ] && target=$((target + 60))
add calendar 7 "$(date -d "@$target" +%-M),$(date -d "@$target" +%-H),,,"
add tick 6 10
add fail 6 10
add startup 0
add hourly 2
add daily 3
add weekly 4
add monthly 5
add watch 8 "$user_home/inbox"
add mount 1
check "-add of every type made its job file" test "$(ls "$agents" | wc -l)" -eq 10
(kairo-planner -add com.vantreel.Probe root 6 10 >/var/tmp/kairo-root.out 2>&1)
check "-add of a root task as root succeeds" test -f /Library/LaunchDaemons/com.vantreel.RootScheduledTask1.plist
added=$(now)

# --- Types 2 to 5: the timers' next elapse. -------------------------------------------------
for spec in "hourly %M 00" "daily %H:%M 07:00" "weekly %u-%H:%M 1-07:00" \
    "monthly %d-%H:%M 01-07:00"; do
    set -- $spec
    job=$(job_of "$1")
    at=$(first_after "$2" "$3")
    expected=$(shown "$at")
    actual=$(next_elapse "$(label_of "$job").timer")
    check "type $1: list-timers says the next run is $expected (it says: $actual)" \
        test "$actual" = "$expected"
    row=$(list_row "$(label_of "$job")")
    check "type $1: kairo-launchctl list says yes, $expected, never run ($row)" \
        test "$(echo "$row" | cut -f2,4)" = "yes	never run" -a \
        "$(date -d "$(echo "$row" | cut -f3)" +%s)" = "$at"
done

# --- Type 8: a new file in the watched folder; then -disable and -enable. -----------------
sleep 2
check "type 8 has not fired before anything changed" test "$(count_firings watch)" -eq 0
created=$(stamp)
as_user touch "$user_home/inbox/new file"
wait_for 10 test "$(count_firings watch "$created")" -ge 1
check "type 8 fires when a file appears in the watched folder" \
    test "$(count_firings watch "$created")" -ge 1

# A task read back and saved again keeps its schedule, so -disable and -enable go through
# a watch task (an "every N seconds" task reads back as a calendar task and stops firing).
job=$(job_of watch)
check "-disable of one task succeeds" quiet as_user kairo-planner -disable "$job"
disabled=$(stamp)
sleep 1
as_user touch "$user_home/inbox/while disabled"
sleep 5
check "-disable stops the firing" test "$(count_firings watch "$disabled")" -eq 0
check "-disable: kairo-launchctl list says no" test "$(list_row "$(label_of "$job")" | cut -f2)" = no
check "-enable of one task succeeds" quiet as_user kairo-planner -enable "$job"
enabled=$(stamp)
sleep 1
as_user touch "$user_home/inbox/after enabling"
wait_for 10 test "$(count_firings watch "$enabled")" -ge 1
check "-enable brings the firing back" test "$(count_firings watch "$enabled")" -ge 1

# --- Type 1: a mount. -----------------------------------------------------------------------
check "type 1 has not fired before anything was mounted" test "$(count_firings mount)" -eq 0
mounted=$(stamp)
mount -t tmpfs kairo-probe /mnt/kairo-probe
wait_for 15 test "$(count_firings mount "$mounted")" -ge 1
check "type 1 fires when a file system is mounted" test "$(count_firings mount "$mounted")" -ge 1
umount /mnt/kairo-probe

# --- Type 6 at its period, then -remove. ----------------------------------------------------
wait_for 45 test "$(count_firings tick)" -ge 4
times=$(firings tick | tr '\n' ' ')
check "type 6 fires every 10 s ($times)" awk -v t="$times" 'BEGIN {
    n = split(t, a, " "); if (n < 4) exit 1
    for (i = 2; i <= n; i++) { d = a[i] - a[i - 1]; if (d < 9 || d > 12) exit 1 }
}'
job=$(job_of tick)
label=$(label_of "$job")
row=$(list_row "$label")
next=$(date -d "$(echo "$row" | cut -f3)" +%s 2>/dev/null || echo 0)
check "type 6: kairo-launchctl list says yes, next within 10 s, success ($row)" \
    test "$(echo "$row" | cut -f2,4)" = "yes	success" -a "$next" -ge "$(($(now) - 1))" \
    -a "$next" -le "$(($(now) + 11))"

check "-remove succeeds" quiet as_user kairo-planner -remove "$job"
removed=$(now)
check "-remove removes the job file and the units" \
    test ! -e "$job" -a -z "$(ls "$user_units" | grep -F "$label.")"
sleep 22
check "-remove stops the firing" test "$(count_firings tick $((removed + 1)))" -eq 0
check "-remove: kairo-launchctl list no longer shows it" test -z "$(list_row "$label")"
check "-remove: systemd no longer lists its timer" \
    test -z "$(as_user systemctl --user list-timers --all --no-legend | grep -F "$label.")"

# --- A failing client and a root task. ------------------------------------------------------
label=$(label_of "$(job_of fail)")
check "a client that exits 1 fired" test "$(count_firings fail)" -ge 2
check "a client that exits 1 shows as failed ($(list_row "$label" | cut -f4))" \
    test "$(list_row "$label" | cut -f4)" = "failed (exit status 1)"
check "a root task fires as root through the system manager" \
    test "$(count_firings root)" -ge 2 -a -f /etc/systemd/system/com.vantreel.RootScheduledTask1.timer
check "kairo-launchctl list --system shows the root task's success" \
    test "$(as_user kairo-launchctl list --system |
        awk -F'\t' '$1 == "com.vantreel.RootScheduledTask1" { print $4 }')" = success
sed 's/^/# /' /var/tmp/kairo-root.out

# --- Type 7: at its minute and at no other. -------------------------------------------------
rest=$((target + 65 - $(now)))
[ "$rest" -gt 0 ] && sleep "$rest"
times=$(firings calendar | tr '\n' ' ')
check "type 7 fires once, at $(date -d "@$target" +%H:%M) only (it fired at: $times)" \
    test "$(count_firings calendar)" -eq 1 -a "$(firings calendar)" -ge "$target" \
    -a "$(firings calendar)" -le $((target + 3))

# --- Type 0: never started by -add. ---------------------------------------------------------
check "type 0 was not started by -add" test "$(count_firings startup)" -eq 0

echo "# checks took $(($(now) - start))s from the first -add"
echo "# marker:"
sed 's/^/#   /' "$marker"
echo done
