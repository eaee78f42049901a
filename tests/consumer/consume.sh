#!/bin/bash
# usage: consume.sh BUILD-TREE HOST-PROJECT WORK-DIRECTORY COMPILER
# Installs the build tree into a prefix and builds and runs a host against it, first through the
# CMake package, then through pkg-config. Nothing but the prefix is visible to the host.
set -euo pipefail
build=$1 host=$2 work=$3 compiler=$4
prefix=$work/prefix

rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$prefix" >"$work/install.log"

echo '== through CMake'
cmake -G Ninja -S "$host" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/configure.log"
cmake --build "$work/cmake"
"$work/cmake/host"

echo '== through pkg-config'
package_dir=$(dirname "$(find "$prefix" -name kvlocal.pc)")
library_dir=$(cd "$package_dir/.." && pwd)
export PKG_CONFIG_PATH=$package_dir
pkg-config --modversion kvlocal
read -r -a options <<<"$(pkg-config --cflags --libs kvlocal)"
"$compiler" -std=c++20 "$host/main.cpp" -o "$work/host" "${options[@]}"
LD_LIBRARY_PATH=$library_dir "$work/host"

echo '== the command line client'
"$prefix/bin/kvlocal" --version
