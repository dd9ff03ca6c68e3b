#!/usr/bin/env bash
# One entry point for people and CI: installs what is missing, configures, builds, runs.
#   ./build.sh view [FILE.sr]   open the viewer (data/sample.sr when no file is given)
#   ./build.sh test             build and run every test under the offscreen platform
#   ./build.sh bench            build in Release and run the benchmarks
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
cd "$here"

PACKAGES=(
    g++ cmake ninja-build pkg-config ccache
    qt6-base-dev qt6-charts-dev qt6-qpa-plugins libgl-dev
    libzip-dev libglib2.0-dev
    libbenchmark-dev
    sigrok-cli unzip zip
    xvfb xauth fonts-dejavu-core
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
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
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
    exec build/apps/vornview/vornview "$file" "$@"
    ;;
test)
    install_missing
    build build RelWithDebInfo
    cd build
    QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j "$(nproc)" "$@"
    ;;
bench)
    install_missing
    build build-release Release -DVORN_BUILD_BENCH=ON -DVORN_BUILD_TESTS=OFF
    exec build-release/bench/vorn_bench "$@"
    ;;
*)
    echo "usage: ./build.sh view [FILE.sr] | test | bench" >&2
    exit 1
    ;;
esac
