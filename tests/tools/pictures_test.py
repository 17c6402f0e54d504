"""Pictures as cameras, scanners and other programs leave them: turned, of several pages, of few bits, with profiles."""
import os
import struct
import zlib

import driver
from driver import SAMPLES
from pictures import chunk, noise, png, read_png, tiff_pages


def base(width, height, bits=8, photometric=1, **more):
    tags = {256: (4, [width]), 257: (4, [height]), 258: (3, [bits]), 259: (3, [1]), 262: (3, [photometric]), 277: (3, [1]), 278: (4, [height])}
    return {**tags, **{int(k[1:]): v for k, v in more.items()}}


def exif(orientation, order):
    return (b"II*\0" if order == "<" else b"MM\0*") + struct.pack(order + "IHHHIHHI", 8, 1, 0x112, 3, 1, orientation, 0, 0)


def with_segment(jpeg, marker, data):
    return jpeg[:2] + struct.pack(">BBH", 0xff, marker, len(data) + 2) + data + jpeg[2:]


def profile(space):
    """Little more than what readers take for an ICC profile."""
    tag = b"desc" + bytes(sum(noise(200, 1, 1, 0, 255), []))
    body = bytearray(128) + struct.pack(">I4sII", 1, b"desc", 144, len(tag)) + tag
    struct.pack_into(">I", body, 0, len(body))
    body[8:12], body[12:20], body[20:24], body[36:40] = b"\2\x40\0\0", b"mntr" + space, b"XYZ ", b"acsp"
    struct.pack_into(">iii", body, 68, 0xf6d6, 0x10000, 0xd32d)  # D50
    return bytes(body)


