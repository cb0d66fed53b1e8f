#!/usr/bin/env bash
# Prints one signed <item> of Ombrelo's update feed (docs/UPDATES.md), for pasting into the feed's
# <channel>. The signature is made with the openssl command-line tool and the private key given.
#   scripts/appcast-item.sh KEY.pem VERSION SHORT_VERSION RELEASE_NOTES_URL DOWNLOAD_URL
set -euo pipefail

if [ $# -ne 5 ]; then
  echo "usage: $0 KEY.pem VERSION SHORT_VERSION RELEASE_NOTES_URL DOWNLOAD_URL" >&2
  exit 2
fi
key=$1 version=$2 short=$3 notes=$4 link=$5
for value in "$version" "$short" "$notes" "$link"; do
  if [[ "$value" == *$'\n'* || "$value" == *$'\r'* || "$value" != "${value#[[:space:]]}" || "$value" != "${value%[[:space:]]}" ]]; then
    echo "$0: a value may not hold a line break or begin or end with white space" >&2
    exit 2
  fi
done

signed=$(mktemp)
trap 'rm -f "$signed"' EXIT
printf 'ombrelo-update-v1\nversion: %s\nshortVersionString: %s\nreleaseNotesLink: %s\nlink: %s\n' \
  "$version" "$short" "$notes" "$link" >"$signed"
signature=$(openssl pkeyutl -sign -inkey "$key" -rawin -in "$signed" | base64 -w0)

xml() { sed -e 's/&/\&amp;/g' -e 's/</\&lt;/g' -e 's/>/\&gt;/g' <<<"$1"; }
cat <<ITEM
<item>
  <title>Ombrelo $(xml "$short")</title>
  <ombrelo:version>$(xml "$version")</ombrelo:version>
  <ombrelo:shortVersionString>$(xml "$short")</ombrelo:shortVersionString>
  <ombrelo:releaseNotesLink>$(xml "$notes")</ombrelo:releaseNotesLink>
  <link>$(xml "$link")</link>
  <ombrelo:edSignature>$signature</ombrelo:edSignature>
</item>
ITEM
