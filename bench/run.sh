#!/usr/bin/env bash
# Runs every benchmark of a build and ends with their results against the targets.
#
#   bash bench/run.sh BUILD_DIR           # the measurements of docs/PERFORMANCE.md, 15 to 20 minutes
#   bash bench/run.sh BUILD_DIR --smoke   # every benchmark on small inputs, under a minute (CI)
#
# A full run needs about 8 GB of free disk: the backup benchmark writes a few GB (removed after
# each run) and the re-run benchmark keeps a 100,000-item phone and its first backup in
# BUILD_DIR/bench-data, made once (about 20 minutes) and reused by later runs. A full run exits 1
# when a target is missed; a smoke run only checks that every benchmark runs, since its small
# inputs say nothing about the targets.
set -euo pipefail

BUILD_DIR=${1:?usage: bash bench/run.sh BUILD_DIR [--smoke]}
MODE=${2:-}
if [[ -n "$MODE" && "$MODE" != --smoke ]]; then
    echo "usage: bash bench/run.sh BUILD_DIR [--smoke]" >&2
    exit 2
fi
BIN="$BUILD_DIR/bin"
for bench in PlanBench LibraryLoadBench DeviceTransferBench BackupBench RerunBench AppModelBench; do
    if [[ ! -x "$BIN/$bench" ]]; then
        echo "bench/run.sh: $BIN/$bench is missing; build first (make build)" >&2
        exit 2
    fi
done

LOG=$(mktemp)
trap 'rm -f "$LOG"' EXIT
run() {
    echo
    echo "\$ $*"
    "$@" 2>&1 | tee -a "$LOG"
}

echo "$(date -u '+%Y-%m-%d %H:%M UTC') on $(nproc) processors ($(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | xargs)), load average $(cut -d' ' -f1-3 /proc/loadavg)"
if [[ "$MODE" == --smoke ]]; then
    SCRATCH=$(mktemp -d)
    trap 'rm -f "$LOG"; rm -rf "$SCRATCH"' EXIT
    run "$BIN/PlanBench" 10000
    run "$BIN/LibraryLoadBench" --assets 2000 --runs 1
    run "$BIN/DeviceTransferBench" --size-mb 10 --runs 1
    run "$BIN/BackupBench" --assets 5 --runs 1 --work "$SCRATCH"
    run "$BIN/RerunBench" --assets 300 --runs 1 --data "$SCRATCH"
    run "$BIN/AppModelBench" --assets 300 --runs 1 --data "$SCRATCH"
else
    DATA="$BUILD_DIR/bench-data"
    mkdir -p "$DATA"
    run "$BIN/PlanBench"
    run "$BIN/LibraryLoadBench"
    run "$BIN/DeviceTransferBench" --runs 3
    run "$BIN/BackupBench" --assets 400 --runs 3 --work "$DATA"
    run "$BIN/RerunBench" --assets 100000 --runs 3 --data "$DATA"
    run "$BIN/AppModelBench" --assets 100000 --data "$DATA"
fi

echo
echo "Results:"
grep '^RESULT' "$LOG" | sed 's/^RESULT /  /'
if [[ "$MODE" != --smoke ]] && grep -q '^RESULT.*MISSED' "$LOG"; then
    exit 1
fi
