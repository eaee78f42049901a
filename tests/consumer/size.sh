#!/bin/bash
# usage: size.sh LIBRARY BYTES
# Without what is only for debuggers the library has at most that many bytes.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
strip --strip-unneeded -o "$work/stripped" "$1"
size=$(stat --format=%s "$work/stripped")
echo "$size of $2 bytes"
[ "$size" -le "$2" ]
