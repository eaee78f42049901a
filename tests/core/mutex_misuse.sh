#!/bin/bash
# usage: mutex_misuse.sh INCLUDE-DIRECTORY
# Clang takes code that locks as the annotations of <local/platform/Mutex.h> say, and refuses code
# that does not. Ends with 77 where there is no clang.
set -euo pipefail
include=$1
compiler=${CLANG:-clang++-19}

if ! command -v "$compiler" >/dev/null; then
  echo "skipped: there is no $compiler"
  exit 77
fi

# compile STATEMENTS: the body of a member function beside a guarded counter.
compile() {
  "$compiler" -std=c++20 -fsyntax-only -Wthread-safety -Werror -I"$include" -x c++ - 2>&1 <<EOF
#include <local/platform/Mutex.h>
struct Counter {
  void add() { $1 }
  void addLocked() KVL_REQUIRES(mutex) { ++count; }
  kvl::Mutex mutex;
  kvl::Mutex other;
  kvl::Condition changed;
  int count KVL_GUARDED_BY(mutex) = 0;
};
EOF
}

failed=0
accept() {
  compile "$1" && return
  echo "refused: $1"
  failed=1
}
refuse() {
  if diagnostics=$(compile "$1"); then
    echo "accepted: $1"
  elif ! grep -q -- '-Wthread-safety' <<<"$diagnostics"; then
    printf 'refused for another reason: %s\n%s\n' "$1" "$diagnostics"
  else
    return 0
  fi
  failed=1
}

accept 'kvl::MutexLock lock(mutex); ++count;'
accept 'kvl::MutexLock lock(mutex); addLocked();'
accept 'kvl::MutexLock lock(mutex); while (count == 0) changed.wait(lock);'
accept 'kvl::MutexLock lock(mutex); lock.unlock(); lock.lock(); ++count;'

refuse '++count;'
refuse 'kvl::MutexLock lock(other); ++count;'
refuse 'addLocked();'
refuse 'kvl::MutexLock lock(mutex); lock.unlock(); ++count;'
refuse 'kvl::MutexLock lock(mutex); kvl::MutexLock again(mutex);'
refuse 'mutex.lock(); ++count;'
exit $failed
