# Sourced by run.sh, test.sh and bench/run.sh: what they need of Debian, and how it gets there.

# Builds and runs the system.
ORV_RUN_PACKAGES="g++ cmake ninja-build pkg-config libgrpc++-dev protobuf-compiler protobuf-compiler-grpc libprotobuf-dev
libsqlite3-dev libsodium-dev libcli11-dev nlohmann-json3-dev libsndfile1-dev libsoxr-dev libebur128-dev
asterisk-moh-opsound-wav asterisk-core-sounds-en asterisk-core-sounds-en-wav"

# Proves it.
ORV_TEST_PACKAGES="$ORV_RUN_PACKAGES clang libclang-rt-14-dev clang-format libgtest-dev libgmock-dev sox ffmpeg
util-linux ccache binutils python3 dpkg-dev debhelper lintian systemd man-db zsh fish adduser passwd curl
alsa-utils gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good"

# Counts what the tests run of it.
ORV_COVERAGE_PACKAGES="$ORV_TEST_PACKAGES llvm"

# Measures it, beside others.
ORV_BENCH_PACKAGES="$ORV_RUN_PACKAGES libbenchmark-dev ffmpeg gstreamer1.0-tools gstreamer1.0-plugins-base
gstreamer1.0-plugins-good python3"

# Installs those of the named packages that are missing, and says so.
orv_install() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing from Debian: ${missing[*]}"
    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "This needs root once. Run as root:  apt-get install ${missing[*]}" >&2
            return 1
        fi
        sudo=(sudo)
    fi
    local log
    log=$(mktemp)
    if ! { "${sudo[@]}" apt-get update && "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y \
        --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        echo "The installation failed; its whole output is in $log" >&2
        return 1
    fi
    rm -f "$log"
}
