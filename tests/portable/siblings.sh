#!/bin/bash
# usage: siblings.sh ROOT
# Fails when a file of a folder portable/ takes the place of none.
set -euo pipefail
cd "$1"
files=$(find platform encoding session notary eventstream presentation -path '*/portable/*.cpp')
[ -n "$files" ] || {
  echo 'there is no portable file' >&2
  exit 1
}
status=0
while read -r file; do
  [ -f "$(dirname "${file%/*}")/${file##*/}" ] || {
    echo "$file: there is no file of that name in the folder above" >&2
    status=1
  }
done <<<"$files"
exit $status
