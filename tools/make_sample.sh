#!/usr/bin/env bash
# Makes data/sample.sr: a sigrok-cli demo capture (square, sine, triangle and sawtooth on A0-A3,
# four logic probes) with an envelope stored on A0 by vorn.
#   tools/make_sample.sh [OUT.sr]     (needs sigrok-cli and a built build/apps/vorn/vorn)
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-data/sample.sr}
vorn=${VORN:-build/apps/vorn/vorn}
[ -x "$vorn" ] || { echo "make_sample.sh: build vorn first (./build.sh test)" >&2; exit 1; }

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
sigrok-cli -d demo --channels A0,A1,A2,A3,D0,D1,D2,D3 --config samplerate=1M --samples 250000 \
    -o "$tmp/sample.sr"
"$vorn" envelope "$tmp/sample.sr" A0 --points 20
mv "$tmp/sample.sr" "$out"
"$vorn" list "$out"
