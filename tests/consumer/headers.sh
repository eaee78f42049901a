#!/bin/bash
# usage: headers.sh INCLUDE-DIRECTORY [NAMES]
# The public headers include each other and the C++ standard library, nothing else but headers whose
# names match the expression.
set -euo pipefail
names='local/[A-Za-z/0-9]+\.h|[a-z_0-9]+'${2:+|$2}
foreign=$(grep -rnE '^[[:space:]]*#[[:space:]]*include' "$1" |
  grep -vE "#include <($names)>\$" || true)
if [ -n "$foreign" ]; then
  printf 'public headers include what hosts may not have:\n%s\n' "$foreign"
  exit 1
fi
