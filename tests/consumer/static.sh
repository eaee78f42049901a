#!/bin/bash
# usage: static.sh TREE HOST-PROJECT WORK-DIRECTORY COMPILER CLANG [OPTION...]
# Makes and installs the framework as an archive, and builds and runs the host with it, by both compilers
# through the CMake package and through pkg-config.
set -euo pipefail
tree=$1 host=$2 work=$3 compiler=$4 clang=$5
prefix=$work/prefix

quietly() { "$@" >"$work/log" 2>&1 || {
  cat "$work/log"
  exit 1
}; }

rm -rf "$work"
mkdir -p "$work"
quietly cmake -G Ninja -S "$tree" -B "$work/build" -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_SHARED_LIBS=OFF \
  -DKVL_BUILD_TESTS=OFF -DKVL_BUILD_BENCHMARKS=OFF -DKVL_BUILD_TOOLS=OFF -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DCMAKE_UNITY_BUILD=ON \
  -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 "${@:6}"
quietly cmake --build "$work/build"
quietly cmake --install "$work/build"
foreign=$(find "$prefix" -name '*.so*')
[ -z "$foreign" ] || { echo "installed besides the archive: $foreign"; exit 1; }
library_dir=$(dirname "$(find "$prefix" -name libkvlocal.a)")

# Nothing of the build tree is needed.
rm -rf "$work/build"
for with in "$compiler" "$clang"; do
  echo "== through CMake, $with"
  quietly cmake -G Ninja -S "$host" -B "$work/host" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$with" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
  quietly cmake --build "$work/host"
  "$work/host/host"
  if ldd "$work/host/host" | grep libkvlocal; then exit 1; fi
  rm -rf "$work/host"
done

echo '== through pkg-config'
export PKG_CONFIG_PATH=$library_dir/pkgconfig
read -r -a options <<<"$(pkg-config --cflags --libs kvlocal)"
"$clang" -std=c++20 "$host/main.cpp" -o "$work/host" "${options[@]}"
"$work/host"
all=" $(pkg-config --static --libs kvlocal) "
for library in kvlocal curl ssl crypto glib-2.0 gio-2.0 secret-1 keyutils simdjson icui18n icuuc; do
  [[ $all == *" -l$library "* ]] || { echo "pkg-config --static does not name $library"; exit 1; }
done
