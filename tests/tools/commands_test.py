"""What the commands do with the pictures, and what they tell about the module."""
import datetime
import json
import os
import subprocess

import driver
from pictures import noise, png, read_png, read_tiff, tiff


class Commands(driver.ProgramTest):
    def resized(self, source, *arguments, out="out.png"):
        self.tarn("scale-resize", source, "-o", out, *arguments)
        return read_png(self.get(out)) if out.endswith("png") else read_tiff(self.get(out))

    def test_regions_are_cut_and_nearest_repeats_pixels_exactly(self):
        for bits, high in (8, 255), (16, 65535):
            for channels in 1, 2, 3, 4:
                rows = noise(11, 9, channels, 0, high)
                self.put("in.png", png(11, 9, channels, rows, bits))
                cut = [row[3 * channels:8 * channels] for row in rows[2:9]]
                for mode in "nearest", "lanczos":
                    got = self.resized("in.png", "--scale", 1, "--region", "3,2,5x7", "--interpolation", mode)
                    self.assertEqual(got, (5, 7, channels, bits, cut))
                repeated = [[v for x in range(11) for _ in range(3) for v in row[x * channels:(x + 1) * channels]]
                            for row in rows for _ in range(2)]
                got = self.resized("in.png", "--size", "33x18", "--interpolation", "nearest")
                self.assertEqual(got, (33, 18, channels, bits, repeated))

    def test_constant_pictures_stay_constant_in_every_mode(self):
        for bits, value in (8, 201), (16, 51234), (16, 3):
            pixel = [value, value // 2, 1, value]
            self.put("in.png", png(9, 9, 4, [pixel * 9] * 9, bits))
            for mode in "nearest", "linear", "cubic", "lanczos":
                for scale in 0.5, 2.5:
                    width, height, _, _, rows = self.resized("in.png", "--scale", scale, "--interpolation", mode)
                    self.assertEqual(width, int(9 * scale + 0.5))
                    self.assertEqual(rows, [pixel * width] * height, (mode, scale, bits))

    def test_linear_halving_means_pairs_also_across_the_middle_of_16_bits(self):
        rows = [[32000, 33000, 0, 65534], [32002, 33002, 2, 65532]]
        self.put("in.png", png(4, 2, 1, rows, 16))
        self.assertEqual(self.resized("in.png", "--size", "2x1")[4], [[32501, 32767]])

    def test_antialias_means_the_interpolated_picture_over_each_new_pixel(self):
        def shrunk(line, first, count, new):  # numbers; around those counted from the first lie the others
            size = new
            while size < count:
                size *= 2
            places = [min(max(first + (i + .5) * count / size - .5, 0), len(line) - 1) for i in range(size)]
            mix = lambda t: line[int(t)] * (1 - t % 1) + line[min(int(t) + 1, len(line) - 1)] * (t % 1)
            return [sum(map(mix, places[i * size // new:(i + 1) * size // new])) * new / size for i in range(new)]

        for sample, low, high in ("u8", 0, 255), ("u16", 0, 65535), ("s16", -32768, 32767), ("s32", -9, 9), ("f32", -9, 9):
            for channels in 1, 2, 3, 4:
                rows = noise(19, 17, channels, low, high)
                self.put("in.tif", tiff(19, 17, channels, rows, sample))
                for width, height in (3, 5), (16, 8), (8, 40), (1, 1):
                    got = self.resized("in.tif", "--region", "2,1,16x15", "--size", f"{width}x{height}", "--antialias", "--compression",
                                       "none", *(("--depth", "f32") if sample == "s32" else ()), out="out.tif")[1]
                    for c in range(channels):
                        across = [shrunk(row[c::channels], 2, 16, width) for row in rows]
                        wanted = zip(*(shrunk(column, 1, 15, height) for column in zip(*across)))
                        for row, line in zip(got, wanted):
                            for a, b in zip(row[c::channels], line):
                                self.assertAlmostEqual(a, b, delta=2 if high > 9 else 1e-4, msg=(sample, channels, width, height))

    def test_depth_converts_the_samples(self):
        rows = noise(6, 5, 3, 0, 255)
        self.put("in.png", png(6, 5, 3, rows))
        for depth, bits, sample_format in ("f32", 32, 3), ("s16", 16, 2):
            tags, values = self.resized("in.png", "--scale", 1, "--depth", depth, "--compression", "none", out="out.tif")
            self.assertEqual((tags[258][0], tags[339][0], values), (bits, sample_format, rows))
        self.put("deep.tif", tiff(3, 1, 1, [[-5, 100, 300]], "s16"))
        self.assertEqual(self.resized("deep.tif", "--scale", 1, "--depth", "u8")[4], [[0, 100, 255]])
        self.put("high.png", png(4, 1, 1, [[5, 100, 300, 65535]], 16))
        for depth, wanted in ("u8", [5, 100, 255, 255]), ("u16", [5, 100, 300, 65535]):
            self.assertEqual(self.resized("high.png", "--scale", 1, "--depth", depth)[4], [wanted])
        self.assertEqual(self.resized("deep.tif", "--scale", 1, "--depth", "u16")[3:], (16, [[0, 100, 300]]))
        self.put("half.tif", tiff(4, 1, 1, [[0.5, 1.5, 65534.75, 1e9]], "f32"))
        self.assertEqual(self.resized("half.tif", "--scale", 1, "--depth", "u16")[4], [[0, 2, 65535, 65535]])
        got = self.resized("high.png", "--scale", 1, "--value-range", "1000,60000")
        self.assertEqual((got[3], got[4][0][0], got[4][0][3]), (16, 1000, 60000))

    def test_time_prints_milliseconds_alone(self):
        self.put("in.png", png(4, 4, 3, noise(4, 4, 3, 0, 255)))
        self.assertRegex(self.tarn("copy", "in.png", "-o", "out.png", "--time"), r"\A\d+\.\d{4} ms\n\Z")

    def test_ops_tells_every_slot(self):
        slots = json.loads(self.tarn("ops", "--json"))
        self.assertEqual([slot["slot"] for slot in slots], list(range(200)))
        for number, name, qualified, kind in ((0, "init_once", "init-once", "implemented"), (2, "pod_init", "pod-init", "empty"),
                                              (41, "calcthresh_otsu", "tarn::calcthresh-otsu", "declared"),
                                              (57, "copy", "tarn::copy", "implemented"),
                                              (199, "reserved199", "tarn::reserved199", "reserved")):
            slot = slots[number]
            self.assertEqual((slot["name"], slot["qualified"], slot["kind"]), (name, qualified, kind))
        for slot in slots:  # an operation without a line about it is one that the tables of the program forgot
            self.assertEqual(bool(slot["summary"]), slot["kind"] == "implemented", slot)
        lines = self.tarn("ops").splitlines()
        self.assertEqual(len(lines), 200)
        self.assertRegex(lines[57], r"^ 57  copy +tarn::copy +implemented +\w")
        with open(os.path.join(os.path.dirname(__file__), "../../docs/operations.md"), encoding="utf-8") as page:
            text = page.read()
        for table in self.tarn("ops", "--markdown"), self.tarn("ops", "--types", "--markdown"):
            self.assertIn(table, text, "docs/operations.md is old; run ./dev operations")
        table = self.tarn("ops", "--markdown", "--kind", "declared").splitlines()
        self.assertTrue(all(line.count("|") == 6 for line in table))
        self.assertEqual(len(table) - 2, sum(slot["kind"] == "declared" for slot in slots))

    def test_info_names_module_and_processor(self):
        info = json.loads(self.tarn("info", "--json"))
        self.assertEqual((info["module"], info["path_key"], info["slots"]), ("tarn-ipp", "modules/tarn-ipp", 200))
        self.assertRegex(info["library"], r"/tarn-ipp\.so$")
        written = datetime.datetime.fromtimestamp(os.stat(info["library"]).st_mtime, datetime.timezone.utc)
        self.assertEqual(info["build_date"], written.strftime("%Y-%m-%d %H:%M:%S UTC"))
        self.assertEqual([set(needed) for needed in info["depends_on"]], [{"name", "loaded"}])
        self.assertIn(info["processor_level"], ("baseline", "sse2", "ssse3", "sse42", "avx2", "avx512"))
        self.assertTrue(all(" " not in key for key in info))

    def test_json_has_integers_where_the_samples_are(self):
        self.put("in.png", png(2, 1, 1, [[7, 9]]))
        self.put("in.tif", tiff(2, 1, 1, [[7, 9]], "f32"))
        texts = [self.tarn("minmax", name, "--json") for name in ("in.png", "in.tif")]
        self.assertEqual([type(json.loads(text)[0]["max"]) for text in texts], [int, float])

    def test_aliases_and_qualified_names_are_the_commands(self):
        rows = noise(9, 7, 3, 0, 255)
        self.put("in.png", png(9, 7, 3, rows))
        for alias, same in (("crop", "scale-resize --scale 1"), ("resize", "scale-resize"), ("flip", "cvtorigin"),
                            ("rotate", "warp-affine"), ("tarn::not", "not")):
            options = {"scale-resize": ["--region", "2,1,4x3"], "warp-affine": ["--rotate", "30"]}.get(same.split()[0], [])
            self.tarn(alias, "in.png", "-o", "a.png", *options)
            self.tarn(*same.split(), "in.png", "-o", "b.png", *options)
            self.assertEqual(self.get("a.png"), self.get("b.png"), alias)

    def test_mistyped_words_are_told_with_what_was_meant(self):
        for subject, words, arguments in (
                ("reisze", "did you mean resize?", ["reisze", "in.png"]),
                ("thresold", "did you mean threshold?", ["thresold"]),
                ("xyzzy", "is not a command; `tarn help`", ["xyzzy"]),
                ("calcthresh-otsu", "no command of its own; `tarn help calcthresh-otsu`", ["calcthresh-otsu", "in.png"]),
                ("--interp", "did you mean --interpolation?", ["resize", "in.png", "--interp", "lanczos", "-o", "o.png"]),
                ("--colour", "is not an option of minmax; see", ["minmax", "in.png", "--colour=grey"]),
                ("--jsno", "did you mean --json?", ["minmax", "--jsno"])):
            self.refused(2, subject, words, *arguments)

    def test_help_is_the_same_asked_either_way_and_names_every_option(self):
        self.assertEqual(self.tarn("help", "scale-resize"), self.tarn("scale-resize", "--help"))
        self.assertEqual(self.tarn("help", "tarn::copy"), self.tarn("help", "copy"))
        self.assertEqual(self.tarn("help"), self.tarn("--help"))
        text = self.tarn("help", "scale-resize")
        for word in "--size", "--scale", "--region", "--interpolation", "tarn::scale-resize(", "Example:\n  tarn scale-resize ":
            self.assertIn(word, text)
        for name, word in (("and", "first source"), ("set", "--mask"), ("cmp-c", "--comparison"),
                           ("avgarith-n", "number of sources"), ("calcthresh-otsu", "declared")):
            text = self.tarn("help", name)
            self.assertIn(f"tarn::{name}", text)
            self.assertIn(word, text)
        self.assertRegex(self.tarn("--version"), r"^tarn \d+\.\d+\.\d+\n$")

    def test_commands_of_the_readme_run_as_they_stand(self):
        with open(os.path.join(driver.SAMPLES, "../README.md"), encoding="utf-8") as file:
            section = file.read().split("## From the command line")[1].split("\n## ")[0]
        os.symlink(driver.SAMPLES, self.path("samples"))
        environment = {**os.environ, "PATH": os.path.dirname(driver.TARN) + ":" + os.environ["PATH"]}
        commands = [line.strip() for line in section.replace("\\\n", "").split("\n") if line.startswith("    ")]
        self.assertGreater(len(commands), 20)
        for command in commands:
            if not command.startswith(("tarn check", "tarn selfcheck")):  # these have tests of their own
                done = subprocess.run(["bash", "-o", "pipefail", "-c", command], cwd=self.folder, capture_output=True, text=True, env=environment)
                self.assertEqual((done.returncode, done.stderr), (0, ""), command)


driver.main()
