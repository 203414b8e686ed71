#!/usr/bin/env bash
# Runs the Windows worker under wine and the POSIX worker on the same inputs
# and requires the same result stream, byte for byte, and the same exit
# status; each stream must also be what the case calls for, so that both
# workers failing alike does not pass. Prints "ok: CASE" or "FAILED: CASE ...",
# one line per case. Started by scripts/test-windows.sh, which builds the
# programs and prepares wine; it sets:
#   MD_WIN_EXE     meshdrone.exe          MD_POSIX_EXE  the POSIX meshdrone
#   MD_LAUNCH_EXE  launch.exe (runs a program with an exact command line)
#   MD_WORK        an empty scratch folder (under a path wine maps as Z:)
set -uo pipefail
: "${MD_WIN_EXE:?}" "${MD_POSIX_EXE:?}" "${MD_LAUNCH_EXE:?}" "${MD_WORK:?}"
data=$(cd "$(dirname "$0")/../data" && pwd)
W=$MD_WORK

# A Linux path as Windows sees it through wine's Z: drive.
winpath() {
  local p
  p=$(realpath -m -- "$1")
  printf 'Z:%s' "${p//\//\\}"
}

# --- Streams the cases expect ------------------------------------------------
le32() {
  local v=$1
  printf "\\$(printf %03o $((v & 255)))\\$(printf %03o $((v >> 8 & 255)))"
  printf "\\$(printf %03o $((v >> 16 & 255)))\\$(printf %03o $((v >> 24 & 255)))"
}
zeros() { head -c "$1" /dev/zero; }
error_record() {  # MESSAGE (ASCII)
  zeros 16; le32 "${#1}"; le32 2; zeros 24; printf '%s' "$1"
}
failure_header() {  # OUTCOME
  zeros 20; le32 "$1"; zeros 24
}
usage_message="uso interno: meshdrone <file>"
open_message="impossibile aprire il file temporaneo con i dati PRC"
empty_message="il flusso /3DD e' vuoto: non c'e' nessun modello da leggere"

# The stream's bytes as two-digit hex words, one per line.
hex_bytes() { od -An -v -tx1 "$1" | tr -s ' \n' '\n' | sed '/^$/d'; }

# --- Inputs --------------------------------------------------------------------
spaced="$W/dir with space"
mkdir -p "$spaced" "$W/a folder"
sample="$data/gen/groups_transforms.prc"  # a success stream with part records
cp "$sample" "$spaced/a b.prc"
nonascii="$W/$(printf 'caf\xc3\xa9_\xe6\x97\xa5\xe6\x9c\xac_\xf0\x9f\x98\x80.prc')"  # U+1F600: a surrogate pair
cp "$sample" "$nonascii"
nbsp="$W/$(printf 'nb\xc2\xa0sp.prc')"  # U+00A0, white space to the Windows runtime
cp "$sample" "$nbsp"
: >"$W/empty.prc"
printf 'not a PRC file\r\n\x1a\n' >"$W/not_prc.txt"
head -c 300 "$data/gen/torus_3k.prc" >"$W/truncated.prc"

# --- Running -----------------------------------------------------------------
passed=0
failed=0
pass() { passed=$((passed + 1)); echo "ok: $1"; }
fail() { failed=$((failed + 1)); echo "FAILED: $1"; }

win_mode=args
win_args=()
win_line=""
win_stdout=open
posix_args=()
posix_stdout=open
# The next case: the Windows worker with these arguments (wine quotes them into
# a command line), or with this exact command line through launch.exe.
windows_args() { win_mode=args; win_args=("$@"); }
windows_line() { win_mode=line; win_line=$1; }
posix() { posix_args=("$@"); }

