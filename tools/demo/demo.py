#!/usr/bin/env python3
"""The demonstration: sample pictures through the program `tarn`, and a page that shows what went in and what came out.

Each section is a function that takes a Demo and adds to its page; a new one goes into SECTIONS at the end. Times are those of the
operation's call alone, as `tarn --time` measures them (best of several repeats), without reading and writing files.
"""
import argparse
import base64
import html
import json
import math
import os
import random
import re
import shutil
import struct
import subprocess
import sys
import time
import zlib

STYLE = """
:root { color-scheme: light dark; --ink: #1d2733; --soft: #5b6b7c; --line: #dfe5ec; --accent: #0b6e74; --paper: #f6f8fa; --card: #fff;
  --head: #edf1f4; --check: #eceff2; --wrong: #b3372b; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #dbe4ec; --soft: #93a4b4; --line: #2c3a46; --accent: #5cc3c8; --paper: #0f161c; --card: #18222b; --head: #202d38;
    --check: #202c36; --wrong: #ef7f72; } }
* { box-sizing: border-box; }
body { margin: 0; font: 16px/1.55 system-ui, "Segoe UI", Roboto, "DejaVu Sans", sans-serif; color: var(--ink);
  background: var(--paper); }
header { background: #10222c; color: #eef4f6; padding: 2.6rem 1.5rem 2.2rem; }
header > *, main > * { max-width: 1320px; margin-left: auto; margin-right: auto; }
h1 { margin-top: 0; margin-bottom: .3rem; font-size: 2rem; letter-spacing: -.01em; }
header p { margin-top: .2rem; margin-bottom: .2rem; color: #b8cbd2; }
nav { margin-top: 1rem; } nav a { color: #8fd3d6; margin-right: 1.2rem; display: inline-block; }
main { padding: 1rem 1.5rem 4rem; }
h2 { margin-top: 2.6rem; margin-bottom: .3rem; font-size: 1.45rem; } h3 { margin-top: 1.8rem; margin-bottom: .4rem; font-size: 1.08rem; }
p.why { margin-top: .2rem; margin-bottom: .8rem; color: var(--soft); } p.why span { display: block; max-width: 52rem; }
.row { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(225px, 100%), 1fr)); gap: 14px; align-items: start; }
figure { margin: 0; background: var(--card); border: 1px solid var(--line); border-radius: 8px; overflow: hidden; }
figure.source { border-color: var(--accent); box-shadow: 0 0 0 1px var(--accent); }
.picture { height: 230px; overflow: hidden; display: flex; align-items: center; justify-content: center; padding: 8px;
  background: repeating-conic-gradient(var(--check) 0 25%, var(--card) 0 50%) 0 0 / 16px 16px; }
.picture a { display: contents; }
.picture img { max-width: 100%; max-height: 100%; width: auto; height: auto; min-width: 0; }
.picture.true img { max-width: none; max-height: none; flex: none; image-rendering: pixelated; }
.picture.fill img { width: 100%; height: 100%; object-fit: contain; image-rendering: pixelated; }
figcaption { padding: .55rem .8rem .7rem; border-top: 1px solid var(--line); font-size: .88rem; }
figcaption b { font-size: .95rem; } figcaption .size { color: var(--soft); float: right; margin-left: .6rem; }
.time { color: var(--accent); font-weight: 600; font-variant-numeric: tabular-nums; }
code { display: block; margin-top: .35rem; font: 11.5px/1.45 ui-monospace, "DejaVu Sans Mono", monospace; color: var(--soft);
  overflow-wrap: anywhere; }
.table { overflow-x: auto; margin-top: 14px; }
table { border-collapse: collapse; background: var(--card); border: 1px solid var(--line); font-variant-numeric: tabular-nums; }
th, td { padding: .35rem .9rem; border-bottom: 1px solid var(--line); text-align: right; } td:first-child, th:first-child
{ text-align: left; } th { background: var(--head); font-size: .85rem; }
.digits { display: flex; flex-wrap: wrap; gap: 8px; }
.digit { width: 76px; text-align: center; background: var(--card); border: 1px solid var(--line); border-radius: 6px; padding: 6px 2px;
  font-size: .78rem; color: var(--soft); } .digit b { color: var(--ink); font-size: .95rem; }
.digit img { display: block; width: 56px; height: 56px; margin: 0 auto 4px; image-rendering: pixelated; }
.digit.wrong { border-color: var(--wrong); } .digit.wrong b { color: var(--wrong); }
footer { margin-top: 3rem; border-top: 1px solid var(--line); padding-top: .8rem; color: var(--soft); font-size: .88rem; }
"""
MODES = ("nearest", "linear", "cubic", "lanczos")
VIEWS = {"fit": "picture", "true": "picture true", "fill": "picture fill"}


