# ./dev format
# shellcheck shell=bash

run_format() {
  tree_files '*.h' '*.cpp' | xargs --no-run-if-empty clang-format-19 -i
}