run_windows() {  # OUT -> status
  local out=$1
  if [ "$win_mode" = args ]; then
    if [ "$win_stdout" = closed ]; then
      wine "$MD_WIN_EXE" "${win_args[@]}" </dev/null 2>/dev/null >&-
    else
      wine "$MD_WIN_EXE" "${win_args[@]}" </dev/null 2>/dev/null >"$out"
    fi
  else
    printf '%s' "$win_line" >"$W/line.txt"
    local mode=()
    [ "$win_stdout" = closed ] && mode=(closed-stdout)
    [ "$win_stdout" = none ] && mode=(no-stdout)
    wine "$MD_LAUNCH_EXE" "$(winpath "$MD_WIN_EXE")" "$(winpath "$W/line.txt")" "${mode[@]}" \
      </dev/null 2>/dev/null >"$out"
  fi
}

run_posix() {  # OUT -> status
  if [ "$posix_stdout" = closed ]; then
    "$MD_POSIX_EXE" "${posix_args[@]}" </dev/null 2>/dev/null >&-
  else
    "$MD_POSIX_EXE" "${posix_args[@]}" </dev/null 2>/dev/null >"$1"
  fi
}

# check NAME EXPECTATION [STATUS]: runs the case set up above. EXPECTATION is
# usage | open | empty (those error records), header:N (a failure header with
# outcome N), success (a success stream), binary (a success stream holding a
# lone 0x0A, a 0x0D and a 0x1A) or none (only equality; with stdout closed).
check() {
  local name=$1 expect=$2 want_status=${3:-0}
  local wout="$W/win.bin" pout="$W/posix.bin" ws ps
  rm -f "$wout" "$pout"
  run_windows "$wout"
  ws=$?
  run_posix "$pout"
  ps=$?
  win_stdout=open
  posix_stdout=open
  if [ "$ws" != "$ps" ] || [ "$ps" != "$want_status" ]; then
    fail "$name (exit status: windows $ws, posix $ps, expected $want_status)"
    return
  fi
  if [ "$expect" = none ]; then
    pass "$name"
    return
  fi
  if ! cmp -s "$wout" "$pout"; then
    fail "$name (streams differ: windows $(stat -c %s "$wout") bytes, posix $(stat -c %s "$pout"); $(cmp "$wout" "$pout" 2>&1 | head -1))"
    return
  fi
  local wrong=""
  case $expect in
    usage) cmp -s "$pout" <(error_record "$usage_message") || wrong="not the usage record" ;;
    open) cmp -s "$pout" <(error_record "$open_message") || wrong="not the open-failure record" ;;
    empty) cmp -s "$pout" <(error_record "$empty_message") || wrong="not the empty-stream record" ;;
    header:*) cmp -s "$pout" <(failure_header "${expect#header:}") || wrong="not failure header ${expect#header:}" ;;
    success | binary)
      [ "$(head -c 1 "$pout" | od -An -tx1 | tr -d ' ')" = 01 ] || wrong="not a success stream"
      if [ -z "$wrong" ] && [ "$expect" = binary ]; then
        # A lone line feed would have gained a carriage return in text mode.
        hex_bytes "$pout" | awk 'p != "0d" && $1 == "0a" {lf = 1} $1 == "0d" {cr = 1} $1 == "1a" {eof = 1}
          {p = $1} END {exit !(lf && cr && eof)}' || wrong="lacks a lone 0A, a 0D or a 1A"
      fi
      ;;
  esac
  if [ -n "$wrong" ]; then
    fail "$name (identical streams, but $wrong: $(stat -c %s "$pout") bytes)"
  else
    pass "$name"
  fi
}

exe_quoted="\"$(winpath "$MD_WIN_EXE")\""

# --- The failure table ---------------------------------------------------------
windows_args; posix
check "no argument" usage
windows_line "$exe_quoted   	  "; posix
check "only white space after the program path" usage
windows_line ""; posix
check "empty command line" usage
windows_args "$(winpath "$spaced/a b.prc")" "$(winpath "$spaced/a b.prc")"; posix "$spaced/a b.prc" "$spaced/a b.prc"
check "two paths" usage
windows_args "$(winpath "$W/missing.prc")"; posix "$W/missing.prc"
check "missing file" open
windows_args "$(winpath "$W/a folder")"; posix "$W/a folder"
check "a folder instead of a file" open
windows_args "$(winpath "$W/empty.prc")"; posix "$W/empty.prc"
check "empty file" empty
windows_args "$(winpath "$W/not_prc.txt")"; posix "$W/not_prc.txt"
check "not a PRC file" header:2
windows_args "$(winpath "$W/truncated.prc")"; posix "$W/truncated.prc"
check "PRC file cut after 300 bytes" header:1

