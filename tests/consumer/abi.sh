#!/bin/bash
# usage: abi.sh TREE WORK-DIRECTORY COMPILER
# A small library in versions: what of its changes ./dev abi tells, and that lists of symbols tell what
# comes and goes. Ends with 77 where there is no abidiff.
set -euo pipefail
tree=$1 work=$2 compiler=$3
if ! command -v abidiff >/dev/null; then
  echo 'skipped: there is no abidiff'
  exit 77
fi
rm -rf "$work"
status=0

# library NAME PUBLIC-MEMBERS PRIVATE-MEMBERS OTHER-FUNCTIONS
library() {
  mkdir -p "$work/$1/headers"
  cat >"$work/$1/headers/Widget.h" <<EOF
#define KVL_EXPORT __attribute__((visibility("default")))
namespace kvl {
struct Hidden;
struct KVL_EXPORT Widget { int first = 0; $2 void show(); Hidden* hidden = nullptr; };
$4
}
EOF
  cat >"$work/$1/Widget.cpp" <<EOF
#include "headers/Widget.h"
namespace kvl {
struct Hidden { int own = 0; $3 };
void Widget::show() { delete hidden; hidden = new Hidden; }
namespace core { KVL_EXPORT int forModules($5) { return 0; } }
$(sed 's/KVL_EXPORT//g; s/;/ {}/g' <<<"$4")
}
EOF
  echo 'SMALL_1 { global: *; };' >"$work/small.map"
  "$compiler" -std=c++20 -g -O0 -shared -fPIC -fvisibility=hidden "$work/$1/Widget.cpp" -o "$work/$1/small.so" \
    -Wl,-soname,libsmall.so.1 -Wl,--version-script="$work/small.map"
}

# expect STATUS NAME [TEXT]: of the comparison with the first one.
expect() {
  local got=0 said
  said=$("$tree/tools/dev/abi_compare.sh" "$work/first/small.so" "$work/first/headers" "$work/$2/small.so" \
    "$work/$2/headers" "$tree/packaging/abi-suppressions.ini" 2>&1) || got=$?
  [ "$got" = "$1" ] && grep -q -- "${3:-}" <<<"$said" && return
  printf '%s: %s instead of %s\n%s\n' "$2" "$got" "$1" "$said"
  status=1
}

# listed NAME TEXT: of the comparison with the list of the first one's symbols.
listed() {
  local said
  said=$("$tree/tests/consumer/symbols.sh" "$work/list" "$work/$1/small.so" 2>&1) && [ -z "$2" ] && return
  [ -n "$2" ] && grep -qF "$2" <<<"$said" && return
  printf '%s, by the list:\n%s\n' "$1" "$said"
  status=1
}

two='KVL_EXPORT void start(); KVL_EXPORT void stop();'
library first '' '' "$two" ''
library same '' '' "$two" ''
library inner '' 'long more = 0;' "$two" 'long more'
library larger 'long more = 0;' '' "$two" ''
library fewer '' '' 'KVL_EXPORT void start();' ''
library more '' '' "$two KVL_EXPORT void pause();" ''
library other '' '' 'KVL_EXPORT void start(int); KVL_EXPORT void stop();' ''
library modules '' '' "$two" 'int more'

expect 0 same
expect 0 inner
expect 0 modules
expect 12 larger 'type size changed'
expect 12 fewer 'kvl::stop'
expect 4 more 'kvl::pause'
expect 12 other 'kvl::start'

"$tree/tests/consumer/symbols.sh" --write "$work/list" "$work/first/small.so"
listed same ''
listed fewer 'kvl::stop()'
listed more 'kvl::pause()'
listed other 'kvl::start(int)'
exit "$status"
