"""Borders and filters: every kind of picture against plain loops, and what is refused."""
import driver
from pictures import TIFF_SAMPLES, noise, png, read_png, read_tiff, tiff

SAMPLES = {"u8": (0, 255), "u16": (0, 65535), "s16": (-32768, 32767), "s32": (-2**31, 2**31 - 1), "f32": (-1000, 1000)}


def even_mean(values):
    low, rest = divmod(sum(values), len(values))
    return low + (2 * rest > len(values) or (2 * rest == len(values) and low % 2))


KINDS = {"box": even_mean, "min": min, "max": max, "median": lambda values: sorted(values)[(len(values) - 1) // 2]}


def inside(value, first, last):
    return max(first, min(value, last))


def filtered(rows, channels, combine, size, anchor, region, reach_out):
    """The region filtered; neighbours are the picture's where it reaches far enough, else the region's edge pixels."""
    left, top, right, bottom = (0, 0, len(rows[0]) // channels, len(rows)) if reach_out else region
    (width, height), (at_x, at_y), result = size, anchor, []
    for y in range(region[1], region[3]):
        lines = [rows[inside(y - at_y + j, top, bottom - 1)] for j in range(height)]
        result.append([combine([line[inside(x - at_x + i, left, right - 1) * channels + c] for line in lines for i in range(width)])
                       for x in range(region[0], region[2]) for c in range(channels)])
    return result


class Filters(driver.ProgramTest):
    def result(self, *arguments):
        self.tarn(*arguments, "-o", "out.tif", "--compression", "none")
        tags, rows = read_tiff(self.get("out.tif"))
        return TIFF_SAMPLES[self.sample][:2] == (tags[258][0], tags[339][0]) and rows

    def put_tiff(self, width, height, channels, sample):
        self.sample, rows = sample, noise(width, height, channels, *SAMPLES[sample])
        self.put("in.tif", tiff(width, height, channels, rows, sample))
        return rows

    def test_borders_repeat_the_edge_or_hold_the_values(self):
        for sample, (low, high) in SAMPLES.items():
            for channels in 1, 2, 3, 4:
                rows = self.put_tiff(7, 4, channels, sample)
                for widths, (left, top, right, bottom) in ("3,1,-1,-1", (3, 1, 3, 1)), ("0,2,9,0", (0, 2, 9, 0)):
                    wide = [row[:channels] * left + row + row[-channels:] * right for row in rows]
                    self.assertEqual(self.result("copymkb", "in.tif", "--border", widths),
                                     [wide[0]] * top + wide + [wide[-1]] * bottom, (sample, channels))
                    pixel = [low, 77, high - high % 128 if sample == "s32" else high, 5][:channels]
                    line = pixel * (left + 7 + right)
                    wide = [pixel * left + row + pixel * right for row in rows]
                    self.assertEqual(self.result("copymkb", "in.tif", "--border", widths, "--kind", "constant",
                                                 "--value", ",".join(map(str, pixel))),
                                     [line] * top + wide + [line] * bottom, (sample, channels))

    def test_one_value_serves_all_colours_and_alpha_is_opaque(self):
        for channels in 1, 2, 3, 4:
            pixel = [9, 8, 7, 6][:channels]
            self.put("in.png", png(1, 1, channels, [pixel]))
            for value, colour in ((), 0), (("--value", "40.9"), 40):
                self.tarn("copymkb", "in.png", "-o", "out.png", "--border", "0,0,1,0", "--kind", "constant", *value)
                alpha = [255] * (channels in (2, 4))
                self.assertEqual(read_png(self.get("out.png"))[4], [pixel + [colour] * (channels - len(alpha)) + alpha])

    def test_filters_of_every_kind_sample_and_channel_count(self):
        for sample in "u8", "u16", "s16", "f32":
            for channels in 1, 2, 3, 4:
                rows = self.put_tiff(9, 7, channels, sample)
                for kind, combine in KINDS.items():
                    if (kind, sample) == ("median", "f32"):
                        continue
                    for size, given, anchor in ((3, 3), None, (1, 1)), ((4, 2), None, (1, 0)), ((2, 5), (1, 4), (1, 4)), ((1, 23), (0, 3), (0, 3)):
                        options = ("--anchor", "{},{}".format(*given)) if given else ()
                        got = self.result("filter", "in.tif", "--kind", kind, "--size", "{}x{}".format(*size), *options)
                        if (kind, sample) == ("box", "f32"):
                            combine, got = lambda v: round(sum(v) / len(v), 3), [[round(v, 3) for v in row] for row in got]
                        self.assertEqual(got, filtered(rows, channels, combine, size, anchor, (0, 0, 9, 7), True),
                                         (sample, channels, kind, size))

    def test_a_region_sees_its_neighbours_where_there_are_enough(self):
        rows = noise(12, 11, 3, 0, 255)
        self.put("in.png", png(12, 11, 3, rows))
        for region, text, reach_out in ((4, 3, 9, 8), "4,3,5x5", True), ((4, 3, 12, 8), "4,3,8x5", False):
            for kind, combine in KINDS.items():
                self.tarn("filter", "in.png", "-o", "out.png", "--kind", kind, "--size", "3x3", "--region", text)
                self.assertEqual(read_png(self.get("out.png"))[4], filtered(rows, 3, combine, (3, 3), (1, 1), region, reach_out))

    def test_what_cannot_be_is_refused_by_name(self):
        self.put("rgb.png", png(4, 4, 3, noise(4, 4, 3, 0, 255)))
        self.put("float.tif", tiff(2, 1, 1, [[1.5, 2]], "f32"))
        for sample in "s32", "u32":
            self.put(f"{sample}.tif", tiff(2, 1, 1, [[1, 2]], sample))
        self.put("s32a.tif", tiff(1, 1, 2, [[1, 2]], "s32"))
        border = ("copymkb", "rgb.png", "--border", "1,1,1,1")
        constant = ("--border", "1,1,1,1", "--kind", "constant", "--value")
        mask = ("filter", "rgb.png", "--kind", "box", "--size")
        for status, subject, words, *arguments in (
                (2, "--border", "left or top width below 0", "copymkb", "rgb.png", "--border", "-1,1,1,1"),
                (2, "--border", "from -1 to", "copymkb", "rgb.png", "--border", "1,1,-2,1"),
                (2, "--border", "3 numbers, not 4", "copymkb", "rgb.png", "--border", "1,1,1"),
                (2, "--border", "is missing", "copymkb", "rgb.png"),
                (1, "--border", "is too large", "copymkb", "rgb.png", "--border", "2147483647,0,-1,0"),
                (1, "--border", "this machine has", "copymkb", "rgb.png", "--border", "500000000,2000000000,0,0"),
                (2, "--kind", "replicate or constant", *border, "--kind", "mirror"),
                (2, "--value", "add --kind constant", *border, "--value", 1),
                (1, "--value", "4 values for 3 colour channels", "copymkb", "rgb.png", *constant, "1,2,3,4"),
                (1, "--value", "256 is not among the values of u8 samples; give 0 to 255", "copymkb", "rgb.png", *constant, "1,2,256"),
                (1, "--value", "give a multiple of 128", "copymkb", "s32.tif", *constant, "16777217"),
                (1, "--value", "one for alpha", "copymkb", "s32a.tif", *constant, "1"),
                (1, "u32.tif", "has u32 samples; copymkb takes", "copymkb", "u32.tif", "--border", "1,1,1,1"),
                (2, "--kind", "box, min, max or median", "filter", "rgb.png", "--kind", "gauss", "--size", "3x3"),
                (2, "--size", "is missing", "filter", "rgb.png", "--kind", "box"),
                (2, "--size", "'0' is not a whole number from 1", *mask, "0x3"),
                (1, "--size", "is too large", *mask, "2147483647x1"),
                (1, "--size", "this machine has", *mask, "200000000x200000000"),
                (2, "--anchor", "outside of the 4x3 mask; give a cell from 0,0 to 3,2", *mask, "4x3", "--anchor", "0,3"),
                (2, "--anchor", "outside of the 4x3 mask", *mask, "4x3", "--anchor", "-1,0"),
                (1, "--region", "outside rgb.png, which is 4x4", *mask, "3x3", "--region", "2,2,3x1"),
                (1, "float.tif", "has f32 samples; filter --kind median takes u8, u16 and s16", "filter", "float.tif", "--kind", "median",
                 "--size", "3x3"),
                (1, "s32.tif", "has s32 samples; filter --kind box takes", "filter", "s32.tif", "--kind", "box", "--size", "3x3")):
            with self.subTest(arguments=arguments):
                self.refused(status, subject, words, *arguments, "-o", "o.tif")


driver.main()
