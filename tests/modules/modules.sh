#!/bin/bash
# usage: modules.sh late|missing|foreign|damaged HOST LIBRARY
# What a host sees of the parts of the library that are loaded when they are first used: where they
# lie, where they do not, where only the working directory, the environment and the folder beside the
# library's offer some, and where they are no libraries.
set -euo pipefail
mode=$1 host=$2 library=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if [ "$mode" != late ]; then
  mkdir "$work/own"
  cp "$library" "$work/own/$(basename "$(readelf -d "$library" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')")"
  export LD_LIBRARY_PATH=$work/own
fi
case $mode in
  foreign)
    mkdir "$work/lib"
    cp -r "$(dirname "$library")/kvlocal-0.1" "$work/kvlocal-0.1"
    cp -r "$work/kvlocal-0.1" "$work/lib/kvlocal-0.1"
    export LD_LIBRARY_PATH=$work/own:$work/kvlocal:$work/lib
    ;;
  damaged)
    mkdir "$work/own/kvlocal-0.1"
    echo 'no library' | tee "$work/own/kvlocal-0.1/kvlocal-texts.so" >"$work/own/kvlocal-0.1/kvlocal-bus.so"
    ;;
esac
cd "$work"
"$host" >"$work/said" || { cat "$work/said"; exit 1; }

expect() {
  grep -qE "$1" "$work/said" && return
  printf 'not said: %s\nbut:\n%s\n' "$1" "$(cat "$work/said")"
  exit 1
}
expect '^at the start: ICU is not there, GIO is not there$'
expect '^not opened$'
if [ "$mode" = late ]; then
  expect '^3 Aktualisierungen$'
  expect '^after a text: ICU is there, GIO is not there$'
  expect '^after a URL: ICU is there, GIO is there$'
else
  expect '^3 updates$'
  expect '^1 update$'
  expect '^after a URL: ICU is not there, GIO is not there$'
  for part in texts bus; do
    if [ "$(grep -c "^log: kvlocal-0.1/kvlocal-$part.so is not to be had: " "$work/said")" != 1 ]; then
      printf 'not said once of %s:\n%s\n' "$part" "$(cat "$work/said")"
      exit 1
    fi
  done
fi
