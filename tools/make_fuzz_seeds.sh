#!/usr/bin/env bash
# Makes the fuzzers' seed corpus under fuzz/corpus/: small captures of every shape the reader
# knows (analog, logic, mixed, with envelope curves, zip64, many chunks) and the key files
# inside them.   tools/make_fuzz_seeds.sh   (needs sigrok-cli, zip, unzip and a built vorn)
set -euo pipefail
cd "$(dirname "$0")/.."
vorn=$(realpath "${VORN:-build/apps/vorn/vorn}")
[ -x "$vorn" ] || { echo "make_fuzz_seeds.sh: build vorn first (./build.sh test)" >&2; exit 1; }
out=fuzz/corpus
rm -rf "$out"
mkdir -p "$out/srarchive" "$out/srini"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

demo() { # demo OUT CHANNELS SAMPLES
    sigrok-cli -d demo --channels "$2" --config samplerate=1k --samples "$3" -o "$1"
}
# rezip DIR OUT [ZIP OPTIONS]: the members of DIR, version and metadata first, with fixed times
rezip() {
    local dir=$1 target=$2
    shift 2
    find "$dir" -type f -exec touch -d @0 {} +
    (cd "$dir" && zip -q -X -D "$@" "$target" version metadata \
        $(find . -type f ! -path ./version ! -path ./metadata | sed 's|^\./||' | sort -V))
}

demo "$out/srarchive/analog.sr" A0,A1 64
demo "$out/srarchive/logic.sr" D0,D1,D2,D3,D4,D5,D6,D7 200
demo "$tmp/mixed.sr" A0,D0,D1 64
cp "$tmp/mixed.sr" "$out/srarchive/mixed.sr"
cp "$tmp/mixed.sr" "$out/srarchive/curves.sr"
"$vorn" envelope "$out/srarchive/curves.sr" A0 --points 4 > /dev/null

# zip64 records for every member and the directory, as zip writes when forced
mkdir "$tmp/curves"
unzip -q "$out/srarchive/curves.sr" -d "$tmp/curves"
rezip "$tmp/curves" "$(realpath "$out/srarchive")/zip64.sr" -fz

# one sample per member: the chunk order matters and the directory is long
mkdir "$tmp/chunks"
unzip -q "$tmp/mixed.sr" -d "$tmp/chunks"
cat "$tmp"/chunks/analog-1-9-* > "$tmp/analog"
cat "$tmp"/chunks/logic-1-* > "$tmp/logic"
rm "$tmp"/chunks/analog-1-9-* "$tmp"/chunks/logic-1-*
(cd "$tmp/chunks" && split -a 3 -b 4 -d "$tmp/analog" a && split -a 3 -b 1 -d "$tmp/logic" l)
for f in "$tmp"/chunks/[al][0-9]*; do
    n=$((10#${f##*/?} + 1))
    case ${f##*/} in a*) mv "$f" "$tmp/chunks/analog-1-9-$n" ;; l*) mv "$f" "$tmp/chunks/logic-1-$n" ;; esac
done
rezip "$tmp/chunks" "$(realpath "$out/srarchive")/chunks.sr" -0

unzip -p "$out/srarchive/mixed.sr" metadata > "$out/srini/device.ini"
unzip -p "$out/srarchive/curves.sr" vorngraph/metadata > "$out/srini/curves.ini"
for f in "$out"/srarchive/*.sr; do "$vorn" list "$f" > /dev/null; done
ls -l "$out"/*
