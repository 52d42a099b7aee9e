#!/usr/bin/env bash
# Runs fuzz targets, one per processor at a time: run.sh BUILD-FOLDER SECONDS [TARGET...]
# New inputs go into the build folder; the kept files are only read. A crash leaves its input there and fails the run.
set -euo pipefail
build=$1 seconds=$2
shift 2
corpus=$(cd "$(dirname "$0")" && pwd)/corpus
declare -A kept=([riff_walk]=wave [whole_file]=wave [adpcm_decoder]=adpcm [content_name]=names [settings_file]=settings
    [link_list]=lists [link_request]=requests [link_event]=events [row_file]=rows)
[ $# -gt 0 ] || set -- "${!kept[@]}"

fuzz() {  # target
    local out=$build/fuzz/$1
    mkdir -p "$out/corpus"
    if "$build/bin/fuzz_$1" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1024 -print_final_stats=1 \
        -artifact_prefix="$out/" "$out/corpus" "$corpus/${kept[$1]}" >"$out/log" 2>&1; then
        echo "$1: $(sed -n 's/^stat::number_of_executed_units: *//p' "$out/log") executions," \
            "$(sed -n 's/^stat::average_exec_per_sec: *//p' "$out/log") a second, nothing found"
    else
        tail -n 60 "$out/log" >&2
        echo "$1: FAILED; its whole output is $out/log" >&2
        return 1
    fi
}

failed=0
running=0
for target in "$@"; do
    fuzz "$target" &
    running=$((running + 1))
    if [ "$running" -ge "$(nproc)" ]; then
        wait -n || failed=1
        running=$((running - 1))
    fi
done
while [ "$running" -gt 0 ]; do
    wait -n || failed=1
    running=$((running - 1))
done
exit "$failed"
