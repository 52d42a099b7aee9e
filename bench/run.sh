#!/usr/bin/env bash
# Measures: installs what is missing, builds for it, runs, and writes what came of it into bench/README.md.
#
#   bench/run.sh             every goal, the curve, and the comparison with other programs (most of an hour)
#   bench/run.sh goals ...   the goals and the curve; options go to orv-load
#   bench/run.sh compare ... the comparison; options go to compare.py
#   bench/run.sh kernels ... the loops by themselves; options go to the benchmark program
set -euo pipefail
cd "$(dirname "$0")/.."
. cmake/packages.sh
# shellcheck disable=SC2086
orv_install $ORV_BENCH_PACKAGES
mkdir -p build
if ! { cmake --preset bench && cmake --build build/bench; } >build/bench.log 2>&1; then
    tail -n 30 build/bench.log >&2
    echo "The build failed; its whole output is in build/bench.log" >&2
    exit 1
fi
bin=build/bench/bin
results=build/bench/results
mkdir -p "$results"

# Puts a file between the two marks of that name in the README.
publish() { # mark, file
    local begin="<!-- measured: $1 -->" end="<!-- end: $1 -->"
    awk -v begin="$begin" -v end="$end" -v file="$2" '
        $0 == begin { print; while ((getline line < file) > 0) print line; skip = 1 }
        $0 == end { skip = 0 }
        !skip { if ($0 != begin) print }' bench/README.md >"$results/README.md"
    cat "$results/README.md" >bench/README.md
}

goals() {
    local code=0
    "$bin/orv-load" all --json "$results/goals.json" --markdown "$results/goals.md" --plot "$results/curve.svg" "$@" || code=$?
    [ "$code" -ne 1 ] || exit 1
    publish goals "$results/goals.md"
    [ ! -s "$results/curve.svg" ] || cp "$results/curve.svg" bench/curve.svg
    return "$code"
}
compare() {
    python3 bench/compare.py --bin "$bin" --markdown "$results/compare.md" "$@"
    publish compare "$results/compare.md"
}

what=${1:-all}
[ $# -eq 0 ] || shift
case $what in
    all)
        code=0
        goals || code=$?
        compare
        exit "$code"
        ;;
    goals | compare) "$what" "$@" ;;
    kernels) exec "$bin/orv-bench" "$@" ;;
    *)
        sed -n '4,7s/^# *//p' "$0" >&2
        exit 1
        ;;
esac
