# ./dev abi: whether programs that were linked with an earlier version still run with this one.
# shellcheck shell=bash

readonly abi_libraries='kvlocal kvlocal-qt6 kvlocal-qt6web'
readonly abi_flags=(-DCMAKE_BUILD_TYPE=Debug '-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g' -DCMAKE_UNITY_BUILD=ON
  -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 -DKVL_BUILD_TESTS=OFF -DKVL_BUILD_BENCHMARKS=OFF -DKVL_BUILD_TOOLS=OFF)

packages_for_abi() { echo build abi; }

# abi_tree REF FOLDER: the sources of REF.
abi_tree() {
  rm -rf "$2"
  mkdir -p "$2"
  git_here archive "$1" | tar -x -C "$2"
}

# abi_targets TREE: those of the libraries that are built there.
abi_targets() {
  local library known
  known=$(cmake --build "$1" --target help)
  for library in $abi_libraries; do
    [[ $'\n'$known != *$'\n'"$library: "* ]] || echo "$library"
  done
}

# abi_build SOURCES TREE: the libraries, with debugging information, and their headers in one folder.
abi_build() {
  local targets
  rm -rf "$2/headers"
  mkdir -p "$2/headers"
  if ! cmake -G Ninja -S "$1" -B "$2" "${abi_flags[@]}" >"$2/configure.log" 2>&1; then
    cat "$2/configure.log" >&2
    die "configuring $1 failed"
  fi
  mapfile -t targets < <(abi_targets "$2")
  cmake --build "$2" --parallel "$(nproc)" --target "${targets[@]}"
  cp -r "$1"/include/* "$1"/qt/include/* "$1"/qt/web/include/* "$2/headers"
}

soname_of() { readelf --dynamic "$1" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p'; }

# abi_verdict NAME OLD NEW: of the trees of two builds.
abi_verdict() {
  local old=$2/lib/lib$1.so new=$3/lib/lib$1.so status=0
  section "lib$1"
  if [ ! -e "$old" ]; then
    note 'a new library'
    return 0
  fi
  if [ ! -e "$new" ]; then
    note 'is gone'
    return 1
  fi
  tools/dev/abi_compare.sh "$old" "$2/headers" "$new" "$3/headers" packaging/abi-suppressions.ini || status=$?
  case $status in
    0) note 'no change' ;;
    4) note 'programs of the earlier version still run' ;;
    12)
      note 'programs of the earlier version break'
      [ "$(soname_of "$old")" != "$(soname_of "$new")" ] || return 1
      note 'which is announced: the soname is another one'
      ;;
    *) die "abidiff ended with $status" ;;
  esac
}

# With --write the lists of symbols become what the libraries export now.
abi_write() {
  local library targets
  configure_and_build unity kvlocal
  mapfile -t targets < <(abi_targets build/unity)
  cmake --build build/unity --target "${targets[@]}"
  for library in "${targets[@]}"; do
    tests/consumer/symbols.sh --write "packaging/symbols/lib$library.txt" "build/unity/lib/lib$library.so"
  done
}

run_abi() {
  local reference=${1:-} library broken=()
  if [ "$reference" = --write ]; then
    abi_write
    return
  fi
  if [ -z "$reference" ]; then
    reference=$(git_here tag --list 'v*' --sort=-version:refname 2>/dev/null | head -n 1)
    if [ -z "$reference" ]; then
      note 'No version has been released yet (there is no tag v*); name a commit to compare with.'
      return 0
    fi
  fi
  git_here rev-parse --quiet --verify "$reference^{commit}" >/dev/null || die "there is no commit '$reference'"
  command -v abidiff >/dev/null || die 'abidiff is missing (abigail-tools)'
  abi_tree "$reference" build/abi/source
  abi_build build/abi/source build/abi/old
  abi_build . build/abi/new
  for library in $abi_libraries; do
    [ -e "build/abi/old/lib/lib$library.so" ] || [ -e "build/abi/new/lib/lib$library.so" ] || continue
    abi_verdict "$library" build/abi/old build/abi/new || broken+=("lib$library")
  done
  [ ${#broken[@]} -eq 0 ] ||
    die "since $reference these break programs under the same soname: ${broken[*]}; docs/versions.md"
}
