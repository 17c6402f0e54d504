#!/usr/bin/env python3
"""Summarises the measured tables: per family the geometric mean against the best peer, the worst row, the shares of rows.

usage: summary.py FOLDER [--write PAGE README]     FOLDER: docs/bench, with a folder of tables for each processor level
"""
import glob
import math
import os
import sys


# Levels at which OpenCV is held to the same instructions. The other peers take all that the machine has, so they don't count there.
LOWER = ("sse2", "ssse3", "sse42")


def rows_of(path):
    """-> (name, size, best peer / ours, OpenCV / ours or None, the best peer) of each row that has a peer."""
    held = os.path.basename(os.path.dirname(path)) in LOWER
    with open(path, encoding="utf-8") as file:
        table = [[cell.strip() for cell in line.strip().strip("|").split("|")] for line in file if line.startswith("|")]
    head, rows = table[0], table[2:]
    # What stands beside ours in our own other ways is no peer.
    peers = [i for i, name in enumerate(head) if name.endswith(" / ours") and not name.startswith("ours")
             and (not held or name.startswith("OpenCV"))]
    for row in rows:
        ratios = {head[i].removesuffix(" / ours"): float(row[i]) for i in peers if i < len(row) and row[i]}
        if ratios:
            best = min(ratios, key=ratios.get)
            yield row[0], row[1], ratios[best], ratios.get("OpenCV"), best


def geometric_mean(ratios):
    return math.exp(sum(map(math.log, ratios)) / len(ratios))


def families_of(folder):
    """-> [(family, rows)] of the tables in a folder."""
    found = [(os.path.basename(path)[:-3], list(rows_of(path))) for path in sorted(glob.glob(os.path.join(folder, "*.md")))]
    return [(family, rows) for family, rows in found if rows]


def chart(families):
    """An SVG: for each family a dot for every row on a logarithmic axis, and a stroke at the geometric mean."""
    left, right, top, step = 110, 24, 34, 26
    width, height = 760, top + step * len(families) + 30
    low, high = math.log(0.4), math.log(40)
    at = lambda ratio: left + (min(max(math.log(ratio), low), high) - low) / (high - low) * (width - left - right)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="13">',
             f'<rect width="{width}" height="{height}" fill="#fff"/>',
             f'<text x="{left}" y="16" fill="#333">best peer\'s time / ours, each row a dot; the stroke is the geometric mean</text>']
    for ratio in (0.5, 1, 1.5, 2, 4, 8, 16, 32):
        colour = "#c33" if ratio == 1 else "#ddd"
        parts.append(f'<path d="M{at(ratio):.1f} {top - 8}V{height - 24}" stroke="{colour}"/>'
                     f'<text x="{at(ratio):.1f}" y="{height - 8}" text-anchor="middle" fill="#333">{ratio}</text>')
    for i, (family, rows) in enumerate(families):
        y = top + step * i + step / 2
        parts.append(f'<text x="{left - 8}" y="{y + 4:.0f}" text-anchor="end" fill="#333">{family}</text>')
        parts += [f'<circle cx="{at(r[2]):.1f}" cy="{y:.0f}" r="3" fill="#27c" fill-opacity=".25"/>' for r in rows]
        mean = at(geometric_mean([r[2] for r in rows]))
        parts.append(f'<path d="M{mean:.1f} {y - 10:.0f}v20" stroke="#025" stroke-width="3"/>')
    return "\n".join(parts + ["</svg>", ""])


def words(families):
    """Where the rows of a level are ahead of their peers and where not."""
    means = {family: geometric_mean([r[2] for r in rows]) for family, rows in families}
    named = lambda chosen: ", ".join(f"{f} ({means[f]:.1f})" for f in sorted(chosen, key=means.get, reverse=True))
    ahead = [f for f in means if means[f] >= 2]
    level_with = [f for f in means if 1.05 > means[f] >= 0.95]
    behind = [f for f in means if means[f] < 0.95]
    text = f"At least twice as fast as the best peer in the mean: {named(ahead) or 'no family'}."
    if level_with:
        text += f" As fast: {named(level_with)}; there memory is the limit, or the peer is as good as we are."
    if behind:
        text += f" Slower: {named(behind)}."
    return text + "\n"


def summary(families):
    lines, all_rows = list(families), [row for _, rows in families for row in rows]
    lines.append(("all", all_rows))
    text = ("| family | rows | geometric mean | at least 1 | at least 1.5 | OpenCV: mean | at least 1 | worst | |\n"
            "|---|--:|--:|--:|--:|--:|--:|--:|---|\n")
    share = lambda ratios, least: f"{100 * sum(r >= least for r in ratios) / len(ratios):.0f} %"
    for family, rows in lines:
        ratios, opencv = [r[2] for r in rows], [r[3] for r in rows if r[3]]
        worst = min(rows, key=lambda r: r[2])
        beside_opencv = f"{geometric_mean(opencv):.2f} | {share(opencv, 1)}" if opencv else "|"
        text += (f"| {family} | {len(rows)} | {geometric_mean(ratios):.2f} | {share(ratios, 1)} | {share(ratios, 1.5)} | {beside_opencv} | "
                 f"{worst[2]:.2f} | {worst[0]}, {worst[1]} |\n")
    slower = lambda which: sorted((r for r in all_rows if r[which] and r[which] < 0.97), key=lambda r: r[which])
    return text, slower(3), [r for r in slower(2) if r[4] != "OpenCV"]


