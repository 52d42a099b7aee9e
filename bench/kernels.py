#!/usr/bin/env python3
"""What Google Benchmark has written as JSON, as a table in Markdown.

    bench/kernels.py kernels.json
"""
import json
import pathlib
import sys


def scaled(value, unit):
    """12.3 M/s: three digits and the prefix that fits."""
    for factor, prefix in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= factor:
            return f"{value / factor:.3g} {prefix}{unit}"
    return f"{value:.3g} {unit}"


def duration(run):
    """The processor time of a round: 12.3 us."""
    value = run["cpu_time"] * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]
    for factor, unit in ((1e6, "ms"), (1e3, "us")):
        if value >= factor:
            return f"{value / factor:.3g} {unit}"
    return f"{value:.3g} ns"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    result = json.loads(pathlib.Path(sys.argv[1]).read_text())
    context = result["context"]
    load = f", load average {context['load_avg'][0]:.1f} at its beginning" if context.get("load_avg") else ""
    print(f"{context['date'][:10]}{load}. Processor time of one round; items are samples, rows or look-ups.\n")
    print("| loop | a round | items per second | bytes per second |")
    print("|---|---|---|---|")
    for run in result["benchmarks"]:
        if run.get("run_type") == "aggregate" and run.get("aggregate_name") != "median":
            continue
        items = scaled(run["items_per_second"], "/s") if "items_per_second" in run else ""
        size = scaled(run["bytes_per_second"], "B/s") if "bytes_per_second" in run else ""
        print(f"| {run['name']} | {duration(run)} | {items} | {size} |")


if __name__ == "__main__":
    main()
