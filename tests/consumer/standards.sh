#!/bin/bash
# usage: standards.sh COMPILER INCLUDE-DIRECTORY... [-- OPTION...]
# With a standard before C++20 every public header of the folders says first of all that it needs
# C++20; with C++20 and C++23 none says so. What is deprecated says what to use instead.
set -euo pipefail
compiler=$1
shift
folders=() options=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do
  folders+=("$1")
  shift
done
options=("${@:2}")

for folder in "${folders[@]}"; do options+=("-I$folder"); done
status=0
fault() {
  echo "$*"
  status=1
}

# errors STANDARD: of a source on the input, the first one first; no more are looked for.
errors() { "$compiler" "-std=c++$1" -Wfatal-errors -fsyntax-only "${options[@]}" -x c++ - 2>&1 || true; }

count=0
while IFS= read -r header; do
  count=$((count + 1))
  said=$(errors 17 <<<"#include <$header>")
  first=$(grep -m1 'error: ' <<<"$said" || true)
  [[ $first == *"KVLocal's headers need C++20 or newer"* ]] ||
    fault "<$header> as C++17 says: ${first:-nothing}"
done < <(for folder in "${folders[@]}"; do (cd "$folder" && find local -name '*.h'); done | sort)
[ "$count" -gt 0 ] || fault 'there are no headers'

for standard in 20 23; do
  said=$(errors "$standard" <<<'#include <local/platform/Export.h>')
  [ -z "$said" ] || fault "as C++$standard: $said"
done
for standard in 14 11; do
  grep -q 'need C++20' <<<"$(errors "$standard" <<<'#include <local/platform/Export.h>')" ||
    fault "C++$standard is taken"
done

said=$(errors 20 <<'TEXT'
#include <local/platform/Export.h>
KVL_DEPRECATED("use new() instead") void old();
void host() { old(); }
TEXT
)
grep -q 'warning: .*deprecated: use new() instead' <<<"$said" || fault "of what is deprecated: $said"
exit $status
