# Completion for @PROGRAM@. It reads the program's own --help, so that it knows what the program knows.

# "name<tab>description" of the subcommands, options or values that fit the command line so far.
function __orv_complete_@PROGRAM@
    set -l program (commandline -opc)
    set -l name $program[1]
    set -l trail
    set -l whole ($name --help 2>/dev/null)
    or return
    set -l help $whole
    for word in $program[2..-1]
        if contains -- $word (__orv_help_words_@PROGRAM@ Subcommands $help | string split -f 1 \t)
            set -a trail $word
            set help ($name $trail --help 2>/dev/null)
            or return
        end
    end
    if string match -q -- '-*' $program[-1]
        set -l possible (__orv_values_@PROGRAM@ $program[-1] $help)
        # The connection is described with the program itself.
        set -q possible[1]; or set possible (__orv_values_@PROGRAM@ $program[-1] $whole)
        switch "$possible"
            case @files
                __fish_complete_path (commandline -ct)
                return
            case @none
                return
            case '?*'
                printf '%s\n' $possible
                return
        end
    end
    set -l subcommands (__orv_help_words_@PROGRAM@ Subcommands $help)
    set -q subcommands[1]; and printf '%s\n' $subcommands; or __fish_complete_path (commandline -ct)
    __orv_help_words_@PROGRAM@ Options $help
end

function __orv_help_words_@PROGRAM@
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

# What may follow an option: "@files", "@none" for a free text, or the values; nothing if it takes no value.
function __orv_values_@PROGRAM@
    set -l option $argv[1]
    printf '%s\n' $argv[2..-1] | awk -v option="$option" '
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
end

complete -c @PROGRAM@ -f -a '(__orv_complete_@PROGRAM@)'
