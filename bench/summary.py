#!/usr/bin/env python3
"""Summarises the measured tables: per family the geometric mean against the best peer, the worst row, the shares of rows.

usage: summary.py FOLDER [--write PAGE]     FOLDER: docs/bench, with a folder of tables for each processor level
"""
import glob
import math
import os
import sys


def rows_of(path):
    """-> (name, size, best peer / ours, x limit or None) of each row that has a peer."""
    with open(path, encoding="utf-8") as file:
        table = [[cell.strip() for cell in line.strip().strip("|").split("|")] for line in file if line.startswith("|")]
    head, rows = table[0], table[2:]
    # What stands beside ours in our own other ways is no peer.
    peers = [i for i, name in enumerate(head) if name.endswith(" / ours") and not name.startswith("ours")]
    for row in rows:
        ratios = [float(row[i]) for i in peers if i < len(row) and row[i]]
        if ratios:
            limit = row[head.index("x limit")] if "x limit" in head else ""
            yield row[0], row[1], min(ratios), float(limit) if limit else None


def summary(folder):
    lines, all_rows = [], []
    for path in sorted(glob.glob(os.path.join(folder, "*.md"))):
        rows = list(rows_of(path))
        if rows:
            all_rows += rows
            lines.append((os.path.basename(path)[:-3], rows))
    lines.append(("all", all_rows))
    text = ("| family | rows | geometric mean | at least 1 | at least 1.5 | worst | |\n|---|--:|--:|--:|--:|--:|---|\n")
    for family, rows in lines:
        ratios = [r[2] for r in rows]
        share = lambda least: f"{100 * sum(r >= least for r in ratios) / len(ratios):.0f} %"
        worst = min(rows, key=lambda r: r[2])
        mean = math.exp(sum(map(math.log, ratios)) / len(ratios))
        text += (f"| {family} | {len(rows)} | {mean:.2f} | {share(1)} | {share(1.5)} | {worst[2]:.2f} | "
                 f"{worst[0]}, {worst[1]} |\n")
    below = sorted((r for r in all_rows if r[2] < 0.97), key=lambda r: r[2])
    return text, below


def main():
    folder = sys.argv[1]
    page = ("# How fast\n\nEvery row of the bench beside the best of its peers (OpenCV, and where they are better libyuv, zimg, Eigen, "
            "OpenBLAS), one thread each,\ninterleaved in one run: how many times as long the peer takes. 2 is twice as fast as the best of them, "
            "below 1 is slower.\nMade by `./dev bench --summary` from the tables in [bench/](bench/), a folder for each processor level.\n")
    for level in sorted(os.listdir(folder)):
        if not glob.glob(os.path.join(folder, level, "*.md")):
            continue
        text, below = summary(os.path.join(folder, level))
        page += f"\n## Level {level}\n\n{text}\n"
        if below:
            page += "Slower than the best peer by more than 3 %:\n\n"
            page += "".join(f"- {name}, {size}: {ratio:.2f}\n" for name, size, ratio, _ in below)
        else:
            page += "No row is slower than the best peer by more than 3 %.\n"
    print(page)
    if "--write" in sys.argv:
        with open(sys.argv[sys.argv.index("--write") + 1], "w", encoding="utf-8") as file:
            file.write(page)


main()
