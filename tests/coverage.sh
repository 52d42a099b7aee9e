#!/usr/bin/env bash
# coverage.sh BUILD: runs the tests of a build that counts, and prints which share of the lines and branches of each of
# the four subsystems they ran. Fails when a test does, or when a share is below what is promised.
#
#   tests/coverage.sh build/coverage --uncovered    also names each line that no test ran
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
profiles=$build/profiles
rm -rf "$profiles"
mkdir -p "$profiles"

# Sixteen files at most for each program, to which its runs add up.
LLVM_PROFILE_FILE=$PWD/$profiles/%16m.profraw ctest --test-dir "$build" --output-on-failure --no-tests=error -j "$(nproc)"
llvm-profdata merge -sparse -o "$build/all.profdata" "$profiles"/*.profraw

# Each program that has counted.
objects=()
while IFS= read -r program; do objects+=(-object "$program"); done < <(find "$build" -type f -perm -u+x \
    ! -name '*.so' ! -name '*.bin' ! -path '*/CMakeFiles/*' | sort)
llvm-cov export "${objects[@]:1}" -instr-profile "$build/all.profdata" \
    ServiceProcess AudioFeeder Projects/Common/VoIPFileEngine ConfigClient >"$build/coverage.json"
exec python3 tests/coverage.py "$build/coverage.json" "${@:2}"
