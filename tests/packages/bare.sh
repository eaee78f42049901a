#!/bin/bash
# usage: bare.sh VERSION
# On a bare machine: each package can be installed, those without windows are, and work together; no
# process is started by that. Then they are purged, and the machine is as it was.
set -euo pipefail
# shellcheck source=/dev/null
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
version=$1
readonly user=1000 # nobody special

base=(/given/{libkvlocal0.1,libkvlocal-images,kvlocal,kvlocal-dev-service}_*.deb)
mapfile -t names < <(packages_of "${base[@]}")

# as_user COMMAND...: in a home of their own.
as_user() {
  setpriv --reuid=$user --regid=$user --clear-groups --no-new-privs \
    env HOME=/tmp/home XDG_RUNTIME_DIR=/tmp/home "$@"
}

# expect TEXT COMMAND...: the user's command succeeds and says so.
expect() {
  local output
  output=$(as_user timeout 60 "${@:2}" 2>&1) || fail "${*:2} ended with $?: $output"
  grep -q -- "$1" <<<"$output" || fail "${*:2} did not say '$1' but: $output"
}

section 'what they depend on'
apt_get update
for package in /given/*.deb; do
  quietly /tmp/simulate.log apt-get --simulate --no-install-recommends install /given/lib*.deb "$package"
done
mapfile -t needed < <(apt-get --simulate --no-install-recommends install "${base[@]}" |
  awk '$1 == "Inst" { print $2 }' | grep -vxF "$(printf '%s\n' "${names[@]}")")
apt_get install "${needed[@]}"
useradd --uid $user --no-create-home stranger # a bus asks who its callers are
list_files >/tmp/before
list_processes >/tmp/processes

section "installed: ${names[*]}"
apt_get install "${base[@]}"
quietly /tmp/audit.log dpkg --verify "${names[@]}"
[ ! -s /tmp/audit.log ] || fail "$(cat /tmp/audit.log)"
list_processes >/tmp/running
diff /tmp/processes /tmp/running || fail 'installing has started something'
find /etc -newer /tmp/processes -name '*kvlocal*' | diff /dev/null - || fail 'they have configured something'

section 'a round trip'
install -d -m 700 -o $user -g $user /tmp/home
expect "$version" kvlocal --version
expect 'established' kvlocal dev -- kvlocal status
expect '"service":"kvlocal-devservice"' kvlocal dev -- kvlocal get /status
expect '64 x 64' kvlocal dev -- kvlocal image --size 64x64 '/image?format=svg'

section 'without the decoder of images the rest works'
quietly /tmp/remove.log dpkg --remove libkvlocal-images
expect 'established' kvlocal dev -- kvlocal status
if as_user timeout 60 kvlocal dev -- kvlocal image /image >/tmp/image.log 2>&1; then
  fail 'an image was decoded by nobody'
fi

purge_and_compare /tmp/before "${names[@]}"