# --- Paths and the command line ----------------------------------------------------
windows_args "$(winpath "$spaced/a b.prc")"; posix "$spaced/a b.prc"
check "path with spaces and backslashes" success
windows_args "Z:$spaced/a b.prc"; posix "$spaced/a b.prc"
check "path with forward slashes" success
windows_args "$(winpath "$nonascii")"; posix "$nonascii"
check "non-ASCII path with a surrogate pair" success
windows_line "$exe_quoted \"$(winpath "$spaced/a b.prc")\""; posix "$spaced/a b.prc"
check "exact line: quoted path with spaces" success
windows_line "$exe_quoted \"$(winpath "$spaced")\"\\a\" b.prc\""; posix "$spaced/a b.prc"
check "exact line: quotes closed and reopened inside one path" success
windows_line "$exe_quoted	$(winpath "$sample")"; posix "$sample"
check "exact line: tab before the path" success
windows_line "meshdrone $(winpath "$nonascii")"; posix "$nonascii"
check "exact line: bare program name, non-ASCII path" success
windows_line "$exe_quoted \"$(winpath "$nbsp")\""; posix "$nbsp"
check "exact line: quoted path with a no-break space" success
# The Windows runtime counts U+00A0 as white space: unquoted, the path splits.
windows_args "$(winpath "$nbsp")"; posix "$W/nb" "sp.prc"
check "no-break space left unquoted splits the path" usage
windows_line "$exe_quoted \""; posix ""
check "exact line: lone quote at the end" open
windows_line "$exe_quoted a\\\\\\\"b"; posix 'a\"b'
check "exact line: three backslashes before a quote" open
windows_line "$exe_quoted \"a\\\\\" b"; posix 'a\' b
check "exact line: two backslashes before the closing quote" usage
windows_line "$exe_quoted \"say \"\"hi\"\"\""; posix 'say "hi"'
check "exact line: doubled quotes" open
cd "$spaced" || exit 1
windows_args "a b.prc"; posix "a b.prc"
check "relative path" success
cd - >/dev/null || exit 1

# --- Standard output ----------------------------------------------------------------
windows_args "$(winpath "$data/gen/torus_3k.prc")"; posix "$data/gen/torus_3k.prc"
check "binary mode: 0x0A, 0x0D and 0x1A pass unchanged" binary
windows_args "$(winpath "$sample")"; posix "$sample"; win_stdout=closed; posix_stdout=closed
check "standard output closed" none 1
windows_line "$exe_quoted $(winpath "$sample")"; posix "$sample"; win_stdout=closed; posix_stdout=closed
check "standard output a pipe that nobody reads (POSIX: closed)" none 1
windows_line "$exe_quoted $(winpath "$sample")"; posix "$sample"; win_stdout=none; posix_stdout=closed
check "started without a standard output (POSIX: closed)" none 1

# --- Real and generated PRC files ------------------------------------------------------
# Real files that hold no tessellation; a generated file says so in its
# expectations ("outcome": 1).
no_geometry=" 1a8f391e69e7.prc "
for f in "$data"/*.prc "$data"/gen/*.prc; do
  windows_args "$(winpath "$f")"; posix "$f"
  expect=success
  [[ "$no_geometry" == *" ${f##*/} "* ]] && expect=header:1
  outcome=$(grep -o '"outcome": *[0-9]*' "${f%.prc}.expect.json" 2>/dev/null | grep -o '[0-9]*$')
  [ -n "$outcome" ] && expect=header:$outcome
  check "decode ${f#"$data"/}" "$expect"
done
exit 0
