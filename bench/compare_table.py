#!/usr/bin/env python3
"""Turns the JSON output of compare_bench (run with repetitions) into the table of ratios.

usage: compare_table.py RESULTS.json

Times are the medians of the repetitions' CPU times; heap calls count every malloc (operator new
included), system calls those of the host's side only.
"""
import json
import sys

UNIT = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}


def load(path):
    with open(path) as f:
        data = json.load(f)
    runs = {}
    for b in data["benchmarks"]:
        if b.get("aggregate_name", "median") != "median":
            continue
        runs[b["run_name"]] = b
    return data["context"], runs


def us(run):
    return run["cpu_time"] * UNIT[run["time_unit"]]


def fmt_time(t):
    return f"{t:.2f} µs" if t < 100 else f"{t:,.0f} µs"


def main():
    context, runs = load(sys.argv[1])
    print(f"Run {context['date']} on {context['host_name']}, {context['num_cpus']} CPUs at "
          f"{context['mhz_per_cpu']} MHz; medians of the repetitions, CPU time.\n")

    pairs = [
        ("Stream exchange", "BM_Exchange_wsi", "same-work floor", "BM_Exchange_floor", 1.30, 1.15),
        ("Query parser", "BM_Query_wsi", "Boost.URL", "BM_Query_boost", 0.85, None),
        ("Query parser", "BM_Query_wsi", "same-table floor", "BM_Query_floor", None, None),
        ("Query parser", "BM_Query_wsi", "table alone", "BM_Query_tableOnly", None, None),
        ("Request set-up", "BM_Setup_wsi", "same-table floor", "BM_Setup_floor", 1.15, None),
        ("Request set-up", "BM_Setup_wsi", "cgicc", "BM_Setup_cgicc", None, None),
        ("Connector round trip", "BM_RoundTrip_wsi", "libfcgi", "BM_RoundTrip_libfcgi", 1.45, None),
        ("Connector round trip", "BM_RoundTrip_wsi", "hand floor", "BM_RoundTrip_floor", None, None),
    ]
    print("| Path | wsi | Anchor | anchor | time ratio (goal) | heap calls wsi / anchor "
          "| system calls wsi / anchor |")
    print("|---|---|---|---|---|---|---|")
    for path, ours, anchor_name, anchor, goal, alloc_goal in pairs:
        a, b = runs.get(ours), runs.get(anchor)
        if a is None or b is None:
            print(f"| {path} | missing | {anchor_name} | missing | | | |")
            continue
        ratio = us(a) / us(b)
        goal_text = f" (≤ {goal:.2f} {'met' if ratio <= goal else 'NOT met'})" if goal else ""
        heap = f"{a['malloc']:.0f} / {b['malloc']:.0f}"
        if alloc_goal:
            heap_ratio = a["malloc"] / b["malloc"]
            heap += (f" = {heap_ratio:.2f} (≤ {alloc_goal:.2f} "
                     f"{'met' if heap_ratio <= alloc_goal else 'NOT met'})")
        print(f"| {path} | {fmt_time(us(a))} | {anchor_name} | {fmt_time(us(b))} | "
              f"{ratio:.2f}{goal_text} | {heap} | {a['syscalls']:.0f} / {b['syscalls']:.0f} |")

    table, ours, boost = (runs.get(n) for n in
                          ("BM_Query_tableOnly", "BM_Query_wsi", "BM_Query_boost"))
    if table and ours and boost:
        print(f"\nQuery parsing without the table's share: wsi {us(ours) - us(table):.2f} µs, "
              f"Boost.URL {us(boost) - us(table):.2f} µs, ratio "
              f"{(us(ours) - us(table)) / (us(boost) - us(table)):.2f}.")

    flushes = runs.get("BM_Exchange_wsi_flushes")
    files = runs.get("BM_Exchange_wsi_files")
    print("\nWrites per exchange (7 header lines and a 64-byte body):\n")
    if flushes:
        print(f"- streams back end: {flushes['flushes']:.0f} flushes reach the host's stream "
              "buffer (one per header line, one at the end)")
    if files:
        print(f"- files back end: {files['writes']:.0f} write system calls to the response file "
              f"({files['syscalls']:.0f} system calls with the reads of the two input files)")
    trip = runs.get("BM_RoundTrip_wsi")
    if trip:
        print(f"- connector back end: {trip['writes']:.0f} sends to the web server "
              f"({trip['syscalls']:.0f} system calls with poll and read)")

    print("\nLinearity (time for 1 KB, 10 KB, 100 KB, 1 MB of input; a step of 10 times the "
          "input may cost at most 12 times the time):\n")
    print("| Family | 1 KB | 10 KB | 100 KB | 1 MB | worst step |")
    print("|---|---|---|---|---|---|")
    families = sorted({name.rsplit("/", 1)[0] for name in runs if name.startswith("BM_Lin_")})
    for family in families:
        times = [runs.get(f"{family}/{n}") for n in (1000, 10000, 100000, 1000000)]
        if any(t is None for t in times):
            continue
        ts = [us(t) for t in times]
        worst = max(ts[i + 1] / ts[i] for i in range(3))
        print(f"| {family[len('BM_Lin_'):]} | " + " | ".join(fmt_time(t) for t in ts) +
              f" | {worst:.1f}x {'met' if worst <= 12 else 'NOT met'} |")


if __name__ == "__main__":
    main()
