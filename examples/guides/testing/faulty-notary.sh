#!/bin/bash
# usage: faulty-notary.sh FAULT COMMAND...
# Runs a command beside a notary that does something wrong (kvlocal-devnotary --help lists what), on a bus
# on which nothing else is.
set -euo pipefail
fault=$1
shift
folder=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null; rm -rf "$folder"' EXIT
cat >"$folder/bus.conf" <<'END'
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=/tmp</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
END
mkfifo "$folder/address"
dbus-daemon --nofork --config-file="$folder/bus.conf" --print-address=3 3>"$folder/address" &
read -r DBUS_SESSION_BUS_ADDRESS <"$folder/address"
export DBUS_SESSION_BUS_ADDRESS
kvlocal-devnotary --state "$folder/state" --url https://127.0.0.1:1/ --fault "$fault" &
gdbus wait --session --timeout 30 korvale.vandrel.local.notary
"$@"
