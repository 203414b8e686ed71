#!/usr/bin/env bash
# Installs what the build and the tests need on a Debian machine. Idempotent:
# when every package is already there it only checks and returns.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config patch zlib1g-dev libgtest-dev libgmock-dev libbenchmark-dev)
# meshdrone-extract: PDF objects, PNG, glTF (and the JSON it is built on), its command
# line; assimp reads the exported files back in its tests.
packages+=(libqpdf-dev libpng-dev libtinygltf-dev nlohmann-json3-dev libcli11-dev assimp-utils)
# The Python module and its tests, for the system's python3.
packages+=(python3-dev pybind11-dev python3-numpy python3-pytest)
# trimesh for Model.to_trimesh, where the distribution has it (Debian 13 on).
apt-cache show python3-trimesh >/dev/null 2>&1 && packages+=(python3-trimesh)
packages+=("$@")

# The Khronos glTF validator, which the extract tests run on every glTF file
# they write: from npm into a folder of its own (the tests find it there, or
# in MESHDRONE_NODE_DIR); where npm cannot install it they say so and skip it.
validator_dir=${MESHDRONE_NODE_DIR:-${HOME:-/nonexistent}/.cache/meshdrone/node}
validator_version=2.0.0-dev.3.10
if ! grep -qs "\"version\": \"$validator_version\"" "$validator_dir/node_modules/gltf-validator/package.json"; then
  if command -v npm >/dev/null && npm install --prefix "$validator_dir" --no-audit --no-fund --silent \
       "gltf-validator@$validator_version" >/dev/null 2>&1; then
    echo "installed gltf-validator $validator_version in $validator_dir"
  else
    echo "gltf-validator could not be installed with npm: glTF files are checked by assimp only"
  fi
fi

# libdeflate's source, which the build patches and compiles in (once, cached).
bash "$(dirname "$0")/fetch-libdeflate.sh"

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
