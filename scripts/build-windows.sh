#!/usr/bin/env bash
# Cross-builds the Windows worker, build-win/worker/meshdrone.exe, and the
# exact decoder's program beside it, meshdrone-exact.exe, with Debian's
# mingw-w64:   bash scripts/build-windows.sh [build-dir]
# Installs the cross compiler and the Windows zlib when they are missing, builds
# only the two programs (no tests, tools or benchmarks) with warnings as errors,
# and fails unless each is a 64-bit GUI-subsystem program that imports no DLL
# beyond KERNEL32.dll and msvcrt.dll, so that it runs on a bare Windows, and
# whose own code does its floating point in SSE2 doubles without contraction.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build-win}

bash scripts/install-deps.sh g++-mingw-w64-x86-64 libz-mingw-w64-dev

cmake -S . -B "$dir" -G Ninja --no-warn-unused-cli \
  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
  -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS=-Werror \
  -DMESHDRONE_BUILD_TESTS=OFF -DMESHDRONE_BUILD_TOOLS=OFF \
  -DMESHDRONE_BUILD_BENCH=OFF -DMESHDRONE_BUILD_FUZZ=OFF >/dev/null
cmake --build "$dir" --target meshdrone meshdrone-exact

fail() { echo "build-windows: $exe: $*" >&2; exit 1; }
for exe in "$dir/worker/meshdrone-exact.exe" "$dir/worker/meshdrone.exe"; do
  headers=$(x86_64-w64-mingw32-objdump -p "$exe")
  grep -q 'file format pei-x86-64' <<<"$headers" || fail "not a 64-bit Windows program"
  grep -qE '^Subsystem[[:space:]]+0+2[[:space:]]' <<<"$headers" || fail "not a GUI-subsystem program"
  dlls=$(sed -n 's/^[[:space:]]*DLL Name: //p' <<<"$headers" | sort -u | tr '\n' ' ')
  for dll in $dlls; do
    case "${dll,,}" in
      kernel32.dll | msvcrt.dll) ;;
      *) fail "imports $dll (only KERNEL32.dll and msvcrt.dll are allowed: link statically)" ;;
    esac
  done
done
# The decoder must round alike on every target: the project's own code holds no
# fused multiply-add (-ffp-contract=off) and no x87 arithmetic, whose 80-bit
# registers would round differently from the 64-bit doubles of SSE2.
mapfile -t libraries < <(find "$dir" -name 'libmd_*.a')
if x86_64-w64-mingw32-objdump -d "${libraries[@]}" |
  grep -qE '[[:space:]](v?fn?m(add|sub)[0-9]{3}[a-z]*|f(ld|st|ild|ist|add|sub|mul|div|sqrt|patan|cos|sin|prem|scale)[a-z0-9]*)[[:space:]]'; then
  fail "the project's libraries hold fused multiply-add or x87 instructions"
fi
echo "build-windows: $exe (PE32+, GUI subsystem, imports: ${dlls% })"
