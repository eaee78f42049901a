# ./dev build
# shellcheck shell=bash

run_build() {
  local preset=debug rest
  parse_preset "$@"
  configure_and_build "$preset" "${rest[@]}"
}