class Pictures(driver.ProgramTest):
    def pixels(self, *arguments):
        self.tarn("copy", *arguments, "-o", "pixels.png", "--effort", 1)
        return read_png(self.get("pixels.png"))

    def size(self, *arguments):
        self.tarn("copy", *arguments, "-o", "size.png", "--effort", 0)
        return struct.unpack(">II", self.get("size.png")[16:24])

    def test_pictures_are_turned_as_their_orientation_says(self):
        rows = noise(5, 3, 1, 0, 255)
        mirrored, columns = [row[::-1] for row in rows], [list(c) for c in zip(*rows)]
        wanted = {1: rows, 2: mirrored, 3: mirrored[::-1], 4: rows[::-1], 5: columns, 6: [c[::-1] for c in columns],
                  7: [c[::-1] for c in columns[::-1]], 8: columns[::-1]}
        with open(os.path.join(SAMPLES, "rocket.jpg"), "rb") as file:
            jpeg = file.read()
        plain = png(5, 3, 1, rows)
        for orientation, upright in wanted.items():
            self.put("in.tif", tiff_pages((base(5, 3, t274=(3, [orientation])), bytes(sum(rows, [])))))
            self.put("in.png", plain[:33] + chunk(b"eXIf", exif(orientation, "<>"[orientation % 2])) + plain[33:])
            for name in "in.tif", "in.png":
                self.assertEqual(self.pixels(name)[4], upright, (name, orientation))
                self.assertEqual(self.pixels(name, "--no-autorotate")[4], rows)
            self.put("in.jpg", with_segment(jpeg, 0xe1, b"Exif\0\0" + exif(orientation, "<>"[orientation % 2])))
            self.assertEqual(self.size("in.jpg"), (640, 427) if orientation < 5 else (427, 640))
        for broken in b"", b"II*\0\xff\xff\xff\xff", exif(9, "<"), exif(6, "<")[:9]:  # taken as it is stored
            self.put("in.jpg", with_segment(jpeg, 0xe1, b"Exif\0\0" + broken))
            self.assertEqual(self.size("in.jpg"), (640, 427))

    def test_pages_are_chosen_and_never_left_out_unsaid(self):
        pages = [noise(4, 3, 1, 0, 255, seed) for seed in (1, 2, 3)]
        kinds = [0, 1, 0]  # the second is a reduced copy
        self.put("in.tif", tiff_pages(*((base(4, 3, t254=(4, [k])), bytes(sum(p, []))) for p, k in zip(pages, kinds))))
        self.refused(1, "in.tif", "holds 2 pictures; choose one with --page 1 to 2", "copy", "in.tif", "-o", "o.png")
        self.refused(1, "in.tif", "has no page 3", "copy", "in.tif", "-o", "o.png", "--page", "3")
        self.refused(2, "--page", "needs a folder", "copy", "in.tif", "-o", "o.png", "--page", "all")
        self.assertEqual([self.pixels("in.tif", "--page", n)[4] for n in (1, 2)], [pages[0], pages[2]])
        self.put("one.png", png(4, 3, 1, pages[1]))
        self.refused(1, "one.png", "holds one picture", "copy", "one.png", "-o", "o.png", "--page", "2")
        self.tarn("copy", "in.tif", "one.png", "--page", "all", "--out-dir", "out", "--format", "png")
        self.assertEqual({name: read_png(self.get("out/" + name))[4] for name in os.listdir(self.path("out"))},
                         {"in-1.png": pages[0], "in-2.png": pages[2], "one-1.png": pages[1]})

    def test_tiff_of_few_bits_and_palettes_are_expanded(self):
        for bits, data, photometric, more, wanted in (
                (1, b"\xa0\x40", 1, {}, [[255, 0, 255], [0, 255, 0]]), (1, b"\xa0\x40", 0, {}, [[0, 255, 0], [255, 0, 255]]),
                (2, b"\x1c\xe0", 1, {}, [[0, 85, 255], [255, 170, 0]]), (4, b"\x0f\x80\x10\xf0", 1, {}, [[0, 255, 136], [17, 0, 255]]),
                (4, b"\x01\x20\x21\x00", 3, {"t320": (3, [v << 8 for v in range(48)])},
                 [[0, 16, 32, 1, 17, 33, 2, 18, 34], [2, 18, 34, 1, 17, 33, 0, 16, 32]]),
                (8, b"\0\1\xff\xff\1\0", 3, {"t320": (3, [(v % 256) << 8 for v in range(768)])},
                 [[0, 0, 0, 1, 1, 1, 255, 255, 255], [255, 255, 255, 1, 1, 1, 0, 0, 0]])):
            with self.subTest(bits=bits, photometric=photometric):
                self.put("in.tif", tiff_pages((base(3, 2, bits, photometric, **more), data)))
                self.assertEqual(self.pixels("in.tif")[4], wanted)

    def test_portable_maps_in_and_out(self):
        for text, wanted in (("P1 # bits\n3 2\n1 0 1\n010", [[0, 255, 0], [255, 0, 255]]), ("P2 2 1 15\n0 15", [[0, 255]]),
                             ("P3 1 1 255 7 8 9", [[7, 8, 9]])):
            self.put("in.pnm", text.encode())
            self.assertEqual(self.pixels("in.pnm")[4], wanted)
        self.put("in.pbm", b"P4 3 2\n\xa0\x40")
        self.assertEqual(self.pixels("in.pbm")[4], [[0, 255, 0], [255, 0, 255]])
        self.put("in.pgm", b"P5 2 1 1023\n" + struct.pack(">HH", 512, 1023))
        self.assertEqual(self.pixels("in.pgm")[3:], (16, [[(512 * 65535 + 511) // 1023, 65535]]))
        for bits, high in (8, 255), (16, 65535):
            for channels, name, magic in (1, "o.pgm", b"P5\n"), (3, "o.ppm", b"P6\n"):
                rows = noise(7, 5, channels, 0, high)
                self.put("in.png", png(7, 5, channels, rows, bits))
                self.tarn("copy", "in.png", "-o", name)
                code = f">{35 * channels}{'B' if bits == 8 else 'H'}"
                self.assertEqual(self.get(name), magic + b"7 5\n%d\n" % high + struct.pack(code, *sum(rows, [])))
                self.assertEqual(self.pixels(name)[3:], (bits, rows))
        floats = struct.pack("<6f", 0, 1.5, -2, 1e30, float("inf"), 7)
        for head, data in (b"-1.0", floats), (b"2", struct.pack(">6f", *struct.unpack("<6f", floats))):
            self.put("in.pfm", b"Pf\n3 2\n" + head + b"\n" + data)
            self.tarn("cvtorigin", "in.pfm", "-o", "o.pfm")
            self.assertEqual(self.get("o.pfm"), b"Pf\n3 2\n-1.0\n" + floats[12:] + floats[:12])
        self.refused(1, "o.ppm", "such a map can't hold f32 samples; write .pfm or .tiff", "copy", "in.pfm", "-o", "o.ppm")
        self.refused(1, "o.pgm", "is a name for grey pictures; write .ppm", "copy", "in.png", "-o", "o.pgm")

    def test_profile_and_resolution_go_along_or_are_told(self):
        colour, grey = profile(b"RGB "), profile(b"GRAY")
        rows = noise(6, 4, 3, 0, 255)
        plain = png(6, 4, 3, rows)
        tagged = plain[:33] + chunk(b"iCCP", b"p\0\0" + zlib.compress(colour)) + chunk(b"pHYs", struct.pack(">IIB", 11811, 5906, 1)) + plain[33:]
        self.put("in.png", tagged)
        for name in "a.tif", "b.jpg", "c.png":  # each made of the one before
            self.tarn("scale-resize", "in.png", "-o", name, "--scale", 2)
            self.put("in.png", self.get(name))
        data = self.get("c.png")
        at = data.index(b"iCCP")
        size = struct.unpack(">I", data[at - 4:at])[0]
        self.assertEqual(zlib.decompress(data[at:at + 4 + size].split(b"\0", 1)[1][1:]), colour)
        at = data.index(b"pHYs")
        self.assertEqual(struct.unpack(">IIB", data[at + 4:at + 13]), (11811, 5906, 1))
        for out, words in ("o.ppm", "the format holds none"), ("o.png", "for other colours"):
            self.put("in.png", tagged)
            done = self.run_tarn("copy-transform", "in.png", "-o", out, *(["--colour", "grey"] if out == "o.png" else []))
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertRegex(done.stderr, rf"\Atarn: {out}: gets no colour profile: [^\n]*{words}\n\Z")
        self.put("grey.png", png(6, 4, 1, noise(6, 4, 1, 0, 255))[:33] + chunk(b"iCCP", b"p\0\0" + zlib.compress(grey)) +
                 png(6, 4, 1, noise(6, 4, 1, 0, 255))[33:])
        self.tarn("copy", "grey.png", "-o", "o.tif")
        self.assertIn(grey, self.get("o.tif"))

    def test_how_much_is_compressed(self):
        source = self.put("in.png", png(96, 64, 3, [[(x * x // 50 + y * x) % 256 for x in range(288)] for y in range(64)]))
        sizes = {}
        for name, arguments in (("444.jpg", ["--subsampling", 444]), ("422.jpg", ["--subsampling", 422]), ("420.jpg", []),
                                ("0.png", ["--effort", 0]), ("1.png", ["--effort", 1]), ("9.png", ["--effort", 9])):
            self.tarn("copy", source, "-o", name, *arguments)
            sizes[name] = len(self.get(name))
        self.assertGreater(sizes["444.jpg"], sizes["422.jpg"])
        self.assertGreater(sizes["422.jpg"], sizes["420.jpg"])
        self.assertGreater(sizes["0.png"], max(sizes["1.png"], sizes["9.png"]))
        self.assertNotEqual(sizes["1.png"], sizes["9.png"])
        self.assertEqual(read_png(self.get("0.png")), read_png(self.get("9.png")))


driver.main()
