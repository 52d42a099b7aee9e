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
for file in completion/*.bash; do bash -n "$file"; done
for file in completion/*.zsh; do zsh -n "$file"; done
for file in completion/*.fish; do fish -n "$file"; done

expect() { # what, wanted, got
    [ "$2" = "$3" ] || complain "completion of \"$1\" gives \"$3\", not \"$2\""
}
in_bash() { # words...
    bash -c '
        source "completion/$(basename "$1").bash"
        COMP_WORDS=("$@")
        COMP_CWORD=$(($# - 1))
        _orv_completion 2>/dev/null
        echo "${COMPREPLY[*]}"' bash "$@"
}
expect "orvctl imp" "import" "$(in_bash orvctl imp)"
expect "orv-listen hold --to" "--to-fifo" "$(in_bash orv-listen hold --to)"
expect "orvctl fe" "feed" "$(in_bash orvctl fe)"
expect "orvctl feed " "list show add set rebuild remove" "$(in_bash orvctl feed "")"
expect "orvctl feed add x --ty" "--type" "$(in_bash orvctl feed add x --ty)"
expect "orvctl feed add x --type " "default linein shuffled sorted" "$(in_bash orvctl feed add x --type "")"
expect "orvctl --json user add x --role r" "reader" "$(in_bash orvctl --json user add x --role r)"
expect "orvctl -c READ" "README.md" "$(in_bash orvctl -c READ)"
expect "orv-config user p" "passwd" "$(in_bash orv-config user p)"
expect "orv-listen hold --fo" "--follow" "$(in_bash orv-listen hold --fo)"

in_fish() { # line
    fish --no-config -c "source completion/${1%% *}.fish; complete -C '$1'" | cut -f 1 | tr '\n' ' '
}
expect "orvctl setu" "setup " "$(in_fish 'orvctl setu')"
expect "orvctl feed add x --ty" "--type " "$(in_fish 'orvctl feed add x --ty')"
expect "orv-config user pa" "passwd " "$(in_fish 'orv-config user pa')"

# zsh completes on a terminal only; what its words are made of runs without one.
in_zsh() { # program, section, help arguments...
    zsh -f -c "_files() { :; }; _describe() { :; }; words=($1 ''); CURRENT=2
        source completion/$1.zsh 2>/dev/null
        _orv_described \"\$($1 ${*:3} --help)\" $2 | cut -d : -f 1" | tr '\n' ' '
}
expect "orvctl feed (zsh)" "list show add set rebuild remove " "$(in_zsh orvctl Subcommands feed)"

exit "$failed"
