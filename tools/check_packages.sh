#!/usr/bin/env bash
# Installs the Debian packages from build/ as a user would, uses them, builds examples/host
# against vorngraph-dev, removes them and checks that nothing of them is left behind.
set -euo pipefail
cd "$(dirname "$0")/.."
debs=(build/vorngraph_*.deb build/vorngraph-dev_*.deb)
export DEBIAN_FRONTEND=noninteractive
apt-get install -y -qq "${debs[@]/#/./}" > /dev/null
trap 'apt-get remove -y -qq vorngraph vorngraph-dev > /dev/null 2>&1 || true' EXIT
files=$(dpkg -L vorngraph vorngraph-dev | sort -u)

/usr/bin/vorn --help > "${TMPDIR:-/tmp}/vorn-help.txt"
grep -q "vorn check" "${TMPDIR:-/tmp}/vorn-help.txt"
/usr/bin/vorn --version
man -w vorn > /dev/null && man -w vornview > /dev/null
test -s /usr/share/bash-completion/completions/vorn
shot=$(mktemp -d)
QT_QPA_PLATFORM=offscreen /usr/bin/vornview data/sample.sr --screenshot "$shot/sample.png"
test -s "$shot/sample.png"
cmake -S examples/host -B "$shot/host" -G Ninja > /dev/null
cmake --build "$shot/host" > /dev/null
QT_QPA_PLATFORM=offscreen "$shot/host/host" data/sample.sr
rm -rf "$shot"

apt-get remove -y -qq vorngraph vorngraph-dev > /dev/null
trap - EXIT
left=0
while read -r f; do
    if [ -f "$f" ]; then echo "left behind: $f"; left=1; fi
done <<< "$files"
[ "$left" -eq 0 ]
echo "packages: installed, used and removed cleanly"
