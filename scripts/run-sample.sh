#!/usr/bin/env bash
# The main job on the bundled sample: run the worker as a host would and show
# what the host receives, through the result-stream reader.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target meshdrone meshdrone-inspect >/dev/null
sample=${1:-samples/assembly.prc}
out=$(mktemp)
trap 'rm -f "$out"' EXIT
build/worker/meshdrone "$sample" > "$out"
build/tools/inspect/meshdrone-inspect "$out"
