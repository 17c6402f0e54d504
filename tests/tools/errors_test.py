"""Everything that can go wrong: one line that names the file or option and the remedy, the right exit status, and neither an
output nor a temporary file left behind."""
import os
import resource
import shutil
import struct
import subprocess
import zlib

import driver
from driver import SAMPLES
from pictures import chunk, noise, png, png_header, tiff


def sample(name):
    with open(os.path.join(SAMPLES, name), "rb") as file:
        return file.read()


class Errors(driver.ProgramTest):
    def each_refused(self, cases, out="out.png", **options):
        """Copies of pictures (name -> contents, words) that must be refused with these words."""
        for name, (data, words) in cases.items():
            with self.subTest(name=name):
                self.put(name, data)
                self.refused(1, name, words, "copy", name, "-o", out, **options)

    def test_files_that_are_no_pictures(self):
        rows = noise(40, 30, 3, 0, 255)
        whole_tiff = tiff(40, 30, 3, rows)
        coffee, rocket = sample("coffee.png"), sample("rocket.jpg")
        flipped = bytearray(coffee)
        flipped[len(flipped) // 2] ^= 0x55
        self.each_refused({
            "half.png": (coffee[:len(coffee) // 2], "incomplete PNG"),
            "header.png": (coffee[:20], "incomplete PNG"),
            "flipped.png": (bytes(flipped), "damaged"),
            "half.jpg": (rocket[:len(rocket) // 2], "incomplete JPEG"),
            "start.jpg": (rocket[:30], "incomplete JPEG"),
            "half.tif": (whole_tiff[:len(whole_tiff) // 2], "incomplete TIFF"),
            "head.tif": (whole_tiff[:8], "incomplete TIFF"),
            "text.png": (b"This is no picture, whatever its name.\n", "not a PNG, JPEG, TIFF or PNM"),
            "short.ppm": (b"P6 4 4 255\n" + bytes(47), "incomplete PNM"),
            "claim.pgm": (b"P5 2000000000 2000000000 255\n" + bytes(47), "incomplete PNM"),
            "zero.pgm": (b"P2 1 1 0 0", "PNM"),
            "two.pgm": (b"P5 2 1 255\n\1\2P5 2 1 255\n\1\2", "more than its first picture"),
            "empty.png": (b"", "is empty"),
            "zero.png": (png_header(0, 5, 8, 2) + chunk(b"IEND", b""), "PNG")})

    def test_endless_inputs_are_known_by_their_first_bytes(self):
        self.refused(1, "/dev/zero", "is not a PNG", "minmax", "/dev/zero")

    def test_every_shorter_copy_of_a_small_picture_is_refused(self):
        rows = noise(6, 5, 3, 0, 255)
        for name, data in ("cut.png", png(6, 5, 3, rows)), ("cut.tif", tiff(6, 5, 3, rows)):
            for size in range(1, len(data), 7):
                self.put(name, data[:size])
                self.refused(1, name, "", "copy", name, "-o", "out.png")

    def test_headers_that_claim_too_much(self):
        rest = chunk(b"IDAT", zlib.compress(b"0")) + chunk(b"IEND", b"")
        large = tiff(4, 4, 1, noise(4, 4, 1, 0, 255))
        for tag, size in (256, 2**31 - 100), (257, 2**32 - 1):
            large = large.replace(struct.pack("<HHII", tag, 4, 1, 4), struct.pack("<HHII", tag, 4, 1, size))
        self.each_refused({
            "huge.png": (png_header(2**31 - 1, 2**31 - 1, 8, 6) + rest, ""),
            "wide.png": (png_header(2**31 - 1, 1, 16, 6) + rest, ""),
            "tall.png": (png_header(500000, 2**31 - 1, 8, 2) + rest, ""),
            "beyond.png": (png_header(2**31, 2**31, 8, 2) + rest, ""),
            "huge.tif": (large, "")}, "out.tif",
            preexec_fn=None if driver.SANITIZED else lambda: resource.setrlimit(resource.RLIMIT_AS, (2**31, 2**31)))

    def test_kinds_that_are_not_read_say_so(self):
        grey = noise(4, 4, 1, 0, 255)
        cmyk = bytearray(sample("rocket.jpg"))
        at = cmyk.index(b"\xff\xc0")
        frame = struct.pack(">HBHHB", 20, 8, 427, 640, 4) + bytes([1, 0x11, 0, 2, 0x11, 0, 3, 0x11, 0, 4, 0x11, 0])
        end = at + 2 + struct.unpack(">H", cmyk[at + 2:at + 4])[0]
        self.each_refused({
            "double.tif": (tiff(4, 4, 1, grey, "f32", bits=64), "64-bit float"),
            "byte.tif": (tiff(4, 4, 1, grey, "s16", bits=8), "8-bit signed"),
            "lab.tif": (tiff(4, 4, 3, noise(4, 4, 3, 0, 255), photometric=8), "grey or RGB"),
            "white.tif": (tiff(4, 4, 1, grey, "s16", photometric=0), "counts from white"),
            "cmyk.jpg": (bytes(cmyk[:at + 2]) + frame + bytes(cmyk[end:]), "CMYK")})

    def test_outputs_that_cannot_be(self):
        self.put("rgba.png", png(4, 4, 4, noise(4, 4, 4, 0, 255)))
        self.put("deep.png", png(4, 4, 1, noise(4, 4, 1, 0, 65535), 16))
        self.put("float.tif", tiff(4, 4, 1, [[0.5] * 4] * 4, "f32"))
        os.mkdir(self.path("folder.png"))
        for status, subject, words, source, out in (
                (1, "o.jpg", "alpha channel; write .png or .tiff", "rgba.png", "o.jpg"),
                (1, "o.jpg", "8-bit samples, these are u16; write .png or .tiff", "deep.png", "o.jpg"),
                (1, "o.jpg", "write .tiff", "float.tif", "o.jpg"),
                (1, "o.png", "PNG can't hold f32 samples; write .tiff", "float.tif", "o.png"),
                (2, "o.bmp", "unknown extension .bmp; write .png, .jpg or .tiff", "rgba.png", "o.bmp"),
                (2, "png", "has no extension", "rgba.png", "png"),
                (1, "folder.png", "is not a regular file", "rgba.png", "folder.png"),
                (1, "none/o.png", "no such file or directory", "rgba.png", "none/o.png"),
                (1, "none.png", "no such file or directory; check the name", "none.png", "o.png"),
                (1, "folder.png", "is a folder", "folder.png", "o.png")):
            with self.subTest(out=out, source=source):
                self.refused(status, subject, words, "copy", source, "-o", out)

    def test_lost_standard_output_is_noticed(self):
        self.put("in.png", png(2, 1, 1, [[1, 2]]))
        for arguments in ("minmax", "in.png"), ("mean", "in.png"), ("mean", "in.png", "--json"), ("--version",), ("help",), ("ops",):
            with open("/dev/full", "w") as full:
                done = subprocess.run([driver.TARN, *arguments], cwd=self.folder, stdout=full, stderr=subprocess.PIPE, text=True)
            self.assertEqual((done.returncode, done.stderr.split(":")[:2]), (1, ["tarn", " standard output"]), arguments)

    def test_a_full_disk_leaves_the_old_output_as_it_was(self):
        shutil.copy(os.path.join(SAMPLES, "coffee.png"), self.path("in.png"))
        for out in "out.png", "out.jpg", "out.tif":
            self.put(out, b"the old one")
            self.refused(1, out, "file too large; nothing was left there", "copy", "in.png", "-o", out,
                         preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (9000, 9000)))
            self.assertEqual(self.get(out), b"the old one")

    def test_command_lines_that_are_wrong(self):
        self.put("a.png", png(4, 4, 1, noise(4, 4, 1, 0, 255)))
        resize = ["scale-resize", "a.png", "-o", "o.png"]
        for subject, words, arguments in (
                ("command line", "command is missing", []),
                ("squeeze", "is not a command", ["squeeze"]),
                ("IN", "is missing", ["copy"]),
                ("--output", "is missing", ["copy", "a.png"]),
                ("--output", "required", ["copy", "a.png", "-o"]),
                ("--frob", "is not an option of copy", ["copy", "a.png", "--frob", "-o", "o.png"]),
                ("-j", "is not an option of minmax; see", ["minmax", "a.png", "-j", "3"]),
                ("--frob", "is not an option of tarn", ["--frob"]),
                ("--quality", "from 1 to 100", ["copy", "a.png", "-o", "o.jpg", "--quality", "101"]),
                ("--compression", "none, lzw or deflate", ["copy", "a.png", "-o", "o.tif", "--compression", "zip"]),
                ("--size", "missing", resize),
                ("--scale", "can't go with --size", resize + ["--size", "4x4", "--scale", "2"]),
                ("--size", "from 1", resize + ["--size", "0x4"]),
                ("--size", "from 1", resize + ["--size", "4x-4"]),
                ("--size", "not a size", resize + ["--size", "400"]),
                ("--size", "2147483647", resize + ["--size", "4x2147483648"]),
                ("--scale", "not above 0", resize + ["--scale", "-1"]),
                ("--scale", "not a finite number", resize + ["--scale", "nan"]),
                ("--scale", "not a finite number", resize + ["--scale", "2x"]),
                ("--region", "not a region", resize + ["--scale", "1", "--region", "1,2,3,4"]),
                ("--interpolation", "nearest, linear, cubic or lanczos", resize + ["--scale", "1", "--interpolation", "best"]),
                ("--value-range", "not 2", resize + ["--scale", "1", "--value-range", "1,2,3"]),
                ("--markdown", "can't go with --json", ["ops", "--json", "--markdown"]),
                ("--kind", "can't go with --types", ["ops", "--types", "--kind", "empty"]),
                ("frob", "neither a command nor an operation", ["help", "frob"])):
            with self.subTest(arguments=arguments):
                self.refused(2, subject, words, *arguments)

    def test_sizes_that_cannot_be(self):
        self.put("a.png", png(4, 4, 3, noise(4, 4, 3, 0, 255)))
        resize = ["scale-resize", "a.png", "-o", "o.png"]
        for subject, words, arguments in (
                ("--size", "a row of 1000000000 pixels", ["--size", "1000000000x1000000000"]),
                ("--size", "of memory, this machine has", ["--size", "100000000x100000000"]),
                ("--scale", "2147483647 pixels", ["--scale", "1e9"]),
                ("--scale", "2147483647 pixels", ["--scale", "1e300"]),
                ("--region", "outside a.png, which is 4x4", ["--scale", "1", "--region", "3,0,2x1"]),
                ("--region", "outside a.png", ["--scale", "1", "--region", "-1,0,2x1"]),
                ("--region", "outside a.png", ["--scale", "1", "--region", "2147483647,0,2147483647x1"])):
            with self.subTest(arguments=arguments):
                self.refused(1, subject, words, *resize, *arguments)

    def test_a_module_that_is_none(self):
        self.put("a.png", png(4, 4, 1, noise(4, 4, 1, 0, 255)))
        self.refused(1, "none.so", "can't be loaded", "copy", "a.png", "-o", "o.png", env={**os.environ, "TARN_MODULE": "none.so"})


driver.main()
