#!/usr/bin/env bash
# Runs every benchmark and prints its table. `bench/run.sh BUILD_DIR --smoke` runs each one small
# and once, in well under a minute, to show that they still work (CI's smoke run); the numbers of a
# smoke run mean nothing. docs/PERFORMANCE.md keeps the numbers of full runs.
set -euo pipefail

BUILD_DIR="${1:-build}"
MODE="${2:-full}"
BIN="$BUILD_DIR/bin"

run() {
  echo
  echo "\$ $*"
  "$@"
}

if [ "$MODE" = "--smoke" ]; then
  run "$BIN/PlanBench" 2000
  run "$BIN/LibraryLoadBench" --assets 2000 --runs 1
  run "$BIN/DeviceTransferBench" --size-mb 8 --runs 1
  run "$BIN/BackupBench" --assets 20 --runs 1
  run "$BIN/RerunBench" --assets 300 --runs 1
else
  run "$BIN/PlanBench"
  run "$BIN/LibraryLoadBench"
  run "$BIN/DeviceTransferBench" --runs 5
  run "$BIN/BackupBench"
  run "$BIN/RerunBench"
fi
