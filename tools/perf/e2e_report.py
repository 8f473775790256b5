#!/usr/bin/env python3
"""The side-by-side table of orvo_itp_bench_e2e's JSON: per workload, z3's
reading against the program, CPU time median [min-max] over the repetitions,
the ratio of the medians, the program's own phases (medians, wall-clock) and
the share of its wall-clock time that no phase accounts for; then the growth
of the loop in T.

    e2e_report.py build/perf/e2e.json
"""
import json
import math
import re
import statistics
import sys
from collections import defaultdict


def main(path):
    with open(path) as f:
        doc = json.load(f)
    cpu = defaultdict(list)
    real = defaultdict(list)
    counters = defaultdict(lambda: defaultdict(list))
    order = []
    for b in doc["benchmarks"]:
        if b.get("run_type") != "iteration" or b.get("error_occurred"):
            continue
        m = re.match(r"e2e/(.+)/(z3|ours)", b["run_name"])
        if not m:
            continue
        name, who = m.groups()
        unit = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}[b["time_unit"]]
        cpu[(name, who)].append(b["cpu_time"] * unit)
        real[(name, who)].append(b["real_time"] * unit)
        for k in ("z3", "classifier", "queries", "partitions", "report_bytes"):
            if k in b:
                counters[(name, who)][k].append(b[k])
        if name not in order:
            order.append(name)

    def key(name):
        kinds = ["quasigroup", "loop", "sequence"]
        head, _, rest = name.partition("/")
        nums = [int(x) for x in rest.split("/") if x.isdigit()]
        return (kinds.index(head) if head in kinds else len(kinds), nums, name)

    order.sort(key=key)

    def cell(v):
        return f"{statistics.median(v):.3f} s [{min(v):.3f}–{max(v):.3f}]"

    print("| workload | z3 reads it | ours | time ratio | ours: z3 parser | host terms + classifier"
          " | queries | not attributed | partitions | samples |")
    print("|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    loop = []
    for name in order:
        z, o = cpu[(name, "z3")], cpu[(name, "ours")]
        if not z or not o:
            continue
        c = {k: statistics.median(v) for k, v in counters[(name, "ours")].items()}
        mo = statistics.median(o)
        # The phases are wall-clock: their share is taken of the wall-clock time.
        phases = c.get("z3", 0) + c.get("classifier", 0) + c.get("queries", 0)
        wall = statistics.median(real[(name, "ours")])
        print(f"| {name} | {cell(z)} | {cell(o)} | {mo / statistics.median(z):.1f}x"
              f" | {c.get('z3', 0):.3f} s | {c.get('classifier', 0):.3f} s"
              f" | {c.get('queries', 0):.3f} s | {100 * (1 - phases / wall):.0f} %"
              f" | {int(c.get('partitions', 0))} | {len(z)} / {len(o)} |")
        m = re.fullmatch(r"loop/(\d+)", name)
        if m:
            loop.append((int(m.group(1)), statistics.median(z), mo, c.get("z3", 0),
                         c.get("classifier", 0), c.get("queries", 0)))

    if len(loop) >= 2:
        loop.sort()
        print("\nGrowth of the loop in T: exponent b of time ~ T^b between consecutive T"
              " (1 linear, 2 quadratic), and the least-squares b over all T\n")
        cols = ["z3 reads it", "ours", "ours: z3 parser", "ours: host terms + classifier",
                "ours: queries"]
        print("| T | " + " | ".join(cols) + " | " + " | ".join(f"b ({c})" for c in cols) + " |")
        print("|---:" * (1 + 2 * len(cols)) + "|")
        for i, (t, *v) in enumerate(loop):
            b = [""] * len(v)
            if i > 0:
                t0, *v0 = loop[i - 1]
                b = [f"{math.log(a / a0) / math.log(t / t0):.2f}" if a > 0 and a0 > 0 else "–"
                     for a, a0 in zip(v, v0)]
            print(f"| {t} | " + " | ".join(f"{a:.3f} s" for a in v) + " | " + " | ".join(b) + " |")

        def slope(k):
            xs = [math.log(row[0]) for row in loop]
            ys = [math.log(max(row[k], 1e-9)) for row in loop]
            mx, my = statistics.mean(xs), statistics.mean(ys)
            return sum((x - mx) * (y - my) for x, y in zip(xs, ys)) / sum((x - mx) ** 2 for x in xs)

        print(f"\nLeast squares over T = {', '.join(str(row[0]) for row in loop)}: "
              + ", ".join(f"{c} T^{slope(k + 1):.2f}" for k, c in enumerate(cols)))

if __name__ == "__main__":
    main(sys.argv[1])
