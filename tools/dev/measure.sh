# ./dev measure: figures about the shape of the sources; --list names the places.
# shellcheck shell=bash

run_measure() { python3 tools/dev/measure.py "$@"; }
