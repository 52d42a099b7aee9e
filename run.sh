#!/usr/bin/env bash
# Plays: builds the system, sets up three feeds over real hold music, starts the Configuration service and the audio feed
# service, and shows what each feed plays and how loud. Ctrl-C ends all of it.
#
#   ./run.sh                start and show
#   ./run.sh --seconds 20   the same, ended after that time
#
# What it makes lies in run/ (delete it to start afresh), in build/, and, where this path is long, pipes in /tmp.
set -euo pipefail
cd "$(dirname "$0")"
. cmake/packages.sh

limit=0
while [ $# -gt 0 ]; do
    case $1 in
        --seconds)
            limit=${2:-}
            case $limit in
                '' | *[!0-9]*)
                    echo "--seconds needs a whole number, as in ./run.sh --seconds 20" >&2
                    exit 2
                    ;;
            esac
            shift 2
            ;;
        -h | --help)
            sed -n '2,8s/^# \{0,1\}//p' run.sh
            exit 0
            ;;
        *)
            echo "usage: ./run.sh [--seconds N]" >&2
            exit 2
            ;;
    esac
done

# --- what it needs --------------------------------------------------------------------------------------------------
# shellcheck disable=SC2086
orv_install $ORV_RUN_PACKAGES
mkdir -p build run
# The programs that it starts hold the lock too, so that none is left when another begins.
exec 9>run/lock
if ! flock -n 9; then
    echo "Another ./run.sh plays from this folder already, or has left its programs behind: end it with Ctrl-C" >&2
    exec 9>&-
    holders=$(find /proc/[0-9]*/fd -maxdepth 1 -printf ':%l %h\n' 2>/dev/null | grep -F ":$(pwd -P)/run/lock /proc/" |
        sed 's|.*/proc/\([0-9]*\)/fd$|\1|' | sort -un | tr '\n' ' ') || true
    [ -z "$holders" ] || echo "Its processes: $holders" >&2
    exit 1
