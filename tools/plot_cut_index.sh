#!/usr/bin/env bash
# Plots the all-prefix-cuts benchmark (bench/bench_cut_index.cpp) from one or
# more Google Benchmark JSON files and prints the table for
# docs/performance.md. Every repetition of every file is one sample; the table
# gives per G the median and the spread (min..max) of the time for all G - 1
# cuts, taken as (G - 1) / items_per_second (CPU time; the classifier path at
# G = 10,000 runs every 100th cut, so its figure is a per-cut rate times G - 1).
#
#   build/default/bench/orvo_itp_bench --benchmark_filter=AllPrefixCuts \
#     --benchmark_repetitions=3 --benchmark_enable_random_interleaving=true \
#     --benchmark_out=run1.json --benchmark_out_format=json
#   tools/plot_cut_index.sh docs/cut_index.png run1.json run2.json ...
#
# Needs jq and gnuplot (Debian: jq, gnuplot-nox).
set -euo pipefail
[ $# -ge 2 ] || { echo "usage: $0 OUT.png RUN.json..." >&2; exit 2; }
out=$1
shift
data=$(mktemp)
trap 'rm -f "$data"' EXIT

# One line per (path, G): median, min, max seconds for all cuts, sample count.
jq -rs '
  [ .[].benchmarks[]
    | select(.run_type == "iteration" and (.name | startswith("BM_AllPrefixCuts_")))
    | { path: (.name | split("/")[0] | sub("BM_AllPrefixCuts_"; "")),
        g: (.name | split("/")[1] | tonumber),
        s: ((.groups - 1) / .items_per_second) } ]
  | group_by([.path, .g])[]
  | (map(.s) | sort) as $s
  | [ .[0].path, .[0].g, $s[($s | length) / 2 | floor], $s[0], $s[-1], ($s | length) ]
  | @tsv' "$@" >"$data"

echo "| G | classifier path: median (min..max) | cut index: median (min..max) | speed-up (medians) | index per group | samples |"
echo "|---:|---:|---:|---:|---:|---:|"
awk -F'\t' '
  function t(s) { return s >= 1 ? sprintf("%.3g s", s) : s >= 1e-3 ? sprintf("%.3g ms", s * 1e3) : sprintf("%.3g us", s * 1e6) }
  { med[$1, $2] = $3; lo[$1, $2] = $4; hi[$1, $2] = $5; n[$1, $2] = $6; gs[$2] = 1 }
  END {
    for (g in gs) order[++k] = g + 0
    for (i = 1; i <= k; i++) for (j = i + 1; j <= k; j++) if (order[j] < order[i]) { x = order[i]; order[i] = order[j]; order[j] = x }
    for (i = 1; i <= k; i++) {
      g = order[i]; c = "Classifier" SUBSEP g; x = "CutIndex" SUBSEP g
      printf "| %d | %s (%s..%s) | %s (%s..%s) | %.0fx | %s | %d / %d |\n", g, t(med[c]), t(lo[c]), t(hi[c]),
        t(med[x]), t(lo[x]), t(hi[x]), med[c] / med[x], t(med[x] / g), n[c], n[x]
    }
  }' "$data"

gnuplot <<EOF
set terminal pngcairo size 800,500 font ",11"
set output "$out"
set logscale xy
set format y "10^{%L}"
set xlabel "groups G (sequence of G positions)"
set ylabel "CPU seconds for all G - 1 prefix cuts"
set key top left
set grid
set title "Status of every atom at every prefix cut"
plot "< grep Classifier $data" using 2:3:4:5 with yerrorlines lw 2 \\
       title "classifier path (G = 10,000: from every 100th cut)", \\
     "< grep CutIndex $data" using 2:3:4:5 with yerrorlines lw 2 title "cut index"
EOF
echo "wrote $out" >&2
