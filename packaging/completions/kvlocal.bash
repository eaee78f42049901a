# bash completion for kvlocal(1), kvlocal-devnotary(1) and kvlocal-devservice(1)
# shellcheck shell=bash
#
# The programs' own help says what there is, so this never tells of an option that is not there.

# Options and commands of a help, each as "name<TAB>kind of its value".
_kvlocal_entries() {
  COLUMNS=1000 "$@" --help 2>/dev/null |
    sed -nE 'h; s/^  (-.),--[a-z-]+ ([^ ]+).*/\1\t\2/p
      g; s/^  (-.,)?(--[a-z-]+|[a-z]+)( ([^ ]+))?( .*)?$/\2\t\4/p'
}

_kvlocal_commands() { _kvlocal_entries "$@" | sed -nE 's/^([a-z]+)\t.*/\1/p'; }

# The command line that begins with the word of this number.
_kvlocal_other() {
  local current=${COMP_WORDS[COMP_CWORD]} kind=f
  if declare -F _command_offset >/dev/null; then
    _command_offset "$1"
    return
  fi
  ((COMP_CWORD > $1)) || kind=c
  compopt -o filenames
  mapfile -t COMPREPLY < <(compgen -"$kind" -- "$current")
}

_kvlocal() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local commands command='' word entries kind index
  commands=$(_kvlocal_commands "$1")
  for ((index = 1; index < COMP_CWORD; index++)); do
    word=${COMP_WORDS[index]}
    if [[ $word == -- ]]; then
      _kvlocal_other $((index + 1))
      return
    fi
    [[ -n $command || $'\n'$commands$'\n' != *$'\n'$word$'\n'* ]] || command=$word
  done
  entries=$(_kvlocal_entries "$1" ${command:+"$command"})
  [[ -z $command ]] || entries+=$'\n'$(_kvlocal_entries "$1" | grep -E '^--[^h]')
  kind=$(sed -nE "s/^$previous\t(.+)/\1/p" <<<"$entries" | head -n 1)
  case $kind in
    '')
      [[ $command != dev ]] || entries+=$'\n--'
      mapfile -t COMPREPLY < <(compgen -W "$(cut -f 1 <<<"$entries" | grep -v '^-[^-]$')" -- "$current")
      ;;
    DIR*)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      ;;
    FILE*)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      ;;
    *:'{'*)
      kind=${kind#*:\{}
      mapfile -t COMPREPLY < <(compgen -W "${kind//[,\}]/ }" -- "$current")
      ;;
  esac
}
complete -F _kvlocal kvlocal kvlocal-devnotary kvlocal-devservice
