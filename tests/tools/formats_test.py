"""Pictures of every kind through `tarn copy`: lossless formats come back value by value, and of the same kind."""
import os
import struct
import zlib

import driver
from driver import SAMPLES
from pictures import PNG_COLOUR, chunk, noise, png, png_header, read_png, read_tiff, tiff

RANGES = {"u8": (0, 255), "u16": (0, 65535), "s16": (-32768, 32767), "s32": (-2**31, 2**31 - 1), "u32": (0, 2**32 - 1)}


def sample_rows(width, height, channels, sample, seed=3):
    if sample != "f32":
        return noise(width, height, channels, *RANGES[sample], seed)
    return [[v / 64 - 1e4 for v in row] for row in noise(width, height, channels, 0, 2**21, seed)]


class Formats(driver.ProgramTest):
    def test_png_of_every_kind_comes_back_exactly(self):
        for bits, high in (8, 255), (16, 65535):
            for channels in 1, 2, 3, 4:
                for width, height in (1, 1), (7, 5), (33, 2):  # odd widths: pixel pairs would lose the last column
                    rows = noise(width, height, channels, 0, high)
                    self.put("in.png", png(width, height, channels, rows, bits))
                    self.tarn("copy", "in.png", "-o", "mid.tiff")
                    self.tarn("copy", "mid.tiff", "-o", "out.png")
                    self.assertEqual(read_png(self.get("out.png")), (width, height, channels, bits, rows))

    def test_tiff_of_every_kind_comes_back_exactly(self):
        layouts = [{}, {"order": ">"}, {"tile": 16}, {"planar": True}, {"planar": True, "tile": 16, "order": ">"}]
        for sample in "u8", "u16", "s16", "s32", "u32", "f32":
            for channels in 1, 2, 3, 4:
                for n, layout in enumerate(layouts):
                    with self.subTest(sample=sample, channels=channels, layout=layout):
                        rows = sample_rows(37, 21, channels, sample)
                        self.put("in.tif", tiff(37, 21, channels, rows, sample, extra=n % 3, **layout))
                        self.tarn("copy", "in.tif", "-o", "mid.tif", "--compression", ("lzw", "deflate")[n % 2])
                        self.tarn("copy", "mid.tif", "-o", "out.tif", "--compression", "none")
                        tags, values = read_tiff(self.get("out.tif"))
                        self.assertEqual(values, rows)
                        self.assertEqual(tags[277][0], channels)
                        self.assertEqual(tags[262][0], 1 if channels <= 2 else 2)
                        if channels in (2, 4):
                            self.assertEqual(tags[338], (n % 3,))

    def test_white_is_zero_stays_so_in_tiff_and_is_turned_for_png(self):
        for sample, high in ("u8", 255), ("u16", 65535):
            rows = sample_rows(9, 4, 1, sample)
            self.put("in.tif", tiff(9, 4, 1, rows, sample, photometric=0))
            self.tarn("copy", "in.tif", "-o", "out.tif", "--compression", "none")
            tags, values = read_tiff(self.get("out.tif"))
            self.assertEqual((tags[262], values), ((0,), rows))
            self.tarn("copy", "in.tif", "-o", "out.png")
            self.assertEqual(read_png(self.get("out.png"))[4], [[high - v for v in row] for row in rows])

    def test_png_palettes_small_depths_and_transparent_colours_are_expanded(self):
        palette = chunk(b"PLTE", bytes([10, 20, 30, 40, 50, 60, 70, 80, 90]))
        for bits, colour, chunks, data, rows in (
                (2, 3, palette, b"\x18", [[10, 20, 30, 40, 50, 60, 70, 80, 90]]),
                (2, 3, palette + chunk(b"tRNS", b"\x05"), b"\x18", [[10, 20, 30, 5, 40, 50, 60, 255, 70, 80, 90, 255]]),
                (1, 0, b"", b"\xa0", [[255, 0, 255]]), (4, 0, b"", b"\x0f\x80", [[0, 255, 136]]),
                (8, 0, chunk(b"tRNS", b"\0\x02"), b"\x01\x02\x03", [[1, 255, 2, 0, 3, 255]])):
            self.put("in.png", png_header(3, 1, bits, colour) + chunks + chunk(b"IDAT", zlib.compress(b"\0" + data)) +
                     chunk(b"IEND", b""))
            self.tarn("copy", "in.png", "-o", "out.png")
            self.assertEqual(read_png(self.get("out.png")), (3, 1, len(rows[0]) // 3, 8, rows))

    def test_interlaced_png_is_read(self):
        rows = noise(8, 8, 1, 0, 65535)
        passes = [(0, 0, 8, 8), (0, 4, 8, 8), (4, 0, 8, 4), (0, 2, 4, 4), (2, 0, 4, 2), (0, 1, 2, 2), (1, 0, 2, 1)]
        data = b""
        for top, left, down, right in passes:
            for row in rows[top::down]:
                line = row[left::right]
                data += b"\0" + struct.pack(f">{len(line)}H", *line)
        self.put("in.png", png_header(8, 8, 16, 0, 1) + chunk(b"IDAT", zlib.compress(data)) + chunk(b"IEND", b""))
        self.tarn("copy", "in.png", "-o", "out.png")
        self.assertEqual(read_png(self.get("out.png")), (8, 8, 1, 16, rows))

    def test_sample_pictures(self):
        for name, channels in ("coffee.png", 3), ("horse.png", 4):
            self.tarn("copy", os.path.join(SAMPLES, name), "-o", "out.png")
            with open(os.path.join(SAMPLES, name), "rb") as file:
                original = read_png(file.read())
            self.assertEqual(original[2], channels)
            self.assertTrue(read_png(self.get("out.png")) == original)  # assertEqual would print 700000 numbers

    def test_jpeg_is_near_and_nearer_with_quality(self):
        rows = [[(x * 3 + y * 2) % 256 // 2 for x in range(48)] for y in range(40)]
        self.put("in.png", png(48, 40, 1, rows))
        errors = []
        for quality in 30, 100:
            self.tarn("copy", "in.png", "-o", "mid.jpg", "--quality", quality)
            self.tarn("copy", "mid.jpg", "-o", "out.png")
            width, height, channels, _, values = read_png(self.get("out.png"))
            self.assertEqual((width, height, channels), (48, 40, 1))
            errors.append(sum(abs(a - b) for r, v in zip(rows, values) for a, b in zip(r, v)) / (48 * 40))
        self.assertLess(errors[1], 1)
        self.assertLess(errors[1], errors[0])
        self.tarn("copy", os.path.join(SAMPLES, "rocket.jpg"), "-o", "rocket.png")
        self.assertEqual(read_png(self.get("rocket.png"))[:4], (640, 427, 3, 8))

    def test_content_tells_the_format_whatever_the_name(self):
        rows = noise(5, 4, 3, 0, 255)
        self.put("really.jpg", png(5, 4, 3, rows))
        self.tarn("copy", "really.jpg", "-o", "out.PNG")
        self.assertEqual(read_png(self.get("out.PNG")), (5, 4, 3, 8, rows))

    def test_input_may_be_the_output(self):
        rows = noise(5, 4, 3, 0, 255)
        self.put("same.png", png(5, 4, 3, rows))
        os.chmod(self.path("same.png"), 0o640)
        os.symlink("same.png", self.path("link.png"))
        self.tarn("copy", "link.png", "-o", "link.png")
        self.assertTrue(os.path.islink(self.path("link.png")))
        self.assertEqual(os.stat(self.path("same.png")).st_mode & 0o777, 0o640)
        self.assertEqual(read_png(self.get("same.png"))[4], rows)
        self.assertEqual(sorted(os.listdir(self.folder)), ["link.png", "same.png"])


driver.main()
