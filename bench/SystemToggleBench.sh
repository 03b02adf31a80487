#!/bin/sh
# "-disable" and "-enable" of all tasks over 100 user jobs on a real systemd, in the booted
# root of the system suite (root and Debian's packages needed), against bare daemon-reloads.
KAIRO_SYSTEM_TIMEOUT=${KAIRO_SYSTEM_TIMEOUT:-1200} "@CMAKE_SOURCE_DIR@/tests/system/run-suite.sh" "@CMAKE_BINARY_DIR@" bench-toggle.sh
status=$?
[ "$status" -eq 77 ] && exit 0
exit "$status"
