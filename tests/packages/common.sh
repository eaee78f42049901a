# What the scripts on a machine of their own share.
# shellcheck shell=bash

fail() {
  printf 'packages: %s\n' "$*" >&2
  exit 1
}

section() { printf '   -- %s\n' "$*"; }

# quietly LOG COMMAND [ARGUMENT...]: shows what the command says only when it fails.
quietly() {
  ("${@:2}") >"$1" 2>&1 </dev/null && return
  tail -n 60 "$1" >&2
  fail "failed: ${*:2}"
}

# apt_get ARGUMENT...: once more when it fails, since the network may have.
apt_get() {
  local options=(-qq --no-install-recommends -o Acquire::Retries=3 -o APT::Sandbox::User=root)
  apt-get "${options[@]}" "$@" >/tmp/apt.log 2>&1 </dev/null && return
  section "apt-get $1 again"
  quietly /tmp/apt.log apt-get "${options[@]}" "$@"
}

ours() { dpkg-deb --field "$1" Package; }
packages_of() { for file in "$@"; do ours "$file"; done; }

# What lies in the folders that packages fill. Left out is what dpkg, apt and the linker keep of any package
# (the database, logs, lists that are made anew), and files that somebody else keeps for a while.
list_files() {
  find /bin/ /etc /lib/ /opt /sbin/ /srv /usr /var -xdev \
    \( -path /var/lib/dpkg -o -path /var/lib/apt -o -path /var/log -o -path /var/cache -o -path /var/tmp \) \
    -prune -o -print | sort
}

# By their names, and without those that make the list.
list_processes() {
  local file name names=''
  for file in /proc/[0-9]*/comm; do
    if read -r name <"$file"; then names+=$name$'\n'; fi
  done 2>/dev/null
  sort -u <<<"$names"
}

# Purges these packages: nothing of them is left, and nothing else has gone.
purge_and_compare() { # LIST-BEFORE PACKAGE...
  local before=$1 left
  shift
  section 'purged'
  quietly /tmp/purge.log dpkg --purge "$@"
  list_files >/tmp/after
  diff "$before" /tmp/after || fail 'the files are not those of before'
  left=$({ dpkg-query --show --showformat='${Package} ${db:Status-Status}\n' "$@" 2>/dev/null || true; } |
    sed '/ not-installed$/d')
  [ -z "$left" ] || fail "dpkg still knows of $left"
}
