#!/usr/bin/env bash
# Reproduces every figure of docs/performance.md. Builds the benchmarks of
# this tree (release preset) and, with the same benchmark sources, of a
# baseline revision (by default the last one before the table fast paths);
# runs both with interleaved repetitions pinned to one core; writes the JSON
# under build/perf/, the tables to build/perf/report.md and the plot to
# docs/performance-tables.png.
#
#   tools/perf/run.sh [baseline-revision]
#
# ORVO_ITP_PERF_REPS (default 7) sets the repetitions, ORVO_ITP_PERF_CPU
# (default 1) the core. Takes about half an hour on a quiet 2-core machine.
set -euo pipefail
cd "$(dirname "$0")/../.."

baseline="${1:-19ded11b83f2ffd2fd49ad7be778e68b9dda9962}"
reps="${ORVO_ITP_PERF_REPS:-7}"
cpu="${ORVO_ITP_PERF_CPU:-1}"
out=build/perf
mkdir -p "$out"

echo "== building this tree (release preset)"
cmake --workflow --preset release >/dev/null
echo "== building the baseline $baseline with this tree's benchmarks"
rm -rf "$out/baseline-src"
mkdir -p "$out/baseline-src"
git archive "$baseline" | tar -x -C "$out/baseline-src"
cp bench/bench_tables.cpp bench/bench_classifier.cpp "$out/baseline-src/bench/"
sed 's/ bench_cut_index.cpp//' bench/CMakeLists.txt >"$out/baseline-src/bench/CMakeLists.txt"
cmake -S "$out/baseline-src" -B "$out/baseline-build" -DCMAKE_BUILD_TYPE=Release \
  -DORVO_ITP_BUILD_TESTS=OFF -DORVO_ITP_BUILD_EXAMPLES=OFF -DORVO_ITP_INSTALL=OFF \
  -Wno-dev >/dev/null 2>&1
cmake --build "$out/baseline-build" -j2 --target orvo_itp_bench >/dev/null

after=build/release/bench/orvo_itp_bench
before="$out/baseline-build/bench/orvo_itp_bench"
tables='^(insert|find_hit|find_miss|erase|clear_refill|inc_new|inc_present|iterate)/'
classifier='^BM_(SmallTermAfterLargeTerm|GcEmptyGrownTables|AddAtomsAndClausesThenPop|GetTermSymbols_SharedChain)'

run() {  # binary, output name, filter, repetitions
  echo "== $2"
  taskset -c "$cpu" "$1" --benchmark_filter="$3" --benchmark_repetitions="$4" \
    --benchmark_enable_random_interleaving=true --benchmark_min_time=0.05 \
    --benchmark_out="$out/$2.json" --benchmark_out_format=json >/dev/null
}
run "$before" before_tables "$tables" "$reps"
run "$after" after_tables "$tables" "$reps"
run "$before" before_classifier "$classifier" "$reps"
run "$after" after_classifier "$classifier" "$reps"
# Building 160k terms took about half a minute per run before: three runs.
run "$before" before_terms '^BM_MakeTerms' 3
run "$after" after_terms '^BM_MakeTerms' "$reps"

python3 tools/perf/report.py "$out" >"$out/report.md"
gnuplot -e "datadir='$out'" tools/perf/plot.gp
echo "== tables in $out/report.md, plot in docs/performance-tables.png"
