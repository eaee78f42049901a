#!/bin/bash
# usage: manual.sh MANUAL-PAGE PROGRAM [COMMAND...]
# The page has no markup errors, and names every option and command that the help of the program and
# of its COMMANDs names.
set -euo pipefail
page=$1 program=$2
shift 2

errors=$(man --warnings --local-file "$page" 2>&1 >/dev/null)
if [ -n "$errors" ]; then
  printf '%s\n' "$errors"
  exit 1
fi

text=$(MANWIDTH=200 man --local-file "$page" | col -b)
missing=0
export COLUMNS=1000  # an entry of the help is a line
names=$({ "$program" --help; for command; do "$program" "$command" --help; done; } |
  sed -nE 's/^  +((-.,)?(--?[a-z-]+)|[a-z]+) .*/\1/p' | tr ',' '\n' | sort -u)
[ -n "$names" ]
for name in $names; do
  if ! grep -qE -- "(^|[^a-z-])$name([^a-z-]|\$)" <<<"$text"; then
    echo "the manual page does not mention $name"
    missing=1
  fi
done
exit $missing
