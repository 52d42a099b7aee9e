#!/usr/bin/env bash
# Makes the Debian packages.
#
#   packaging/build.sh                        builds the release preset, then packs it
#   packaging/build.sh --binaries build/dev/bin    packs programs that are there already
#
#   --output DIR    where the packages go (default build/packages); what an earlier run left there is replaced
#   --fast          little compression and no packages of debug symbols, for tests
#
# DEBFULLNAME and DEBEMAIL, when both are set, name the maintainer in place of the developers.
set -euo pipefail
cd "$(dirname "$0")/.."

binaries=
output=build/packages
fast=
while [ $# -gt 0 ]; do
    case $1 in
        --binaries) binaries=$(realpath "${2:?--binaries needs a folder}"); shift 2 ;;
        --output) output=${2:?--output needs a folder}; shift 2 ;;
        --fast) fast=1; shift ;;
        -h | --help) sed -n '2,10s/^# \{0,1\}//p' packaging/build.sh; exit 0 ;;
        *) sed -n '2,10s/^# \{0,1\}//p' packaging/build.sh >&2; exit 2 ;;
    esac
done
for tool in dpkg-buildpackage dh; do
    command -v "$tool" >/dev/null || { echo "$tool is missing; apt-get install dpkg-dev debhelper" >&2; exit 1; }
done
if [ -z "$binaries" ]; then
    cmake --preset release
    cmake --build build/release --target orv-audio-feed orv-config orvctl orv-listen orv-publish orv-convert
    binaries=$PWD/build/release/bin
fi
for program in orv-audio-feed orv-config orvctl orv-listen orv-publish orv-convert; do
    [ -x "$binaries/$program" ] || { echo "$binaries/$program is missing; build it first" >&2; exit 1; }
done

stage=$output/stage
rm -rf "$stage"
rm -f "$output"/orv-*
mkdir -p "$stage/orv"
cp -r packaging/debian "$stage/orv/debian"
cp -r packaging/man packaging/completion packaging/log-clean packaging/log-clean.conf packaging/default-sound.py \
    docs/guide.md docs/consumers.md "$stage/orv/"
if [ -n "${DEBFULLNAME:-}" ] && [ -n "${DEBEMAIL:-}" ]; then
    maintainer=$(printf '%s <%s>' "$DEBFULLNAME" "$DEBEMAIL" | sed 's/[&|\\]/\\&/g')
    sed -i "s|^Maintainer: .*|Maintainer: $maintainer|" "$stage/orv/debian/control"
fi
options=${DEB_BUILD_OPTIONS:-}
if [ -n "$fast" ]; then
    options="$options noautodbgsym"
    export ORV_COMPRESSION="-Zgzip -z1"
fi
# What is built is not built here, so its build dependencies are no condition.
(cd "$stage/orv" && ORV_BINARIES=$binaries DEB_BUILD_OPTIONS=$options \
    dpkg-buildpackage -b -d -us -uc --no-sign >../build.log 2>&1) || {
    tail -n 40 "$stage/build.log" >&2
    echo "Packing failed; the whole output is in $stage/build.log" >&2
    exit 1
}
mv "$stage"/orv-* "$output/"
rm -rf "$stage"
ls "$output"/*.deb
