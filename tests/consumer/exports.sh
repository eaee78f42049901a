#!/bin/bash
# usage: exports.sh LIBRARY PREFIXES CLASS...
# Every name that the library exports begins with one of the prefixes (with | between them), and the
# classes are exported.
set -euo pipefail
library=$1 prefixes=$2
shift 2

# The absolute one is the name of the symbols' version.
exported=$(nm --dynamic --defined-only --extern-only --demangle --without-symbol-versions "$library" |
  cut -d ' ' -f 2- | sed '/^A /d; s/^. //')
# Of an instance of a template the name begins with the result.
own="^(std::optional<kvl::[A-Za-z]+> )?((typeinfo( name)?|vtable|VTT|guard variable|non-virtual thunk) (for|to) )?($prefixes)"
foreign=$(grep -vE "$own" <<<"$exported" || true)
if [ -n "$foreign" ]; then
  printf 'exported, but not the framework'\''s own:\n%s\n' "$foreign"
  exit 1
fi
for class; do
  if ! grep -q "^$class::" <<<"$exported"; then
    echo "$class is not exported"
    exit 1
  fi
done
