"""Element-wise commands: what they do with the pictures, and which combinations they refuse."""
import driver
from pictures import noise, png, read_png, read_tiff, tiff


def saturated(value, bits):
    return max(0, min(2**bits - 1, value))


def folded(values, step, bits):
    result = values[0]
    for value in values[1:]:
        result = saturated(step(result, value), bits)
    return result


def rounded_mean(values):
    total, n = sum(values), len(values)
    low, rest = divmod(total, n)
    return low + (2 * rest > n or (2 * rest == n and low % 2))


class Elementwise(driver.ProgramTest):
    def pictures(self, count, channels, high=255, bits=8, sample=None):
        """Writes count random pictures; returns their rows."""
        all_rows = [noise(13, 5, channels, 0, high, seed) for seed in range(1, count + 1)]
        for i, rows in enumerate(all_rows):
            self.put(f"{i}.png", tiff(13, 5, channels, rows, sample) if sample else png(13, 5, channels, rows, bits))
        return all_rows

    def result(self, *arguments):
        self.tarn(*arguments, "-o", "out.png")
        return read_png(self.get("out.png"))

    def each(self, rows, channels, fn):
        """fn(values of all pictures, channel) for colours, the first picture's for alpha."""
        alpha = channels in (2, 4)
        return [[lines[0][i] if alpha and i % channels == channels - 1 else fn([line[i] for line in lines], i % channels)
                 for i in range(len(lines[0]))] for lines in zip(*rows)]

    def test_logic_of_two_pictures_and_with_constants(self):
        steps = {"and": lambda a, b: a & b, "or": lambda a, b: a | b, "xor": lambda a, b: a ^ b}
        for bits, high in (8, 255), (16, 65535):
            for channels in 1, 2, 3, 4:
                rows = self.pictures(2, channels, high, bits)
                for name, step in steps.items():
                    got = self.result(name, "0.png", "1.png")
                    self.assertEqual(got, (13, 5, channels, bits, self.each(rows, channels, lambda v, c: step(*v))))
                    constants = [0x12345 & high, 0x0f0f & high, 200][:1 if channels < 3 else 3]
                    got = self.result(name + "-c", "0.png", "-c", ",".join(map(str, constants)))
                    wanted = self.each(rows[:1], channels, lambda v, c: step(v[0], constants[c]))
                    self.assertEqual(got, (13, 5, channels, bits, wanted))
        rows = self.pictures(1, 3)
        self.assertEqual(self.result("not", "0.png")[4], self.each(rows, 3, lambda v, c: 255 - v[0]))

    def test_arithmetic_saturates_after_every_step(self):
        steps = {"add-n": lambda a, b: a + b, "sub-n": lambda a, b: a - b, "mul-n": lambda a, b: a * b}
        for channels, bits, high in (1, 8, 60), (2, 8, 255), (3, 8, 60), (4, 8, 60), (1, 16, 65535), (4, 16, 40000), (3, 16, 250):
            for count in 1, 2, 5:
                rows = self.pictures(count, channels, high, bits)
                names = [f"{i}.png" for i in range(count)]
                for name, step in steps.items():
                    wanted = self.each(rows, channels, lambda v, c: folded(v, step, bits))
                    self.assertEqual(self.result(name, *names)[3:], (bits, wanted), (name, channels, count))
                wanted = self.each(rows, channels, lambda v, c: rounded_mean(v))
                self.assertEqual(self.result("avgarith-n", *names)[3:], (bits, wanted))
        rows = self.pictures(1, 3)
        for name, constants, fn in (("add-c", (20, 2.9, -1), lambda v, c: v + (20, 2, 255)[c]),
                                    ("sub-c", (20, 0, 300), lambda v, c: v - (20, 0, 44)[c]),
                                    ("mul-c", (2, 2, 2), lambda v, c: v * 2)):
            got = self.result(name, "0.png", "--wrap", "--constants=" + ",".join(map(str, constants)))[4]
            self.assertEqual(got, self.each(rows, 3, lambda v, c: saturated(fn(v[0], c), 8)))

    def test_16_bits_and_floats_keep_their_values(self):
        rows = self.pictures(1, 4, 65535, 16)
        for name, constant, fn in (("add-c", 20, lambda v: v + 20), ("add-c", -20.5, lambda v: round(v - 20.5)),
                                   ("sub-c", 40000, lambda v: v - 40000), ("mul-c", 0.5, lambda v: round(v / 2)),
                                   ("mul-c", 1e300, lambda v: 65535 if v else 0)):
            got = self.result(name, "0.png", f"--constants={constant}")
            self.assertEqual(got[3:], (16, self.each(rows, 4, lambda v, c: saturated(fn(v[0]), 16))), (name, constant))
        got = self.result("sub-c", "0.png", "--constants=-1.5", "--wrap")[4]
        self.assertEqual(got, self.each(rows, 4, lambda v, c: saturated(v[0] - 65534, 16)))
        self.assertEqual(self.result("not", "0.png")[3:], (16, self.each(rows, 4, lambda v, c: 65535 - v[0])))
        rows = self.pictures(1, 3, 1000, sample="f32")
        self.tarn("mul-c", "0.png", "-c", "0.5", "-o", "half.tif", "--compression", "none")
        self.assertEqual(read_tiff(self.get("half.tif"))[1], self.each(rows, 3, lambda v, c: v[0] / 2))
        # 256 sums stay exact in floats: a mean just beside a half is rounded to its own side.
        self.put("a.png", png(2, 1, 1, [[65535, 65534]], 16))
        self.put("b.png", png(2, 1, 1, [[65534, 65535]], 16))
        self.assertEqual(self.result("avgarith-n", *["a.png"] * 127, *["b.png"] * 128)[4], [[65534, 65535]])
        self.assertEqual(self.result("avgarith-n", *["a.png"] * 128, *["b.png"] * 128)[4], [[65534, 65534]])
        self.refused(1, "a.png", "mean of u16 pictures is exact up to 256", "avgarith-n", *["a.png"] * 257, "-o", "o.png")

    def test_long_lists_give_what_short_ones_do(self):
        # 29 pictures of 9 MB are more than are held at once; a run of 64 samples fills them, and is a picture of its own.
        def pgm(name, width, height, samples):
            self.put(name, b"P5 %d %d 255\n" % (width, height) + samples * (width * height // 64))
        for i in range(3):
            run = bytes(noise(64, 1, 1, 0, 255, i)[0])
            pgm(f"long{i}.pgm", 3072, 3072, run)
            pgm(f"short{i}.pgm", 64, 1, run)
        for name in "add-n", "sub-n", "mul-n", "avgarith-n":
            for size in "long", "short":
                self.tarn(name, *[f"{size}{i % 3}.pgm" for i in range(32)], "-o", size + ".pgm")
            short = self.get("short.pgm")[-64:]
            self.assertTrue(self.get("long.pgm").endswith(short * (3072 * 48)), name)

    def test_comparisons_give_a_mask(self):
        hows = {"less": lambda a, b: a < b, "less-equal": lambda a, b: a <= b, "equal": lambda a, b: a == b,
                "greater-equal": lambda a, b: a >= b, "greater": lambda a, b: a > b}
        for bits, high in (8, 3), (16, 65535):
            for channels in 1, 3, 4:
                rows = self.pictures(2, channels, high, bits)
                colours = 3 if channels > 1 else 1
                limit = high // 2
                for how, holds in hows.items():
                    got = self.result("cmp", "0.png", "1.png", "--comparison", how)
                    with_constant = self.result("cmp-c", "0.png", "--comparison", how, "-c", limit)
                    for result, other in (got, lambda y, i: rows[1][y][i]), (with_constant, lambda y, i: limit):
                        wanted = [[255 if all(holds(rows[0][y][x * channels + c], other(y, x * channels + c))
                                              for c in range(colours)) else 0 for x in range(13)] for y in range(5)]
                        self.assertEqual(result, (13, 5, 1, 8, wanted), (how, channels, bits))

    def test_set_fills_where_the_mask_says(self):
        mask = [[0 if (x + y) % 3 else 7 for x in range(13)] for y in range(5)]
        self.put("mask.png", png(13, 5, 1, mask))
        for bits, high in (8, 255), (16, 65535):
            for channels in 1, 2, 3, 4:
                rows = self.pictures(1, channels, high, bits)
                got = self.result("set", "0.png", "-c", "33", "--mask", "mask.png")[4]
                filled = self.each(rows, channels, lambda v, c: 33)
                wanted = [[f if mask[y][i // channels] else v for i, (f, v) in enumerate(zip(filled[y], rows[0][y]))]
                          for y in range(5)]
                self.assertEqual(got, wanted)
                self.assertEqual(self.result("set", "0.png")[4], self.each(rows, channels, lambda v, c: 0))

    def test_what_the_operations_do_not_take_is_refused_before_the_call(self):
        self.pictures(1, 3)
        self.put("small.png", png(2, 2, 3, [[0] * 6] * 2))
        self.put("grey.png", png(13, 5, 1, [[0] * 13] * 5))
        self.put("float.tif", tiff(2, 1, 1, [[1.5, 2]], "f32"))
        self.put("u32.tif", tiff(2, 1, 1, [[1, 2]], "u32"))
        self.put("s32.tif", tiff(2, 1, 1, [[1, 2]], "s32"))
        o = ("-o", "o.tif")
        for subject, words, *arguments in (
                ("float.tif", "has f32 samples; and takes u8, u16, s16 and s32", "and", "float.tif", "float.tif"),
                ("u32.tif", "has u32 samples", "xor-c", "u32.tif", "-c", 1),
                ("float.tif", "has f32 samples; not takes u8", "not", "float.tif"),
                ("s32.tif", "has s32 samples", "cmp", "s32.tif", "s32.tif", "--comparison", "less"),
                ("s32.tif", "has s32 samples", "add-n", "s32.tif", "s32.tif"),
                ("u32.tif", "has u32 samples", "set", "u32.tif"),
                ("small.png", "2x2", "or", "0.png", "small.png"),
                ("small.png", "2x2 u8, 3 channels", "set", "0.png", "--mask", "small.png"),
                ("--constants", "256 is not among the values of u8 samples; give 0 to 255, or --wrap", "set", "0.png", "-c", 256),
                ("--constants", "-1 is not among the values of u8", "add-c", "0.png", "--constants=-1"),
                ("--constants", "0.5 is no whole number, and u8 samples hold no others", "mul-c", "0.png", "-c", "2,0.5,2"),
                ("--constants", "1e+300 is not among", "cmp-c", "0.png", "--comparison", "less", "-c", "1e300"),
                ("--constants", "give -128 to 255", "or-c", "0.png", "-c", "256"),
                ("--constants", "whole number", "or-c", "0.png", "-c", "1.5"),
                ("--constants", "2 values for 3 colour channels", "add-c", "0.png", "-c", "1,2")):
            self.refused(1, subject, words, *arguments, *o)
        for subject, words, *arguments in (("--constants", "missing", "mul-c", "0.png"),
                                           ("--constants", "whole number", "or-c", "0.png", "-c", "1.5", "--wrap"),
                                           ("--comparison", "'near' is not known", "cmp", "0.png", "0.png", "--comparison", "near")):
            self.refused(2, subject, words, *arguments, *o)


driver.main()
