#!/bin/bash
# usage: manual.sh MANUAL-PAGE [PROGRAM [COMMAND...]]
# The page has no markup errors and the usual sections, names every option and command that the help
# of the program and of its COMMANDs names, and no option that they do not name.
set -euo pipefail
export LC_ALL=C.UTF-8  # man(1) complains of locales that are not installed
page=$1 program=${2:-}
shift "$(($# < 2 ? $# : 2))"

errors=$(man --warnings --local-file "$page" 2>&1 >/dev/null)
if [ -n "$errors" ]; then
  printf '%s\n' "$errors"
  exit 1
fi

text=$(MANWIDTH=200 man --local-file "$page" | col -b)
missing=0
complain() {
  echo "the manual page $*"
  missing=1
}

for section in NAME SYNOPSIS DESCRIPTION 'EXIT STATUS' ENVIRONMENT FILES EXAMPLES 'SEE ALSO'; do
  grep -qx "$section" <<<"$text" || complain "has no section $section"
done
[ -n "$program" ] || exit $missing

export COLUMNS=1000  # an entry of the help is a line
help=$({ "$program" --help; for command; do "$program" "$command" --help; done; })
names=$(sed -nE 's/^  +((-.,)?(--?[a-z-]+)|[a-z]+) .*/\1/p' <<<"$help" | tr ',' '\n' | sort -u)
[ -n "$names" ]
for name in $names; do
  grep -qE -- "(^|[^a-z-])$name([^a-z-]|\$)" <<<"$text" || complain "does not mention $name"
done
# Examples call other programs, too.
mentioned=$(sed '/^EXAMPLES$/,/^[A-Z]/{//!d}' <<<"$text" | grep -oE -- '(^|[^a-z-])--[a-z][a-z-]*' |
  grep -oE -- '--.*' | sort -u)
for name in $mentioned; do
  grep -qxF -- "$name" <<<"$names" || complain "mentions $name, which the program does not know"
done
exit $missing
