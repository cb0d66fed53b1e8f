#!/usr/bin/env bash
# Checks the Debian package that `make package` built: its control fields, that it depends on
# Debian's own packages only, that every file is where it belongs and nothing is switched on, that
# the packaged ombrelo-cli runs, and that the desktop entry, the AppStream metadata and the systemd
# unit pass their own validators.
#   scripts/check-package.sh [BUILD_DIR]
set -euo pipefail

build=${1:-build}
problems=0
fail() {
  echo "check-package: $*" >&2
  problems=$((problems + 1))
}

shopt -s nullglob
debs=("$build"/ombrelo_*.deb)
if [ ${#debs[@]} -ne 1 ]; then
  echo "check-package: expected one ombrelo_*.deb in $build, found ${#debs[@]}; run make package" >&2
  exit 1
fi
deb=${debs[0]}
echo "check-package: $deb"

# Control fields.
field() { dpkg-deb --field "$deb" "$1"; }
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
[ "$(field Package)" = ombrelo ] || fail "Package is “$(field Package)”, not “ombrelo”"
[ "$(field Version)" = "$version-1" ] || fail "Version is “$(field Version)”, not “$version-1”"
[ "$(field Architecture)" = "$(dpkg --print-architecture)" ] || fail "Architecture is “$(field Architecture)”"
for name in Maintainer Section Homepage Description; do
  [ -n "$(field "$name")" ] || fail "the control field $name is empty"
done

# Depends: Debian's own packages only (from Debian's archive), usbmuxd among them, and the libraries
# dpkg-shlibdeps found.
depends=$(field Depends)
echo "check-package: Depends: $depends"
names=$(tr ',|' '\n\n' <<<"$depends" | sed -e 's/(.*)//' -e 's/[[:space:]]//g' | sort -u)
# shellcheck disable=SC2086 # one name a word
archive=$(apt-cache madison $names)
for name in $names; do
  awk -v name="$name" '$1 == name && /debian\.org\/debian/ { found = 1 } END { exit !found }' <<<"$archive" || fail "depends on “$name”, which is not a package of Debian's archive"
done
grep -qx usbmuxd <<<"$names" || fail "does not depend on usbmuxd"
grep -qx 'libqt6core6' <<<"$names" || fail "does not depend on Qt's libraries (dpkg-shlibdeps did not run?)"

# Files: where they belong, and nothing enabled (no udev rule in /etc, no unit linked anywhere).
listing=$(dpkg-deb --contents "$deb" | awk '{print $6}')
expected=(
  ./usr/bin/ombrelo-cli
  ./usr/share/man/man1/ombrelo-cli.1
  ./usr/share/applications/ombrelo.desktop
  ./usr/share/icons/hicolor/scalable/apps/ombrelo.svg
  ./usr/share/metainfo/app.ombrelo.Ombrelo.metainfo.xml
  ./usr/lib/systemd/user/ombrelo-backup.service
  ./usr/share/ombrelo/70-ombrelo.rules
)
# The window program is packaged once the build makes it.
if [ -x "$build/bin/ombrelo" ]; then expected+=(./usr/bin/ombrelo); fi
for path in "${expected[@]}"; do
  grep -qx -- "$path" <<<"$listing" || fail "$path is missing"
done
if grep -E '^\./(etc|usr/local)/|ombrelo-devicesim|ombrelo-mkdevice|\.wants/' <<<"$listing"; then
  fail "the files above do not belong in the package"
fi

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
dpkg-deb --extract "$deb" "$root"

"$root/usr/bin/ombrelo-cli" --version | grep -qF "$version" || fail "the packaged ombrelo-cli does not say version $version"

# The validators: any complaint at all fails the check.
checked() {
  local output
  if ! output=$("$@" 2>&1) || grep -qE '(error|warning|W:|E:)' <<<"$output"; then
    fail "$* said: $output"
  fi
}
checked desktop-file-validate "$root/usr/share/applications/ombrelo.desktop"
checked appstreamcli validate --no-net "$root/usr/share/metainfo/app.ombrelo.Ombrelo.metainfo.xml"

unit="$root/usr/lib/systemd/user/ombrelo-backup.service"
grep -q '^ExecStart=/usr/bin/ombrelo-cli ' "$unit" || fail "the unit does not start /usr/bin/ombrelo-cli"
grep -q '/usr/share/ombrelo/70-ombrelo.rules' "$unit" || fail "the unit does not name the rule's installed path"
# systemd-analyze verify also checks that ExecStart's program exists: point it into the package.
sed "s|/usr/bin/|$root/usr/bin/|" "$unit" >"$root/ombrelo-backup.service"
output=$(systemd-analyze verify "$root/ombrelo-backup.service" 2>&1) && [ -z "$output" ] ||
  fail "systemd-analyze verify said: $output"

rule="$root/usr/share/ombrelo/70-ombrelo.rules"
grep -q 'SYSTEMD_USER_WANTS}+="ombrelo-backup.service"' "$rule" || fail "the udev rule does not start ombrelo-backup.service"
grep -q 'sudo cp /usr/share/ombrelo/70-ombrelo.rules /etc/udev/rules.d/' "$rule" || fail "the udev rule does not say how to turn it on"

if [ "$problems" -ne 0 ]; then
  echo "check-package: $problems problem(s)" >&2
  exit 1
fi
echo "check-package: the package is sound."
