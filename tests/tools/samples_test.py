"""Every command on every type of samples: done or refused, never a crash, and no result with memory that was not written."""
import os

import driver
from pictures import noise, tiff

RANGES = {"u8": (0, 255), "u16": (0, 65535), "s16": (-3000, 3000), "s32": (-100000, 100000), "u32": (0, 100000), "f32": (-1000, 1000)}
ONE = """copy / cvtorigin / cvtorigin-n / cvtvrange-n --range 0,100 / cvtvrange-v --range 0,100 / convert-scale --depth f32 /
convert-scale --scale 2 / not / and-c --constants 7 / set --constants 7 / cmp-c --comparison less --constants 7 /
add-c --constants 7 / mul-c --constants 1 / reshape --size 5x6 / scale-resize --size 3x9 / scale-resize --size 3x2 --antialias / warp-affine --rotate 20 /
copymkb --border 1,2,3,4 --kind replicate / filter --kind box --size 3x3 / filter --kind median --size 3x3 /
threshold --method otsu / morph --operation open --element rect --size 3x3 / copy-transform --size 4x4 /
copy-transform --colour grey"""
TOLD = "minmax / mean / count-in-range --lower 3 --upper 90 / contour-find --otsu"
TWO = "and / or / xor / cmp --comparison less / add-n / mul-n / avgarith-n"


class Samples(driver.ProgramTest):
    def test_results_do_not_depend_on_what_memory_held(self):
        lists = (ONE, ["in.tif", "-o", "out.tif"]), (TOLD, ["in.tif"]), (TWO, ["in.tif", "other.tif", "-o", "out.tif"])
        calls = [(files, text.split()) for texts, files in lists for text in texts.split("/")]
        for sample, (low, high) in RANGES.items():
            for channels in 1, 2, 3, 4:
                rows = noise(6, 5, channels, low, high)
                self.put("in.tif", tiff(6, 5, channels, rows, sample))
                self.put("other.tif", tiff(6, 5, channels, rows[::-1], sample))
                for files, (command, *options) in calls:
                    results = []
                    for byte in "3", "200":
                        done = self.run_tarn(command, *files, *options, env={**os.environ, "MALLOC_PERTURB_": byte})
                        self.assertIn(done.returncode, (0, 1, 2), (sample, channels, command, done.stderr))
                        results.append(done.stderr if done.returncode else self.get("out.tif") if "-o" in files else done.stdout)
                    self.assertEqual(*results, (sample, channels, command, options))


driver.main()
