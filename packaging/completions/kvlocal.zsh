#compdef kvlocal kvlocal-devnotary kvlocal-devservice
# zsh completion for kvlocal(1), kvlocal-devnotary(1) and kvlocal-devservice(1)
#
# The programs' own help says what there is, so this never tells of an option that is not there.

# Options and commands of a help, each as "name<TAB>kind of its value<TAB>description".
_kvlocal_entries() {
  COLUMNS=1000 "$@" --help 2>/dev/null | sed -nE ':next; N; s/\n {20,}/  /; $!b next
    s/\n {20,}/  /g; p' | sed -nE 'h; s/^  (-.),--[a-z-]+ ([^ ]+).*/\1\t\2\t/p
    g; s/^  (-.,)?(--[a-z-]+|[a-z]+)( ([^ ]+))?( .*)?$/\2\t\4\t\5/
    T; s/\t +((REQUIRED|ERFORDERLICH|必須|\.\.\.|in \[[^]]*\](=[^ ]*)?) *)*([^\t]*)$/\t\4/; p'
}

local program=$words[1] command= kind= word entry
local -a entries commands options found
local -A kinds
entries=(${(f)"$(_kvlocal_entries $program)"})
commands=(${${(M)entries:#[a-z]*}%%$'\t'*})
if (( ${words[(i)--]} < CURRENT )); then
  shift ${words[(i)--]} words
  CURRENT=$#words
  _normal
  return
fi
for word in ${words[2,CURRENT-1]}; do
  [[ -n $command ]] || (( ! ${commands[(Ie)$word]} )) || command=$word
done
if [[ -n $command ]]; then
  entries=(${(f)"$(_kvlocal_entries $program $command)"} ${${(M)entries:#-*}:#--help*})
fi
for entry in $entries; do
  kinds[${entry%%$'\t'*}]=${${entry#*$'\t'}%%$'\t'*}
  word="${entry%%$'\t'*}:${entry##*$'\t'}"
  case $entry in
    -?$'\t'*) ;;
    -*) options+=($word) ;;
    *) found+=($word) ;;
  esac
done
[[ $command != dev ]] || options+=('--:a command to run with them')

kind=$kinds[${words[CURRENT-1]}]
case $kind in
  '') _describe command found; _describe -o option options ;;
  DIR*) _directories ;;
  FILE*) _files ;;
  *:\{*) found=(${(s:,:)${kind#*:\{}%\}}); _describe 'value' found ;;
  *) _message $kind ;;
esac
