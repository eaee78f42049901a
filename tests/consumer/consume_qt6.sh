#!/bin/bash
# usage: consume_qt6.sh BUILD-TREE HOST-PROJECTS WORK-DIRECTORY COMPILER
# Installs the build tree into a prefix and builds and runs HOST-PROJECTS/qthost against its
# component for Qt, first through the CMake package, then through pkg-config. Then asks for the
# component where it or Qt is missing.
set -euo pipefail
build=$1 hosts=$2 work=$3 compiler=$4
prefix=$work/prefix
export QT_QPA_PLATFORM=offscreen

configure() { # PROJECT BUILD-TREE [OPTION...]
  cmake -G Ninja -S "$1" -B "$2" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF "${@:3}" 2>&1
}

rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$prefix" >"$work/install.log"

echo '== through CMake'
configure "$hosts/qthost" "$work/cmake" >"$work/configure.log" || {
  cat "$work/configure.log"
  exit 1
}
cmake --build "$work/cmake"
"$work/cmake/qthost"

echo '== through pkg-config'
package_dir=$(dirname "$(find "$prefix" -name kvlocal-qt6.pc)")
library_dir=$(cd "$package_dir/.." && pwd)
export PKG_CONFIG_PATH=$package_dir
read -r -a options <<<"$(pkg-config --cflags --libs kvlocal-qt6)"
"$compiler" -std=c++20 "$hosts/qthost/main.cpp" -o "$work/qthost" "${options[@]}"
LD_LIBRARY_PATH=$library_dir "$work/qthost"

if [ -n "$(find "$prefix" -name 'KVLocalQt6WebTargets.cmake')" ]; then
  echo '== the component for pages'
  configure "$hosts/webhost" "$work/web" >"$work/web.log" || {
    cat "$work/web.log"
    exit 1
  }
  cmake --build "$work/web"
  "$work/web/webhost"
  read -r -a options <<<"$(pkg-config --cflags --libs kvlocal-qt6web)"
  "$compiler" -std=c++20 "$hosts/webhost/main.cpp" -o "$work/webhost" "${options[@]}"
  LD_LIBRARY_PATH=$library_dir "$work/webhost"
fi

plugin=$(find "$prefix" -name libkvlocalqml.so)
if [ -n "$plugin" ]; then
  echo '== the module of QML'
  [ "$plugin" = "$library_dir/qt6/qml/KVLocal/libkvlocalqml.so" ]
  grep -qx 'module KVLocal' "$(dirname "$plugin")/qmldir"
  ldd "$plugin" | grep "libkvlocal-qt6.* => $prefix/"
  cmake --install "$build" --prefix "$work/qml" --component qml >"$work/qml.log"
  [ "$(find "$work/qml" -type f | wc -l)" = 2 ]
fi

echo '== without Qt'
configure "$hosts/host" "$work/base" -DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON >"$work/base.log" || {
  cat "$work/base.log"
  exit 1
}
if configure "$hosts/qthost" "$work/no-qt" -DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON >"$work/no-qt.log"; then
  echo 'the component was found without Qt'
  exit 1
fi
grep -q 'Qt6' "$work/no-qt.log"

echo '== without the component'
find "$prefix" -name 'KVLocalQt6Targets*' -delete
if configure "$hosts/qthost" "$work/no-component" >"$work/no-component.log"; then
  echo 'the component was found where it is not'
  exit 1
fi
tr -s ' \n' ' ' <"$work/no-component.log" | grep 'built without its component qt6'
