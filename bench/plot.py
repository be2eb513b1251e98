#!/usr/bin/env python3
"""Draws how cost grows, from what `bench/run --curves --json FILE` has measured.

    bench/plot.py FILE DIRECTORY [--format svg|png]

Needs Matplotlib (Debian: python3-matplotlib).
"""
import argparse
import collections
import json
import pathlib

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

# Name of the curves before their dot, title, axes, whether x is logarithmic.
PLOTS = [
    ("traces", "Hop with resident traces", "resident traces", "ns per hop", True),
    ("modules", "Hop in jobs of many modules", "modules", "ns per hop", True),
    ("attributes", "Hop with many attributes", "attributes", "ns per hop", False),
    ("touch", "Touch of the oldest trace", "resident traces", "ns per touch", True),
    ("drain", "Draining a channel, two consumers", "queued traces", "ns per trace", True),
    ("paging", "Paging a trace in and one out", "memory limit, traces", "µs per trace", True),
    ("memory", "Memory beyond samples and header", "resident traces", "bytes per trace", False),
]
COLOURS = {"kernel": "#1f5fa8", "floor": "#9a9a9a"}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("file", type=pathlib.Path)
    parser.add_argument("directory", type=pathlib.Path)
    parser.add_argument("--format", default="svg", choices=["svg", "png"])
    options = parser.parse_args()

    curves = collections.defaultdict(list)
    for line in json.loads(options.file.read_text()):
        if "curve" in line:
            curves[line["curve"]].append((line["x"], line["y"]))
    options.directory.mkdir(parents=True, exist_ok=True)
    # The same numbers give the same file.
    plt.rcParams.update({"svg.hashsalt": "bench", "font.size": 9})
    for name, title, x_label, y_label, logarithmic in PLOTS:
        mine = {curve: sorted(points) for curve, points in curves.items()
                if curve.split(".")[0] == name}
        if not mine:
            continue
        figure, axes = plt.subplots(figsize=(4.6, 3.0), layout="constrained")
        for curve, points in sorted(mine.items()):
            label = curve.split(".")[-1] if "." in curve else "kernel"
            axes.plot(*zip(*points), marker="o", markersize=3, label=label, color=COLOURS[label])
        if logarithmic:
            axes.set_xscale("log")
        axes.set(title=title, xlabel=x_label, ylabel=y_label)
        axes.set_ylim(bottom=0)
        axes.grid(alpha=0.3)
        if len(mine) > 1:
            axes.legend()
        metadata = {"Date": None} if options.format == "svg" else None
        figure.savefig(options.directory / f"{name}.{options.format}", dpi=120, metadata=metadata)
        plt.close(figure)
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
