# Completion for the programs of the audio feed service. It reads their own --help, so that it knows what they know.

# The words of one help text: "subcommands", "options", or "values" of the option $3.
_orv_help_words() { # help text, kind, option
    awk -v kind="$2" -v option="$3" '
        /^[A-Za-z].*:$/ { section = $1 }
        !/^  [^ ]/ { next }
        kind == "subcommands" && section == "Subcommands:" { print $1 }
        section != "Options:" { next }
        {
            count = split($1, names, ",")
            for (i = 1; i <= count; i++) {
                if (names[i] !~ /^-/) continue
                if (kind == "options") print names[i]
                if (kind != "values" || names[i] != option) continue
                type = $2
                if (type ~ /^(FILE|DIR)/) print "@files"
                else if (type ~ /[|{]/) {
                    sub(/^[A-Z]*:?{/, "", type)
                    sub(/}.*/, "", type)
                    gsub(/[|,]/, "\n", type)
                    print type
                } else if (type ~ /^[A-Z]/ && type !~ /^[A-Z][a-z]/) print "@none"
            }
        }' <<<"$1"
}

_orv_completion() {
    local program=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local path=() help word values
    help=$("$program" --help 2>/dev/null) || return 0
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if _orv_help_words "$help" subcommands | grep -qxF -e "$word"; then
            path+=("$word")
            help=$("$program" "${path[@]}" --help 2>/dev/null) || return 0
        fi
    done
    COMPREPLY=()
    if [[ $previous == -* ]]; then
        values=$(_orv_help_words "$help" values "$previous")
        # The connection is described with the program itself.
        [[ -n $values ]] || values=$(_orv_help_words "$("$program" --help 2>/dev/null)" values "$previous")
        case $values in
            @files) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- "$current"); return 0 ;;
            @none) return 0 ;;
            ?*) mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current"); return 0 ;;
        esac
    fi
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_orv_help_words "$help" options)" -- "$current")
        return 0
    fi
    values=$(_orv_help_words "$help" subcommands)
    if [[ -n $values ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
    else
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}

complete -F _orv_completion @PROGRAM@
