#!/bin/sh
# Makes a session bus start the development notary when it is called.
# usage: install-activation.sh SERVICE-DIRECTORY NOTARY-PROGRAM [ARGUMENT...]
# SERVICE-DIRECTORY is one that the bus reads, such as ~/.local/share/dbus-1/services.
set -eu
if [ $# -lt 2 ]; then
  sed -n '2,4s/^# //p' "$0" >&2
  exit 2
fi
directory=$1
shift
command=
for word in "$@"; do
  # The bus reads the line with a shell's quoting.
  quoted=$(printf '%s' "$word" | sed "s/'/'\\\\''/g")
  command="$command${command:+ }'$quoted'"
done
template=$(dirname "$0")/korvale.vandrel.local.notary.service.in
# The file's values escape backslashes too, and so does sed's replacement.
escaped=$(printf '%s' "$command" | sed 's/\\/\\\\/g' | sed 's/[\\&|]/\\&/g')
mkdir -p "$directory"
sed "s|@KVL_DEVNOTARY_COMMAND@|$escaped|" "$template" \
  > "$directory/korvale.vandrel.local.notary.service"
