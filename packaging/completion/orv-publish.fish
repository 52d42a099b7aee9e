# Completion for orv-publish. It reads the program's own --help, so that it knows what the program knows.

# "name<tab>description" of the subcommands and options that fit the command line so far.
function __orv_complete_orv-publish
    set -l program (commandline -opc)
    set -l name $program[1]
    set -l trail
    set -l help ($name --help 2>/dev/null)
    or return
    for word in $program[2..-1]
        if contains -- $word (__orv_help_words_orv-publish Subcommands $help | string split -f 1 \t)
            set -a trail $word
            set help ($name $trail --help 2>/dev/null)
            or return
        end
    end
    __orv_help_words_orv-publish Subcommands $help
    __orv_help_words_orv-publish Options $help
end

function __orv_help_words_orv-publish
    set -l section $argv[1]
    printf '%s\n' $argv[2..-1] | awk -v wanted="$section:" '
        /^[A-Za-z].*:$/ { section = $1 }
        section != wanted || !/^  [^ ]/ { next }
        {
            text = ""
            if (match($0, /[^ ]  +[^ ]/)) text = substr($0, RSTART + RLENGTH - 1)
            count = split($1, names, ",")
            for (i = 1; i <= count; i++) if (names[i] !~ /^[A-Z]/) print names[i] "\t" text
        }'
end

complete -c orv-publish -a '(__orv_complete_orv-publish)'
