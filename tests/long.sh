#!/usr/bin/env bash
# What proves the system and takes too long for every day. Needs the dev build: start it by ./test.sh --long. Ends at the
# first part that fails, and tells how long each took.
set -euo pipefail
cd "$(dirname "$0")/.."
export ORV_LONG=1

part() {  # what it is, command...
    local begin=$SECONDS
    echo "== $1"
    "${@:2}"
    echo "== took $((SECONDS - begin)) s"
}

# One run is one thread, so two halves of the seeds use two cores.
simulate_many() {
    build/dev/bin/orv-sim --seed 1 --seeds 5000 &
    local half=$!
    # shellcheck disable=SC2064
    trap "kill $half 2>/dev/null || true" EXIT
    build/dev/bin/orv-sim --seed 5001 --seeds 5000
    wait "$half"
    trap - EXIT
}

fail_each() {
    build/dev/tests/AudioFeeder/audio_feeder_failing_operation_test
    build/dev/tests/AudioFeeder/audio_feeder_failing_allocation_test
    build/dev/tests/VX/VXGrpcFailingAllocationTest
}

part "A simulated day of ten feeds, within two minutes" timeout 120 build/dev/bin/orv-sim --seed 1 --feeds 10 --hours 24
part "10,000 simulated runs of five minutes with five feeds" simulate_many
part "Each operation of the platform and each allocation fails once" fail_each
part "Real faults, tried harder" ctest --test-dir build/dev --output-on-failure --no-tests=error -R '^Faults'
