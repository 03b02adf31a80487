#!/bin/sh
# Runs every benchmark program of a build and prints its results.
# Usage: bench/run-all.sh BUILD_DIR
# Every executable file directly in BUILD_DIR/bench is a benchmark (each bench/*.cpp target
# added to the "benchmarks" target lands there); they run one after another, in name order.
# The exit status is 1 when a benchmark program fails or none is found, else 0.
set -u

build=${1:-build}
dir="$build/bench"
if [ ! -d "$dir" ]; then
    echo "run-all.sh: no folder $dir (build the \"benchmarks\" target first)" >&2
    exit 1
fi

count=0
failed=""
for program in "$dir"/*; do
    [ -f "$program" ] && [ -x "$program" ] || continue
    name=$(basename "$program")
    count=$((count + 1))
    echo "==== $name"
    if "$program"; then
        echo "==== $name: done"
    else
        status=$?
        echo "==== $name: FAILED (exit status $status)"
        failed="$failed $name"
    fi
    echo
done

if [ "$count" -eq 0 ]; then
    echo "run-all.sh: no benchmark programs in $dir" >&2
    exit 1
fi
if [ -n "$failed" ]; then
    echo "Benchmarks that failed:$failed"
    exit 1
fi
echo "All $count benchmark programs ran."
