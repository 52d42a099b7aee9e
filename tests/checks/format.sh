#!/usr/bin/env bash
# Every C++ file stands as clang-format leaves it.
set -euo pipefail
mapfile -t files < <(find AudioFeeder ConfigClient ConfigService Platform Projects ServiceProcess Tools VX bench tests \
    -name '*.h' -o -name '*.cpp' | sort)
[ ${#files[@]} -gt 100 ] || { echo "only ${#files[@]} files found: is this the root of the tree?" >&2; exit 1; }
clang-format --dry-run --Werror "${files[@]}"
