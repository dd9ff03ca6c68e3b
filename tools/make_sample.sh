#!/usr/bin/env bash
# Makes data/sample.sr: 100 ms at 100 kHz of a damped step response, a PWM output with ringing and
# ripple, noisy 50 Hz mains with harmonics, and a 9600 baud serial line (TX, RTS) on logic probes,
# written by vorn_gensample, with an envelope around the step response made by vorn.
#   tools/make_sample.sh [OUT.sr]     (needs a build in build/: ./build.sh test)
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-data/sample.sr}
build=${BUILD:-build}
for tool in "$build/tools/vorn_gensample" "$build/apps/vorn/vorn"; do
    [ -x "$tool" ] || { echo "make_sample.sh: build $tool first (./build.sh test)" >&2; exit 1; }
done

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
"$build/tools/vorn_gensample" "$tmp/sample.sr"
"$build/apps/vorn/vorn" envelope "$tmp/sample.sr" Step
# It must stay a capture that sigrok opens.
sigrok-cli -i "$tmp/sample.sr" --show > /dev/null
mv "$tmp/sample.sr" "$out"
"$build/apps/vorn/vorn" list "$out"
