# ./dev measure: figures about the shape of the sources; --list names the places.
# shellcheck shell=bash

packages_for_measure() { printf 'tests\n'; }

run_measure() { python3 tools/dev/measure.py "$@"; }
