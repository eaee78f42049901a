# fish completion for kvlocal(1), kvlocal-devnotary(1) and kvlocal-devservice(1)
#
# The programs' own help says what there is, so this never tells of an option that is not there.

# Options and commands of a help, each as "name<TAB>kind of its value<TAB>description".
function __kvlocal_entries
    COLUMNS=1000 $argv --help 2>/dev/null | sed -nE ':next; N; s/\n {20,}/  /; $!b next
        s/\n {20,}/  /g; p' | sed -nE 'h; s/^  (-.),--[a-z-]+ ([^ ]+).*/\1\t\2\t/p
        g; s/^  (-.,)?(--[a-z-]+|[a-z]+)( ([^ ]+))?( .*)?$/\2\t\4\t\5/
        T; s/\t +((REQUIRED|ERFORDERLICH|必須|\.\.\.|in \[[^]]*\](=[^ ]*)?) *)*([^\t]*)$/\t\4/; p'
end

function __kvlocal_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l entries (__kvlocal_entries $words[1])
    set -l commands (string match -r '^[a-z]+(?=\t)' -- $entries)
    set -l command
    if set -l at (contains -i -- -- $words)
        complete -C (string join ' ' -- (string escape -- $words[(math $at + 1)..]) $current)
        return
    end
    for word in $words[2..]
        if test -z "$command"; and contains -- $word $commands
            set command $word
        end
    end
    if test -n "$command"
        set entries (__kvlocal_entries $words[1] $command) (string match -r '^--[^h].*' -- $entries)
    end
    set -l previous (string escape --style=regex -- $words[-1])
    set -l kind (string match -rg "^$previous\t([^\t]+)\t" -- $entries)[1]
    switch "$kind"
        case ''
            string match -rv '^-.\t' -- $entries | string replace -r '\t[^\t]*\t' \t
            test "$command" = dev; and echo --\t'a command to run with them'
        case 'DIR*'
            __fish_complete_directories "$current"
        case 'FILE*'
            __fish_complete_path "$current"
        case '*:{*'
            string split , -- (string replace -r '^[^{]*\{(.*)\}.*' '$1' -- $kind)
    end
end

for program in kvlocal kvlocal-devnotary kvlocal-devservice
    complete -c $program -f -a '(__kvlocal_complete)'
end
