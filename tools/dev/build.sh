# ./dev build
# shellcheck shell=bash

# The sources of a folder, each by itself, and nothing of it is kept: compile_alone PRESET FOLDER
compile_alone() {
  configure_and_build "$1" help >/dev/null
  python3 -B tools/dev/syntax.py "build/$1" "$2"
}

run_build() {
  local preset=debug rest
  parse_preset "$@"
  if [ "${rest[0]:-}" = --syntax ]; then
    compile_alone "$preset" "${rest[1]:?--syntax needs a folder}"
  else
    configure_and_build "$preset" "${rest[@]}"
  fi
}
