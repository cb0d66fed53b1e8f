#!/usr/bin/env bash
# Installs every Debian package that building, testing, packaging and running Ombrelo needs.
# Safe to run again: packages already present are left alone.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config clang-format
  qt6-base-dev qt6-base-dev-tools
  libimobiledevice-dev libusbmuxd-dev libplist-dev
  libsqlite3-dev sqlite3 libssl-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  usbmuxd libimobiledevice-utils ifuse tree openssl
  dpkg-dev desktop-file-utils appstream systemd debootstrap
)

missing=()
for pkg in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$pkg")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: every package is already installed."
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi

echo "install-deps: installing ${missing[*]}"
$SUDO apt-get update
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
echo "install-deps: done."
