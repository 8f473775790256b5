#!/usr/bin/env python3
"""Ratio tables and plot data from the benchmark JSON written by run.sh.

Every figure is a median over the repetitions of nanoseconds per element
(1e9 / items_per_second, which Google Benchmark computes from CPU time, or
from the thread CPU time of the manually timed benchmarks); spreads are the
minimum and maximum over the same repetitions. Prints Markdown on stdout and
writes one .dat file per (table, operation) for plot.gp.
"""
import json
import os
import statistics
import sys
from collections import defaultdict

SIZES = [16, 100, 1000, 10000, 100000]
TABLES = ["int_set", "ptr_set", "ptr_map"]
OPS = {
    "int_set": ["insert", "find_hit", "find_miss", "erase", "clear_refill", "iterate"],
    "ptr_set": ["insert", "find_hit", "find_miss", "erase", "clear_refill", "iterate"],
    "ptr_map": ["inc_new", "inc_present", "find_hit", "find_miss", "erase", "iterate"],
}


def load(path):
    """name -> list of per-repetition values (ns per element, or raw counters)."""
    runs = defaultdict(list)
    extra = defaultdict(list)
    if not os.path.exists(path):
        return runs, extra
    with open(path) as f:
        for b in json.load(f)["benchmarks"]:
            if b.get("run_type") != "iteration":
                continue
            name = b["run_name"].replace("/manual_time", "")
            if "items_per_second" in b:
                runs[name].append(1e9 / b["items_per_second"])
            else:
                unit = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[b["time_unit"]]
                runs[name].append(b["cpu_time"] * unit)
            if "bytes_per_elem" in b:
                extra[name].append(b["bytes_per_elem"])
    return runs, extra


def med(values):
    return statistics.median(values) if values else None


def spread(values):
    return f"{med(values):.3g} [{min(values):.3g}–{max(values):.3g}]" if values else "–"


def ratio(a, b):
    return f"{a / b:.2f}" if a and b else "–"


def main(d):
    before, _ = load(os.path.join(d, "before_tables.json"))
    after, bytes_after = load(os.path.join(d, "after_tables.json"))
    _, bytes_before = load(os.path.join(d, "before_tables.json"))
    out = []
    p = out.append
    for table in TABLES:
        p(f"\n#### {table}: speed-up of the pooled table, after (before)\n")
        for rival in ("std", "absl"):
            p(f"\nAgainst {rival} (rival's median time / pooled median time; above 1: pooled faster)\n")
            p("| operation | " + " | ".join(f"n={n}" for n in SIZES) + " |")
            p("|---" * (len(SIZES) + 1) + "|")
            for op in OPS[table]:
                cells = []
                for n in SIZES:
                    key = lambda fam: f"{op}/{table}/{fam}/{n}"
                    r_after = med(after[key(rival)])
                    r_before = med(before[key(rival)])
                    cells.append(
                        f"{ratio(r_after, med(after[key('pooled')]))} "
                        f"({ratio(r_before, med(before[key('pooled')]))})")
                p(f"| {op} | " + " | ".join(cells) + " |")
        p(f"\nPooled {table}, ns per element: median [min–max] of the repetitions\n")
        p("| operation | version | " + " | ".join(f"n={n}" for n in SIZES) + " |")
        p("|---" * (len(SIZES) + 2) + "|")
        for op in OPS[table]:
            for label, runs in (("after", after), ("before", before)):
                cells = [spread(runs[f"{op}/{table}/pooled/{n}"]) for n in SIZES]
                p(f"| {op} | {label} | " + " | ".join(cells) + " |")
        first = OPS[table][0]
        p(f"\nHeap bytes per element after filling ({first}), malloc overhead included\n")
        p("| family | " + " | ".join(f"n={n}" for n in SIZES) + " |")
        p("|---" * (len(SIZES) + 1) + "|")
        for fam, src in (("pooled", bytes_after), ("pooled before", bytes_before),
                         ("std", bytes_after), ("absl", bytes_after)):
            name = fam.split()[0]
            cells = [f"{med(src[f'{first}/{table}/{name}/{n}']):.1f}"
                     if src[f"{first}/{table}/{name}/{n}"] else "–" for n in SIZES]
            p(f"| {fam} | " + " | ".join(cells) + " |")

        for op in OPS[table]:
            with open(os.path.join(d, f"{table}_{op}.dat"), "w") as f:
                f.write("# n pooled std absl pooled_before (ns per element, medians)\n")
                for n in SIZES:
                    vals = [med(after[f"{op}/{table}/pooled/{n}"]),
                            med(after[f"{op}/{table}/std/{n}"]),
                            med(after[f"{op}/{table}/absl/{n}"]),
                            med(before[f"{op}/{table}/pooled/{n}"])]
                    f.write(f"{n} " + " ".join("NaN" if v is None else f"{v:.4f}" for v in vals)
                            + "\n")

    p("\n#### Classifier and host: ns per call (per item where the benchmark counts items)\n")
    p("| benchmark | before: median [min–max] | after: median [min–max] | before / after |")
    p("|---|---|---|---|")
    for kind in ("classifier", "terms"):
        b, _ = load(os.path.join(d, f"before_{kind}.json"))
        a, _ = load(os.path.join(d, f"after_{kind}.json"))
        for name in sorted(set(a) | set(b)):
            p(f"| {name} | {spread(b[name])} | {spread(a[name])} | "
              f"{ratio(med(b[name]), med(a[name]))} |")
    print("\n".join(out))


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "build/perf")
