#!/usr/bin/env bash
# The main job on a bundled 3D PDF: the host tool finds the PRC model, runs the
# worker on it as a PDF viewer would, checks the result stream, and writes the
# model as glTF and a preview picture; then it shows what the host received.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target meshdrone meshdrone-extract meshdrone-inspect >/dev/null
sample=${1:-tests/data/pdf/office-editor-assembly.pdf}
name=$(basename "${sample%.*}")
mkdir -p out
build/tools/extract/meshdrone-extract "$sample" -o "out/$name.glb" --png "out/$name.png"
build/tools/extract/meshdrone-extract --info "$sample"
