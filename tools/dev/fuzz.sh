# ./dev fuzz
#
# Each target has its seeds in fuzz/corpus/NAME. What a search finds is kept in build/fuzz/NAME: new
# inputs in found/, with which the next search begins, and inputs that fail beside them.
# shellcheck shell=bash

readonly fuzz_program=build/asan/bin/kvl_fuzz
readonly fuzz_replay=build/coverage/bin/kvl_fuzz
readonly fuzz_jobs=2

# How many times as long as most targets' an input takes; such a target gets as many fewer of them.
declare -A fuzz_cost=([exchange]=40 [localised]=20 [menu]=5 [picture]=10 [text]=4 [trust]=20)

# Prints a number that is one.
count_of() {
  [[ $1 =~ ^[1-9][0-9]*$ ]] || die "'$1' is no number"
  printf '%s' "$1"
}

fuzz_targets() {
  local name
  for name in "$@"; do [ -d "fuzz/corpus/$name" ] || die "there is no target '$name'"; done
  if [ $# -gt 0 ]; then
    printf '%s\n' "$@"
  else
    find fuzz/corpus -mindepth 1 -maxdepth 1 -type d -printf '%f\n' | sort
  fi
}

# fuzz_one NAME FOUND LIMIT: what libFuzzer says goes to build/fuzz/NAME/log. A single block of
# memory as large as that, or an input that takes so long, is a fault.
fuzz_one() {
  local home=build/fuzz/$1
  mkdir -p "$2"
  "$fuzz_program" --target="$1" "$3" -seed="${fuzz_seed:-0}" -timeout=20 -malloc_limit_mb=64 \
    -print_final_stats=1 -artifact_prefix="$home/" "$2" "fuzz/corpus/$1" >"$home/log" 2>&1 && return
  tail -n 60 "$home/log" >&2
  printf 'dev: the target %s has found a fault; its input is in %s\n' "$1" "$home" >&2
  return 1
}

# The number after NAME at the end of a target's log.
fuzz_figure() { sed -n "s/^stat::$2: *//p" "build/fuzz/$1/log"; }

# The same N inputs whenever it is run, from the seeds alone.
fuzz_inputs() {
  local home=build/fuzz/$1 begin=$SECONDS limit=$((fuzz_amount / ${fuzz_cost[$1]:-1}))
  rm -rf "$home/same"
  fuzz_seed=1 fuzz_one "$1" "$home/same" "-runs=$limit" || return 1
  printf '   %-14s %7d inputs %5d s\n' "$1" "$(fuzz_figure "$1" number_of_executed_units)" \
    $((SECONDS - begin))
}

fuzz_search() { fuzz_one "$1" "build/fuzz/$1/found" "-max_total_time=$fuzz_amount"; }

# Runs a function with each of the targets, a few at once; fails when one of them does.
fuzz_each() {
  local function=$1 name running=0 failed=0
  shift
  for name in "$@"; do
    if [ "$running" -ge "$fuzz_jobs" ]; then
      wait -n || failed=1
      running=$((running - 1))
    fi
    "$function" "$name" &
    running=$((running + 1))
  done
  while [ "$running" -gt 0 ]; do
    wait -n || failed=1
    running=$((running - 1))
  done
  return $failed
}

# Prints how many lines of the framework the profile FILE reaches, and of how many.
fuzz_lines() {
  llvm-cov-19 export -summary-only -instr-profile="$1" "$fuzz_replay" \
    -ignore-filename-regex='/(tests|fuzz|build)/|^/usr/' 2>/dev/null | python3 -c '
import json, sys
lines = json.load(sys.stdin)["data"][0]["totals"]["lines"]
print(lines["covered"], lines["count"])'
}

fuzz_replay_one() {
  local home=build/fuzz/$1
  LLVM_PROFILE_FILE=$home/raw "$fuzz_replay" --target="$1" "$home/found" "fuzz/corpus/$1" >/dev/null 2>&1
  llvm-profdata-19 merge -o "$home/profile" "$home/raw"
}

# What the searches of the targets did, and what all inputs that are known by now reach.
fuzz_report() {
  local name covered lines profiles
  section 'Building for the report'
  configure_and_build coverage kvl_fuzz
  fuzz_each fuzz_replay_one "$@"
  printf '%-14s %12s %12s %14s\n' target executions 'new inputs' 'lines covered'
  for name in "$@"; do
    read -r covered lines < <(fuzz_lines "build/fuzz/$name/profile")
    printf '%-14s %12d %12d %14d\n' "$name" "$(fuzz_figure "$name" number_of_executed_units)" \
      "$(fuzz_figure "$name" new_units_added)" "$covered"
  done
  profiles=("${@/#/build/fuzz/}")
  llvm-profdata-19 merge -o build/fuzz/profile "${profiles[@]/%//profile}"
  read -r covered lines < <(fuzz_lines build/fuzz/profile)
  printf '%-14s %40d of %d\n' 'all of them' "$covered" "$lines"
}

run_fuzz() {
  local mode=--minutes failed=0 targets names
  fuzz_amount=10
  case ${1:-} in
    --minutes | --runs)
      mode=$1
      fuzz_amount=$(count_of "${2:-}")
      shift 2
      ;;
  esac
  names=$(fuzz_targets "$@")
  mapfile -t targets <<<"$names"
  configure_and_build asan kvl_fuzz
  mkdir -p build/fuzz
  if [ "$mode" = --runs ]; then
    fuzz_each fuzz_inputs "${targets[@]}" || failed=1
  else
    fuzz_amount=$((fuzz_amount * 60 * fuzz_jobs / ${#targets[@]}))
    fuzz_each fuzz_search "${targets[@]}" || failed=1
    fuzz_report "${targets[@]}"
  fi
  return "$failed"
}
