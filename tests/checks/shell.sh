#!/usr/bin/env bash
# Every shell script parses.
set -euo pipefail
scripts=(run.sh test.sh .ci/run bench/*.sh cmake/*.sh tests/*.sh tests/checks/*.sh tests/fuzz/*.sh tests/packaging/*.sh
    packaging/*.sh packaging/log-clean packaging/debian/*.post*)
[ ${#scripts[@]} -ge 6 ] || { echo "only ${#scripts[@]} scripts found: is this the root of the tree?" >&2; exit 1; }
for script in "${scripts[@]}"; do bash -n "$script"; done
