# usage: KVL_OFFERED=FILE zsh -f completions.zsh FOLDER LINE...
# What zsh offers at the end of each LINE, with the completion functions of FOLDER, each line preceded
# by "== LINE". FILE is for what the inner, interactive shell notes; that shell reads this script, too.

if [[ -o interactive ]]; then
  PS1= PS2= RPS1=
  unsetopt prompt_sp prompt_cr
  fpath=($KVL_FUNCTIONS $fpath)
  autoload -Uz compinit && compinit -u -D
  zstyle ':completion:*' verbose no
  # Calls that only sort out what matches stay as they are.
  compadd() {
    if [[ " ${(j: :)@[1,(i)(-|--)]} " != *" -"[OAD]" "* ]]; then
      local -a offered
      builtin compadd -O offered "$@"
      print -lr -- ${offered/#/+} >>$KVL_OFFERED
    fi
    builtin compadd "$@"
  }
  finish() {
    _main_complete
    print end >>$KVL_OFFERED
  }
  zle -C finish complete-word finish
  bindkey '^I' finish
  print ready >>$KVL_OFFERED
  return
fi

zmodload zsh/zpty zsh/zselect
wait_for() {
  repeat 2000; do
    grep -qx $1 $KVL_OFFERED && return
    zpty -r -t shell ignored
    zselect -t 1
  done
  print -u2 "zsh does not come to its $1"
  exit 1
}

export KVL_OFFERED KVL_FUNCTIONS=$1
shift
zpty -b shell zsh -f -i
zpty -w shell "source ${(q)0}"
wait_for ready
for line; do
  : >$KVL_OFFERED
  zpty -w -n shell $'\C-u'"$line"$'\t'
  wait_for end
  print -r -- "== $line"
  sed -n 's/^+//p' $KVL_OFFERED
done
zpty -d shell
