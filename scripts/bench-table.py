#!/usr/bin/env python3
"""Prints Google Benchmark's JSON results as one table: name, time, and the counters that the program reports.

usage: bench-table.py RESULT.json...
"""
import json
import os
import sys

COMMON = {"name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions", "repetition_index",
          "threads", "iterations", "real_time", "cpu_time", "time_unit", "aggregate_name", "aggregate_unit", "label",
          "error_occurred", "error_message", "big_o", "rms"}


def short(value):
    for limit, letter in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if abs(value) >= limit:
            return f"{value / limit:.3g} {letter}"
    return f"{value:.3g}"


def row(run):
    if run.get("error_occurred"):
        return run["name"], "error", run.get("error_message", "")
    counters = [f"{name}={short(run[name])}" for name in sorted(set(run) - COMMON) if isinstance(run[name], (int, float))]
    return run["name"], f"{run.get('real_time', 0):.4g} {run.get('time_unit', '')}", " ".join([run.get("label", "")] + counters).strip()


def main(files):
    for file in files:
        with open(file, encoding="utf-8") as text:
            rows = [row(run) for run in json.load(text)["benchmarks"]]
        width = max((len(name) for name, _, _ in rows), default=0)
        print(f"\n{os.path.splitext(os.path.basename(file))[0]}")
        for name, time, rest in rows:
            print(f"  {name:<{width}}  {time:>12}  {rest}")


if __name__ == "__main__":
    main(sys.argv[1:])