fi
[ -x build/release/bin/orv-audio-feed ] || echo "Building (the first time takes some minutes) ..."
# On a terminal, how far it is.
show_steps() {
    local line
    while IFS= read -r line; do
        case $line in
            \[*/*\]*) [ ! -t 1 ] || printf '\r\033[K%s' "${line%%]*}]" ;;
        esac
    done
    [ ! -t 1 ] || printf '\r\033[K'
}
if ! { cmake --preset release && cmake --build build/release; } 2>&1 | tee build/release.log | show_steps; then
    tail -n 30 build/release.log >&2
    echo "The build failed; its whole output is in build/release.log" >&2
    exit 1
fi

bin=$PWD/build/release/bin
data=$PWD/run/data
settings=$PWD/run/OrvPhoneSystem.ini
admin=$PWD/run/orvctl.ini
database=$PWD/run/config.db
# The settings files are made once and then kept as they are, so that they can be edited.
setting() { sed -n "s/^ *$1 *= *\"\{0,1\}\([^\";#]*\).*/\1/p" "$settings" 2>/dev/null | tail -n 1 || true; }
pipes=$(setting PipePath)
if [ -z "$pipes" ]; then
    # A socket's whole path has at most 107 bytes.
    pipes=$PWD/run/pipe
    [ ${#pipes} -le 80 ] || pipes=/tmp/orv-$(id -u)/pipe
fi
if [ "$pipes" != "$PWD/run/pipe" ]; then
    # So that the README's lines find them.
    ln -sfnT "$pipes" run/pipe
    ln -sfnT "$(dirname "$pipes")/status" run/status
fi

# --- music and prompts ----------------------------------------------------------------------------------------------
prompts=$data/Data/Ivr/Prompts
if [ ! -d "$prompts/Playlist" ]; then
    mkdir -p "$prompts/Playlist/sorted" "$prompts/Playlist/shuffled"
    music=(/usr/share/asterisk/moh/*.wav)
    cp "${music[@]}" "$prompts/Playlist/shuffled/"
    cp "${music[@]:0:3}" "$prompts/Playlist/sorted/"
    cp "${music[0]}" "$prompts/default.wav"
    for prompt in queue-thankyou queue-periodic-announce please-try-call-later; do
        cp "/usr/share/asterisk/sounds/en/$prompt.wav" "$prompts/$prompt.wav"
    done
fi

# --- the Configuration service --------------------------------------------------------------------------------------
children=()
cleanup() {
    trap - EXIT INT TERM
    [ ! -t 1 ] || printf '\n'
    echo "Stopping ..."
    # The listeners first, then the feeds, then the configuration, each given the time it needs.
    local pid
    for ((i = ${#children[@]} - 1; i >= 0; i--)); do
        pid=${children[i]}
        kill -TERM "$pid" 2>/dev/null || continue
        wait "$pid" 2>/dev/null || true
    done
    echo "Stopped. The log is in $data/Data/Logs/Backup"
    exit "${1:-0}"
}
trap 'cleanup 0' INT TERM
trap 'cleanup $?' EXIT

fail() {
    echo "$1" >&2
    exit 1
}

password() { od -An -N 18 -tx1 /dev/urandom | tr -d ' \n'; }
# Waits until the last child has said the text in its file; false when it ends or takes too long.
wait_for() {
    local file=$1 text=$2 tries
    for ((tries = 0; tries < 100; tries++)); do
        if grep -q -- "$text" "$file" 2>/dev/null; then return 0; fi
        kill -0 "${children[-1]}" 2>/dev/null || return 1
        sleep 0.1
    done
    return 1
}

if [ ! -f "$settings" ] || [ ! -f "$admin" ] || [ ! -f "$database" ]; then
    rm -f "$settings" "$admin" "$database"*
    for user in admin feeder; do
        role=reader
        [ $user = feeder ] || role=admin
        (umask 077 && password >"run/$user.password")
        "$bin/orv-config" user add "$user" --role "$role" --database "$database" --password-file "run/$user.password" \
            >/dev/null
    done
fi
port=$(setting ConfPort)
: >run/orv-config.log
"$bin/orv-config" serve --database "$database" --port "${port:-0}" >>run/orv-config.log 2>&1 &
children+=($!)
wait_for run/orv-config.log 'listening on' || {
    cat run/orv-config.log >&2
    fail "The Configuration service did not start. If its port is taken, delete run/ or change ConfPort in $settings and $admin"
}
port=$(sed -n 's/.*listening on [^ ]*:\([0-9][0-9]*\).*/\1/p' run/orv-config.log | tail -n 1)

write_settings() { # file, user
    [ -f "$1" ] || (
        umask 077
        printf '[General]\nAppDataPath="%s/"\nPipePath="%s"\nStatusPath="%s"\n\n[ConfService]\nconfNIC=127.0.0.1\nConfPort=%s\nconfUser=%s\nconfPass=%s\n' \
            "$data" "$pipes" "$(dirname "$pipes")/status" "$port" "$2" "$(cat "run/$2.password")" >"$1"
    )
}
write_settings "$settings" feeder
write_settings "$admin" admin
ctl=("$bin/orvctl" -c "$admin")

if ! "${ctl[@]}" feed show hold >/dev/null 2>&1; then
    "${ctl[@]}" parameter set DEFAULTAUDIOFILE --value "$prompts/default.wav" >/dev/null
    "${ctl[@]}" parameter set SYSTEMLOGGINGLEVEL --value 2 >/dev/null
    for prompt in queue-thankyou queue-periodic-announce please-try-call-later; do
        "${ctl[@]}" announcement add "$prompt" --file "$prompts/$prompt.wav" --kind over >/dev/null
    done
    "${ctl[@]}" feed add hold --type default >/dev/null
    "${ctl[@]}" feed add sorted --type sorted --folder sorted --announcements on --min-pause 8 --max-pause 15 >/dev/null
    "${ctl[@]}" feed add shuffled --type shuffled --folder shuffled >/dev/null
fi

# --- the feeds ------------------------------------------------------------------------------------------------------
# The service itself says nothing of a settings file that it cannot read, so it is said here.
"${ctl[@]}" settings check "$settings" >run/settings.check 2>&1 || {
    cat run/settings.check >&2
    fail "The settings file $settings cannot be used."
}
grep '^orvctl: ' run/settings.check >&2 || true
"$bin/orv-audio-feed" -c "$settings" >run/orv-audio-feed.log 2>&1 &
feeder=$!
children+=("$feeder")

feeds=(hold sorted shuffled)
for feed in "${feeds[@]}"; do
    "$bin/orv-listen" "$feed" --pipe-folder "$pipes" --meter --follow >/dev/null 2>"run/level-$feed" &
    children+=($!)
done

log_file() { find "$data/Data/Logs" -maxdepth 1 -name '*.log' 2>/dev/null | sort | tail -n 1; }
playing() { # feed
    local log=$1 feed=$2 line
    line=$(grep -a "as $feed\[" "$log" 2>/dev/null |
        grep -a -E 'Start next audio file |(Play|Pause) announcement: ' | tail -n 1) || true
    case $line in
        # The announcement has ended, and the music goes on.
        *"Pause announcement: "*) line=$(grep -a "as $feed\[.*Start next audio file " "$log" | tail -n 1) || true ;;
    esac
    case $line in
        *"Play announcement: "*) echo "${line##*Play announcement: }" | sed 's/.*\[\(.*\)\]/\1/;s#.*/##;s/$/ (announcement)/' ;;
        *"Start next audio file "*) echo "${line##*/}" ;;
        *) echo "the default stream" ;;
    esac
}
tell() {
    cat <<TEXT

Listen:           $bin/orv-listen sorted --pipe-folder $pipes | aplay -q -f S16_LE -r 8000 -c 1
Record:           $bin/orv-listen sorted --pipe-folder $pipes --wav hold.wav --seconds 30
Change a feed:    ${ctl[*]} feed set sorted --max-volume 20
See all of them:  ${ctl[*]} feed list
Put in music:     copy 8 kHz mono WAV files into $prompts/Playlist/sorted
Stop:             Ctrl-C

TEXT
}
tell

sleep 3  # until there is something to show
began=$SECONDS
# With the settings file of the service, so that it is tried as well.
"$bin/orvctl" -c "$settings" doctor >run/doctor 2>&1 || cat run/doctor >&2
shown=0
lines=()
while kill -0 "$feeder" 2>/dev/null; do
    if [ "$limit" -gt 0 ] && [ $((SECONDS - began)) -ge "$limit" ]; then exit 0; fi
    log=$(log_file)
    lines=()
    for feed in "${feeds[@]}"; do
        level=$(tail -n 1 "run/level-$feed" 2>/dev/null | sed -n 's/.*: level \(.*\), peak \(.*\), .*/\1|\2/p') || level=
        lines+=("$(printf '%-10s level %-9s peak %-9s plays %s' "$feed" "${level%%|*}" "${level##*|}" \
            "$([ -z "$log" ] || playing "$log" "$feed")")")
    done
    if [ -t 1 ]; then
        [ "$shown" -eq 0 ] || printf '\033[%dA' "${#feeds[@]}"
        printf '\033[K%s\n' "${lines[@]}"
        shown=1
        sleep 1 &
    else
        printf '%s\n' "${lines[@]}"
        sleep 5 &
    fi
    wait $! || true
done
cat run/orv-audio-feed.log >&2
fail "The audio feed service has ended; its output stands above, its log in $data/Data/Logs"
