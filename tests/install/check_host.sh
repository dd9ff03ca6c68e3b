#!/usr/bin/env bash
# Installs the built library into a scratch prefix, builds examples/host against it with
# find_package(VornGraph) and runs it on the bundled capture.
set -euo pipefail
build=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch/prefix" > /dev/null
# A file manager finds the viewer for .sr files through these three.
share="$scratch/prefix/share"
grep -q "^MimeType=application/vnd.sigrok.session;" "$share/applications/vornview.desktop"
grep -q '<glob pattern="\*.sr"/>' "$share/mime/packages/vornview-mime.xml"
test -s "$share/icons/hicolor/scalable/apps/vornview.svg" -a -x "$scratch/prefix/bin/vornview"
if command -v desktop-file-validate > /dev/null; then desktop-file-validate "$share/applications/vornview.desktop"; fi
cmake -S "$source/examples/host" -B "$scratch/host" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" > /dev/null
cmake --build "$scratch/host" > /dev/null
LD_LIBRARY_PATH="$scratch/prefix/lib" QT_QPA_PLATFORM=offscreen "$scratch/host/host" "$source/data/sample.sr"
