# ./dev test
# shellcheck shell=bash

readonly suppressions=$PWD/tests/support

# Prints "suppressions=FILE" when the sanitizer has known reports about libraries below.
suppression_option() {
  [ ! -f "$suppressions/$1.supp" ] || printf 'suppressions=%s' "$suppressions/$1.supp"
}

sanitizer_environment() {
  case $1 in
    asan)
      export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_init_order=1
      export UBSAN_OPTIONS=print_stacktrace=1
      LSAN_OPTIONS=$(suppression_option lsan)
      export LSAN_OPTIONS
      ;;
    tsan)
      TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:ignore_noninstrumented_modules=1:$(suppression_option tsan)
      # Without it, the sanitizer would say so in the error output of programs that tests look at.
      command -v llvm-symbolizer-19 >/dev/null || TSAN_OPTIONS+=:external_symbolizer_path=
      export TSAN_OPTIONS
      ;;
  esac
}

# nginx, for users who are not root.
export PATH=$PATH:/usr/sbin:/sbin

# Takes "--only FILTER" off `rest`: GoogleTest then runs those tests only.
parse_filter() {
  local taken=() index
  for ((index = 0; index < ${#rest[@]}; index++)); do
    case ${rest[index]} in
      --only)
        [ $((index + 1)) -lt ${#rest[@]} ] || die '--only needs a filter, such as JSON*'
        index=$((index + 1))
        export GTEST_FILTER=${rest[index]}
        ;;
      --only=*) export GTEST_FILTER=${rest[index]#--only=} ;;
      *) taken+=("${rest[index]}") ;;
    esac
  done
  rest=("${taken[@]}")
}

# How many tests the programs ran in all, from what each of them has written.
count_tests() {
  find "$1" -name '*.xml' -exec awk '
    match($0, /<testsuites tests="[0-9]+" failures="[0-9]+"/) {
      split(substr($0, RSTART, RLENGTH), part, "\"")
      tests += part[2]; failures += part[4]
    }
    /result="skipped"/ { skipped++ }
    END {
      printf "%d passed, %d failed, %d skipped\n", tests - failures - skipped, failures, skipped
    }' {} +
}

run_test() {
  local preset=unity rest results status=0
  parse_preset "$@"
  parse_filter
  configure_and_build "$preset"
  sanitizer_environment "$preset"
  results=build/$preset/results
  rm -rf "$results"
  section "Tests ($preset)"
  # Most of a program's time it waits for others.
  ctest --test-dir "build/$preset" --output-on-failure --no-tests=error -j$(($(nproc) * 2)) "${rest[@]}" ||
    status=$?
  [ -d "$results" ] || return $status
  local totals
  totals=$(count_tests "$results")
  section "Tests in these programs: $totals"
  [[ -z ${GTEST_FILTER:-} || $totals != '0 passed, 0 failed'* ]] || die "no test matches '$GTEST_FILTER'"
  return $status
}
