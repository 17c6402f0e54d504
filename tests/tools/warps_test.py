"""Warps: whole pixels carried exactly in every kind of picture, size and place, the background, and what is refused."""
import math

import driver
from pictures import TIFF_SAMPLES, noise, png, read_png, read_tiff, tiff

RANGES = {"u8": (0, 255), "u16": (0, 65535), "s16": (-32768, 32767), "f32": (-1000, 1000)}


def pixels(rows, channels):
    return [[row[i:i + channels] for i in range(0, len(row), channels)] for row in rows]


def carried(rows, channels, back, width, height, background):
    """Each pixel of the result from where back(x, y) says, else the background."""
    source = pixels(rows, channels)

    def at(x, y):
        u, v = back(x, y)
        return source[v][u] if 0 <= v < len(source) and 0 <= u < len(source[0]) else background
    return [[value for x in range(width) for value in at(x, y)] for y in range(height)]


class Warps(driver.ProgramTest):
    def put_tiff(self, width, height, channels, sample):
        self.sample, rows = sample, noise(width, height, channels, *RANGES[sample])
        self.put("in.tif", tiff(width, height, channels, rows, sample))
        return rows

    def result(self, command, *arguments):
        self.tarn(command, "in.tif", "-o", "out.tif", "--compression", "none", *arguments)
        tags, rows = read_tiff(self.get("out.tif"))
        self.assertEqual((tags[258][0], tags[339][0]), TIFF_SAMPLES[self.sample][:2])
        return rows

    def test_whole_pixels_are_carried_exactly_and_the_rest_is_background(self):
        w, h = 7, 4
        for sample, (low, high) in RANGES.items():
            for channels in 1, 2, 3, 4:
                rows = self.put_tiff(w, h, channels, sample)
                given, zeros = [low, high, 5, 1][:channels], [0] * channels
                value = ",".join(map(str, given))
                for back, width, height, background, *arguments in (
                        (lambda x, y: (x - 2, y + 1), w, h, zeros, "--matrix", "1,0,2,0,1,-1"),
                        (lambda x, y: (x - 2, y + 1), 9, 5, given, "--matrix", "1,0,2,0,1,-1", "--size", "9x5", "--background", value),
                        (lambda x, y: (w - 1 - y, x), h, w, zeros, "--rotate", 90, "--fit"),
                        (lambda x, y: (y, h - 1 - x), h, w, zeros, "--rotate", -450, "--fit", "--interpolation", "nearest"),
                        (lambda x, y: (w - 1 - x, h - 1 - y), w, h, zeros, "--rotate", 180),
                        (lambda x, y: (x, h - 1 - y), w, h, zeros, "--matrix", "1,0,-300,0,-1,1e3", "--fit"),
                        (lambda x, y: (x - 1, y - 3), 9, 10, given, "--rotate", 0, "--size", "9x10", "--background", value),
                        (lambda x, y: (6 - x, 4 - y), w, h, zeros, "--rotate", 180, "--center", "3,2")):
                    self.assertEqual(self.result("warp-affine", *arguments), carried(rows, channels, back, width, height, background),
                                     (sample, channels, arguments))
                for back, width, height, *arguments in (
                        (lambda x, y: (x + 2, y + 1), 4, 3, "--from", "2,1,5,1,5,3,2,3", "--size", "4x3"),
                        (lambda x, y: (x - 1, y - 1), 9, 6, "--to", "1,1,7,1,7,4,1,4", "--size", "9x6"),
                        (lambda x, y: (y, x), w, h, "--from", "0,0,0,3,3,3,3,0", "--to", "0,0,3,0,3,3,0,3")):
                    self.assertEqual(self.result("warp-affine-quad", *arguments), carried(rows, channels, back, width, height, zeros),
                                     (sample, channels, arguments))

    def test_linear_lies_between_the_pixels_and_depth_converts(self):
        rows = noise(4, 3, 1, 0, 60000)
        self.put("in.png", png(4, 3, 1, rows, 16))
        self.tarn("warp-affine", "in.png", "-o", "out.png", "--matrix", "1,0,-0.5,0,1,0", "--size", "3x3")
        means = [[(row[x] + row[x + 1]) / 2 for x in range(3)] for row in rows]
        for got, want in zip(read_png(self.get("out.png"))[4], means):
            self.assertTrue(all(abs(a - b) <= 0.5 for a, b in zip(got, want)), (got, want))
        rows = [[row[0] % 256, 255, row[2] % 256] for row in rows]
        self.put("in.png", png(3, 3, 1, rows))
        for command, *arguments in ("warp-affine", "--scale", 1), ("warp-affine-quad", "--from", "0,0,2,0,2,2,0,2"):
            self.tarn(command, "in.png", "-o", "out.tif", "--compression", "none", "--depth", "f32", *arguments)
            self.assertEqual(read_tiff(self.get("out.tif"))[1], rows)
        self.put("deep.png", png(2, 1, 1, [[300, 65535]], 16))
        for source, depth, background, wanted in (("deep.png", "u8", 7, [7, 255, 255]), ("deep.png", "u16", 40000, [40000, 300, 65535]),
                                                  ("in.png", "u16", 40000, [40000, *rows[0][:2]]), ("deep.png", "f32", -1, [-1, 300, 65535])):
            self.tarn("warp-affine", source, "-o", "out.tif", "--compression", "none", "--depth", depth, "--matrix", "1,0,1,0,1,0",
                      "--size", "3x1", "--background", background)
            self.assertEqual(read_tiff(self.get("out.tif"))[1], [wanted])

    def test_fit_is_the_size_that_holds_the_picture(self):
        self.put("in.png", png(31, 17, 4, noise(31, 17, 4, 0, 255)))
        for degrees, scale in (30, 1), (89, 0.5), (45, 3), (-17, 1.3), (0, 2), (90, 0.25):
            self.tarn("warp-affine", "in.png", "-o", "out.png", "--rotate", degrees, "--scale", scale, "--fit")
            width, height, _, _, rows = read_png(self.get("out.png"))
            c, s = (abs(f(math.radians(degrees))) * scale for f in (math.cos, math.sin))
            self.assertEqual((width, height), (int(30 * c + 16 * s + 1e-6) + 1, int(30 * s + 16 * c + 1e-6) + 1), degrees)

    def test_a_value_of_the_background_serves_all_colours_and_alpha_is_opaque_then(self):
        self.put("in.png", png(2, 1, 4, [[1, 2, 3, 4, 5, 6, 7, 8]]))
        self.tarn("warp-affine", "in.png", "-o", "out.png", "--matrix", "1,0,1,0,1,0", "--background", 9)
        self.assertEqual(read_png(self.get("out.png"))[4], [[9, 9, 9, 255, 1, 2, 3, 4]])

    def test_corners_that_do_not_fit_are_told_and_the_first_three_count(self):
        rows = noise(6, 5, 3, 0, 255)
        self.put("in.png", png(6, 5, 3, rows))
        for to, words in ("0,0,5,0,5,4,9,4", "tarn: --to: the fourth corner lies 9 pixels beside"), ("0,0,5,0,5,4,0.5,4", ""):
            done = self.run_tarn("warp-affine-quad", "in.png", "-o", "out.png", "--to", to)
            self.assertEqual((done.returncode, done.stdout), (0, ""))
            self.assertTrue(done.stderr.startswith(words) and len(done.stderr.splitlines()) == bool(words), done.stderr)
            self.assertEqual(read_png(self.get("out.png"))[4], rows)

    def test_what_cannot_be_is_refused_by_name(self):
        self.put("rgb.png", png(4, 4, 3, noise(4, 4, 3, 0, 255)))
        self.put("s32.tif", tiff(2, 1, 1, [[1, 2]], "s32"))
        warp, quad = ("warp-affine", "rgb.png"), ("warp-affine-quad", "rgb.png")
        square = "0,0,3,0,3,3,0,3"
        for status, subject, words, *arguments in (
                (2, "--matrix", "is missing; give --matrix a,b,tx,c,d,ty or --rotate", *warp),
                (2, "--matrix", "5 numbers, not 6", *warp, "--matrix", "1,0,0,0,1"),
                (2, "--matrix", "'nan' is not a finite number", *warp, "--matrix", "1,0,nan,0,1,0"),
                (2, "--matrix", "onto a line or a point", *warp, "--matrix", "1,2,0,2,4,0"),
                (2, "--matrix", "onto a line or a point", *warp, "--matrix", "0,0,0,0,0,0"),
                (2, "--rotate", "can't go with --matrix", *warp, "--matrix", "1,0,0,0,1,0", "--rotate", 5),
                (2, "--scale", "can't go with --matrix", *warp, "--matrix", "1,0,0,0,1,0", "--scale", 2),
                (2, "--center", "can't go with --matrix", *warp, "--matrix", "1,0,0,0,1,0", "--center", "2,2"),
                (2, "--rotate", "'ten' is not a finite number", *warp, "--rotate", "ten"),
                (2, "--scale", "'0' is not above 0", *warp, "--scale", 0),
                (2, "--scale", "'-1' is not above 0", *warp, "--scale", -1),
                (2, "--center", "3 numbers, not 2", *warp, "--rotate", 5, "--center", "1,2,3"),
                (2, "--fit", "can't go with --size", *warp, "--rotate", 5, "--fit", "--size", "9x9"),
                (2, "--fit", "can't go with --center", *warp, "--rotate", 5, "--fit", "--center", "1,1"),
                (1, "--fit", "more than 2147483647 pixels a side", *warp, "--scale", 1e9, "--fit"),
                (1, "--fit", "this machine has", *warp, "--scale", 1e8, "--fit"),
                (1, "--size", "this machine has", *warp, "--scale", 2, "--size", "200000000x200000000"),
                (1, "o.tif", "nothing but background: no pixel of rgb.png", *warp, "--matrix", "1,0,9,0,1,0"),
                (1, "--background", "256 is not among the values of u8 samples", *warp, "--rotate", 5, "--background", 256),
                (1, "--background", "2 values for 3 colour channels", *warp, "--rotate", 5, "--background", "1,2"),
                (2, "--interpolation", "nearest, linear, cubic or lanczos", *warp, "--rotate", 5, "--interpolation", "area"),
                (2, "--depth", "same, u8, u16, s16 or f32", *warp, "--rotate", 5, "--depth", "u32"),
                (1, "s32.tif", "has s32 samples; warp-affine takes u8, u16, s16 and f32", "warp-affine", "s32.tif", "--rotate", 5),
                (1, "s32.tif", "warp-affine-quad takes", "warp-affine-quad", "s32.tif", "--from", square),
                (2, "--from", "is missing, and --to is too", *quad),
                (2, "--from", "7 numbers, not 8", *quad, "--from", "0,0,3,0,3,3,0"),
                (2, "--to", "lie on a line", *quad, "--from", square, "--to", "0,0,1,1,2,2,0,2"),
                (2, "--from", "lie on a line", *quad, "--from", "1,1,1,1,3,3,0,3")):
            with self.subTest(arguments=arguments):
                self.refused(status, subject, words, *arguments, "-o", "o.tif")


driver.main()
