#!/bin/bash
# usage: machine.sh ROOT WORK GIVEN SCRIPT [ARGUMENT...]
# Runs SCRIPT of this folder as root on a machine of its own: it has the files of the folder ROOT, which
# stays as it is, and processes of its own, all of which end with SCRIPT. It finds this folder as
# /scripts, the consumers' sources as /consumer and the folder GIVEN as /given. What it changes goes.
set -euo pipefail

# What happens in the new namespaces; everything mounted here goes with them.
enter_machine() {
  local root=$1 work=$2 given=$3 scripts=$4
  local machine=$work/machine
  mount -t tmpfs tmpfs "$work"
  mkdir "$machine" "$work/changed" "$work/overlay"
  mount -t overlay overlay "$machine" \
    -o "lowerdir=$root,upperdir=$work/changed,workdir=$work/overlay"
  mkdir -p "$machine"/{given,scripts,consumer,before}
  mount --bind -o ro "$given" "$machine/given"
  mount --bind -o ro "$scripts" "$machine/scripts"
  mount --bind -o ro "$scripts/../consumer" "$machine/consumer"
  cat /etc/resolv.conf >"$machine/etc/resolv.conf"
  mount --rbind /dev "$machine/dev"
  mount -t proc proc "$machine/proc"
  mount -t tmpfs -o mode=1777 tmpfs "$machine/tmp"
  mount -t tmpfs tmpfs "$machine/run"
  # Not chroot(2), in which nobody may have user namespaces, the image decoder's among them.
  cd "$machine"
  pivot_root . before
  umount -l /before
  exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    bash "/scripts/$5" "${@:6}"
}

if [ "${1:-}" = --inside ]; then
  enter_machine "${@:2}"
fi
scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$1" && pwd) given=$(cd "$3" && pwd)
mkdir -p "$2"
work=$(cd "$2" && pwd)
exec unshare --mount --pid --fork --kill-child --propagation private \
  bash "$scripts/machine.sh" --inside "$root" "$work" "$given" "$scripts" "${@:4}"
