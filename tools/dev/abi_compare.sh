#!/bin/bash
# usage: abi_compare.sh OLD-LIBRARY OLD-HEADERS NEW-LIBRARY NEW-HEADERS [SUPPRESSIONS]
# What changed for programs that were linked with the old library: nothing of it is 0, something new that
# they do not know 4, anything else 12; less is an error. Only what the headers declare counts, and the
# libraries need their debugging information.
set -euo pipefail
old=$1 old_headers=$2 new=$3 new_headers=$4

for library in "$old" "$new"; do
  if [[ $(readelf --section-headers "$library") != *.debug_info* ]]; then
    echo "$library has no debugging information"
    exit 1
  fi
done

compare() {
  abidiff --no-show-locs ${5:+--suppressions "$5"} --headers-dir1 "$old_headers" --headers-dir2 "$new_headers" \
    "${@:6}" "$old" "$new"
}
status=0
compare "$@" || status=$?
[ $((status & 3)) = 0 ] || exit 1
[ "$status" != 0 ] || exit 0
# A class that has grown is for abidiff what a new function is: a change.
compare "$1" "$2" "$3" "$4" "${5:-}" --no-added-syms >/dev/null || exit 12
exit 4
