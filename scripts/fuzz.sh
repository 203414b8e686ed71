#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, in build-fuzz) and runs them.
#
#   scripts/fuzz.sh [seconds per target] [target...]  fuzz each target in turn for that much CPU time
#                                                     (default 60 s, all targets)
#   scripts/fuzz.sh --available                       exit 0 when clang can build libFuzzer targets
#   scripts/fuzz.sh --seeds                           rewrite the seeds in fuzz/corpus from tests/data
#   scripts/fuzz.sh --worker-limits BUILD_DIR [FILE...]
#                                                     run BUILD_DIR's worker on every hostile file and on
#                                                     every file (default tests/data) cut at every 97th byte
#
# A target starts from its committed seeds (fuzz/corpus/<target>), which are
# replayed first, and keeps what it finds new in build-fuzz/corpus/<target>.
# A crash, sanitizer report, leak, timeout (> 1 s) or out-of-memory (> 1 GiB)
# leaves its input in build-fuzz/findings/<target>/ and fails the script.
# Each target runs as one job; JOBS (default 1) sets how many targets fuzz at
# once, and the build's parallelism.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=$root/build-fuzz
all_targets=(decode bit_reader compressed_arrays globals tree tessellation compressed_mesh command_line library exact)

if [ "${1:-}" = "--available" ]; then
  command -v clang++ >/dev/null || exit 1
  echo 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }' |
    clang++ -x c++ -fsanitize=fuzzer - -o /dev/null 2>/dev/null
  exit
fi

CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMESHDRONE_BUILD_FUZZ=ON \
  -DMESHDRONE_BUILD_TESTS=OFF -DMESHDRONE_BUILD_BENCH=OFF -DMESHDRONE_BUILD_TOOLS=OFF >/dev/null
ninja -C "$build" -j "${JOBS:-1}" $(printf 'fuzz_%s ' "${all_targets[@]}") make_fuzz_seeds >/dev/null
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}

