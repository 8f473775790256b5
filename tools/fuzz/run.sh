#!/usr/bin/env bash
# Builds the libFuzzer target with the `fuzz` preset, replays the committed
# corpus (every file once, no fuzzing), then fuzzes for a bounded time.
#
#   tools/fuzz/run.sh [build-dir]   build directory, default build/fuzz
#   ORVO_ITP_FUZZ_SECONDS=60        fuzzing time; 0 replays the corpus only
#   ORVO_ITP_FUZZ_RUNS=N            also stop after N executions
#
# A corpus file is a host seed (2 bytes, little endian) followed by 4 bytes
# per call: kind, a, b, c (see orvo::model::decode_ops). New inputs found
# while fuzzing go to a scratch directory, never into the committed corpus;
# crash inputs go to the build directory.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$(realpath -m "${1:-$root/build/fuzz}")
seconds=${ORVO_ITP_FUZZ_SECONDS:-60}
corpus=$root/tools/fuzz/corpus

cd "$root"
cmake --preset fuzz -B "$build" >/dev/null
cmake --build "$build" -j2 --target orvo_itp_fuzz
fuzzer=$build/tools/fuzz/orvo_itp_fuzz

# Runs the fuzzer with its output in a log; on failure shows the log's end.
run() {
  local log=$1
  shift
  local status=0
  "$fuzzer" "$@" >"$log" 2>&1 || status=$?
  grep -E '^(Executed|#[0-9]+[[:space:]]+(INITED|DONE))' "$log" || true
  if [ "$status" -ne 0 ]; then tail -n 60 "$log"; fi
  return "$status"
}

echo "== replaying $(ls "$corpus" | wc -l) corpus files"
run "$build/replay.log" "$corpus"/*
echo "corpus replay: ok"

if [ "$seconds" -eq 0 ]; then exit 0; fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
args=(-max_total_time="$seconds" -max_len=1024 -print_final_stats=1 -artifact_prefix="$build/")
if [ -n "${ORVO_ITP_FUZZ_RUNS:-}" ]; then args+=(-runs="$ORVO_ITP_FUZZ_RUNS"); fi
echo "== fuzzing for at most ${seconds}s"
run "$build/fuzz.log" "${args[@]}" "$scratch" "$corpus"
executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$build/fuzz.log")
echo "fuzz: ${executions:-0} executions (log: $build/fuzz.log)"
