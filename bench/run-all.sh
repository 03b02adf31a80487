#!/bin/sh
# Runs every benchmark program of a build and prints its results.
# Usage: bench/run-all.sh BUILD_DIR
# Every executable file directly in BUILD_DIR/bench is a benchmark (each bench/*.cpp target
# added to the "benchmarks" target lands there); they run one after another, in name order.
# A benchmark program exits non-zero when it misses a goal or cannot run; the exit status
# here is then 1, after naming every program that did, and also when none is found.
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
        echo "==== $name: FAILED (exit status $status: a goal missed or the run failed)"
        failed="$failed $name"
    fi
    echo
done

if [ "$count" -eq 0 ]; then
    echo "run-all.sh: no benchmark programs in $dir" >&2
    exit 1
fi
if [ -n "$failed" ]; then
    echo "Benchmarks that missed a goal or failed:$failed"
    exit 1
fi
echo "All $count benchmark programs ran."
