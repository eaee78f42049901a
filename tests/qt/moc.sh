#!/bin/bash
# usage: moc.sh MOC COMPILER SOURCE
# moc reads each public header as the first one that a host includes. Those are tried that name what
# it cannot read by itself; the others name them.
set -euo pipefail
moc=$1 compiler=$2 source=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$compiler" -dM -E -x c++ /dev/null >"$work/defined.h"
mapfile -t folders < <("$compiler" -E -x c++ -v /dev/null 2>&1 >/dev/null | sed -n 's/^ \//-I\//p')
mapfile -t headers < <(grep -rlE '#include <(compare|concepts|coroutine|numbers|ranges)>' \
  "$source/include" "$source/qt/include")
[ ${#headers[@]} -gt 0 ]
status=0
for header in "${headers[@]}"; do
  "$moc" --include "$work/defined.h" -I"$source/include" -I"$source/qt/include" "${folders[@]}" \
    "$header" -o "$work/none.cpp" 2>"$work/said" && continue
  echo "$header:" >&2
  cat "$work/said" >&2
  status=1
done
exit "$status"
