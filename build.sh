#!/usr/bin/env bash
# One entry point for people and CI: installs what is missing, configures, builds, runs.
#   ./build.sh view [FILE.sr]   open the viewer (data/sample.sr when no file is given)
#   ./build.sh test             build and run every test under the offscreen platform
#   ./build.sh bench            build in Release and run the benchmarks
#   ./build.sh asan             build and run the tests with AddressSanitizer and UBSan
#   ./build.sh fuzz             fuzz the .sr reader and the key-file parser for a bounded time
#   ./build.sh package          build the Debian packages vorngraph and vorngraph-dev in build/
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
cd "$here"

PACKAGES=(
    g++ cmake ninja-build pkg-config ccache
    qt6-base-dev qt6-charts-dev qt6-svg-dev qt6-qpa-plugins libgl-dev
    qt6-tools-dev qt6-l10n-tools qt6-translations-l10n
    libzip-dev zlib1g-dev libdeflate-dev libglib2.0-dev
    libbenchmark-dev libsigrok-dev
    sigrok-cli unzip zip
    xvfb xauth fonts-dejavu-core desktop-file-utils
    help2man dpkg-dev file bash-completion doxygen graphviz
)

install_missing() {
    local missing=()
    for p in "${PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "build.sh: installing ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
}

build() { # build DIR BUILD_TYPE [cmake options...]
    local dir=$1 type=$2
    shift 2
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="$type" "$@" > /dev/null
    cmake --build "$dir" -j "$(nproc)"
}

cmd=${1:-}
[ $# -gt 0 ] && shift
case "$cmd" in
view)
    install_missing
    build build RelWithDebInfo
    file=data/sample.sr
    if [ $# -gt 0 ] && [[ "$1" != --* ]]; then file=$1; shift; fi
    # A screenshot needs no display; without one, render offscreen.
    if [[ " $* " == *" --screenshot "* ]] && [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
        export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen}
    fi
    exec build/apps/vornview/vornview "$file" "$@"
    ;;
test)
    install_missing
    build build RelWithDebInfo
    cd build
    QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j "$(nproc)" "$@"
    ;;
package)
    install_missing
    build build RelWithDebInfo
    (cd build && cpack -G DEB > /dev/null)
    ls build/*.deb
    ;;
asan)
    install_missing
    flags="-fsanitize=address,undefined -fno-omit-frame-pointer"
    build build-asan Debug -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" \
        -DCMAKE_SHARED_LINKER_FLAGS="$flags"
    cd build-asan
    # The installed-package check builds a host without the sanitizers, which cannot load an
    # instrumented library; it runs in the plain test build.
    QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j "$(nproc)" -E install_and_host "$@"
    ;;
fuzz)
    # Each target runs for a bounded time (FUZZ_SECONDS, default 60) from the committed seeds
    # (tools/make_fuzz_seeds.sh) and the inputs of earlier findings (fuzz/regressions) with its
    # dictionary; what it adds to the corpus stays in build-fuzz.
    install_missing
    PACKAGES=(clang libclang-rt-14-dev)
    install_missing
    flags="-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined"
    CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_BUILD_FUZZ=ON \
        -DVORN_BUILD_TESTS=OFF -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
        -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" > /dev/null
    cmake --build build-fuzz -j "$(nproc)" --target fuzz_srarchive fuzz_srini fuzz_srwriter
    found=0
    for target in srarchive srini srwriter; do
        corpus=build-fuzz/corpus/$target
        seeds=${target/srwriter/srarchive} # the writer starts from the same captures
        mkdir -p "$corpus"
        build-fuzz/fuzz/fuzz_$target -max_total_time="${FUZZ_SECONDS:-60}" -max_len=65536 -timeout=10 \
            -rss_limit_mb=2560 -artifact_prefix=build-fuzz/ -dict="fuzz/$seeds.dict" -print_final_stats=1 \
            "$corpus" "fuzz/corpus/$seeds" fuzz/regressions || found=1
    done
    # Every target gets its time; a finding in any fails the run.
    exit $found
    ;;
bench)
    # The side-by-side with PulseView drives both on an X server of their own through XTEST.
    PACKAGES+=(pulseview python3-xlib)
    install_missing
    build build-release Release -DVORN_BUILD_BENCH=ON -DVORN_BUILD_TESTS=OFF
    build-release/bench/vorn_bench "$@"
    if [ $# -eq 0 ]; then
        /usr/bin/python3 bench/side_by_side.py build-release/apps/vornview/vornview build-release/tools/vorn_gensr
    fi
    ;;
*)
    echo "usage: ./build.sh view [FILE.sr] | test | bench | asan | fuzz" >&2
    exit 1
    ;;
esac
