"""Copy-transform: pictures into arrays and back against plain loops, batches, and what is refused."""
import struct

import driver
from pictures import noise, png, read_png, read_tiff, tiff

ELEMENTS = {"u8": ("|u1", "B"), "s16": ("<i2", "h"), "f32": ("<f4", "f")}


def npy(shape, values, sample="f32"):
    descr, code = ELEMENTS[sample]
    header = f"{{'descr': '{descr}', 'fortran_order': False, 'shape': {shape}, }}\n".encode()
    return b"\x93NUMPY\x01\0" + struct.pack("<H", len(header)) + header + struct.pack(f"<{len(values)}{code}", *values)


def read_npy(data):
    begin = 10 + struct.unpack("<H", data[8:10])[0]
    header = eval(data[10:begin], {"__builtins__": {}})  # the program's own output
    sample, code = next((s, c) for s, (d, c) in ELEMENTS.items() if d == header["descr"])
    values = struct.unpack(f"<{(len(data) - begin) // struct.calcsize(code)}{code}", data[begin:])
    return header["shape"], sample, list(values)


class Transform(driver.ProgramTest):
    def array(self, *arguments):
        self.tarn("copy-transform", *arguments, "-o", "out.npy")
        return read_npy(self.get("out.npy"))

    def test_pictures_become_planes_in_any_colours_and_come_back(self):
        rows = noise(7, 5, 4, 0, 255)
        self.put("in.png", png(7, 5, 4, rows))
        pixel = lambda y, x: rows[y][4 * x:4 * x + 4]
        orders = {"rgb": lambda p: p[:3], "bgr": lambda p: p[2::-1], "bgra": lambda p: p[2::-1] + p[3:],
                  "grey": lambda p: [round((299 * p[0] + 587 * p[1] + 114 * p[2]) / 1000)]}
        for colour, of in orders.items():
            with self.subTest(colour=colour):
                pixels = [of(list(pixel(y, x))) for y in range(5) for x in range(7)]
                planes = [p[c] for c in range(len(pixels[0])) for p in pixels]
                self.assertEqual(self.array("in.png", "--colour", colour), ((1, len(pixels[0]), 5, 7), "u8", planes))
                self.assertEqual(self.array("in.png", "--colour", colour, "--layout", "hwc", "--type", "s16"),
                                 ((1, 5, 7, len(pixels[0])), "s16", [v for p in pixels for v in p]))
        self.array("in.png", "--type", "f32", "--colour", "bgra")
        self.tarn("copy-transform", "out.npy", "-o", "back.png", "--type", "u8")
        self.assertEqual(read_png(self.get("back.png"))[-1], rows)
        self.array("in.png", "--colour", "bgr", "--layout", "hwc")
        self.tarn("copy-transform", "out.npy", "-o", "back.png", "--input-layout", "hwc", "--input-colour", "bgr")
        self.assertEqual(read_png(self.get("back.png"))[-1], [[v for x in range(7) for v in pixel(y, x)[:3]] for y in range(5)])

    def test_a_batch_is_resampled_and_each_channel_of_each_picture_stretched(self):
        self.put("dark.png", png(4, 4, 3, [[10, 20, 30] * 2 + [20, 40, 60] * 2] * 4))
        self.put("light.png", png(2, 2, 3, [[200, 0, 0, 250, 0, 0]] * 2))
        shape, sample, values = self.array("dark.png", "light.png", "--size", "2x2", "--type", "f32", "--range", "0,1",
                                           "--interpolation", "nearest", "--per-channel")
        self.assertEqual((shape, sample), ((2, 3, 2, 2), "f32"))
        self.assertEqual(values, [0, 1] * 6 + [0, 1] * 2 + [0] * 8)
        self.put("batch.npy", npy((2, 3, 2, 2), values))
        self.assertEqual(self.array("batch.npy", "--layout", "hwc")[2][:6], [0, 0, 0, 1, 1, 1])

    def test_16_bit_pictures_keep_their_values(self):
        rows = noise(7, 5, 3, 0, 65535)
        self.put("in.png", png(7, 5, 3, rows, 16))
        self.tarn("copy-transform", "in.png", "-o", "out.png", "--colour", "rgb")
        self.assertEqual(read_png(self.get("out.png")), (7, 5, 3, 16, rows))

    def test_arrays_go_through_pipes(self):
        rows = noise(7, 5, 3, 0, 255)
        array = self.piped(png(7, 5, 3, rows), "copy-transform", "-", "-o", "-", "--format", "npy", "--type", "f32")
        self.assertTrue(array.stdout.startswith(b"\x93NUMPY\1\0"), array.stderr)
        picture = self.piped(array.stdout, "copy-transform", "-", "-o", "-", "--format", "png", "--type", "u8", "--input-colour", "rgb")
        self.assertEqual(read_png(picture.stdout)[4], rows)
        cut = self.piped(array.stdout[:-1], "copy-transform", "-", "-o", "o.png")
        self.assertIn(b"standard input: ends too early: 419 of 420 bytes", cut.stderr)
        self.put("w.npy", npy((1, 4), [1, 10, 100, 1000]))
        done = self.piped(npy((1, 4), [1, 2, 3, 4]), "multi-line-neuronet", "-", "--layer", "w.npy", "-o", "-")
        self.assertEqual(done.stdout[-4:], struct.pack("<f", 4321), done.stderr)

    def test_refuses_what_it_can_not_do(self):
        self.put("a.png", png(3, 3, 3, noise(3, 3, 3, 0, 255)))
        self.put("wide.png", png(4, 3, 3, noise(4, 3, 3, 0, 255)))
        self.put("grey.png", png(3, 3, 1, noise(3, 3, 1, 0, 255)))
        self.put("alpha.png", png(3, 3, 2, noise(3, 3, 2, 0, 255)))
        self.put("two.npy", npy((2, 1, 2, 2), [0] * 8))
        self.put("flat.npy", npy((4, 4), [0] * 16))
        self.put("five.npy", npy((1, 5, 1, 2), [0] * 10))
        self.put("cut.npy", npy((1, 1, 2, 2), [0] * 3))
        array, picture = ("-o", "o.npy"), ("-o", "o.png")
        for status, subject, words, *arguments in (
                (2, "--interpolation", "'lanczos' is not among", "a.png", "--size", "2x2", "--interpolation", "lanczos", *array),
                (2, "--per-channel", "no range", "a.png", "--per-channel", *array),
                (2, "--colour", "grey, rgb, bgr or bgra", "a.png", "--colour", "red", *array),
                (2, "--colour", "holds RGB", "a.png", "--colour", "bgr", *picture),
                (2, "--layout", "no planes", "a.png", "--layout", "nchw", *picture),
                (2, "wide.png", "one input too many", "a.png", "wide.png", *picture),
                (2, "two.npy", "can't be among pictures", "a.png", "two.npy", *array),
                (1, "wide.png", "give --size", "a.png", "wide.png", *array),
                (1, "grey.png", "pictures of one kind", "a.png", "grey.png", "--size", "2x2", *array),
                (1, "alpha.png", "grey with alpha", "alpha.png", *array),
                (1, "two.npy", "holds 2 pictures", "two.npy", "--type", "u8", *picture),
                (1, "o.png", "PNG can't hold f32", "a.png", "--type", "f32", *picture),
                (1, "flat.npy", "holds 4 x 4, not a batch", "flat.npy", *array),
                (1, "five.npy", "has 5 channels", "five.npy", *array),
                (1, "--input-colour", "does not have 1 channels", "two.npy", "--input-colour", "rgb", *array),
                (1, "cut.npy", "ends too early", "cut.npy", *array),
                (1, "--size", "this machine has", "a.png", "--size", "2000000x2000000", *array)):
            with self.subTest(arguments=arguments):
                self.refused(status, subject, words, "copy-transform", *arguments)


driver.main()
