# ./dev build
# shellcheck shell=bash

# What the sources of a folder compile to, each by itself, with nothing linked: build_objects PRESET FOLDER
build_objects() {
  local objects
  configure_and_build "$1" help >/dev/null
  mapfile -t objects < <(ninja -C "build/$1" -t targets all |
    sed -n "s,^\\($2/CMakeFiles/[^/]*/[^_][^:]*\\.o\\): .*,\\1,p")
  [ ${#objects[@]} -gt 0 ] || die "there are no sources in $2"
  cmake --build "build/$1" --parallel "$(nproc)" --target "${objects[@]}"
}

run_build() {
  local preset=debug rest
  parse_preset "$@"
  if [ "${rest[0]:-}" = --objects ]; then
    build_objects "$preset" "${rest[1]:?--objects needs a folder}"
  else
    configure_and_build "$preset" "${rest[@]}"
  fi
}
