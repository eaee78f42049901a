# ./dev mutants
# shellcheck shell=bash

packages_for_mutants() { printf '%s\n' build qt webengine peers display tests; }

run_mutants() { python3 -B tools/dev/mutants.py "$@"; }
