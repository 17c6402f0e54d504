"""The commands that look at values or move rows: statistics, value conversion, origin, reshaping."""
import json

import driver
from pictures import noise, png, read_png, read_tiff, tiff


RANGES = {"u8": (0, 255), "u16": (0, 65535), "s16": (-32768, 32767), "s32": (-2**31, 2**31 - 1)}


def colours(rows, channels):
    """The colour channels, each a flat list."""
    count = channels - (channels in (2, 4))
    return [[v for row in rows for v in row[c::channels]] for c in range(count)]


class Values(driver.ProgramTest):
    def table(self, *arguments):
        return json.loads(self.tarn(*arguments, "--json"))

    def test_statistics_of_every_kind_and_channel_count_pass_over_alpha(self):
        for sample, low, high in ("u8", 0, 255), ("u16", 0, 65535), ("s16", -32768, 32767), ("f32", -1000, 1000):
            for channels in 1, 2, 3, 4:
                rows = noise(13, 7, channels, low, high)
                self.put("in.tif", tiff(13, 7, channels, rows, sample))
                values = colours(rows, channels)
                self.assertEqual([(c["min"], c["max"]) for c in self.table("minmax", "in.tif")],
                                 [(min(v), max(v)) for v in values])
                for channel, v in zip(self.table("mean", "in.tif"), values):
                    self.assertAlmostEqual(channel["mean"], sum(v) / len(v), delta=0.004)
                upper = high * 3 // 4
                got = self.table("count-in-range", "in.tif", "--lower", 20, "--upper", upper)
                self.assertEqual([c["count"] for c in got], [sum(20 <= x <= upper for x in v) for v in values])
        self.put("grey.png", png(2, 1, 1, [[5, 7]]))
        self.assertEqual(self.tarn("minmax", "grey.png").split(), ["channel", "min", "max", "grey", "5", "7"])

    def test_statistics_refuse_what_the_operation_would_stop_at(self):
        self.put("wide.tif", tiff(3, 1, 1, [[1, 2, 3]], "s32"))
        self.put("rgb.png", png(1, 1, 3, [[1, 2, 3]]))
        self.refused(1, "wide.tif", "s32 samples", "minmax", "wide.tif")
        self.refused(1, "--upper", "wrap", "count-in-range", "rgb.png", "--upper", 256)
        self.refused(1, "--lower", "2 values for 3 colour channels", "count-in-range", "rgb.png", "--lower", "1,2")

    def test_convert_scale_maps_colours_and_keeps_alpha(self):
        rows = noise(9, 5, 4, 0, 255)
        self.put("in.png", png(9, 5, 4, rows))
        self.tarn("convert-scale", "in.png", "-o", "out.png", "--scale", "0.5,2,1", "--offset", "0,0,-9")
        wanted = [[(round(v * 0.5), min(2 * v, 255), max(v - 9, 0), v)[i % 4] for i, v in enumerate(row)] for row in rows]
        self.assertEqual(read_png(self.get("out.png"))[4], wanted)

    def test_convert_scale_brings_16_bits_to_8_and_back(self):
        rows = [[v * 257 for v in row] for row in noise(9, 5, 4, 0, 255)]
        self.put("deep.png", png(9, 5, 4, rows, 16))
        self.tarn("convert-scale", "deep.png", "-o", "eight.png", "--depth", "u8", "--scale", 1 / 257)
        self.assertEqual(read_png(self.get("eight.png"))[3:], (8, [[v // 257 for v in row] for row in rows]))
        self.tarn("convert-scale", "eight.png", "-o", "back.png", "--depth", "u16", "--scale", 257)
        self.assertEqual(read_png(self.get("back.png"))[3:], (16, rows))

    def test_convert_scale_converts_between_every_depth(self):
        rows = [[0, 1, 100, 255]]
        self.put("start.tif", tiff(4, 1, 1, rows))
        name = "start.tif"
        for depth, bits, sample_format in (("s32", 32, 2), ("f32", 32, 3), ("s16", 16, 2), ("u16", 16, 1), ("f32", 32, 3), ("s32", 32, 2),
                                           ("u8", 8, 1)):
            self.tarn("convert-scale", name, "-o", f"{depth}.tif", "--depth", depth, "--compression", "none")
            name = f"{depth}.tif"
            tags, values = read_tiff(self.get(name))
            self.assertEqual((tags[258][0], tags[339][0], values), (bits, sample_format, rows))
        for sample, values in ("s32", [-7, 1 << 20, 70000]), ("u32", [7, 3 << 20, 70000]), ("u16", [0, 65535, 32768]), ("s16", [-5, 300, 6]):
            self.put("in.tif", tiff(3, 1, 1, [values], sample))
            for depth in "u8", "u16", "s16", "s32", "f32":
                low, high = {**RANGES, "f32": (-1e9, 1e10)}[depth]
                for options, fn in ((), lambda v: v), (("--scale", 0.5, "--offset", 2), lambda v: round(v / 2 + 2)):
                    if depth == "f32":
                        fn = {(): lambda v: v}.get(options, lambda v: v / 2 + 2)
                    self.tarn("convert-scale", "in.tif", "-o", "o.tif", "--depth", depth, "--compression", "none", *options)
                    self.assertEqual(read_tiff(self.get("o.tif"))[1], [[max(low, min(high, fn(v))) for v in values]], (sample, depth))
        self.put("u32.tif", tiff(3, 1, 1, [[1, 2, 3]], "u32"))
        self.refused(1, "--depth", "u32 samples can't be written", "convert-scale", "u32.tif", "-o", "o.tif")
        self.refused(2, "--depth", "'u4'", "convert-scale", "start.tif", "-o", "o.tif", "--depth", "u4")

    def test_value_ranges_are_stretched_per_picture_and_per_row(self):
        for bits, scale in (8, 1), (16, 257):
            rows = [[10 * scale, 20 * scale, 15 * scale], [12 * scale, 14 * scale, 12 * scale]]
            self.put("in.png", png(3, 2, 1, rows, bits))
            ends = f"0,{255 * scale}"
            self.tarn("cvtvrange-n", "in.png", "-o", "all.png", "--range", ends)
            self.tarn("cvtvrange-v", "in.png", "-o", "rows.png", "--range", ends)
            whole, each = read_png(self.get("all.png"))[4], read_png(self.get("rows.png"))[4]
            half = 255 * scale / 2
            for got, wanted in (whole, [[0, 255 * scale, half], [51 * scale, 102 * scale, 51 * scale]]), \
                               (each, [[0, 255 * scale, half], [0, 255 * scale, 0]]):
                for a, b in zip(sum(got, []), sum(wanted, [])):
                    self.assertAlmostEqual(a, b, delta=0.5)
        rows = noise(8, 8, 4, 30, 60)
        self.put("rgba.png", png(8, 8, 4, rows))
        self.tarn("cvtvrange-n", "rgba.png", "-o", "out.png", "--range", "0,255")
        got = read_png(self.get("out.png"))[4]
        self.assertEqual([row[3::4] for row in got], [row[3::4] for row in rows])
        self.assertEqual([(c["min"], c["max"]) for c in self.table("minmax", "out.png")], [(0, 255)] * 3)
        self.put("wide.tif", tiff(3, 1, 1, [[1, 2, 3]], "s32"))
        self.refused(1, "wide.tif", "s32 samples", "cvtvrange-n", "wide.tif", "-o", "o.tif", "--range", "0,1")
        self.refused(2, "--range", "", "cvtvrange-n", "rgba.png", "-o", "o.png", "--range", "0")

    def test_origin_turns_every_channel_and_kind(self):
        for channels in 1, 2, 3, 4:
            for sample, high in ("u8", 255), ("u16", 65535), ("s32", 1 << 30), ("f32", 1000):
                rows = noise(7, 5, channels, 0, high)
                self.put("in.tif", tiff(7, 5, channels, rows, sample))
                for command in "cvtorigin", "cvtorigin-n":
                    self.tarn(command, "in.tif", "-o", "out.tif", "--compression", "none")
                    self.assertEqual(read_tiff(self.get("out.tif"))[1], rows[::-1], (command, channels, sample))

    def test_reshape_pours_the_rows(self):
        for channels in 1, 2, 3, 4:
            rows = noise(12, 6, channels, 0, 255)
            stream = sum(rows, [])
            self.put("in.png", png(12, 6, channels, rows))
            self.put("in.tif", tiff(12, 6, channels, rows, "u32"))
            for width in 1, 8, 9, 12, 72:
                self.tarn("reshape", "in.png", "-o", "out.png", "--size", f"{width}x{72 // width}")
                self.assertEqual(sum(read_png(self.get("out.png"))[4], []), stream, (channels, width))
                self.tarn("reshape", "in.tif", "-o", "out.tif", "--size", f"{width}x{72 // width}", "--compression", "none")
                self.assertEqual(sum(read_tiff(self.get("out.tif"))[1], []), stream, (channels, width))
        self.refused(1, "--size", "70 pixels and the picture 72", "reshape", "in.png", "-o", "o.png", "--size", "10x7")


driver.main()
