#!/usr/bin/env python3
"""The side-by-side table of orvo_itp_bench_e2e's JSON: per workload, z3's
reading against the program, CPU time median [min-max] over the repetitions,
the ratio of the medians, the program's own phases (medians) and the share of
its time that no phase accounts for; then the growth of the loop in T.

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
        for k in ("z3", "classifier", "queries", "partitions", "report_bytes"):
            if k in b:
                counters[(name, who)][k].append(b[k])
        if name not in order:
            order.append(name)

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
        phases = c.get("z3", 0) + c.get("classifier", 0) + c.get("queries", 0)
        print(f"| {name} | {cell(z)} | {cell(o)} | {mo / statistics.median(z):.1f}x"
              f" | {c.get('z3', 0):.3f} s | {c.get('classifier', 0):.3f} s"
              f" | {c.get('queries', 0):.3f} s | {100 * (1 - phases / mo):.0f} %"
              f" | {int(c.get('partitions', 0))} | {len(z)} / {len(o)} |")
        m = re.fullmatch(r"loop/(\d+)", name)
        if m:
            loop.append((int(m.group(1)), statistics.median(z), mo, c.get("queries", 0)))

    if len(loop) >= 2:
        loop.sort()
        print("\nGrowth of the loop in T: exponent b of time ~ T^b between consecutive T"
              " (1 linear, 2 quadratic), and the least-squares b over all T\n")
        print("| T | z3 reads it | ours | ours: queries | b (z3) | b (ours) | b (queries) |")
        print("|---:|---:|---:|---:|---:|---:|---:|")
        for i, (t, z, o, q) in enumerate(loop):
            if i == 0:
                print(f"| {t} | {z:.3f} s | {o:.3f} s | {q:.3f} s | | | |")
                continue
            t0, z0, o0, q0 = loop[i - 1]
            lr = math.log(t / t0)
            b = [f"{math.log(a / a0) / lr:.2f}" if a > 0 and a0 > 0 else "–"
                 for a, a0 in ((z, z0), (o, o0), (q, q0))]
            print(f"| {t} | {z:.3f} s | {o:.3f} s | {q:.3f} s | {b[0]} | {b[1]} | {b[2]} |")

        def slope(ys):
            xs = [math.log(t) for t, *_ in loop]
            ys = [math.log(y) for y in ys]
            mx, my = statistics.mean(xs), statistics.mean(ys)
            return sum((x - mx) * (y - my) for x, y in zip(xs, ys)) / sum((x - mx) ** 2 for x in xs)

        print(f"\nLeast squares over T = {', '.join(str(t) for t, *_ in loop)}: "
              f"z3 T^{slope([z for _, z, _, _ in loop]):.2f}, "
              f"ours T^{slope([o for _, _, o, _ in loop]):.2f}, "
              f"ours' queries T^{slope([max(q, 1e-9) for *_, q in loop]):.2f}")


if __name__ == "__main__":
    main(sys.argv[1])
