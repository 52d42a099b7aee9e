#compdef @PROGRAM@
# Completion for @PROGRAM@. It reads the program's own --help, so that it knows what the program knows.

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

# What may follow an option: "@files", "@none" for a free text, or the values; nothing if it takes no value.
_orv_values() { # help text, option
    print -r -- "$1" | awk -v option="$2" '
        /^[A-Za-z].*:$/ { section = $1 }
        section != "Options:" || !/^  [^ ]/ { next }
        {
            count = split($1, names, ",")
            for (i = 1; i <= count; i++) {
                if (names[i] != option) continue
                type = $2
                if (type ~ /^(FILE|DIR)/) print "@files"
                else if (type ~ /[|{]/) {
                    sub(/^[A-Z]*:?{/, "", type)
                    sub(/}.*/, "", type)
                    gsub(/[|,]/, "\n", type)
                    print type
                } else if (type ~ /^[A-Z]/ && type !~ /^[A-Z][a-z]/) print "@none"
            }
        }'
}

_orv_completion() {
    local program=$words[1] word help
    local -a trail subcommands options possible
    help="$($program --help 2>/dev/null)" || return 1
    for word in ${words[2,CURRENT-1]}; do
        subcommands=(${(f)"$(_orv_described "$help" Subcommands)"})
        if (( ${subcommands[(I)${word}:*]} )); then
            trail+=($word)
            help="$($program $trail --help 2>/dev/null)" || return 1
        fi
    done
    if [[ $words[CURRENT-1] == -* ]]; then
        possible=(${(f)"$(_orv_values "$help" $words[CURRENT-1])"})
        # The connection is described with the program itself.
        (( $#possible )) || possible=(${(f)"$(_orv_values "$($program --help 2>/dev/null)" $words[CURRENT-1])"})
        case "$possible" in
            @files) _files; return ;;
            @none) _message value; return ;;
            ?*) compadd -a possible; return ;;
        esac
    fi
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
