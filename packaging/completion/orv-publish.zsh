#compdef orv-publish
# Completion for the programs of the audio feed service. It reads their own --help, so that it knows what they know.

# "name:description" of the subcommands or options of one help text.
_orv_described() { # help text, section
    print -r -- "$1" | awk -v wanted="$2:" '
        /^[A-Za-z].*:$/ { section = $1 }
        section != wanted || !/^  [^ ]/ { next }
        {
            text = ""
            if (match($0, /[^ ]  +[^ ]/)) text = substr($0, RSTART + RLENGTH - 1)
            count = split($1, names, ",")
            for (i = 1; i <= count; i++) if (names[i] !~ /^[A-Z]/) { gsub(/:/, "\\:", names[i]); print names[i] ":" text }
        }'
}

_orv_completion() {
    local program=$words[1] word help
    local -a trail subcommands options
    help="$($program --help 2>/dev/null)" || return 1
    for word in ${words[2,CURRENT-1]}; do
        subcommands=(${(f)"$(_orv_described "$help" Subcommands)"})
        if (( ${subcommands[(I)${word}:*]} )); then
            trail+=($word)
            help="$($program $trail --help 2>/dev/null)" || return 1
        fi
    done
    subcommands=(${(f)"$(_orv_described "$help" Subcommands)"})
    options=(${(f)"$(_orv_described "$help" Options)"})
    if [[ $words[CURRENT] == -* ]]; then
        _describe option options
    elif (( $#subcommands )); then
        _describe command subcommands
    else
        _files
    fi
}

_orv_completion "$@"