# What the first screen tells, by family.
FIRST = {"median": "median filters", "stats": "mean, minimum and maximum, counts", "warp": "affine warps", "morph": "morphology", "resize": "resizing",
         "arith": "arithmetic", "calls": "whole calls on 8 x 8 and 64 x 64", "filter": "box, minimum, maximum", "threshold": "thresholds",
         "transform": "copy-transform", "colour": "colours and layouts", "convert": "conversions"}


def first_screen(families, level):
    """A table of two halves side by side, the most ahead of OpenCV first."""
    told = []
    for family, rows in families:
        ratios = [r[3] for r in rows if r[3]]
        if family in FIRST:
            told.append((geometric_mean(ratios), f"{FIRST[family]} | {geometric_mean(ratios):.1f} | {100 * sum(r >= 1 for r in ratios) / len(ratios):.0f} %"))
    told = [text for _, text in sorted(told, reverse=True)]
    half = (len(told) + 1) // 2
    every = [r[3] for _, rows in families for r in rows if r[3]]
    text = (f"OpenCV's time / ours at {level.upper()}, one thread each, geometric means of {len(every):,} measured rows, of which "
            f"{100 * sum(r >= 1 for r in every) / len(every):.0f} % are at least as fast;\n[the others are named](docs/performance.md), and those of "
            "libyuv, zimg, Eigen and OpenBLAS too:\n\n"
            "| | times as fast | rows at least as fast | | times as fast | rows at least as fast |\n|---|--:|--:|---|--:|--:|\n")
    for i in range(half):
        text += f"| {told[i]} | {told[i + half] if i + half < len(told) else '| |'} |\n"
    return text


# Plots that the bench makes, of time against what grows.
PLOTS = {"masks": "the side of a filter's mask", "elements": "the side of a structuring element", "warp": "the angle of a warp"}


def plots(folder, level):
    links = [f"[{what}](bench/{level}/{name}.svg)" for name, what in PLOTS.items() if os.path.exists(os.path.join(folder, level, name + ".svg"))]
    return f"Time against {', '.join(links)}.\n\n" if links else ""


def main():
    folder = sys.argv[1]
    page = ("# How fast\n\nEvery row of the bench beside the best of its peers (OpenCV, and where they are better libyuv, zimg, Eigen, "
            "OpenBLAS), one thread each,\ninterleaved in one run: how many times as long the peer takes. 2 is twice as fast as the best of them, "
            "below 1 is slower.\nMade by `./dev bench --summary` from the tables in [bench/](bench/), a folder for each processor level.\n")
    for level in sorted(os.listdir(folder)):
        if not glob.glob(os.path.join(folder, level, "*.md")):
            continue
        families = families_of(os.path.join(folder, level))
        text, opencv, others = summary(families)
        held = "OpenCV is held to the same instructions; the other peers can't be, and are left out.\n" if level in LOWER else ""
        page += f"\n## Level {level}\n\n{held}{words(families)}\n![Every row of level {level}](bench/{level}/summary.svg)\n\n{plots(folder, level)}{text}\n"
        if "--write" in sys.argv:
            with open(os.path.join(folder, level, "summary.svg"), "w", encoding="utf-8") as file:
                file.write(chart(families))
        if opencv:
            shown = opencv[:24] if level in LOWER else opencv
            some = f" {len(opencv)} rows, these the most:" if len(shown) < len(opencv) else ""
            page += f"Slower than OpenCV by more than 3 %:{some}\n\n"
            page += "".join(f"- {row[0]}, {row[1]}: {row[3]:.2f}\n" for row in shown)
        else:
            page += "No row is slower than OpenCV by more than 3 %.\n"
        if others:
            page += f"\nSlower than another peer by more than 3 %: {len(others)} rows, these the most:\n\n"
            page += "".join(f"- {row[0]}, {row[1]}: {row[2]:.2f} ({row[4]})\n" for row in others[:24])
    print(page)
    if "--write" in sys.argv:
        page_path, readme = sys.argv[sys.argv.index("--write") + 1:][:2]
        with open(page_path, "w", encoding="utf-8") as file:
            file.write(page)
        with open(readme, encoding="utf-8") as file:
            before, rest = file.read().split("<!-- speed", 1)
        head, rest = rest.split("-->\n", 1)
        after = rest.split("<!-- /speed -->", 1)[1]
        with open(readme, "w", encoding="utf-8") as file:
            file.write(f"{before}<!-- speed{head}-->\n{first_screen(families_of(os.path.join(folder, 'avx2')), 'avx2')}<!-- /speed -->{after}")


main()
