#!/usr/bin/env bash
# Shows Ombrelo working with no phone: makes a simulated iPhone, serves it the way usbmuxd serves
# a real one, backs it up into ./demo-backup, shows the result and verifies it.
set -euo pipefail

BUILD_DIR="${1:-build}"
BIN="$(cd "$BUILD_DIR/bin" && pwd)"
HERE="$(pwd)"
WORK="$(mktemp -d "${TMPDIR:-/tmp}/ombrelo-demo.XXXXXX")"
SOCKET="$WORK/usbmuxd.sock"
PHONE="$WORK/phone"
DEST="$HERE/demo-backup"
SIM_PID=""

cleanup() {
  if [ -n "$SIM_PID" ] && kill -0 "$SIM_PID" 2>/dev/null; then
    kill "$SIM_PID" 2>/dev/null || true
    wait "$SIM_PID" 2>/dev/null || true
  fi
  rm -rf "$WORK"
}
trap cleanup EXIT

echo "==> Making a simulated iPhone (300 items, newest Photos database layout)"
"$BIN/ombrelo-mkdevice" "$PHONE" --generation ios26 --assets 300 --albums 12 --seed 2026 --name "Demo iPhone"

echo "==> Plugging it in (ombrelo-devicesim on a private socket)"
"$BIN/ombrelo-devicesim" --socket "$SOCKET" "$PHONE" &
SIM_PID=$!
for _ in $(seq 1 100); do
  [ -S "$SOCKET" ] && break
  sleep 0.05
done
export USBMUXD_SOCKET_ADDRESS="UNIX:$SOCKET"

"$BIN/ombrelo-cli" devices

echo
echo "==> Backing it up into $DEST"
mkdir -p "$DEST"
"$BIN/ombrelo-cli" backup "$DEST" --all --yes

echo
echo "==> What is in the backup folder (first levels)"
if command -v tree >/dev/null; then
  # tree 2.x exits 2 when --filelimit leaves a folder's contents out; that is not a failure here.
  tree -L 3 --filelimit 12 "$DEST" || [ $? -eq 2 ]
else
  find "$DEST" -maxdepth 3 | sort | head -60
fi

echo
echo "==> Verifying every recorded file"
"$BIN/ombrelo-cli" verify "$DEST"

echo
echo "Run \"make demo\" again: the second backup copies nothing and reports everything already backed up."
