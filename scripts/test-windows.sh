#!/usr/bin/env bash
# End-to-end tests of the Windows worker under wine:   bash scripts/test-windows.sh
#
# Installs mingw-w64 and wine when they are missing; when they cannot be
# installed it says so ("windows: skipped ...") and exits 0. Otherwise it
# cross-builds build-win/worker/meshdrone.exe (scripts/build-windows.sh),
# brings the POSIX worker up to date (build/worker/meshdrone, or the build
# folder in MESHDRONE_POSIX_BUILD), starts a throw-away wine prefix and runs:
#   - the arc cosine check (tests/windows/acos_identity.cpp): the decoder's
#     acos gives the same bits under Windows as here;
#   - tests/windows/compare_streams.sh: both workers on the same inputs give
#     the same result stream, byte for byte, and the same exit status.
# Ends with "windows: N passed, M failed"; exit status 0 when nothing failed.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
posix_build=${MESHDRONE_POSIX_BUILD:-build}
win_build=${MESHDRONE_WIN_BUILD:-build-win}
acos_arguments=1000000
started=$SECONDS

packages=(g++-mingw-w64-x86-64 libz-mingw-w64-dev wine wine64)
if ! bash scripts/install-deps.sh "${packages[@]}" >/dev/null 2>&1; then
  echo "windows: skipped (could not install ${packages[*]})"
  exit 0
fi
for tool in x86_64-w64-mingw32-g++ wine wineserver wineboot; do
  command -v "$tool" >/dev/null || { echo "windows: skipped ($tool not found)"; exit 0; }
done

passed=0
failed=0
tally() {  # reads "ok: ..." / "FAILED: ..." lines, echoes them and counts them
  local line
  while IFS= read -r line; do
    echo "$line"
    case $line in
      ok:*) passed=$((passed + 1)) ;;
      FAILED:*) failed=$((failed + 1)) ;;
    esac
  done
}
# run_tallied NAME COMMAND...: tallies the command's lines; a command that
# fails without saying what failed counts as one failure.
run_tallied() {
  local name=$1 log="$work/tally.log" status=0
  shift
  "$@" >"$log" 2>&1 || status=$?
  tally <"$log"
  if [ "$status" -ne 0 ] && ! grep -q '^FAILED:' "$log"; then
    tally <<<"FAILED: $name stopped with status $status"
  fi
}
finish() {
  echo "windows: ${passed} passed, ${failed} failed"
  [ "$failed" -eq 0 ]
  exit
}

echo "== Windows worker: cross build"
t0=$SECONDS
if bash scripts/build-windows.sh "$win_build"; then
  tally <<<"ok: meshdrone.exe builds without warnings: 64-bit, GUI subsystem, only KERNEL32.dll and msvcrt.dll"
else
  tally <<<"FAILED: cross build of meshdrone.exe"
  finish
fi
echo "cross build: $((SECONDS - t0)) s"
if [ ! -f "$posix_build/build.ninja" ]; then
  cmake -S . -B "$posix_build" -G Ninja >/dev/null
fi
cmake --build "$posix_build" --target meshdrone >/dev/null
win_exe=$(realpath "$win_build/worker/meshdrone.exe")
posix_exe=$(realpath "$posix_build/worker/meshdrone")

work=$(mktemp -d /tmp/meshdrone-windows.XXXXXX)
export WINEPREFIX="$work/prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
cleanup() {
  wineserver -k </dev/null >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT
mkdir "$WINEPREFIX"

# The test helpers: launch.exe, and the arc cosine check for both systems.
flags=(-std=c++20 -O2 -Wall -Wextra -Wpedantic -ffp-contract=off -I"$root")
acos_sources=(tests/windows/acos_identity.cpp prc/tess/exact_acos.cpp)
x86_64-w64-mingw32-g++ "${flags[@]}" -static tests/windows/launch.cpp -o "$work/launch.exe"
x86_64-w64-mingw32-g++ "${flags[@]}" -static "${acos_sources[@]}" -o "$work/acos_identity.exe"
g++ "${flags[@]}" "${acos_sources[@]}" -o "$work/acos_identity"

# wine's background processes keep the standard streams of the command that
# started them: give them none, or a caller reading this script's output
# through a pipe would wait for them.
echo "== wine prefix"
t0=$SECONDS
if ! { wineserver -p && wineboot -i; } </dev/null >/dev/null 2>&1; then
  tally <<<"FAILED: wine could not prepare a prefix"
  finish
fi
echo "wine start: $((SECONDS - t0)) s"

echo "== arc cosine on both systems"
if ! wine "$work/acos_identity.exe" "$acos_arguments" </dev/null 2>/dev/null >"$work/acos_windows.bin"; then
  tally <<<"FAILED: acos_identity.exe did not run under wine"
elif "$work/acos_identity" "$acos_arguments" | cmp -s - "$work/acos_windows.bin"; then
  tally <<<"ok: the arc cosine gives the same bits on both systems over $acos_arguments arguments"
else
  tally <<<"FAILED: the arc cosine differs between the systems"
fi

echo "== result streams: Windows worker under wine against the POSIX worker"
mkdir "$work/cases"
t0=$SECONDS
MD_WIN_EXE="$win_exe" MD_POSIX_EXE="$posix_exe" \
  MD_LAUNCH_EXE="$work/launch.exe" MD_WORK="$work/cases" run_tallied "compare_streams.sh" bash tests/windows/compare_streams.sh
echo "cases: $((SECONDS - t0)) s; whole Windows stage: $((SECONDS - started)) s"
finish
