# ./dev soak: a host with everything that it does, while everything around it fails now and then.
# shellcheck shell=bash
source tools/dev/test.sh

# Takes the options of kvl_soak.
run_soak() {
  local preset=unity rest
  parse_preset "$@"
  configure_and_build "$preset" kvl_soak
  sanitizer_environment "$preset"
  section "Soak: ${rest[*]}"
  "build/$preset/bin/kvl_soak" "${rest[@]}"
}
