#!/bin/bash
# The cost of "-disable" and "-enable" of all tasks on a real systemd, against the same
# number of bare "systemctl --user daemon-reload" runs as there are jobs: the least that
# telling systemd about every job once can cost. Run inside the booted root as root.
. /usr/local/lib/kairo-system-common.sh
set -u
jobs=${KAIRO_BENCH_JOBS:-100}

seconds() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { print b - a }'; }

if ! wait_for_user_manager; then
    not_ok "the user manager of $user runs"
    echo done
    exit 1
fi
# One job made by -add, copied under the next names and loaded with the bridge itself:
# much quicker than as many -add runs.
as_user kairo-planner -add com.vantreel.Probe daily 3 >/dev/null 2>&1
first=$agents/com.vantreel.ScheduledTask1.plist
for i in $(seq 2 "$jobs"); do
    sed "s/ScheduledTask1</ScheduledTask$i</" "$first" >"$agents/com.vantreel.ScheduledTask$i.plist"
done
chown "$user:$user" "$agents"/*.plist
for i in $(seq 2 "$jobs"); do
    as_user kairo-launchctl load "$agents/com.vantreel.ScheduledTask$i.plist"
done
check "$jobs jobs were loaded" \
    test "$(as_user systemctl --user list-timers --no-legend 'com.vantreel.*' | wc -l)" -eq "$jobs"

# The first scan after installing rewrites every job once (the upgrade rewrite); that is
# no part of what "-disable" costs.
as_user kairo-planner -tasks >/dev/null 2>&1

t0=$(seconds)
as_user kairo-planner -disable >/dev/null 2>&1
t1=$(seconds)
check "-disable of all leaves no timer enabled" \
    test -z "$(as_user systemctl --user list-timers --no-legend 'com.vantreel.*')"
t2=$(seconds)
as_user kairo-planner -enable >/dev/null 2>&1
t3=$(seconds)
check "-enable of all enables every timer" \
    test "$(as_user systemctl --user list-timers --no-legend 'com.vantreel.*' | wc -l)" -eq "$jobs"
t4=$(seconds)
for _ in $(seq "$jobs"); do
    as_user systemctl --user daemon-reload
done
t5=$(seconds)

disable=$(elapsed "$t0" "$t1")
enable=$(elapsed "$t2" "$t3")
reloads=$(elapsed "$t4" "$t5")
awk -v d="$disable" -v e="$enable" -v r="$reloads" -v n="$jobs" 'BEGIN {
    printf "# %d user jobs: -disable %.2f s, -enable %.2f s; %d daemon-reloads %.2f s\n", n, d, e, n, r
    printf "# -disable / reloads = %.2f, -enable / reloads = %.2f (goal: at most 1.50)\n", d / r, e / r
}'
# A missed goal fails the benchmark like a failed check.
check "-disable and -enable cost at most 1.5 times the daemon-reloads" \
    awk -v d="$disable" -v e="$enable" -v r="$reloads" 'BEGIN { exit !(d <= 1.5 * r && e <= 1.5 * r) }'
echo done
