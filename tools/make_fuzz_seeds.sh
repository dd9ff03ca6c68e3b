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

# device channels named like envelope curves beside curves of ours, one of them unreadable and
# one with an infinite limit: none may ever act as A0's limits
python3 - "$out/srarchive/posing.sr" <<'PY'
import struct, sys, zipfile
out = sys.argv[1]
meta = ("[global]\nsigrok version=0.5.2\n\n[device 1]\ncapturefile=logic-1\ntotal probes=0\n"
        "samplerate=1 kHz\ntotal analog=3\nanalog1=A0\nanalog2=A0 [upper]\nanalog3=A0 [lower]\nunitsize=1\n")
curves = ("[curve 1]\nname=A0 [upper]\nunit=V\nsamples=4\nstart=0\ninterval=0.001\n"
          "[curve 2]\nname=A0 [lower]\nunit=V\nsamples=4\nstart=0\ninterval=nan\n")
with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as z:
    def add(name, data):
        info = zipfile.ZipInfo(name, (1980, 1, 1, 0, 0, 0))
        info.compress_type = zipfile.ZIP_DEFLATED
        z.writestr(info, data)
    add("version", "2")
    add("metadata", meta)
    add("analog-1-1-1", struct.pack("<4f", 0, 204e3, 0, 1))
    add("analog-1-2-1", struct.pack("<4f", *[1e6] * 4))
    add("analog-1-3-1", struct.pack("<4f", *[-1e6] * 4))
    add("vorngraph/metadata", curves)
    add("vorngraph/curve-1", struct.pack("<4d", 1.5, 1.5, float("inf"), 1.5))
    add("vorngraph/curve-2", struct.pack("<4d", -0.5, float("nan"), -0.5, -0.5))
PY

unzip -p "$out/srarchive/mixed.sr" metadata > "$out/srini/device.ini"
unzip -p "$out/srarchive/curves.sr" vorngraph/metadata > "$out/srini/curves.ini"
for f in "$out"/srarchive/*.sr; do "$vorn" list "$f" > /dev/null; done
ls -l "$out"/*
