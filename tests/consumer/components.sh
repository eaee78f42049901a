#!/bin/bash
# usage: components.sh BUILD-TREE WORK-DIRECTORY COMPILER
# Whoever asks the installed package for a component that there is not hears which there are, and whoever
# only would like it goes on without.
set -euo pipefail
build=$1 work=$2 compiler=$3
rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" >"$work/install.log"

# find ARGUMENTS: what CMake says of find_package(KVLocal ...) in one line; fails when it does.
find_it() {
  mkdir -p "$work/host"
  printf 'cmake_minimum_required(VERSION 3.25)\nproject(Host LANGUAGES CXX)\nfind_package(KVLocal %s)\n' "$1" \
    >"$work/host/CMakeLists.txt"
  # shellcheck disable=SC2016 # CMake expands
  printf 'message(STATUS "KVLocal found: ${KVLocal_FOUND}, ${KVLocal_qt5_FOUND}")\n' >>"$work/host/CMakeLists.txt"
  rm -rf "$work/tree"
  cmake -G Ninja -S "$work/host" -B "$work/tree" -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF 2>&1 | tr -s ' \n' ' '
}

if said=$(find_it 'REQUIRED COMPONENTS qt5'); then
  echo 'a component that there is not was found'
  exit 1
fi
[[ $said == *'KVLocal has no component qt5; there are: qt6, qt6web.'* ]] || { echo "$said"; exit 1; }
said=$(find_it 'REQUIRED OPTIONAL_COMPONENTS qt5')
[[ $said =~ 'KVLocal found: '(1|TRUE)', FALSE' ]] || { echo "$said"; exit 1; }
if said=$(find_it '99.0 REQUIRED'); then
  echo 'a later version was found'
  exit 1
fi
[[ $said == *'KVLocalConfig.cmake, version: '* ]] || { echo "$said"; exit 1; }
