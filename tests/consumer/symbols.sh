#!/bin/bash
# usage: symbols.sh [--write] LIST LIBRARY
# The library exports the symbols of the list, no more and no fewer, all of them with the version of its
# soname. One marked as optional need not be there: compilers leave out what every host has itself; and
# weak functions, which some compilers leave of the standard library's templates, need not be listed.
# With --write the list becomes what is exported.
set -euo pipefail
export LC_ALL=C
write=false
if [ "$1" = --write ]; then
  write=true
  shift
fi
list=$1 library=$2

# Constructors and destructors have several symbols of one readable name.
exported=$(nm --dynamic --defined-only --extern-only --demangle "$library" | cut -d ' ' -f 2- |
  grep -v '^A ' | sort -u)
names=$(sed 's/^. //; s/@@.*//' <<<"$exported" | sort -u)
strong=$(sed -n '/^W /d; s/^. //; s/@@.*//p' <<<"$exported" | sort -u)
listed=$(grep -v '^#' "$list" 2>/dev/null | sed 's/^optional: //' | sort -u || true)

if $write; then
  # What was optional stays it, and so is what is exported as one of several equal definitions.
  optional=$(
    sed -n 's/^optional: //p' "$list" 2>/dev/null || true
    sed -n 's/^u //; T; s/@@.*//p' <<<"$exported"
  )
  {
    echo '# What the library exports, kept by ./dev abi --write; docs/versions.md says more.'
    comm -23 <(echo "$strong") <(sort -u <<<"$optional")
    sort -u <<<"$optional" | sed '/^$/d; s/^/optional: /'
  } >"$list.new"
  mv "$list.new" "$list"
  exit
fi

status=0
tell() {
  [ -n "$2" ] || return 0
  printf '%s\n%s\n' "$1" "$2"
  status=1
}
required=$(grep -vE '^(#|optional: )' "$list" | sort -u)
tell "exported, but not in $list:" "$(comm -23 <(echo "$strong") <(echo "$listed"))"
tell "in $list, but not exported:" "$(comm -13 <(echo "$names") <(echo "$required"))"
[ "$status" = 0 ] || echo 'When that is meant: ./dev abi --write, and docs/versions.md for what it means to others.'

# libkvlocal-qt6.so.0.1: KVLOCAL_QT6_0.1
soname=$(readelf --dynamic "$library" | sed -n 's/.*(SONAME).*\[lib\(.*\)\]/\1/p')
version=$(sed 's/\.so\./_/; s/-/_/g; s/.*/\U&/' <<<"$soname")
tell "without the version $version:" "$(grep -v "@@$version\$" <<<"$exported" || true)"
exit "$status"
