#!/usr/bin/env bash
# orvo-itp-classify end to end against z3's own reading of the same scripts:
# the figures of "orvo-itp-classify against z3's own reading" in
# docs/performance.md. Builds the `bench` preset, then
#
#  1. orvo_itp_bench_e2e: both contenders in one process, interleaved in
#     random order, ORVO_ITP_PERF_REPS repetitions (default 5); JSON in
#     build/perf/e2e.json, the table and the growth in T in
#     build/perf/e2e.md;
#  2. orvo_itp_e2e_process: each run its own process, start to exit, with
#     peak resident memory; ORVO_ITP_PERF_REPS rounds, rotating the order;
#     the table appended to build/perf/e2e.md, samples in
#     build/perf/e2e_samples.tsv.
#
#   tools/perf/e2e.sh [WORKLOAD...]     (default: every default workload)
#
# Both steps run pinned to core ORVO_ITP_PERF_CPU (default 1). About five
# minutes per repetition on this machine with the default workloads.
set -euo pipefail
cd "$(dirname "$0")/../.."

reps="${ORVO_ITP_PERF_REPS:-5}"
cpu="${ORVO_ITP_PERF_CPU:-1}"
out=build/perf
mkdir -p "$out"
bin=build/bench/bench

echo "== building the bench preset"
cmake --workflow --preset bench >/dev/null

echo "== in one process: $reps interleaved repetitions"
taskset -c "$cpu" "$bin/orvo_itp_bench_e2e" --benchmark_repetitions="$reps" \
  --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=false \
  --benchmark_out="$out/e2e.json" --benchmark_out_format=json "$@" >/dev/null
{
  echo "### In one process (orvo_itp_bench_e2e, CPU time)"
  echo
  python3 tools/perf/e2e_report.py "$out/e2e.json"
  echo
  echo "### One process per run (orvo_itp_e2e_process), start to exit"
  echo
} >"$out/e2e.md"

echo "== one process per run: $reps rounds"
taskset -c "$cpu" "$bin/orvo_itp_e2e_process" --reps "$reps" --dir "$out/e2e" \
  --samples "$out/e2e_samples.tsv" "$@" >>"$out/e2e.md"
echo "== tables in $out/e2e.md"
cat "$out/e2e.md"
