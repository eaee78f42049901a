# ./dev races
# shellcheck shell=bash

# run_races [--steps N] [--seed N]: N random steps, from a seed of its own unless one is given.
run_races() {
  local steps=10000 seed=$((RANDOM * 32768 + RANDOM + 1))
  while [ $# -gt 0 ]; do
    case $1 in
      --steps | --seed)
        [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || die "'${2:-}' is no number"
        if [ "$1" = --steps ]; then steps=$2; else seed=$2; fi
        shift 2
        ;;
      *) die "unknown argument: $1" ;;
    esac
  done
  configure_and_build unity kvl_session_tests
  section "races: $steps steps, seed $seed"
  KVL_SEED=$seed KVL_STEPS=$steps build/unity/bin/kvl_session_tests \
    --gtest_filter='SessionRandomTest.*:LiveRacesTest.*'
}
