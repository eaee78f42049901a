# ./dev fuzz
# shellcheck shell=bash

# Prints a number that is one.
count_of() {
  [[ $1 =~ ^[1-9][0-9]*$ ]] || die "'$1' is no number"
  printf '%s' "$1"
}

# Each target is a program named NAME_fuzz; its seeds are in fuzz/corpus/NAME.
# run_fuzz [SECONDS]: goes on searching from where it stopped the last time.
# run_fuzz --runs N: the same N inputs whenever it is run, from the corpus alone.
run_fuzz() {
  local limit=() programs=() program name found
  if [ "${1:-}" = --runs ]; then
    limit=(-seed=1 "-runs=$(count_of "${2:-}")")
  else
    limit=("-max_total_time=$(count_of "${1:-60}")")
  fi
  if [ -f fuzz/CMakeLists.txt ]; then
    configure_and_build asan
    mapfile -t programs < <(find build/asan/bin -maxdepth 1 -type f -name '*_fuzz' | sort)
  fi
  if [ ${#programs[@]} -eq 0 ]; then
    note 'there are no fuzz targets in this tree'
    return 0
  fi
  for program in "${programs[@]}"; do
    name=$(basename "$program" _fuzz)
    section "$name: ${limit[*]}"
    found=build/fuzz/$name
    [ "${1:-}" != --runs ] || found=$(mktemp -d)
    mkdir -p "build/fuzz/$name"
    "$program" "${limit[@]}" -artifact_prefix="build/fuzz/$name/" "$found" "fuzz/corpus/$name"
  done
}
