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
      export TSAN_OPTIONS
      ;;
  esac
}

# nginx, for users who are not root.
export PATH=$PATH:/usr/sbin:/sbin

run_test() {
  local preset rest
  parse_preset "$@"
  configure_and_build "$preset"
  sanitizer_environment "$preset"
  section "Tests ($preset)"
  ctest --test-dir "build/$preset" --output-on-failure --no-tests=error -j2 "${rest[@]}"
}