class Demo:
    """Runs tarn, keeps what it wrote in the output folder, and collects the page."""

    def __init__(self, tarn, samples, out):
        self.tarn, self.samples, self.out = os.path.abspath(tarn), os.path.abspath(samples), os.path.abspath(out)
        self.body, self.calls, self.page, self.used, self.previews = [], 0, None, set(), {}

    def run(self, *arguments):
        self.used.update(after for before, after in zip(("--then", *arguments), arguments) if before == "--then")
        done = subprocess.run([self.tarn, *arguments], cwd=self.out, capture_output=True, text=True)
        if done.returncode:
            sys.exit(f"demo: `tarn {' '.join(arguments)}` failed: {done.stderr.strip()}")
        self.calls += 1
        return done.stdout

    def picture(self, *arguments):
        """Runs a command that ends in -o OUT; returns the milliseconds of its call."""
        return float(self.run(*arguments, "--time").split()[-2])

    def sample(self, name):
        """Copies a sample beside the page; returns its name there."""
        shutil.copy(os.path.join(self.samples, name), os.path.join(self.out, name))
        return name

    # ---- The page ----

    def section(self, anchor, title, why):
        self.body.append(f'<h2 id="{anchor}">{html.escape(title)}</h2>\n<p class="why"><span>{html.escape(why)}</span></p>')

    def heading(self, title, why=""):
        self.body.append(f"<h3>{html.escape(title)}</h3>" + (f'<p class="why"><span>{html.escape(why)}</span></p>' if why else ""))

    def figures(self, figures):
        self.body.append('<div class="row">' + "\n".join(figures) + "</div>")

    def figure(self, file, title, size="", time=None, command="", view="fit", source=False, cut=None):
        """One picture. view: fit (scaled to the frame), true (pixel for pixel), fill (enlarged with its pixels visible); cut: only
        this region of it, enlarged."""
        note = f'<br><span class="time">{time:.{3 if time >= 0.01 else 4}f} ms</span>' if time is not None else ""
        shown = f"<code>tarn {html.escape(command)}</code>" if command else ""
        preview, width, height = self.preview(file, view, cut)
        return (f'<figure{" class=source" if source else ""}><div class="{VIEWS["fill" if cut else view]}"><a href="{file}">'
                f'<img src="{preview}" width="{width}" height="{height}" loading="lazy" alt="{html.escape(title)}"></a></div>'
                f'<figcaption><span class="size">{size}{", a part" if cut else ""}</span><b>{html.escape(title)}</b>{note}{shown}'
                '</figcaption></figure>')

    def preview(self, file, view, cut):
        """What the page shows in place of a picture, which it links to: as large as a frame on a fine screen, as PNG or JPEG, whichever
        is smaller. Returns its name and size."""
        key = file, view, cut
        if key in self.previews:
            return self.previews[key]
        path = os.path.join(self.out, file)
        width, height = picture_size(path)
        if not file.endswith(".svg"):
            scale = min(1, 460 / width, 320 / height) if view == "fit" and not cut else 1
            size = (f"{max(1, round(width * scale))}x{max(1, round(height * scale))}",) if not cut else (cut.split(",")[-1], "--region", cut)
            stem = f"shown-{len(self.previews)}"
            names = [f"{stem}.png", f"{stem}.jpg"]
            if self.png_alpha(path):
                names.pop()
            for name in names:
                self.run("scale-resize", file, "-o", name, "--size", *size, "--antialias", "--quality", "80" if scale < 1 else "90", "--effort", "9")
            weights = {name: os.path.getsize(os.path.join(self.out, name)) for name in names}
            best = min(names, key=weights.get)
            for name in names:
                if name != best:
                    os.remove(os.path.join(self.out, name))
            file = best
            width, height = picture_size(os.path.join(self.out, file))
        self.previews[key] = file, width, height
        return self.previews[key]

    def png_alpha(self, path):
        with open(path, "rb") as file:
            head = file.read(26)
        return head[1:4] == b"PNG" and head[25] & 4

    def table(self, head, rows):
        cells = lambda tag, row: "<tr>" + "".join(f"<{tag}>{html.escape(str(v))}</{tag}>" for v in row) + "</tr>"
        self.body.append('<div class="table"><table>' + cells("th", head) + "".join(cells("td", row) for row in rows) + "</table></div>")

    def write(self, titles):
        info = json.loads(self.run("info", "--json"))
        links = "".join(f'<a href="#{anchor}">{html.escape(title)}</a>' for anchor, title in titles)
        with open(os.path.join(self.samples, "README.md"), encoding="utf-8") as file:
            credits = [line.split("|")[1:5] for line in file if line.startswith("|") and "." in line.split("|")[1]]
        thanks = "; ".join(f"{name.strip()}: {what.strip()} ({licence.strip()})" for name, _, what, licence in credits)
        page = (f'<!doctype html>\n<html lang="en"><head><meta charset="utf-8"><title>tarn-ipp</title>\n'
                f'<meta name="viewport" content="width=device-width">\n<style>{STYLE}</style></head>\n<body><header>'
                f'<h1>tarn-ipp</h1><p>Image-processing operations in a plug-in module. Every picture below came out of the program '
                f'<b>tarn</b> by the command under it, and is a link to the whole; smaller ones are by <b>scale-resize --antialias</b>.</p><p>Times are the operation\'s call alone, best of several repeats, one '
                f'thread, processor level {html.escape(info["processor_level"])}; files are read and written outside of them.</p>'
                f'<nav>{links}</nav></header>\n<main>\n' + "\n".join(self.body) +
                f'\n<footer>Pictures: {html.escape(thanks)}. Made {time.strftime("%Y-%m-%d %H:%M")} with '
                f'{self.calls} calls of tarn.</footer>\n</main></body></html>\n')
        path = os.path.join(self.out, "index.html")
        with open(path + ".new", "w", encoding="utf-8") as file:
            file.write(page)
        os.replace(path + ".new", path)


def picture_size(path):
    """Width and height of a PNG, JPEG or SVG file."""
    with open(path, "rb") as file:
        data = file.read()
    if data[:4] == b"\x89PNG":
        return struct.unpack(">II", data[16:24])
    if data[:2] == b"\xff\xd8":
        at = 2
        while data[at + 1] not in (0xC0, 0xC1, 0xC2):
            at += 2 + struct.unpack(">H", data[at + 2:at + 4])[0]
        return struct.unpack(">HH", data[at + 5:at + 9])[::-1]
    return tuple(int(re.search(rb'<svg[^>]* %s="(\d+)' % side, data)[1]) for side in (b"width", b"height"))


