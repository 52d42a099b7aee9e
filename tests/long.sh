#!/usr/bin/env bash
# What proves the system and takes too long for every day. Needs the dev build: start it by ./test.sh --long.
set -euo pipefail
cd "$(dirname "$0")/.."

echo "A simulated day of ten feeds"
build/dev/bin/orv-sim --seed 1 --feeds 10 --hours 24

# One run is one thread, so two halves of the seeds use two cores.
echo "10,000 simulated runs of five minutes with five feeds"
build/dev/bin/orv-sim --seed 1 --seeds 5000 &
half=$!
build/dev/bin/orv-sim --seed 5001 --seeds 5000
wait "$half"

echo "Each operation of the platform and each allocation fails once"
ORV_LONG=1 build/dev/tests/AudioFeeder/audio_feeder_failing_operation_test
ORV_LONG=1 build/dev/tests/AudioFeeder/audio_feeder_failing_allocation_test

echo "Real faults, tried harder"
ORV_LONG=1 ctest --test-dir build/dev --output-on-failure -L faults
