#!/usr/bin/env bash
# Builds the libFuzzer targets with the `fuzz` preset, and for each one
# replays its committed corpus (every file once, no fuzzing), then fuzzes it
# for a bounded time.
#
#   tools/fuzz/run.sh [build-dir]   build directory, default build/fuzz
#   ORVO_ITP_FUZZ_SECONDS=60        fuzzing time per target; 0 replays the corpora only
#   ORVO_ITP_FUZZ_RUNS=N            also stop each target after N executions
#   ORVO_ITP_FUZZ_SEED=N            libFuzzer's random seed (default: a new one
#                                   per run); CI fixes it, so that a finding
#                                   there comes back when the run is repeated
#   ORVO_ITP_FUZZ_TARGETS="..."     a subset of: classifier classify check
#
# The targets and their corpus files:
#   classifier  orvo_itp_fuzz, corpus/: the classifier against its reference
#               model. A file is a host seed (2 bytes, little endian) followed
#               by 4 bytes per call: kind, a, b, c (see orvo::model::decode_ops).
#   classify    orvo_itp_fuzz_classify, corpus-classify/: an SMT-LIB script
#               through orvo-itp-classify's core. A first line holding
#               --unmentioned=background or --unmentioned=error sets that rule.
#   check       orvo_itp_fuzz_check, corpus-check/: an SMT-LIB script, then a
#               line that is exactly `;;;`, then a solver's responses to the
#               script (no such line: no responses), through orvo-itp-check's
#               core with z3 limited to 200 ms per implication. A first line
#               holding --craig or --unmentioned=... sets that option.
# The two SMT-LIB targets use smtlib.dict, take inputs up to 4096 bytes and
# fail on any input that runs over 10 s, besides crashes, sanitizer reports
# and breaks of the programs' one-line error contract (harness.h).
#
# New inputs found while fuzzing go to a scratch directory, never into the
# committed corpora; crash inputs go to the build directory as
# <target>-crash-*. A finding's smallest input belongs in its corpus.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$(realpath -m "${1:-$root/build/fuzz}")
seconds=${ORVO_ITP_FUZZ_SECONDS:-60}
targets=${ORVO_ITP_FUZZ_TARGETS:-classifier classify check}
here=$root/tools/fuzz
smtlib_args=(-max_len=4096 -timeout=10 -dict="$here/smtlib.dict")

cd "$root"
cmake --preset fuzz -B "$build" >/dev/null
cmake --build "$build" -j2 --target orvo_itp_fuzz orvo_itp_fuzz_classify orvo_itp_fuzz_check

# Runs a fuzzer with its output in a log; on failure shows the log's end.
run() {
  local log=$1
  shift
  local status=0
  "$@" >"$log" 2>&1 || status=$?
  grep -E '^#[0-9]+[[:space:]]+(INITED|DONE)' "$log" || true
  local files
  files=$(grep -c '^Executed' "$log" || true)
  if [ "$files" -gt 0 ]; then echo "executed $files files"; fi
  if [ "$status" -ne 0 ]; then tail -n 60 "$log"; fi
  return "$status"
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for target in $targets; do
  case $target in
    classifier) fuzzer=orvo_itp_fuzz corpus=$here/corpus args=(-max_len=1024) ;;
    classify) fuzzer=orvo_itp_fuzz_classify corpus=$here/corpus-classify args=("${smtlib_args[@]}") ;;
    check) fuzzer=orvo_itp_fuzz_check corpus=$here/corpus-check args=("${smtlib_args[@]}") ;;
    *) echo "run.sh: unknown target '$target'" >&2; exit 2 ;;
  esac
  fuzzer=$build/tools/fuzz/$fuzzer
  echo "== $target: replaying $(ls "$corpus" | wc -l) corpus files"
  run "$build/$target-replay.log" "$fuzzer" "${args[@]}" "$corpus"/*
  echo "$target corpus replay: ok"
  if [ "$seconds" -eq 0 ]; then continue; fi
  mkdir "$scratch/$target"
  args+=(-max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$build/$target-")
  if [ -n "${ORVO_ITP_FUZZ_RUNS:-}" ]; then args+=(-runs="$ORVO_ITP_FUZZ_RUNS"); fi
  if [ -n "${ORVO_ITP_FUZZ_SEED:-}" ]; then args+=(-seed="$ORVO_ITP_FUZZ_SEED"); fi
  echo "== $target: fuzzing for at most ${seconds}s"
  run "$build/$target-fuzz.log" "$fuzzer" "${args[@]}" "$scratch/$target" "$corpus"
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$build/$target-fuzz.log")
  echo "$target fuzz: ${executions:-0} executions (log: $build/$target-fuzz.log)"
done
