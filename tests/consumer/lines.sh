#!/bin/bash
# usage: lines.sh FOLDER=LINES...
# Fails where the sources of a folder have more lines together.
set -euo pipefail
status=0
for pair in "$@"; do
  folder=${pair%=*} most=${pair##*=}
  lines=$(find "$folder" -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.qml' \) -exec cat {} + | wc -l)
  if ((lines == 0 || lines > most)); then
    echo "$folder: $lines lines of source; there should be some, and $most at most" >&2
    status=1
  fi
done
exit "$status"