def grey_png(width, pixels):
    rows = b"".join(b"\0" + pixels[i:i + width] for i in range(0, len(pixels), width))
    chunk = lambda name, data: struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))
    head = struct.pack(">2I5B", width, len(pixels) // width, 8, 0, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")


def resize_row(demo, source, size, label, region=None, view="fit", shown_size=None, cuts=(None, None), antialias=()):
    """One picture to one size in every interpolation mode; the source first. cuts: the parts of source and results to show."""
    stem = os.path.splitext(source)[0]
    figures, times = [], []
    if region:
        cut = f"{stem}-{label}-region.png"
        arguments = ["scale-resize", source, "-o", cut, "--scale", "1", "--region", region]
        figures.append(demo.figure(cut, "the region", region.split(",")[-1].replace("x", " × "), demo.picture(*arguments),
                                   " ".join(arguments), view if view == "fill" else "fit", source=True))
    else:
        figures.append(demo.figure(source, "input", shown_size, view="fit", source=True, cut=cuts[0]))
    for mode, more in [(mode, []) for mode in MODES] + [(mode, ["--antialias"]) for mode in antialias]:
        out = f"{stem}-{label}-{'-'.join([mode, *(o[2:] for o in more)])}.png"
        arguments = ["scale-resize", source, "-o", out, "--size", size, "--interpolation", mode, *more]
        arguments += ["--region", region] if region else []
        took = demo.picture(*arguments)
        times += [] if more else [took]
        figures.append(demo.figure(out, mode + (", antialiased" if more else ""), size.replace("x", " × "), took, " ".join(arguments), view,
                                   cut=cuts[1]))
    demo.figures(figures)
    return times


def zone_plate(size):
    """Rings that become finer outwards, up to one pixel each, as a grey PNG."""
    wave = [round(127.5 + 127.5 * math.cos(math.pi * i / 4096)) for i in range(8192)]
    squares = [(x - size / 2) ** 2 * 4096 / size for x in range(size)]
    return grey_png(size, bytes(wave[int(across + down) & 8191] for down in squares for across in squares))


def resize_section(demo):
    demo.section("resize", "Resampling", "tarn::scale-resize takes a picture, or a region of it, to any size in four "
                 "interpolation modes. The alpha channel is resampled on its own.")
    table = []
    coffee, rocket, retina, horse = map(demo.sample, ("coffee.png", "rocket.jpg", "retina.jpg", "horse.png"))
    with open(os.path.join(demo.out, "rings.png"), "wb") as file:
        file.write(zone_plate(1000))
    demo.run("warp-affine", horse, "-o", "horse-turned.png", "--rotate", "20", "--fit")

    def row(title, why, source, *arguments, **options):
        demo.heading(title, why)
        table.append([title] + [f"{t:.3f}" for t in resize_row(demo, source, *arguments, **options)])

    row("Retina down to 200 × 200", "Far smaller: the modes look at the nearest pixels only, so fine vessels break up; with --antialias each "
        "pixel is the mean of all that it covers.", retina, "200x200", "down", shown_size="1411 × 1411",
        cuts=("282,705,282x247", "40,100,40x35"), antialias=("linear", "cubic"))
    row("Rings down to 210 × 210", "Rings that become finer outwards, up to one pixel each. What the new size can't show comes back as other rings, "
        "and becomes even grey with --antialias.", "rings.png", "210x210", "down", view="true", shown_size="1000 × 1000",
        antialias=("linear", "cubic"))
    row("Coffee up by 2.5", "The whole picture enlarged; a part of it is shown.", coffee, "1500x1000", "up", shown_size="600 × 400",
        cuts=("330,220,64x56", "825,550,160x140"))
    row("A region of the coffee up by 8", "A 60 × 40 cut enlarged, its pixels shown as they are: blocks, slopes, and the "
        "sharper edges of the wider kernels.", coffee, "480x320", "detail", region="335,240,60x40", view="fill")
    row("A region of the rocket down to a thumbnail", "Taken straight from the region, without a cut in between.", rocket,
        "160x120", "thumb", region="200,40,320x240", view="true")
    row("Horse with transparency around it", "Four channels: colour and alpha.", "horse-turned.png", "200x182", "alpha", view="true",
        shown_size="487 × 444")
    demo.heading("All calls without --antialias, in milliseconds")
    demo.table(["call"] + list(MODES), table)


def warp_section(demo):
    demo.section("warps", "Warps", "tarn::warp-affine turns, scales, shears and shifts in one step; tarn::warp-affine-quad is told where the "
                 "corners go. Each pixel of the result is taken from its exact place in the picture; where there is none the background stays.")

    def shown(source, out, title, size, *arguments, view="fit"):
        arguments = [*arguments[:1], source, "-o", out, *arguments[1:]]
        return demo.figure(out, title, size, demo.picture(*arguments), " ".join(arguments), view)

    coffee, horse = demo.sample("coffee.png"), demo.sample("horse.png")
    demo.heading("Coffee turned by 17 degrees", "As large as it must be to hold the whole picture; below, a part of it in each interpolation mode.")
    demo.figures([demo.figure(coffee, "input", "600 × 400", source=True)] + [
        shown(coffee, f"coffee-turned-{mode}.png", mode, "690 × 557", "warp-affine", "--rotate", "17", "--fit", "--background", "255",
              "--interpolation", mode) for mode in ("cubic",)])
    demo.heading("A part of it, enlarged six times as it is turned", "Steps, slopes, and the sharper edges of the wider kernels.")
    demo.figures([shown(coffee, f"coffee-turned-detail-{mode}.png", mode, "224 × 210", "warp-affine", "--matrix",
                        "5.738,1.754,-2213,-1.754,5.738,-736", "--size", "224x210", "--interpolation", mode, view="true")
                  for mode in MODES])
    demo.heading("Transparency, quarter turns, shears", "Alpha is warped by itself, and is 0 where there is nothing; quarter turns are exact.")
    demo.figures([shown(horse, "horse-turned.png", "20 degrees", "487 × 444", "warp-affine", "--rotate", "20", "--fit"),
                  shown(horse, "horse-quarter.png", "90 degrees", "328 × 400", "warp-affine", "--rotate", "90", "--fit"),
                  shown(horse, "horse-sheared.png", "sheared", "530 × 328", "warp-affine", "--matrix", "1,-0.4,0,0,1,0", "--fit"),
                  shown(horse, "horse-flipped.png", "flipped", "400 × 328", "warp-affine", "--matrix", "-1,0,399,0,1,0")])

    width, height = make_page(demo)
    a, b, tx, c, d, ty = skew = (.86, -.19, 110, .21, .93, 22)
    corners = [round(v, 2) for x, y in ((2, 2), (width - 3, 2), (width - 3, height - 3), (2, height - 3))
               for v in (a * x + b * y + tx, c * x + d * y + ty)]
    size = f"{width}x{height}"
    demo.heading("A page straightened", "A page lies askew in a scan; the corners of what is to be seen are given, and the result is that alone, "
                 "ready for a threshold.")
    demo.figures([demo.figure("page.png", "the page", f"{width} × {height}", source=True),
                  shown("page.png", "page-askew.png", "as it was scanned", "720 × 600", "warp-affine", "--matrix", ",".join(map(str, skew)), "--size",
                        "720x600", "--background", "40"),
                  shown("page-askew.png", "page-straight.png", "straightened", f"{width} × {height}", "warp-affine-quad", "--from",
                        ",".join(map(str, corners)), "--size", size),
                  shown("page-straight.png", "page-straight-black.png", "and its threshold", f"{width} × {height}", "threshold", "--method",
                        "adaptive", "--size", "31x31", "--offset", "-12")])


def filter_section(demo):
    demo.section("filters", "Filters and borders", "tarn::filter makes each pixel the mean, minimum, maximum or median of those under a mask "
                 "of any size; tarn::copymkb puts a border around a picture.")
    source = demo.sample("coffee.png")

    def shown(title, out, *arguments, size="600 × 400", view="fit"):
        arguments = [*arguments[:2], "-o", out, *arguments[2:]]
        return demo.figure(out, title, size, demo.picture(*arguments), " ".join(arguments), view)

    def filtered(picture, kind, mask, *more, **options):
        out = "-".join([os.path.splitext(picture)[0], kind, mask, *(option.strip("-") for option in more[::2])]) + ".png"
        return shown(f"{kind} {mask.replace('x', ' × ')}", out, "filter", picture, "--kind", kind, "--size", mask, *more, **options)

    # Every tenth pixel white or black, spread by a fixed seed.
    spread = random.Random(7).choices((0, 1, 2), (90, 5, 5), k=600 * 400)
    for name, which in ("salt.png", 1), ("pepper.png", 2):
        with open(os.path.join(demo.out, name), "wb") as file:
            file.write(grey_png(600, bytes(255 if v == which else 0 for v in spread)))
    demo.run("set", source, "-o", "coffee-salt.png", "--constants", "255", "--mask", "salt.png")
    demo.run("set", "coffee-salt.png", "-o", "noisy.png", "--constants", "0", "--mask", "pepper.png")
    cut = ("--region", "330,220,96x84")
    demo.heading("Salt and pepper", "Every tenth pixel set to white or black. The median takes the grains out and keeps the edges; the mean "
                 "smears them, the minimum and the maximum make them grow. Below, a part of each enlarged.")
    for more, options in ((), {}), (cut, {"size": "96 × 84", "view": "fill"}):
        before = (shown("the region", "noisy-region.png", "scale-resize", "noisy.png", "--scale", "1", *more, **options) if more else
                  demo.figure("noisy.png", "input", "600 × 400", source=True))
        demo.figures([before] + [filtered("noisy.png", kind, mask, *more, **options) for kind, mask in (
            ("median", "3x3"), ("median", "5x5"), ("box", "3x3"), ("min", "3x3"), ("max", "3x3"))])

    demo.heading("Masks of other sizes", "Even sides, masks of one row, and an anchor in the mask's corner: the picture moves.")
    demo.figures([demo.figure(source, "input", "600 × 400", source=True), filtered(source, "box", "31x31"),
                  filtered(source, "box", "60x1"), filtered(source, "min", "9x9"), filtered(source, "max", "9x9"),
                  filtered(source, "median", "15x15"), filtered(source, "median", "60x60", "--anchor", "0,0")])
    sizes = [3, 7, 15, 31, 63, 101, 201]
    demo.heading("Time against the mask's size", "Milliseconds for the 1000 × 1000 pixels in the middle of the retina, RGB, with 9 to 40401 "
                 "pixels under the mask, all of them in the picture. Where they are not, as for a whole picture, the edge pixels repeat, and "
                 "making that border is added.")
    retina = ("filter", demo.sample("retina.jpg"), "-o", "timed.png", "--region", "205,205,1000x1000")
    demo.table(["mask"] + [f"{n} × {n}" for n in sizes],
               [[kind] + [f'{demo.picture(*retina, "--kind", kind, "--size", f"{n}x{n}"):.3f}' for n in sizes]
                for kind in ("box", "min", "max", "median")])

    demo.heading("Borders", "The edge pixels repeated, or one value; the widths are given for each side.")
    demo.figures([demo.figure(source, "input", "600 × 400", source=True),
                  shown("edge pixels", "coffee-replicated.png", "copymkb", source, "--border", "80,80,-1,-1", size="760 × 560"),
                  shown("a constant", "coffee-framed.png", "copymkb", source, "--border", "40,40,40,120", "--kind", "constant", "--value",
                        "11,110,116", size="680 × 560"),
                  shown("alpha stays opaque", "horse-framed.png", "copymkb", demo.sample("horse.png"), "--border", "30,30,-1,-1", "--kind",
                        "constant", "--value", "179,55,43", size="460 × 388"),
                  shown("and transparent", "horse-clear.png", "copymkb", "horse.png", "--border", "120,0,0,0", "--kind", "constant", "--value",
                        "0,0,0,0", size="520 × 328")])


def uneven_page(digits, columns, rows, scale):
    """Digits side by side, smoothly enlarged, as dark ink on paper under light from one side: grey pixels, row by row."""
    width, height, dice, pixels = (columns * 10 + 4) * scale, (rows * 13 + 5) * scale, random.Random(3), bytearray()
    ink = [[0] * (width // scale) for _ in range(height // scale)]
    for d in range(columns * rows):
        for y in range(8):
            left = 3 + d % columns * 10
            ink[5 + d // columns * 13 + y][left:left + 8] = digits[d][8 * y:8 * y + 8]
    places = lambda n: [(min(int(p), n // scale - 2), p - min(int(p), n // scale - 2)) for p in
                        (min(max((i + .5) / scale - .5, 0), n / scale - 1) for i in range(n))]
    across = places(width)
    for y, (top, v) in enumerate(places(height)):
        upper, lower = ink[top], ink[top + 1]
        for x, (left, u) in enumerate(across):
            dark = (upper[left] * (1 - u) + upper[left + 1] * u) * (1 - v) + (lower[left] * (1 - u) + lower[left + 1] * u) * v
            light = .22 + .78 * (x / width * .7 + y / height * .3)
            pixels.append(min(255, max(0, round(235 * light * (1 - .62 * min(dark, 1)) + dice.gauss(0, 2.5)))))
    return width, bytes(pixels)


def make_page(demo):
    """Writes page.png, unless it is there; returns its size."""
    if not demo.page:
        digits = read_matrix(os.path.join(demo.samples, "digits", "test.npy"))
        most = max(max(d) for d in digits)
        width, pixels = uneven_page([[v / most for v in d] for d in digits], 16, 8, 4)
        with open(os.path.join(demo.out, "page.png"), "wb") as file:
            file.write(grey_png(width, pixels))
        demo.page = width, len(pixels) // width
    return demo.page


def transform_section(demo):
    demo.section("transform", "A network's input", "tarn::copy-transform makes of a picture the array that a network takes, and of its output a "
                 "picture, in one call: size, samples, colours, values and layout.")
    coffee = demo.sample("coffee.png")
    to = ["copy-transform", coffee, "-o", "coffee.npy", "--size", "224x224", "--type", "f32", "--colour", "bgr", "--range", "0,1"]
    there = demo.picture(*to)
    with open(os.path.join(demo.out, "coffee.npy"), "rb") as file:
        data = file.read()
    values = struct.unpack(f"<{3 * 224 * 224}f", data[-3 * 224 * 224 * 4:])
    with open(os.path.join(demo.out, "coffee-planes.png"), "wb") as file:
        file.write(grey_png(224, bytes(round(255 * v) for v in values)))
    back = ["copy-transform", "coffee.npy", "--input-colour", "bgr", "--colour", "rgb", "--range", "0,255", "--then", "copy-transform", "--type", "u8", "-o", "coffee-back.png"]
    demo.run(*back)
    demo.figures([demo.figure(coffee, "input", "600 × 400", source=True),
                  demo.figure("coffee-planes.png", "32-bit floats, planes of blue, green and red, each stretched to 0 .. 1", "1 × 3 × 224 × 224", there,
                              " ".join(to)),
                  demo.figure("coffee-back.png", "and back", "224 × 224", command=" ".join(back), view="true"),
                  demo.figure("coffee-grey.png", "grey, at its size", "600 × 400",
                              demo.picture("copy-transform", coffee, "-o", "coffee-grey.png", "--colour", "grey"),
                              "copy-transform coffee.png -o coffee-grey.png --colour grey")])


def threshold_section(demo):
    demo.section("threshold", "Thresholds", "tarn::threshold makes a picture black and white: by one value, by the histogram (Otsu), or each "
                 "pixel by its surroundings.")
    size = "{} × {}".format(*make_page(demo))

    def row(source, size, *ways):
        figures = [demo.figure(source, "input", size, source=True)]
        for i, (title, *options) in enumerate(ways):
            out = f"{os.path.splitext(source)[0]}-threshold-{i}.png"
            arguments = ["threshold", source, "-o", out, *options]
            figures.append(demo.figure(out, title, size, demo.picture(*arguments), " ".join(arguments)))
        demo.figures(figures)

    demo.heading("A page in uneven light", "No one level parts ink from paper everywhere; a level for each tile is better but leaves edges, "
                 "and the mean around each pixel follows the light.")
    row("page.png", size, ("one level", "--method", "otsu"), ("a level for each tile", "--method", "otsu", "--tiles", "64x64"),
        ("tiles and the whole", "--method", "otsu", "--tiles", "64x64", "--tile-weight", "3", "--whole-weight", "1"),
        ("the mean around", "--method", "adaptive", "--size", "31x31", "--offset", "-12"),
        ("without an offset", "--method", "adaptive", "--size", "31x31"))
    demo.heading("Colours", "Each channel is compared by itself; Otsu's level is one for all of them.")
    row(demo.sample("coffee.png"), "600 × 400", ("a level for all", "--method", "fixed", "--value", "128"),
        ("one for each", "--method", "fixed", "--value", "200,120,60"), ("Otsu's", "--method", "otsu"),
        ("inverted", "--method", "otsu", "--invert"), ("the mean around", "--method", "adaptive", "--size", "51x51", "--offset", "-5"))


def morphology_section(demo):
    demo.section("morphology", "Morphology", "tarn::morphop-n takes the minimum or the maximum of the pixels under a structuring element of any "
                 "shape, and combines the two; tarn::initmorphstate works the element out once.")

    def shown(title, picture, operation, element, size, *more, view="fit", shown_size="600 × 400"):
        out = "-".join([os.path.splitext(picture)[0], operation, os.path.splitext(element)[0], size or "file"]) + ".png"
        arguments = ["morph", picture, "-o", out, "--operation", operation, "--element", element] + (["--size", size] if size else []) + [*more]
        return demo.figure(out, title, shown_size, demo.picture(*arguments), " ".join(arguments), view)

    coffee, retina = demo.sample("coffee.png"), demo.sample("retina.jpg")
    demo.heading("Seven operations", "With an ellipse of 15 × 15. Opening takes away what is bright and smaller than the element, closing what is "
                 "dark; top-hat and black-hat are what they take; the gradient is the outline.")
    demo.figures([demo.figure(coffee, "input", "600 × 400", source=True)] +
                 [shown(title, coffee, operation, "ellipse", "15x15") for title, operation in (
                     ("erosion", "erode"), ("dilation", "dilate"), ("opening", "open"), ("closing", "close"), ("top-hat", "tophat"),
                     ("black-hat", "blackhat"), ("gradient", "gradient"))])

    demo.heading("The element's shape", "A bright dot grows into the element itself: rectangle, ellipse, cross, and the cells of a picture.")
    dots = bytearray(120 * 80)
    for x, y in (20, 20), (60, 40), (100, 60), (60, 42), (61, 41):
        dots[y * 120 + x] = 255
    heart = ["..##.##..", ".#######.", ".#######.", "..#####..", "...###...", "....#...."]
    for name, width, pixels in ("dots.png", 120, dots), ("heart.png", 9, bytes(255 * (c == "#") for row in heart for c in row)):
        with open(os.path.join(demo.out, name), "wb") as file:
            file.write(grey_png(width, pixels))
    small = {"view": "fill", "shown_size": "120 × 80"}
    demo.figures([demo.figure("dots.png", "input", "120 × 80", view="fill", source=True)] +
                 [shown(f"{element} {size.replace('x', ' × ')}", "dots.png", "dilate", element, size, **small)
                  for element, size in (("rect", "15x9"), ("ellipse", "25x25"), ("cross", "17x17"))] +
                 [shown("a heart", "dots.png", "dilate", "heart.png", "", **small)])

    demo.heading("Vessels of the retina", "The black-hat keeps what is darker than its surroundings and narrower than the element.")
    figures = [demo.figure(retina, "input", "1411 × 1411", source=True)]
    figures.append(shown("black-hat", retina, "blackhat", "ellipse", "25x25", shown_size="1411 × 1411"))
    bright = [figures[-1].split('href="')[1].split('"')[0], "-o", "retina-vessels.png", "--range", "0,255"]
    figures.append(demo.figure("retina-vessels.png", "stretched to 0 to 255", "1411 × 1411", demo.picture("cvtvrange-n", *bright),
                               " ".join(["cvtvrange-n", *bright])))
    demo.figures(figures)

    sizes = [3, 7, 15, 31, 63, 101]
    demo.heading("Time against the element's size", "Milliseconds for an erosion of the coffee, 600 × 400 RGB.")
    demo.table(["element"] + [f"{n} × {n}" for n in sizes],
               [[shape] + [f'{demo.picture("morph", coffee, "-o", "timed.png", "--operation", "erode", "--element", shape, "--size", f"{n}x{n}"):.3f}'
                           for n in sizes] for shape in ("rect", "ellipse", "cross")])


def depth_section(demo):
    demo.section("depth", "Signed 16 bits and float", "The same operation converts the samples on the way. Both results below "
                 "went to TIFF files, were resampled there, and came back to 8 bits to be shown.")
    source = demo.sample("coffee.png")
    figures = [demo.figure(source, "input", "600 × 400", source=True)]
    for depth, title in ("s16", "16-bit TIFF"), ("f32", "float TIFF"):
        stem = f"coffee-{depth}"
        convert = ["scale-resize", source, "-o", f"{stem}.tiff", "--scale", "1", "--depth", depth]
        resize = ["scale-resize", f"{stem}.tiff", "-o", f"{stem}-small.tiff", "--scale", "0.35", "--interpolation", "cubic"]
        back = ["scale-resize", f"{stem}-small.tiff", "-o", f"{stem}-small.png", "--scale", "1", "--depth", "u8"]
        demo.picture(*convert)
        took = demo.picture(*resize)
        demo.picture(*back)
        figures.append(demo.figure(f"{stem}-small.png", title, "210 × 140", took, " ".join(resize), "true"))
    demo.figures(figures)


def values_section(demo):
    demo.section("values", "Values", "tarn::convert-scale and tarn::cvtvrange-n map values in float, channel by channel, to any kind of "
                 "sample; tarn::minmax, tarn::mean and tarn::count-in-range tell what there is.")
    source = demo.sample("coffee.png")

    def shown(title, out, *arguments):
        arguments = [*arguments[:2], "-o", out, *arguments[2:]]
        return demo.figure(out, title, "600 × 400", demo.picture(*arguments), " ".join(arguments))

    demo.heading("A dull picture made clear", "Values squeezed into 96 to 144, then stretched: each channel by its own smallest and largest "
                 "value, and row by row.")
    demo.figures([demo.figure(source, "input", "600 × 400", source=True),
                  shown("dull", "coffee-dull.png", "convert-scale", source, "--scale", "0.19", "--offset", "96"),
                  shown("stretched", "coffee-stretched.png", "cvtvrange-n", "coffee-dull.png", "--range", "0,255"),
                  shown("row by row", "coffee-rows.png", "cvtvrange-v", "coffee-dull.png", "--range", "0,255")])
    rows = []
    for title, name in ("dull", "coffee-dull.png"), ("stretched", "coffee-stretched.png"):
        ends, means = (json.loads(demo.run(command, name, "--json")) for command in ("minmax", "mean"))
        counts = json.loads(demo.run("count-in-range", name, "--lower", "100", "--upper", "130", "--json"))
        rows += [[title, e["channel"], e["min"], e["max"], f'{m["mean"]:.2f}', c["count"]] for e, m, c in zip(ends, means, counts)]
    demo.table(["picture", "channel", "minmax: min", "max", "mean", "count-in-range: 100 to 130"], rows)

    demo.heading("16 bits brought to 8", "A 16-bit TIFF of a dark scene, values up to 4095 of 65535: as it is, the top 8 bits show next to "
                 "nothing; scaled by what it holds, all of it.")
    demo.picture("convert-scale", source, "-o", "coffee-dark.tiff", "--depth", "u16", "--scale", "16.06")
    demo.figures([shown("its top 8 bits", "coffee-dark.png", "convert-scale", "coffee-dark.tiff", "--depth", "u8", "--scale", "0.0038911"),
                  shown("its 12 bits to 8", "coffee-lit.png", "convert-scale", "coffee-dark.tiff", "--depth", "u8", "--scale", "0.0622665")])


def elements_section(demo):
    demo.section("elements", "Arithmetic, logic, order", "Pixel by pixel, of two pictures, of many, or of one and a constant for each channel.")
    coffee = demo.sample("coffee.png")
    width, height = 600, 400
    disc = bytes(255 * ((x - 330) ** 2 + (y - 190) ** 2 < 26000) for y in range(height) for x in range(width))
    steps = bytes(x // 150 for _ in range(height) for x in range(width))
    dice = random.Random(5)
    for name, pixels in ("disc.png", disc), ("steps.png", steps), *((f"noise-{i}.png", bytes(v % 90 for v in dice.randbytes(len(disc)))) for i in range(12)):
        with open(os.path.join(demo.out, name), "wb") as file:
            file.write(grey_png(width, pixels))
    demo.run("copy-transform", coffee, "-o", "coffee-grey.png", "--colour", "grey")
    demo.run("filter", "coffee-grey.png", "-o", "coffee-soft.png", "--kind", "box", "--size", "31x31")

    def shown(title, *arguments, **options):
        out = "-".join(["coffee", *(re.sub(r"^coffee-|\.png$|^--", "", a) for a in arguments[:3])]) + ".png"
        arguments = [*arguments, "-o", out]
        shown_size = options.pop("size", "600 × 400")
        return demo.figure(out, title, shown_size, demo.picture(*arguments), " ".join(arguments), **options)

    given = lambda name, title, **options: demo.figure(name, title, "600 × 400", source=True, **options)
    demo.heading("Bits", "Of two pictures, and of a picture and a constant: what lies in a disc, the negative, four shades, half a negative.")
    demo.figures([given("coffee-grey.png", "input"), given("disc.png", "a disc"),
                  *(shown(name, name, "coffee-grey.png", "disc.png") for name in ("and", "or", "xor")), shown("not", "not", coffee),
                  shown("and-c", "and-c", coffee, "--constants", "192"), shown("or-c", "or-c", coffee, "--constants", "0,0,192"),
                  shown("xor-c", "xor-c", coffee, "--constants", "128")])
    demo.heading("Comparisons and filling", "Where a picture is lighter than its surroundings, where than a constant; a colour where a mask says so.")
    demo.figures([given("coffee-grey.png", "input"), given("coffee-soft.png", "its surroundings"),
                  shown("cmp", "cmp", "coffee-grey.png", "coffee-soft.png", "--comparison", "greater"),
                  shown("cmp-c", "cmp-c", "coffee-grey.png", "--comparison", "greater", "--constants", "128"),
                  shown("set", "set", coffee, "--constants", "11,110,116", "--mask", "disc.png")])
    demo.heading("Arithmetic", "Results saturate. The details are what a picture has more than its surroundings.")
    demo.figures([given("coffee-grey.png", "input"),
                  shown("add-c", "add-c", coffee, "--constants", "80"), shown("sub-c", "sub-c", coffee, "--constants", "0,40,80"),
                  shown("mul-c", "mul-c", coffee, "--constants", "2"),
                  shown("sub-n: the details", "sub-n", "coffee-grey.png", "coffee-soft.png"),
                  shown("mul-n: by 0, 1, 2 and 3", "mul-n", "coffee-grey.png", "steps.png")])
    demo.heading("The mean of many", "Six pictures with noise of their own, and their mean. A part of each is shown.")
    noisy = []
    for i in range(6):
        noisy.append(f"coffee-noise-{i}.png")
        demo.run("add-n", "coffee-grey.png", f"noise-{2 * i}.png", "-o", "more.png")
        demo.run("sub-n", "more.png", f"noise-{2 * i + 1}.png", "-o", noisy[-1])
    part = {"cut": "330,220,96x84"}
    demo.figures([given("coffee-grey.png", "input", **part),
                  shown("add-n: noise added", "add-n", "coffee-grey.png", "noise-0.png", **part),
                  demo.figure(noisy[0], "and other noise subtracted", "600 × 400", **part),
                  shown("avgarith-n: the mean of six", "avgarith-n", *noisy, **part)])
    demo.heading("The order of pixels", "Rows from the bottom up, and rows of another length: two rows of the picture in each.")
    demo.figures([demo.figure(coffee, "input", "600 × 400", source=True), shown("cvtorigin", "cvtorigin", coffee),
                  shown("cvtorigin-n: channel by channel", "cvtorigin-n", coffee),
                  shown("reshape", "reshape", coffee, "--size", "1200x200", size="1200 × 200")])


def copy_section(demo):
    demo.section("copy", "Copying and formats", "tarn::copy moves pixels; around it the program turns one file format into another "
                 "without changing a value where the format allows it.")
    source = demo.sample("rocket.jpg")
    figures = [demo.figure(source, "JPEG input", "640 × 427", source=True)]
    for before, out, title in ((source, "rocket-copy.tiff", None), ("rocket-copy.tiff", "rocket-copy.png", "through TIFF to PNG"),
                               ("rocket-copy.png", "rocket-copy.jpg", "and to JPEG again")):
        arguments = ["copy", before, "-o", out]
        took = demo.picture(*arguments)
        if title:
            figures.append(demo.figure(out, title, "640 × 427", took, " ".join(arguments)))
    demo.figures(figures)


def steps_section(demo):
    demo.section("steps", "Several steps", "--then hands a picture to the next command without a file in between, in the type that the operation "
                 "gave it.")
    source = demo.sample("coffee.png")
    figures, line = [demo.figure(source, "input", "600 × 400", source=True)], []
    for i, (title, *step) in enumerate((("grey", "copy-transform", source, "--colour", "grey"),
                                        ("without its grain", "filter", "--kind", "median", "--size", "5x5"),
                                        ("the edges", "morph", "--operation", "gradient", "--element", "ellipse", "--size", "3x3"),
                                        ("the strong ones, dark on white", "threshold", "--method", "otsu", "--invert"))):
        line += ["--then", *step] if line else step
        arguments = [*line, "-o", f"coffee-step-{i}.png"]
        demo.run(*arguments)
        figures.append(demo.figure(arguments[-1], title, "600 × 400", command=" ".join(arguments)))
    demo.figures(figures)


def read_matrix(path):
    """The rows of a .npy file of 32-bit floats."""
    with open(path, "rb") as file:
        data = file.read()
    begin = 10 + struct.unpack("<H", data[8:10])[0]
    shape = re.search(rb"'shape': \((\d+),? ?(\d*)\)", data[:begin])
    columns = int(shape[2] or shape[1])
    values = struct.unpack(f"<{(len(data) - begin) // 4}f", data[begin:])
    return [values[i:i + columns] for i in range(0, len(values), columns)]


def digit_image(values):
    """An 8 x 8 digit as a data address of a PNG, dark on white."""
    png = grey_png(8, bytes(255 - round(240 * v) for v in values))
    return "data:image/png;base64," + base64.b64encode(png).decode()


def digits_section(demo):
    demo.section("digits", "Handwritten digits", "tarn::multi-line-neuronet evaluates a network of 64, 64, 32 and 10 neurons on "
                 "360 digits that it was not trained on, most of them by other writers. Under each picture: the class that the "
                 "network gives it and its share.")
    for name in os.listdir(os.path.join(demo.samples, "digits")):
        if name.endswith(".npy"):
            shutil.copy(os.path.join(demo.samples, "digits", name), os.path.join(demo.out, name))
    arguments = ["multi-line-neuronet", "test.npy"]
    for i, activation in (1, "rectifier"), (2, "rectifier"), (3, "softmax"):
        arguments += ["--layer", f"weights{i}.npy,bias{i}.npy,{activation}"]
    told = json.loads(demo.run(*arguments, "--labels", "labels.npy", "--classes", "--json", "-o", "shares.npy"))
    took = float(demo.run(*arguments, "--time").split()[0])
    pictures, shares = (read_matrix(os.path.join(demo.out, name)) for name in ("test.npy", "shares.npy"))
    labels = [int(v) for row in read_matrix(os.path.join(demo.out, "labels.npy")) for v in row]

    def shown(i):
        found, wrong = told["classes"][i], told["classes"][i] != labels[i]
        note = f" &ne; {labels[i]}" if wrong else ""
        return (f'<span class="digit{" wrong" if wrong else ""}"><img src="{digit_image(pictures[i])}" alt="{labels[i]}">'
                f'<b>{found}{note}</b> {100 * shares[i][found]:.0f}&nbsp;%</span>')

    def strip(which):
        demo.body.append('<div class="digits">' + "".join(map(shown, which)) + "</div>")

    demo.heading(f'{told["right"]} of {told["samples"]} right ({100 * told["accuracy"]:.1f} %), all of them in {took:.3f} ms',
                 "The first hundred:")
    strip(range(100))
    demo.heading("Every one it takes for another", "What it found, and what was meant.")
    strip([i for i in range(len(labels)) if told["classes"][i] != labels[i]])
    demo.body.append(f"<p><code>tarn {html.escape(' '.join(arguments))} --labels labels.npy --classes -o shares.npy</code></p>")


def contour_section(demo):
    demo.section("contours", "Outlines", "tarn::contour::find gives the boundaries of regions as closed polygons on pixel corners, "
                 "nested as the regions are, in one pass. Drawn over the pictures: outer outlines pink, holes light blue; of both "
                 "values, outlines around ones pink, around zeros light blue.")
    # An outlines' SVG holds the picture's file as it is.
    for name, size in ("coffee.png", "300x200"), ("retina.jpg", "470x470"):
        demo.run("scale-resize", demo.sample(name), "-o", f"{name[:6]}-small.jpg", "--size", size, "--antialias", "--quality", "85")
    figures = []
    for source, out, size, title, options in (
            ("horse.png", "horse-outlines.svg", "400 × 328", "a silhouette", ("--threshold", "127", "--values", "zeros")),
            ("coffee-small.jpg", "coffee-outlines.svg", "300 × 200", "Otsu's threshold", ("--otsu", "--diagonal", "ones")),
            ("coffee-small.jpg", "coffee-outlines-both.svg", "300 × 200", "both values, each outline once",
             ("--threshold", "60", "--values", "both", "--diagonal", "ones")),
            ("retina-small.jpg", "retina-outlines.svg", "470 × 470", "a fundus photograph",
             ("--threshold", "75", "--diagonal", "ones"))):
        arguments = ["contour-find", demo.sample(source) if source == "horse.png" else source, *options, "-o", out]
        took = demo.picture(*arguments)
        polygons = json.loads(demo.run("contour-find", source, *options))["features"]
        deepest = max(p["properties"]["depth"] for p in polygons)
        title += f": {len(polygons)} outlines, {deepest + 1} deep"
        figures.append(demo.figure(out, title, size, took, " ".join(arguments)))
    demo.figures(figures)


SECTIONS = [
    ("resize", "Resampling", resize_section),
    ("warps", "Warps", warp_section),
    ("transform", "A network's input", transform_section),
    ("values", "Values", values_section),
    ("elements", "Arithmetic, logic, order", elements_section),
    ("filters", "Filters and borders", filter_section),
    ("threshold", "Thresholds", threshold_section),
    ("morphology", "Morphology", morphology_section),
    ("contours", "Outlines", contour_section),
    ("digits", "Handwritten digits", digits_section),
    ("depth", "16 bits and float", depth_section),
    ("copy", "Copying and formats", copy_section),
    ("steps", "Several steps", steps_section),
]


def main():
    parser = argparse.ArgumentParser(description="Makes a page of what the program tarn does with the sample pictures.")
    parser.add_argument("--tarn", default="build/release/bin/tarn", help="the built program")
    parser.add_argument("--samples", default="samples", help="folder of the sample pictures")
    parser.add_argument("--out", default="out/demo", help="folder to write; index.html is made there")
    options = parser.parse_args()
    if not os.access(options.tarn, os.X_OK):
        sys.exit(f"demo: {options.tarn} is not there; build it first or name it with --tarn")
    os.makedirs(options.out, exist_ok=True)
    demo = Demo(options.tarn, options.samples, options.out)
    for _, _, section in SECTIONS:
        section(demo)
    # Every operation that there is belongs on the page; those of morphology are one command.
    there = {op["qualified"] for op in json.loads(demo.run("ops", "--kind", "implemented", "--json"))} - {"init-once", "fini-once"}
    there = {"morph" if "morph" in name else name.removeprefix("tarn::").replace("::", "-") for name in there}
    if there - demo.used:
        sys.exit(f"demo: no section shows {', '.join(sorted(there - demo.used))}")
    demo.write([(anchor, title) for anchor, title, _ in SECTIONS])
    print(f"{demo.calls} calls; page: {os.path.join(options.out, 'index.html')}")


main()
