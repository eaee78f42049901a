# ./dev bench
# shellcheck shell=bash

# bench_programs [NAME]: the paths of all benchmarks, or of the one called NAME, once built.
bench_programs() {
  find build/release/bin -maxdepth 1 -type f -name "${1:+kvl_$1}*_bench" | sort
}

run_bench() {
  local name=${1:-} filter=${2:-.} programs program
  configure_and_build release ${name:+"kvl_${name}_bench"}
  mapfile -t programs < <(bench_programs "$name")
  [ ${#programs[@]} -gt 0 ] || die 'there are no benchmarks in this tree'
  for program in "${programs[@]}"; do
    section "$(basename "$program")"
    "$program" --benchmark_filter="$filter"
  done
}
