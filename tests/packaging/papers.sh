#!/usr/bin/env bash
# Goal: the man pages read without a complaint and know every option and command; completion works in each shell.
# Method: man itself, the programs' own --help, and the shells.
#
# usage: papers.sh FOLDER_OF_PROGRAMS
set -euo pipefail
programs=$(realpath "$1")
cd "$(dirname "$0")/../../packaging"
export PATH=$programs:$PATH LC_ALL=C.UTF-8
failed=0
complain() {
    echo "$1" >&2
    failed=1
}

for page in man/*; do
    said=$(MANWIDTH=100 man --warnings -l "$page" 2>&1 >/dev/null) || complain "$page cannot be read"
    [ -z "$said" ] || complain "$page: $said"
done

# What a program's own help names must stand in its page.
knows() { # program, page, help arguments...
    local program=$1 text word
    text=$(man -l "man/$2" | col -b | tr '‐−' '--')
    shift 2
    for word in $("$program" "$@" --help | awk '/:$/ { section = $1 } section != "Positionals:" && /^  [^ ]/ { gsub(",", " ", $1); print $1 }'); do
        [[ $word == --[a-z]* || $word =~ ^[a-z]+$ ]] || continue
        grep -qF -e "$word" <<<"$text" || complain "the page of $program does not know $word"
    done
}
knows orv-listen orv-listen.1
knows orv-publish orv-publish.1
knows orv-config orv-config.8
knows orv-config orv-config.8 user
knows orv-config orv-config.8 user add
knows orvctl orvctl.1
knows orvctl orvctl.1 setup
knows orvctl orvctl.1 import
knows orvctl orvctl.1 status
knows orvctl orvctl.1 doctor
knows orvctl orvctl.1 feed

# --- completion ---
made=$(mktemp -d)
trap 'rm -rf "$made"' EXIT
for program in orvctl orv-listen orv-publish orv-config; do
    sed "s/@PROGRAM@/$program/g" completion/template.bash >"$made/$program.bash"
    sed "s/@PROGRAM@/$program/g" completion/template.zsh >"$made/_$program"
    sed "s/@PROGRAM@/$program/g" completion/template.fish >"$made/$program.fish"
    bash -n "$made/$program.bash"
    zsh -n "$made/_$program"
    fish -n "$made/$program.fish"
done

in_bash() { # words...
    bash -c '
        source "$1/$2.bash"
        shift
        COMP_WORDS=("$@")
        COMP_CWORD=$(($# - 1))
        _orv_completion 2>/dev/null
        printf "%s\n" "${COMPREPLY[@]}"' bash "$made" "$@"
}
in_fish() { # words...
    fish --no-config -c "source $made/$1.fish; complete -C '$*'" | cut -f 1
}
# zsh completes on a terminal only, so that it is given one; what it would offer is caught on its way to the screen.
in_zsh() { # words...
    : >"$made/hits"
    ORV_MADE=$made ORV_LINE="$*" zsh -f -c '
        zmodload zsh/zpty
        zpty terminal zsh -f -i
        zpty -w terminal "PROMPT=; unsetopt zle_bracketed_paste 2>/dev/null; zstyle \":completion:*\" verbose no
            autoload -U compinit; fpath=($ORV_MADE \$fpath); compinit -u -D
            compadd() {
                if [[ \${@[1,(i)(-|--)]} == *-(O|A|D)\ * ]]; then builtin compadd \"\$@\"; return; fi
                local -a hits; builtin compadd -A hits \"\$@\"
                (( \$#hits )) && print -l -- \"<\"\$^hits\">\" >>$ORV_MADE/hits; return 1
            }
            show() { zle complete-word; print -r -- done >>$ORV_MADE/hits }
            zle -N show; bindkey \"^I\" show; print -r -- rea\"\"dy"
        zpty -r terminal said "*ready*"
        zpty -w -n terminal "$ORV_LINE"$'"'\t'"'
        integer tries
        while (( tries++ < 200 )); do grep -qx done $ORV_MADE/hits 2>/dev/null && break; sleep 0.05; done
        zpty -d terminal' >/dev/null 2>&1
    sed -n 's/^<\(.*\)>$/\1/p' "$made/hits"
}

# All that a shell offers for a line, in any order.
expect() { # wanted words, words of the line...
    local wanted=$1 shell got
    shift
    wanted=$(tr ' ' '\n' <<<"$wanted" | sort)
    for shell in in_bash in_fish in_zsh; do
        got=$($shell "$@" | sed 's/ *$//' | grep -v '^$' | sort -u) || true
        [ "$wanted" = "$got" ] || complain "$shell: completion of \"$*\" gives \"${got//$'\n'/ }\", not \"${wanted//$'\n'/ }\""
    done
}
expect import orvctl imp
expect "feed" orvctl fe
expect --to-fifo orv-listen hold --to
expect --follow orv-listen hold --fo
expect --type orvctl feed add x --ty
expect "default linein shuffled sorted" orvctl feed add x --type ""
expect reader orvctl --json user add x --role r
expect README.md orvctl -c READ
expect passwd orv-config user p
expect --command orv-publish live --comm
expect "" orvctl feed add x --folder ""
for shell in in_bash in_zsh; do
    got=$($shell orvctl feed "" | sort | tr '\n' ' ')
    [ "$got" = "add list rebuild remove set show " ] || complain "$shell: completion of \"orvctl feed \" gives \"$got\""
done
# fish offers the options too.
got=$(in_fish orvctl feed "" | grep -v '^-' | sort | tr '\n' ' ')
[ "$got" = "add list rebuild remove set show " ] || complain "in_fish: completion of \"orvctl feed \" gives \"$got\""

exit "$failed"
