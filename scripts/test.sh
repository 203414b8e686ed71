#!/usr/bin/env bash
# Builds everything twice (optimised, and with AddressSanitizer +
# UndefinedBehaviorSanitizer) and runs the whole test suite in both builds.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
# clang and libFuzzer for the fuzz smoke run; the stage is skipped where they cannot be installed.
bash scripts/install-deps.sh clang libfuzzer-14-dev libclang-rt-14-dev || echo "fuzz packages unavailable"

jobs=$(nproc)
total_pass=0
total_fail=0
run_suite() {  # build-dir, extra cmake flags...
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  local log
  log=$(mktemp)
  set +e
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure --timeout 600 | tee "$log"
  local rc=${PIPESTATUS[0]}
  set -e
  local line
  line=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -1)
  rm -f "$log"
  local failed total
  failed=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1/' <<<"$line")
  total=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\2/' <<<"$line")
  total_pass=$((total_pass + ${total:-0} - ${failed:-0}))
  total_fail=$((total_fail + ${failed:-0}))
  [ "$rc" -eq 0 ] || [ "${failed:-1}" -ne 0 ] || total_fail=$((total_fail + 1))
}

echo "== optimised build"
run_suite build -DCMAKE_BUILD_TYPE=RelWithDebInfo
echo "== Python module (pytest, against the optimised build)"
python=$(sed -n 's/^Python_EXECUTABLE:[A-Z]*=//p' build/CMakeCache.txt)
python_log=$(mktemp)
set +e
PYTHONPATH=build/python PYTHONDONTWRITEBYTECODE=1 "${python:-/usr/bin/python3}" -m pytest -q -p no:cacheprovider \
  python/tests 2>&1 | tee "$python_log"
python_rc=${PIPESTATUS[0]}
set -e
python_summary=$(tail -1 "$python_log")  # "1 failed, 8 passed, 1 skipped in 0.52s"
python_pass=$({ grep -oE '[0-9]+ passed' <<<"$python_summary" || true; } | cut -d' ' -f1)
python_fail=$({ grep -oE '[0-9]+ (failed|errors?)' <<<"$python_summary" || true; } | awk '{s += $1} END {print s + 0}')
[ "$python_rc" -eq 0 ] || [ "$python_fail" -ne 0 ] || python_fail=1
total_pass=$((total_pass + ${python_pass:-0}))
total_fail=$((total_fail + python_fail))
rm -f "$python_log"

echo "== sanitizer build (ASan + UBSan)"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DMESHDRONE_SANITIZE=ON -DMESHDRONE_BUILD_BENCH=OFF

# Fuzz smoke run where clang and libFuzzer exist: the committed seeds
# replayed, then 5 s of fuzzing per target (the long runs are scripts/fuzz.sh's
# own); any finding fails CI.
if bash scripts/fuzz.sh --available; then
  echo "== fuzz smoke run"
  JOBS=$jobs bash scripts/fuzz.sh 5 || total_fail=$((total_fail + 1))
fi

echo "== Windows worker under wine (skipped when mingw-w64 or wine cannot be installed)"
windows_log=$(mktemp)
set +e
bash scripts/test-windows.sh 2>&1 | tee "$windows_log"
set -e
windows_line=$(grep -E '^windows: [0-9]+ passed, [0-9]+ failed$' "$windows_log" | tail -1)
if [ -n "$windows_line" ]; then
  total_pass=$((total_pass + $(sed -E 's/^windows: ([0-9]+) passed.*/\1/' <<<"$windows_line")))
  total_fail=$((total_fail + $(sed -E 's/.* ([0-9]+) failed$/\1/' <<<"$windows_line")))
elif ! grep -q '^windows: skipped' "$windows_log"; then
  total_fail=$((total_fail + 1))  # the stage stopped before its summary
fi
rm -f "$windows_log"

echo "total: ${total_pass} passed, ${total_fail} failed"
[ "$total_fail" -eq 0 ]
