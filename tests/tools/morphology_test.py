"""Morphology: every operation and shape of element against plain loops, lists of pictures, and what is refused."""
import os

import driver
from pictures import TIFF_SAMPLES, noise, png, read_png, read_tiff, tiff


def cells_of(shape, width, height, anchor):
    """Members of an element, from the anchor."""
    def member(x, y):
        if shape == "cross":
            return x == anchor[0] or y == anchor[1]
        return shape == "rect" or ((2 * x + 1 - width) * height) ** 2 + ((2 * y + 1 - height) * width) ** 2 <= (width * height) ** 2
    return [(x - anchor[0], y - anchor[1]) for y in range(height) for x in range(width) if member(x, y)]


def passed(rows, channels, cells, extreme):
    width, height = len(rows[0]) // channels, len(rows)
    inside = lambda v, last: max(0, min(v, last))
    return [[extreme(rows[inside(y + dy, height - 1)][inside(x + dx, width - 1) * channels + c] for dx, dy in cells)
             for x in range(width) for c in range(channels)] for y in range(height)]


def morphed(rows, channels, cells, operation):
    eroded = lambda r: passed(r, channels, cells, min)
    dilated = lambda r: passed(r, channels, [(-dx, -dy) for dx, dy in cells], max)
    less = lambda a, b: [[max(0, v - w) for v, w in zip(*both)] for both in zip(a, b)]
    return {"erode": eroded, "dilate": dilated, "open": lambda r: dilated(eroded(r)), "close": lambda r: eroded(dilated(r)),
            "tophat": lambda r: less(r, dilated(eroded(r))), "blackhat": lambda r: less(eroded(dilated(r)), r),
            "gradient": lambda r: less(dilated(r), eroded(r))}[operation](rows)


OPERATIONS = "erode", "dilate", "open", "close", "tophat", "blackhat", "gradient"


class Morphology(driver.ProgramTest):
    def test_every_operation_on_every_number_of_channels(self):
        cells = cells_of("ellipse", 5, 4, (2, 2))
        for channels, bits in (1, 8), (2, 8), (3, 8), (4, 8), (4, 16):
            rows = noise(11, 8, channels, 0, 2**bits - 1)
            self.put("in.png", png(11, 8, channels, rows, bits))
            for operation in OPERATIONS:
                self.tarn("morph", "in.png", "-o", "out.png", "--operation", operation, "--element", "ellipse", "--size", "5x4")
                self.assertEqual(read_png(self.get("out.png"))[3:], (bits, morphed(rows, channels, cells, operation)), (operation, channels))

    def test_elements_drawn_and_of_a_file_with_anchors(self):
        rows = noise(9, 9, 1, -1000, 1000)
        self.put("in.tif", tiff(9, 9, 1, rows, "f32"))
        self.put("element.png", png(3, 2, 1, [[0, 255, 0], [1, 0, 7]]))
        for element, cells in ((("rect", "--size", "4x3"), cells_of("rect", 4, 3, (2, 1))),
                               (("cross", "--size", "5x4", "--anchor", "0,3"), cells_of("cross", 5, 4, (0, 3))),
                               (("ellipse", "--size", "7x7"), cells_of("ellipse", 7, 7, (3, 3))),
                               (("element.png", "--anchor", "1,1"), [(0, -1), (-1, 0), (1, 0)])):
            self.tarn("morph", "in.tif", "-o", "out.tif", "--compression", "none", "--operation", "close", "--element", *element)
            tags, got = read_tiff(self.get("out.tif"))
            self.assertEqual((tags[258][0], tags[339][0]), TIFF_SAMPLES["f32"][:2])
            self.assertEqual(got, morphed(rows, 1, cells, "close"), element)

    def test_several_pictures_go_into_a_folder(self):
        pictures = {name: noise(6, 5, 3, 0, 255) for name in ("a.png", "b.png")}
        for name, rows in pictures.items():
            self.put(name, png(6, 5, 3, rows))
        os.mkdir(self.path("out"))
        options = ("--operation", "erode", "--element", "rect", "--size", "3x3")
        self.tarn("morph", *pictures, "-o", "out", *options)
        for name, rows in pictures.items():
            self.assertEqual(read_png(self.get("out/" + name))[4], morphed(rows, 3, cells_of("rect", 3, 3, (1, 1)), "erode"))
        self.assertEqual(sorted(os.listdir(self.path("out"))), sorted(pictures))

    def test_what_cannot_be_is_refused_by_name(self):
        for name, size in ("a.png", 4), ("b.png", 4), ("large.png", 5):
            self.put(name, png(size, size, 1, noise(size, size, 1, 0, 255)))
        self.put("s32.tif", tiff(4, 4, 1, noise(4, 4, 1, 0, 65535), "s32"))
        self.put("rgb.png", png(4, 4, 3, noise(4, 4, 3, 0, 255)))
        os.mkdir(self.path("folder"))
        self.put("folder/a.png", self.get("a.png"))
        to, rest = ("-o", "o.png", "--operation", "erode", "--element"), ("-o", "o.png", "--element", "rect", "--size", "3x3")
        for status, subject, words, *arguments in (
                (2, "--operation", "erode, dilate, open, close, tophat, blackhat or gradient", "a.png", *rest, "--operation", "thin"),
                (2, "--operation", "is missing", "a.png", *rest),
                (2, "--size", "is missing", "a.png", *to, "rect"),
                (2, "--size", "which has its own", "a.png", *to, "b.png", "--size", "3x3"),
                (2, "--size", "is not a whole number from 1", "a.png", *to, "cross", "--size", "0x3"),
                (1, "--size", "rows end at", "a.png", *to, "cross", "--size", "2147483647x1"),
                (2, "--anchor", "outside of the 4x3 element; give a cell from 0,0 to 3,2", "a.png", *to, "rect", "--size", "4x3",
                 "--anchor", "0,3"),
                (1, "none.png", "no such file", "a.png", *to, "none.png"),
                (1, "rgb.png", "no element; give a grey picture of 8 bits", "a.png", *to, "rgb.png"),
                (1, "s32.tif", "has s32 samples; morph takes u8, u16 and f32; convert the picture first with tarn convert-scale --depth f32",
                 "s32.tif", *to, "a.png"),
                (2, "--output", "is no folder", "a.png", "b.png", *to, "b.png"),
                (2, "folder/a.png", "has the name of another input", "a.png", "folder/a.png", "-o", "folder", *to[2:], "b.png"),
                (1, "large.png", "is 5x5 u8, 1 channel but a.png is 4x4", "a.png", "large.png", "-o", "folder", *to[2:], "b.png")):
            with self.subTest(arguments=arguments):
                self.refused(status, subject, words, "morph", *arguments)


driver.main()
