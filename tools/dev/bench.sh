# ./dev bench
# shellcheck shell=bash

# bench_programs [NAME]: the paths of all benchmarks, or of the one called NAME, once built.
bench_programs() {
  find build/release/bin -maxdepth 1 -type f -name "${1:+kvl_$1}*_bench" | sort
}

# The goals of speed: measured, judged, and with --write kept in docs/performance.md.
judge_goals() {
  local benches
  benches=$(python3 -B tools/dev/goals.py "$@" --benches)
  # shellcheck disable=SC2046,SC2086 # names are words
  configure_and_build release $(printf 'kvl_%s_bench\n' $benches)
  section 'Goals'
  python3 -B tools/dev/goals.py "$@"
}

# Instructions of a request, an event and a document.
count_instructions() {
  configure_and_build release kvl_request_probe kvl_curl_probe kvl_with_server kvl_count_probe
  section 'Instructions'
  python3 -B tools/dev/counts.py "$@"
}

run_bench() {
  case ${1:-} in
    --goals)
      judge_goals "${@:2}"
      return
      ;;
    --counts)
      count_instructions "${@:2}"
      return
      ;;
  esac
  local name=${1:-} filter=${2:-.} programs program
  configure_and_build release ${name:+"kvl_${name}_bench"}
  mapfile -t programs < <(bench_programs "$name")
  [ ${#programs[@]} -gt 0 ] || die 'there are no benchmarks in this tree'
  for program in "${programs[@]}"; do
    section "$(basename "$program")"
    "$program" --benchmark_filter="$filter"
  done
}
