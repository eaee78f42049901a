#!/bin/bash
# usage: exports.sh LIBRARY
# Whatever the library exports is the framework's own, and the framework's classes are exported.
set -euo pipefail
library=$1

exported=$(nm --dynamic --defined-only --demangle "$library" | cut -d ' ' -f 3-)
own='^((typeinfo( name)?|vtable|VTT|guard variable|non-virtual thunk) (for|to) )?(KVL|kvl::|Notary)'
foreign=$(grep -vE "$own" <<<"$exported" || true)
if [ -n "$foreign" ]; then
  printf 'exported, but not the framework'\''s own:\n%s\n' "$foreign"
  exit 1
fi
for class in KVLSession KVLNotary KVLNotarySignature kvl::Value kvl::URLSession; do
  if ! grep -q "^$class::" <<<"$exported"; then
    echo "$class is not exported"
    exit 1
  fi
done
