# Time per element against n for the three table families (and the pooled
# table before the fast paths), one panel per operation and table, from the
# .dat files report.py writes. Run by tools/perf/run.sh:
#   gnuplot -e "datadir='build/perf'" tools/perf/plot.gp
if (!exists("datadir")) datadir = "build/perf"
set terminal pngcairo size 1800,1500 font ",10" noenhanced
set output "docs/performance-tables.png"
set multiplot layout 3,6 title "ns per element (median of the repetitions) against n; log-log"
set logscale xy
set xrange [10:150000]
set format x "10^{%L}"
set grid
set key top left font ",8"
tables = "int_set ptr_set ptr_map"
set_ops = "insert find_hit find_miss erase clear_refill iterate"
map_ops = "inc_new inc_present find_hit find_miss erase iterate"
do for [t = 1:3] {
  table = word(tables, t)
  do for [o = 1:6] {
    op = (t == 3) ? word(map_ops, o) : word(set_ops, o)
    f = sprintf("%s/%s_%s.dat", datadir, table, op)
    set title sprintf("%s %s", table, op)
    plot f using 1:2 with linespoints lw 2 title "pooled", \
         f using 1:3 with linespoints title "std", \
         f using 1:4 with linespoints title "absl", \
         f using 1:5 with lines dashtype 2 title "pooled before"
  }
}
unset multiplot
