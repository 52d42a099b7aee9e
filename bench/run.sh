#!/usr/bin/env bash
# Measures: installs what is missing, builds for it, runs, and writes what came of it into bench/README.md.
#
#   bench/run.sh             everything below, one after the other (40 minutes, the first build excepted)
#   bench/run.sh goals ...   every goal, ten minutes of real time among them; options go to orv-load
#   bench/run.sh curve ...   the cost of a feed from 10 to 5,000 feeds; options go to orv-load
#   bench/run.sh compare ... the comparison with other programs; options go to compare.py
#   bench/run.sh kernels ... the loops by themselves; options go to the benchmark program
#
# Ends with 0 when all was measured and every goal met, with 2 when a goal was not met, with 1 when something could not
# be measured; what could be is in the README in any case.
set -euo pipefail
trap 'exit 1' INT TERM  # a part that is broken off ends all of it
cd "$(dirname "$0")/.."

what=${1:-all}
[ $# -eq 0 ] || shift
case $what in
    all)
        code=0
        for part in goals curve compare kernels; do
            result=0
            bench/run.sh "$part" || result=$?
            [ "$code" -eq 1 ] || [ "$result" -eq 0 ] || code=$result
        done
        echo "Measured for $((SECONDS / 60)) minutes; the tables are in bench/README.md."
        exit "$code"
        ;;
    goals | curve | compare | kernels) ;;
    -h | --help)
        sed -n '2,11s/^# \{0,1\}//p' bench/run.sh
        exit 0
        ;;
    *)
        sed -n '4,8s/^# *//p' bench/run.sh >&2
        exit 1
        ;;
esac

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
command="bench/run.sh $what${*:+ $*}"

# Puts what is read between the two marks of this part in the README.
publish() {
    local begin="<!-- measured: $what -->" end="<!-- end: $what -->"
    { printf '`%s`:\n\n' "$command" && cat; } >"$results/$what.part"
    if ! grep -qxF "$begin" bench/README.md || ! grep -qxF "$end" bench/README.md; then
        echo "bench/README.md has no place for: $what" >&2
        exit 1
    fi
    awk -v begin="$begin" -v end="$end" -v file="$results/$what.part" '
        $0 == end { skip = 0 }
        !skip { print }
        $0 == begin { while ((getline line < file) > 0) print line; skip = 1 }' bench/README.md >"$results/README.md"
    cat "$results/README.md" >bench/README.md
}

# orv-load, of which 2 means that it measured and something was not as it should be.
load() {
    code=0
    "$bin/orv-load" "$@" --json "$results/$what.json" --markdown "$results/$what.md" || code=$?
    [ "$code" -eq 0 ] || [ "$code" -eq 2 ] || exit 1
}

code=0
case $what in
    goals)
        load all "$@"
        publish <"$results/goals.md"
        ;;
    curve)
        [ $# -gt 0 ] || set -- --curve 10,30,100,300,1000,2500,5000 --seconds 10
        load --plot bench/curve.svg "$@"
        { cat "$results/curve.md" && printf '\n![The cost of a feed against the number of feeds](curve.svg)\n'; } | publish
        ;;
    compare)
        python3 bench/compare.py --bin "$bin" --markdown "$results/compare.md" "$@"
        publish <"$results/compare.md"
        ;;
    kernels)
        "$bin/orv-bench" --benchmark_out="$results/kernels.json" --benchmark_out_format=json "$@"
        python3 bench/kernels.py "$results/kernels.json" | publish
        ;;
esac
exit "$code"
