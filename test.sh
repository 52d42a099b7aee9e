#!/usr/bin/env bash
# Everything that proves the system: builds it three times (plain with g++; with Clang and the address and undefined
# behaviour sanitizers; with the thread sanitizer), then runs every check and every test as one CTest run.
#
#   ./test.sh                 all of it
#   ./test.sh -R Settings     what matches, as for ctest
#   ./test.sh --fuzz          runs each fuzz target for 60 s instead; names behind it choose among them
#   ./test.sh --coverage      counts the lines and branches that the tests of the four subsystems run
#   ./test.sh --long          what takes about an hour instead, tests/long.sh
set -euo pipefail
cd "$(dirname "$0")"
case ${1:-} in
    -h | --help)
        sed -n '2,9s/^# \{0,1\}//p' test.sh
        exit 0
        ;;
esac
. cmake/packages.sh
# shellcheck disable=SC2086
orv_install $ORV_TEST_PACKAGES

# Who is root can make all that a test needs, so that none may skip itself.
[ "$(id -u)" -ne 0 ] || export ORV_NO_SKIP=1

# The compiler's cache serves every clone on this machine.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1

build() {  # preset, targets...
    local preset=$1 log
    shift
    log=build/$preset.log
    mkdir -p build
    echo "Building $preset ..."
    if ! { cmake --preset "$preset" && cmake --build "build/$preset" "$@"; } >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        echo "The build failed; its whole output is in $log" >&2
        exit 1
    fi
}
if [ "${1:-}" = --fuzz ]; then
    shift
    build fuzz
    exec tests/fuzz/run.sh build/fuzz 60 "$@"
fi
if [ "${1:-}" = --coverage ]; then
    # shellcheck disable=SC2086
    orv_install $ORV_COVERAGE_PACKAGES
    build coverage
    exec tests/coverage.sh build/coverage
fi
build dev
if [[ ${1:-} == --long ]]; then exec tests/long.sh; fi
build asan
build tsan

# One run over the three trees, so that its summary counts everything.
mkdir -p build/all
printf 'subdirs("%s/build/dev")\nsubdirs("%s/build/asan")\nsubdirs("%s/build/tsan")\n' "$PWD" "$PWD" "$PWD" \
    >build/all/CTestTestfile.cmake
export ASAN_OPTIONS=detect_stack_use_after_return=0:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1
export TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp second_deadlock_stack=1"
exec ctest --test-dir build/all --output-on-failure --no-tests=error -j "$(nproc)" --timeout 120 "$@"
