#!/bin/bash
# usage: headers.sh INCLUDE-DIRECTORY
# The public headers include each other and the C++ standard library, nothing else.
set -euo pipefail
foreign=$(grep -rnE '^[[:space:]]*#[[:space:]]*include' "$1" |
  grep -vE '#include <(local/[A-Za-z/0-9]+\.h|[a-z_0-9]+)>$' || true)
if [ -n "$foreign" ]; then
  printf 'public headers include what hosts may not have:\n%s\n' "$foreign"
  exit 1
fi
