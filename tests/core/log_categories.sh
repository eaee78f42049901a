#!/bin/bash
# usage: log_categories.sh SOURCE-DIRECTORY
# Every line that the framework writes to the log has a category and a level.
set -euo pipefail
cd "$1"
# A call's first words may stand on the next line; the dollar signs are perl's.
# shellcheck disable=SC2016
bare=$(find platform notary eventstream session encoding presentation qt -name '*.cpp' -o -name '*.h' |
  sort | xargs perl -0777 -ne '
    while (/(?<![\w.>&:~])(?:kvl::)?log(?:Line)?\(\s*(?!(?:kvl::)?LogCategory::)([^\n]*)/g) {
      my $line = 1 + (substr($_, 0, $-[0]) =~ tr/\n//);
      print "$ARGV:$line: $1\n";
    }' | grep -v '^platform/core/Log.cpp:')  || true
if [ -n "$bare" ]; then
  printf 'lines without a category:\n%s\n' "$bare"
  exit 1
fi
