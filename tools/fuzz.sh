#!/usr/bin/env bash
# Runs every libFuzzer harness of a fuzz build for a fixed time each.
#
#   tools/fuzz.sh <fuzz build dir> <seconds per harness>
#
# Each harness starts from its committed seed corpus (fuzz/corpus/<name>)
# and the inputs earlier runs found (<build>/corpus/<name>, where new ones
# are kept). A crash, a leak, a timeout or a sanitizer report stops that
# harness, leaves the input in <build>/crashes/ and makes the script fail;
# the remaining harnesses still run. Executions and time of every run are
# appended to <build>/fuzz-stats.log.
set -uo pipefail
cd "$(dirname "$0")/.."

if [ $# -ne 2 ]; then
  echo "usage: $0 <fuzz build dir> <seconds per harness>" >&2
  exit 2
fi
build=$1
seconds=$2
harnesses="console_fuzzer printer_fuzzer image_fuzzer"

mkdir -p "$build/crashes" "$build/tmp"
# The harnesses' scratch cards and data files stay inside the build tree.
export TMPDIR=$PWD/$build/tmp
status=0
for name in $harnesses; do
  binary=$build/fuzz/$name
  if [ ! -x "$binary" ]; then
    echo "*** $name: $binary is not built" >&2
    status=1
    continue
  fi
  mkdir -p "$build/corpus/$name"
  dict=()
  if [ -f "fuzz/corpus/$name.dict" ]; then dict=(-dict="fuzz/corpus/$name.dict"); fi
  log=$build/$name.log
  echo "*** $name: ${seconds}s"
  # -close_fd_mask=3: the console's own output goes nowhere; libFuzzer and
  # the sanitizers report on a copy of standard error.
  "$binary" "$build/corpus/$name" "fuzz/corpus/$name" "${dict[@]}" \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -close_fd_mask=3 -print_final_stats=1 \
    -artifact_prefix="$build/crashes/$name-" >"$log" 2>&1
  result=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  took=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log" |
         tail -1)
  echo "$(date -u +%Y-%m-%dT%H:%M:%SZ) $name seconds=${took:-$seconds}" \
       "runs=${runs:-0} result=$result" >>"$build/fuzz-stats.log"
  if [ $result -ne 0 ]; then
    echo "*** $name FAILED (status $result); the end of $log:" >&2
    tail -40 "$log" >&2
    status=1
  else
    echo "    ${runs:-?} runs, corpus $(ls "$build/corpus/$name" | wc -l)" \
         "inputs"
  fi
done
exit $status
