#!/bin/bash
# usage: consumers.sh
# On a machine with compilers and Qt: all packages are installed, and hosts outside the tree are built
# with CMake and with pkg-config, by two compilers, as C++20 and as C++23, and run. Then the packages
# are purged, and the machine is as it was.
set -euo pipefail
# shellcheck source=/dev/null
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
export QT_QPA_PLATFORM=offscreen QTWEBENGINE_DISABLE_SANDBOX=1 CCACHE_DISABLE=1

# Each host with its module of pkg-config.
readonly hosts='/consumer/host=kvlocal /consumer/qthost=kvlocal-qt6 /consumer/webhost=kvlocal-qt6web'

# The program runs, with no other library than the packages'.
run_host() { # PROGRAM
  ! ldd "$1" | grep 'libkvlocal' | grep -v '=> /lib/\|=> /usr/lib/' || fail "$1 uses another library"
  timeout 60 "$1"
}

through_cmake() { # SOURCES COMPILER STANDARD WORK
  cmake -G Ninja -S "$1" -B "$4" -DCMAKE_CXX_COMPILER="$2" -DCMAKE_CXX_STANDARD="$3" \
    -DCMAKE_CXX_STANDARD_REQUIRED=ON -DCMAKE_CXX_EXTENSIONS=OFF \
    -DCMAKE_CXX_FLAGS='-Wall -Wextra -Werror' -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
  cmake --build "$4" --verbose
  run_host "$4/$(basename "$1")"
}

through_pkg_config() { # SOURCES MODULE COMPILER STANDARD WORK
  local options
  mkdir -p "$5"
  read -r -a options <<<"$(pkg-config --cflags --libs "$2")"
  "$3" "-std=c++$4" -Wall -Wextra -Werror "$1/main.cpp" -o "$5/$(basename "$1")" "${options[@]}"
  run_host "$5/$(basename "$1")"
}

# All of one host: consume SOURCES=MODULE COMPILER STANDARD
consume() {
  local sources=${1%=*} module=${1#*=} work
  work=/tmp/hosts/$2-$3/${sources##*/}
  mkdir -p "$work"
  quietly "$work/cmake.log" through_cmake "$sources" "$2" "$3" "$work/cmake"
  grep -q -- "-std=c++$3\|-std=c++2b" "$work/cmake.log" || fail "C++$3 was not what $work was built as"
  [ -n "$module" ] || return 0
  quietly "$work/pkg-config.log" through_pkg_config "$sources" "$module" "$2" "$3" "$work/pkg-config"
}

if [ "${1:-}" = --one ]; then
  consume "${@:2}"
  exit
fi

mapfile -t names < <(packages_of /given/*.deb)
for name in "${names[@]}"; do
  ! dpkg-query --show "$name" >/dev/null 2>&1 || fail "$name is on this machine already"
done
list_files >/tmp/before

section 'all installed'
quietly /tmp/install.log dpkg --install /given/*.deb

section 'hosts of others, g++ 12 and clang 19, C++20 and C++23'
for compiler in g++-12 clang++-19; do
  "$compiler" --version | head -n 1 | sed 's/^/      /'
done
for host in $hosts /scripts/qmlhost=; do
  for compiler in g++-12 clang++-19; do
    for standard in 20 23; do printf '%s %s %s\n' "$host" "$compiler" "$standard"; done
  done
done | xargs -P "$(nproc)" -L 1 bash "${BASH_SOURCE[0]}" --one
count=$(find /tmp/hosts -mindepth 3 -maxdepth 3 -name '*.log' | wc -l)
section "$count hosts were built, and ran"
[ "$count" -eq 28 ] || fail 'that are not all'

section 'the examples as they are installed'
examples_build() {
  cmake -G Ninja -S /usr/share/doc/kvlocal/examples -B /tmp/examples -DCMAKE_CXX_FLAGS=-O0
  cmake --build /tmp/examples --target kvlocal-example-minimal kvlocal-example-notes-console
}
quietly /tmp/examples.log examples_build
find /usr/share/doc/kvlocal -name '*.gz' ! -name 'changelog.*' | diff /dev/null - || fail 'documents are compressed'

purge_and_compare /tmp/before "${names[@]}"
