#!/bin/bash
# usage: development.sh BUILD-TREE WORK-DIRECTORY
# Installs the component for those who write the other side, and nothing else, into a prefix: all of
# it is there and works there.
set -euo pipefail
build=$1 work=$2
prefix=$work/prefix

fail() {
  echo "$*"
  exit 1
}

rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --component development --prefix "$prefix" >"$work/install.log"
documents=$prefix/share/doc/kvlocal

echo '== what is there'
for file in bin/kvlocal-devnotary bin/kvlocal-devservice share/man/man1/kvlocal-devnotary.1 \
  share/man/man1/kvlocal-devservice.1 share/bash-completion/completions/kvlocal-devnotary \
  share/zsh/site-functions/_kvlocal-devservice share/fish/vendor_completions.d/kvlocal-devnotary.fish \
  share/dbus-1/interfaces/korvale.vandrel.local.notaryProtocol.xml \
  share/doc/kvlocal/protocol.md share/doc/kvlocal/schemas/menu.schema.json \
  share/doc/kvlocal/examples/console/main.cpp share/doc/kvlocal/examples/service/service.py \
  share/doc/kvlocal/examples/dbus/korvale.vandrel.local.notary.service \
  share/doc/kvlocal/examples/systemd/kvlocal-devnotary.service \
  share/doc/kvlocal/examples/systemd/kvlocal-devservice.service; do
  [ -s "$prefix/$file" ] || fail "$file is missing"
done
[ ! -e "$prefix/bin/kvlocal" ] || fail 'the client is no part of it'
[ ! -e "$prefix/share/dbus-1/services" ] || fail 'installing it would start a notary'
if grep -rn '@KVL' "$documents/examples/dbus" "$documents/examples/systemd"; then
  fail 'a place was left open'
fi

echo '== the programs'
"$prefix/bin/kvlocal-devservice" --help >/dev/null
for unit in "$documents"/examples/systemd/*.service; do
  program=$(sed -n 's/^ExecStart="\(.*\)"$/\1/p' "$unit")
  [ -x "$program" ] || fail "$unit names $program, which is no program"
done

echo '== a bus starts the notary'
mkdir -m 700 "$work/runtime"
mkdir -p "$work/data/dbus-1"
cp -R "$documents/examples/dbus" "$work/data/dbus-1/services"
XDG_RUNTIME_DIR=$work/runtime XDG_DATA_HOME=$work/data dbus-run-session -- \
  gdbus introspect --session --dest korvale.vandrel.local.notary \
  --object-path /korvale/vandrel/local/notary >"$work/interface"
grep -q 'SendNotary(' "$work/interface" || fail 'the notary has no method SendNotary'