if [ "${1:-}" = "--seeds" ]; then
  ASAN_OPTIONS=detect_leaks=0 "$build/fuzz/make_fuzz_seeds" fuzz/corpus tests/data/*.prc tests/data/gen/*.prc tests/data/exact/*.prc
  du -sh fuzz/corpus
  exit
fi

if [ "${1:-}" = "--worker-limits" ]; then
  # The worker under a 2 GiB address space, as the tests run it; every answer
  # must be a valid stream with exit status 0. Prints the largest peak
  # resident set and the longest run.
  bin=$(cd "$2" && pwd)
  work=$build/worker-limits
  rm -rf "$work" && mkdir -p "$work/hostile"
  ASAN_OPTIONS=detect_leaks=0 "$build/fuzz/make_fuzz_seeds" --hostile "$work/hostile"
  bad=0 peak=0 peak_at= longest=0 longest_at= wall=0 wall_at= runs=0
  measure() {  # input, label
    local rc=0
    /usr/bin/time -v -o "$work/time" sh -c 'ulimit -v 2097152 && exec "$0" "$1"' "$bin/worker/meshdrone" "$1" \
      >"$work/out" || rc=$?
    "$bin/tools/inspect/meshdrone-inspect" "$work/out" >/dev/null 2>&1 || { echo "invalid stream: $2"; bad=1; }
    [ "$rc" -eq 0 ] || { echo "exit status $rc: $2"; bad=1; }
    local kb cpu ms
    kb=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/time")
    cpu=$(awk -F': ' '/User time|System time/ {s += $2} END {printf "%d", s * 1000}' "$work/time")
    ms=$(awk -F': ' '/Elapsed/ {n = split($2, t, ":"); printf "%d", (t[n] + 60 * t[n - 1] + 3600 * (n > 2 ? t[1] : 0)) * 1000}' "$work/time")
    [ "$kb" -le "$peak" ] || { peak=$kb; peak_at=$2; }
    [ "$cpu" -le "$longest" ] || { longest=$cpu; longest_at=$2; }
    [ "$ms" -le "$wall" ] || { wall=$ms; wall_at=$2; }
    runs=$((runs + 1))
  }
  report() {
    echo "$1: $runs runs; largest peak ${peak} KiB ($peak_at); longest ${longest} ms CPU ($longest_at)," \
      "${wall} ms wall ($wall_at)"
    peak=0 longest=0 wall=0 runs=0
  }
  for f in "$work"/hostile/*; do measure "$f" "$(basename "$f")"; done
  report "hostile files"
  files=("${@:3}")
  [ ${#files[@]} -gt 0 ] || files=(tests/data/*.* tests/data/gen/*.prc tests/data/pdf/*)
  for f in "${files[@]}"; do
    size=$(stat -c %s "$f")
    for ((cut = 97; cut < size; cut += 97)); do
      head -c "$cut" "$f" >"$work/cut.prc"
      measure "$work/cut.prc" "${f#tests/data/} cut at $cut"
    done
    echo "  ${f#tests/data/}: cut at every 97th byte" >&2
  done
  report "${#files[@]} files cut at every 97th byte"
  exit $bad
fi

seconds=${1:-60}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=("${all_targets[@]}")

# fuzz_target T: fuzzes one target; prints its line of the table, and fails
# on a finding.
fuzz_target() {
  local t=$1 failed=0
  run=$build/runs/$t findings=$build/findings/$t slow=$build/slow/$t
  mkdir -p "$run" "$findings" "$slow" "$build/corpus/$t"
  dict=()
  [ "$t" = command_line ] || [ "$t" = bit_reader ] || dict=(-dict="$root/fuzz/prc.dict")
  before=$(ls "$findings" | wc -l)
  rm -f "$run"/*.log "$run"/time.txt
  # -jobs=1: one fuzzing job in a child process, logged to fuzz-0.log. The
  # time allowed is CPU time, so that a loaded machine fuzzes as long as an
  # idle one: jobs follow each other until the target has had it. The
  # timeout is wall-clock: on a loaded machine a job can stop on an input that
  # runs well under a second of CPU. Such an input is set aside in
  # build-fuzz/slow/ and the fuzzing goes on; one that takes a second of CPU
  # alone is a finding.
  # The first job replays every committed seed, whatever the time allowed.
  cpu_spent() { [ -e "$run/time.txt" ] || { echo 0; return; }; awk '{s += $1 + $2} END {printf "%d", s}' "$run/time.txt"; }
  replay=(-runs=0 "$root/fuzz/corpus/$t")
  start=0
  while :; do
    if [ ${#replay[@]} -gt 0 ]; then
      job=("${replay[@]}")
      replay=()
    else
      left=$((seconds - ($(cpu_spent) - start)))
      [ "$left" -ge 5 ] || break
      job=(-max_total_time=$left "${dict[@]}" "$build/corpus/$t" "$root/fuzz/corpus/$t")
    fi
    job_start=$SECONDS
    (cd "$run" && /usr/bin/time -a -f '%U %S' -o time.txt "$build/fuzz/fuzz_$t" -jobs=1 -rss_limit_mb=1024 \
      -timeout=1 -print_final_stats=1 -artifact_prefix="$findings/" "${job[@]}" >/dev/null 2>&1) || true
    cat "$run/fuzz-0.log" >>"$run/all.log"
    if [ "${job[0]}" = -runs=0 ]; then
      start=$(cpu_spent)  # the fuzzing time starts after the replay
      [ "$(ls "$findings" | wc -l)" -eq "$before" ] && continue || break
    fi
    for unit in "$findings"/timeout-*; do
      [ -e "$unit" ] || continue
      /usr/bin/time -f '%U %S' -o "$run/unit.txt" "$build/fuzz/fuzz_$t" "$unit" >/dev/null 2>&1 || true
      awk '{exit !($1 + $2 < 1)}' "$run/unit.txt" && mv "$unit" "$slow/"
    done
    [ "$(ls "$findings" | wc -l)" -eq "$before" ] || break
    # A job that stopped at once, with neither a finding nor a slow input,
    # would only start again.
    if [ $((SECONDS - job_start)) -lt 2 ] && ! grep -q 'ERROR: libFuzzer: timeout' "$run/fuzz-0.log"; then
      echo "$t: a fuzzing job stopped at once" >&2
      failed=1
      break
    fi
  done
  log=$run/all.log
  cpu=$(awk '{s += $1 + $2} END {printf "%.0f", s}' "$run/time.txt")
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | awk '{s += $1} END {print s}')
  peak=$(sed -n 's/^stat::peak_rss_mb: *//p' "$log" | sort -n | tail -1 || true)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2 || true)
  ft=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2 || true)
  found=$(($(ls "$findings" | wc -l) - before))
  printf '%-18s %8s %12s %9s %8s %8s %s\n' "$t" "$cpu" "${execs:-?}" "${cov:-?}" "${ft:-?}" "${peak:-?}" "$found"
  if [ "$found" -gt 0 ] || grep -q 'ERROR: AddressSanitizer\|ERROR: LeakSanitizer\|runtime error:\|ERROR: libFuzzer: [^t]' "$log"; then
    failed=1
    grep -m3 'ERROR\|runtime error\|SUMMARY' "$log" | sed "s/^/  $t: /" || true
  fi
  return $failed
}

# Up to JOBS targets at once; the table keeps the targets' order.
printf '%-18s %8s %12s %9s %8s %8s %s\n' target cpu_s execs cov_edges features peak_mb findings
pids=()
for t in "${targets[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge "${JOBS:-1}" ]; do wait -n || true; done
  mkdir -p "$build/runs/$t"
  fuzz_target "$t" >"$build/runs/$t/summary.txt" 2>&1 &
  pids+=($!)
done
failed=0
for i in "${!targets[@]}"; do
  wait "${pids[$i]}" || failed=1
  cat "$build/runs/${targets[$i]}/summary.txt"
done
exit $failed
