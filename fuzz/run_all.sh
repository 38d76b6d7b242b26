#!/usr/bin/env bash
# Runs every fuzzer for a bounded time, each on a copy of its seed corpus in
# the build tree (what earlier runs found there is kept and grows). A crash,
# a failed check, a leak, an input slower than the time-out or memory above
# the limit stops that fuzzer with an error; the script then fails and names
# the saved input under fuzz-runs/artifacts/.
#
#   fuzz/run_all.sh <seconds per fuzzer> [build dir of the fuzz preset] [fuzzer...]
#
# Without names every fuzzer runs, one after the other.
set -euo pipefail

usage="usage: fuzz/run_all.sh <seconds per fuzzer> [build dir] [fuzzer...]"
seconds=${1:?$usage}
source_dir=$(cd "$(dirname "$0")" && pwd)
build_dir=$(cd "${2:-$source_dir/../build/fuzz}" && pwd)
work=$build_dir/fuzz-runs
mkdir -p "$work/artifacts"

fuzzers=("${@:3}")
if [ ${#fuzzers[@]} -eq 0 ]; then
  for harness in "$source_dir"/*_fuzzer.cpp; do
    fuzzers+=("$(basename "$harness" .cpp)")
  done
fi

failed=()
for fuzzer in "${fuzzers[@]}"; do
  binary=$build_dir/fuzz/$fuzzer
  seeds=$source_dir/corpus/$fuzzer
  if [ ! -x "$binary" ] || [ ! -d "$seeds" ]; then
    echo "$fuzzer: missing $binary or $seeds (build the fuzz preset first)"
    failed+=("$fuzzer")
    continue
  fi
  corpus=$work/corpus/$fuzzer
  mkdir -p "$corpus"
  for seed in "$seeds"/*; do
    [ -e "$corpus/${seed##*/}" ] || cp "$seed" "$corpus/"
  done
  # The time-out is wall-clock time: generous, so that a busy machine does
  # not pass for a hang.
  options=(-max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048
           -print_final_stats=1 -artifact_prefix="$work/artifacts/$fuzzer-")
  # The harness's own entries, plus the watchdog's tables where the harness
  # writes them (one that does not runs its empty input once and ends).
  dictionary=$work/$fuzzer.dict
  : >"$dictionary"
  own=$source_dir/dictionaries/$fuzzer.dict
  [ -f "$own" ] && cat "$own" >>"$dictionary"
  TOVRIN_AI_FUZZ_DICTIONARY="$work/$fuzzer.tables.dict" "$binary" -runs=0 \
    >/dev/null 2>&1 || true
  [ -f "$work/$fuzzer.tables.dict" ] &&
    cat "$work/$fuzzer.tables.dict" >>"$dictionary"
  [ -s "$dictionary" ] && options+=(-dict="$dictionary")

  log=$work/$fuzzer.log
  started=$SECONDS
  if "$binary" "${options[@]}" "$corpus" >"$log" 2>&1; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    features=$(grep -o 'ft: [0-9]*' "$log" | tail -1 || true)
    echo "$fuzzer: ${runs:-?} runs in $((SECONDS - started)) s," \
         "${features:-ft: ?}, corpus $(ls "$corpus" | wc -l) inputs"
  else
    echo "$fuzzer: FAILED, log $log"
    tail -n 40 "$log"
    failed+=("$fuzzer")
  fi
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "Fuzzers that failed: ${failed[*]}"
  exit 1
fi
