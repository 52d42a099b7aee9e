#!/usr/bin/env bash
# Each script tells how it is used, from wherever it is called, before it installs, builds or starts anything.
set -euo pipefail
tree=$PWD
made=$(mktemp -d)
trap 'rm -rf "$made"' EXIT
mkdir "$made/bin"
for program in apt-get sudo dpkg-query cmake ctest dpkg-buildpackage; do
    printf '#!/bin/sh\necho "%s $*" >>"%s/touched"\nexit 1\n' "$program" "$made" >"$made/bin/$program"
    chmod +x "$made/bin/$program"
done
failed=0
complain() {
    echo "$1" >&2
    failed=1
}
for script in test.sh run.sh bench/run.sh packaging/build.sh packaging/log-clean; do
    for option in -h --help; do
        code=0
        said=$(cd / && PATH=$made/bin:$PATH timeout 20 "$tree/$script" "$option" 2>"$made/errors") || code=$?
        [ "$code" -eq 0 ] || complain "$script $option ends with $code"
        [ ! -s "$made/errors" ] || complain "$script $option says on standard error: $(cat "$made/errors")"
        grep -q "^ .*$(basename "$script")" <<<"$said" || complain "$script $option tells no command line: $said"
        ! grep -q '^#\|set -e' <<<"$said" || complain "$script $option shows its own text: $said"
        [ ! -e "$made/touched" ] || complain "$script $option ran $(cat "$made/touched")"
    done
done
exit "$failed"
