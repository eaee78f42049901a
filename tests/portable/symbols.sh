#!/bin/bash
# usage: symbols.sh NM ARCHIVE...
# Fails when the library's objects ask for a function that POSIX does not have, or read in /proc.
set -euo pipefail
nm=$1
shift

readonly linux='timerfd_.*|eventfd.*|signalfd.*|epoll_.*|inotify_.*|fanotify_.*|memfd_.*|pidfd_.*|prctl|syscall'\
'|gettid|getrandom|keyctl.*|add_key|request_key|sd_.*|g_log_writer_journald|secret_.*|seccomp_.*|unshare|setns'\
'|renameat2|close_range|madvise|mremap|statx|sendfile.*|splice|tee|vmsplice|sched_.etaffinity|.*_addclosefrom_np'
readonly fewest_archives=10

[ $# -ge "$fewest_archives" ] || {
  echo "only $# archives to look at" >&2
  exit 1
}
status=0
for archive in "$@"; do
  undefined=$("$nm" --undefined-only --format=just-symbols "$archive")
  # An archive that asks for nothing was not read.
  grep -q . <<<"$undefined" || {
    echo "$archive: no symbols" >&2
    status=1
  }
  if found=$(sort -u <<<"$undefined" | grep -xE "$linux"); then
    printf '%s uses what Linux alone has:\n%s\n' "${archive##*/}" "$found" >&2
    status=1
  fi
  if found=$(strings "$archive" | grep -E '^/(proc|sys)/'); then
    printf '%s looks where Linux alone tells of itself:\n%s\n' "${archive##*/}" "$found" >&2
    status=1
  fi
done
exit $status
