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

declare -A texts
for page in man/*; do
    texts[${page#man/}]=$(MANWIDTH=1000 man --no-hyphenation -l "$page" | col -b | sed 's/[‐−]/-/g')
done
# The word by itself, and not as a part of another option.
tells() { # page, word
    grep -qE -e "(^|[^[:alnum:]-])$2([^[:alnum:]-]|\$)" <<<"${texts[$1]}" || complain "$1 does not know $2"
}
# What a program's own help names must stand in its page, and so must what each of its commands tells, to the last one.
declare -i known=0
knows() { # program, page, words of a command...
    local program=$1 page=$2 help word
    shift 2
    help=$("$program" "$@" --help) || complain "$program $* --help ended with $?"
    for word in $(awk '/:$/ { section = $1 } section != "Positionals:" && /^  [^ ]/ { gsub(",", " ", $1); print $1 }' <<<"$help"); do
        [[ $word == --[a-z]* || $word =~ ^[a-z]+$ ]] || continue
        tells "$page" "$word"
        known+=1
    done
    for word in $(awk '/:$/ { section = $1 } section == "Subcommands:" && /^  [^ ]/ { print $1 }' <<<"$help"); do
        knows "$program" "$page" "$@" "$word"
    done
}
knows orv-listen orv-listen.1
knows orv-publish orv-publish.1
knows orv-convert orv-convert.1
knows orv-config orv-config.8
knows orvctl orvctl.1
for word in $(./log-clean --help | grep -oE -e '--[a-z-]+'); do
    tells orv-log-clean.8 "$word"
    known+=1
done
# So that a help of another shape is not taken for one that names nothing.
[ "$known" -gt 150 ] || complain "the helps name only $known options and commands"

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
