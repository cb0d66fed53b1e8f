#!/usr/bin/env bash
# Installs the package that `make package` built into a fresh Debian 12 (bookworm) chroot with apt,
# as a user would, then runs the installed ombrelo-cli and looks up its man page there. Needs root,
# debootstrap and Debian's mirror (DEBIAN_MIRROR to use another); it is not part of `make test`.
#   sudo scripts/check-package-install.sh [BUILD_DIR]
set -euo pipefail

build=${1:-build}
mirror=${DEBIAN_MIRROR:-http://deb.debian.org/debian}
say() { echo "check-package-install: $*"; }

if [ "$(id -u)" -ne 0 ]; then
  say "needs root (debootstrap and chroot): sudo $0 $*" >&2
  exit 1
fi
if ! command -v debootstrap >/dev/null; then
  say "needs debootstrap (scripts/install-deps.sh installs it)" >&2
  exit 1
fi
shopt -s nullglob
debs=("$build"/ombrelo_*.deb)
if [ ${#debs[@]} -ne 1 ]; then
  say "expected one ombrelo_*.deb in $build, found ${#debs[@]}; run make package" >&2
  exit 1
fi
deb=${debs[0]}

root=$(mktemp -d /var/tmp/ombrelo-chroot.XXXXXX)
chmod 755 "$root" # the system's own users (_apt, man) must reach their files in it
cleanup() {
  umount "$root/proc" 2>/dev/null || true
  rm -rf --one-file-system "$root"
}
trap cleanup EXIT

say "making a Debian 12 system in $root from $mirror"
debootstrap --variant=minbase bookworm "$root" "$mirror" >"$root.log" 2>&1 || {
  tail -20 "$root.log" >&2
  exit 1
}
rm -f "$root.log"
mount -t proc proc "$root/proc"
cp "$deb" "$root/tmp/"
in_root() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive "$@"; }

say "apt install ./$(basename "$deb")"
in_root apt-get install -y --no-install-recommends man-db "/tmp/$(basename "$deb")"
in_root dpkg-query -W -f='${Package} ${Version} ${Status}\n' ombrelo usbmuxd
in_root ombrelo-cli --version
in_root man -w ombrelo-cli
say "the package installs and runs on a fresh Debian 12."
