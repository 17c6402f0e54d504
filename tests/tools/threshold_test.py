"""Thresholds: every method and kind of picture against plain loops, and what is refused."""
import driver
from pictures import TIFF_SAMPLES, noise, png, read_png, read_tiff, tiff

WHITE = {"u8": 255, "u16": 65535, "s16": 32767, "f32": 1}
RANGE = {"u8": (0, 255), "u16": (0, 65535), "s16": (-32768, 32767), "f32": (-1000, 1000)}


def otsu(values):
    """The last value of the lower class: the first split with the greatest variance between the classes."""
    best, found, everything, below, count = 0, min(values), sum(values), 0, 0
    ordered = sorted(values)
    for v, following in zip(ordered, ordered[1:]):
        below, count = below + v, count + 1
        if v < following:
            variance = (everything * count - below * len(values)) ** 2 / (count * (len(values) - count))
            if variance > best:
                best, found = variance, v
    return found


class Threshold(driver.ProgramTest):
    def result(self, *arguments):
        self.printed = self.tarn("threshold", "in.tif", *arguments, "-o", "out.tif", "--compression", "none")
        return read_tiff(self.get("out.tif"))[1]

    def expected(self, above, invert=False):
        """Colours by above(row, column, channel), alpha as it was."""
        alpha = self.channels in (2, 4)
        return [[v if alpha and i % self.channels == self.channels - 1 else
                 WHITE[self.sample] * (above(y, i // self.channels, i % self.channels) != invert) for i, v in enumerate(row)]
                for y, row in enumerate(self.rows)]

    def each_picture(self):
        for self.sample in WHITE:
            for self.channels in 1, 2, 3, 4:
                self.rows = noise(9, 7, self.channels, *RANGE[self.sample])
                self.put("in.tif", tiff(9, 7, self.channels, self.rows, self.sample))
                with self.subTest(sample=self.sample, channels=self.channels):
                    yield

    def value(self, y, x, c):
        return self.rows[y][x * self.channels + c]

    def test_fixed_values_for_all_colours_or_each(self):
        for _ in self.each_picture():
            middle = sum(RANGE[self.sample]) // 2
            levels = [middle + d for d in (0, 20, -30)][:self.channels - (self.channels in (2, 4))]
            self.assertEqual(self.result("--method", "fixed", "--value", str(middle), "--invert"),
                             self.expected(lambda *at: self.value(*at) > middle, True))
            self.assertEqual(self.result("--method", "fixed", "--value=" + ",".join(map(str, levels))),
                             self.expected(lambda y, x, c: self.value(y, x, c) > levels[c]))

    def test_otsu_for_the_picture_and_for_tiles(self):
        for _ in self.each_picture():
            colours = self.channels - (self.channels in (2, 4))
            if self.sample == "f32":  # its intervals are coarser than its values
                self.result("--method", "otsu")
                continue
            of = lambda columns: otsu([self.value(y, x, c) for y in range(7) for x in columns for c in range(colours)])
            level, left, right = of(range(9)), of(range(4)), of(range(4, 9))
            self.assertEqual(self.result("--method", "otsu"), self.expected(lambda *at: self.value(*at) > level))
            self.assertEqual(self.printed.split(), ["threshold", str(level)])
            self.assertEqual(self.result("--method", "otsu", "--tiles", "4x7"),
                             self.expected(lambda y, x, c: self.value(y, x, c) > (left if x < 4 else right)))
            # The mean of two thresholds is not always a whole number.
            self.assertEqual(self.result("--method", "otsu", "--tiles", "4x7", "--tile-weight", "1", "--whole-weight", "1"),
                             self.expected(lambda y, x, c: 2 * self.value(y, x, c) > (left if x < 4 else right) + level))

    def test_adaptive_compares_with_the_mean_around(self):
        inside = lambda v, last: max(0, min(v, last))
        for _ in self.each_picture():
            offset = (RANGE[self.sample][1] - RANGE[self.sample][0]) // 16

            def mean(y, x, c):
                around = [self.value(inside(y + j, 6), inside(x + i, 8), c) for j in (-1, 0, 1) for i in (-2, -1, 0, 1, 2)]
                return sum(around) / 15 if self.sample == "f32" else round(sum(around) / 15)
            self.assertEqual(self.result("--method", "adaptive", "--size", "5x3", "--offset", str(-offset)),
                             self.expected(lambda y, x, c: self.value(y, x, c) > mean(y, x, c) - offset))

    def test_refusals_name_the_option(self):
        self.put("in.png", png(3, 3, 1, [[1, 2, 3]] * 3))
        for status, subject, words, *arguments in (
                (2, "--method", "fixed, otsu or adaptive", "magic"), (2, "--value", "is missing", "fixed"),
                (2, "--value", "does not go with --method otsu", "otsu", "--value", "3"),
                (2, "--size", "does not go with", "fixed", "--value", "3", "--size", "3x3"),
                (2, "--size", "give 3x3 or more", "adaptive", "--size", "2x5"), (2, "--tiles", "too small", "otsu", "--tiles", "9x2"),
                (2, "--tiles", "does not go with", "adaptive", "--tiles", "9x9"),
                (2, "--tile-weight", "does not go with", "otsu", "--tile-weight", "3"),
                (2, "--whole-weight", "from 0 to 65535", "otsu", "--tiles", "9x9", "--whole-weight", "-3"),
                (2, "--tile-weight", "is 0", "otsu", "--tiles", "9x9", "--tile-weight", "0"),
                (1, "--value", "2 values for 1", "fixed", "--value", "1,2")):
            with self.subTest(arguments=arguments):
                self.refused(status, subject, words, "threshold", "in.png", "--method", *arguments, "-o", "out.png")
        self.tarn("threshold", "in.png", "-o", "out.png", "--method", "fixed", "--value", "2.5")
        self.assertEqual(read_png(self.get("out.png"))[4], [[0, 0, 255]] * 3)


driver.main()
