# ./dev install: what all commands need. Installing is done before a command runs, so nothing is left.
# shellcheck shell=bash

run_install() { :; }
