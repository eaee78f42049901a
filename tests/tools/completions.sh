#!/bin/bash
# usage: completions.sh FOLDER PROGRAMS
# The completions of FOLDER, in bash, zsh and fish, offer each command and option that the help of the
# programs in the folder PROGRAMS names, nothing else, and files, folders and words where they belong.
# shellcheck disable=SC2317 # functions are called by the name of their shell
set -euo pipefail
folder=$1
export PATH=$2:$PATH COLUMNS=1000 LC_ALL=C.UTF-8
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# The commands, or the long options, of a help.
commands_of() { "$@" --help | sed -nE 's/^  ([a-z]+) .*/\1/p'; }
options_of() { "$@" --help | grep -oE -- '^  +(-.,)?--[a-z-]+' | grep -oE -- '--.*'; }

# Each shell: what it offers at the end of each line, below "== LINE".
bash_offers() {
  bash -c 'source "$0/kvlocal.bash"
    compopt() { :; }
    for line; do
      read -ra COMP_WORDS <<<"$line"
      [[ $line != *" " ]] || COMP_WORDS+=("")
      COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) COMPREPLY=()
      $(complete -p "${COMP_WORDS[0]}" | sed -E "s/.*-F ([^ ]+) .*/\1/") "${COMP_WORDS[0]}"
      printf "== %s\n" "$line"
      printf "%s\n" "${COMPREPLY[@]}"
    done' "$folder" "$@"
}
zsh_offers() {
  mkdir -p "$work/functions"
  cp "$folder/kvlocal.zsh" "$work/functions/_kvlocal"
  : >"$work/offered"
  KVL_OFFERED=$work/offered zsh -f "$here/completions.zsh" "$work/functions" "$@"
}
fish_offers() {
  # shellcheck disable=SC2016 # the inner shell expands
  fish --no-config -c 'source $argv[1]/kvlocal.fish
    for line in $argv[2..]
      echo "== $line"
      complete -C $line | string replace -r "\t.*" ""
    end
    true' "$folder" "$@"
}

lines=()
declare -A wanted
# want LINE: what is to be offered at its end, from standard input.
want() {
  lines+=("$1")
  wanted[$1]=$(sort -u)
}

# zsh offers options behind a dash only, so they do not count there.
want 'kvlocal ' < <(commands_of kvlocal)
general=$(options_of kvlocal)
want 'kvlocal --' <<<"$general"
for command in $(commands_of kvlocal); do
  want "kvlocal $command --" < <(
    options_of kvlocal "$command"
    [ "$command" != dev ] || echo --
    echo "$general"
  )
done
for program in kvlocal-devnotary kvlocal-devservice; do want "$program --" < <(options_of "$program"); done
want 'kvlocal-devnotary --fault no' < <(printf '%s\n' no-certificate no-url none)
mkdir -p "$work/place/alone" && touch "$work/place/alike"
want 'kvlocal submit --data al' < <(printf '%s\n' alike alone)
want 'kvlocal image -o alik' <<<alike
want 'kvlocal identity --out al' <<<alone
want 'kvlocal-devservice --state al' <<<alone
want 'kvlocal dev -- cat alik' <<<alike
want 'kvlocal --notary al' <<<''
[ "${#lines[@]}" -gt 20 ]

cd "$work/place"
for shell in bash zsh fish; do
  "${shell}_offers" "${lines[@]}" >"$work/$shell" 2>"$work/errors" || failed=1
  if [ -s "$work/errors" ]; then
    sed "s/^/$shell: /" "$work/errors"
    failed=1
  fi
  for line in "${lines[@]}"; do
    offered=$(awk -v line="== $line" '/^== / { on = $0 == line; next } on && NF' "$work/$shell" | sed 's|/$||' | sort -u)
    [[ $line != *" " ]] || offered=$(grep -v '^-' <<<"$offered")
    if [ "$offered" != "${wanted[$line]}" ]; then
      printf '%s: "%s" is completed by\n%s\nand not by\n%s\n' "$shell" "$line" "$offered" "${wanted[$line]}"
      failed=1
    fi
  done
done
exit $failed
