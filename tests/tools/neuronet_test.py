"""The network command: the shipped digits, results against the formula, and files it must refuse."""
import json
import math
import os
import struct

import driver


def npy(shape, values, descr="<f4", order=False, version=1):
    header = f"{{'descr': '{descr}', 'fortran_order': {order}, 'shape': {shape}, }}".encode() + b"\n"
    length = struct.pack("<H" if version == 1 else "<I", len(header))
    return b"\x93NUMPY" + bytes([version, 0]) + length + header + struct.pack(f"<{len(values)}f", *values)


def read_npy(data):
    assert data[:8] == b"\x93NUMPY\x01\x00"
    begin = 10 + struct.unpack("<H", data[8:10])[0]
    assert begin % 64 == 0
    header = eval(data[10:begin], {"__builtins__": {}})  # the program's own output
    assert header["descr"] == "<f4" and not header["fortran_order"]
    values = struct.unpack(f"<{(len(data) - begin) // 4}f", data[begin:])
    rows, columns = header["shape"]
    assert rows * columns == len(values)
    return [list(values[r * columns:(r + 1) * columns]) for r in range(rows)]


class Neuronet(driver.ProgramTest):
    def net(self, *arguments):
        return self.tarn("multi-line-neuronet", *arguments)

    def no_net(self, status, subject, words, *arguments):
        self.refused(status, subject, words, "multi-line-neuronet", *arguments)

    def test_the_shipped_network_finds_the_digits_it_is_said_to(self):
        digits = os.path.join(driver.SAMPLES, "digits")
        file = lambda name: os.path.join(digits, name + ".npy")
        layers = []
        for i, activation in (1, "rectifier"), (2, "rectifier"), (3, "softmax"):
            layers += ["--layer", f"{file(f'weights{i}')},{file(f'bias{i}')},{activation}"]
        told = json.loads(self.net(file("test"), *layers, "--labels", file("labels"), "--classes", "--json", "-o", "out.npy"))
        self.assertEqual((told["samples"], told["right"]), (360, 342))
        rows = read_npy(self.get("out.npy"))
        for row, found in zip(rows, told["classes"]):
            self.assertAlmostEqual(sum(row), 1, delta=2**-22)
            self.assertEqual(row.index(max(row)), found)

    def test_layers_biases_and_activations_as_given(self):
        self.put("x.npy", npy("(2, 3)", [1, 2, -3, 0.5, 0, 4], version=2))
        self.put("w.npy", npy("(2, 3)", [1, 0, 1, -1, 2, 0.5], version=3))
        self.put("b.npy", npy("(2,)", [0.25, -1]))
        plain = [[-2, 1.5], [4.5, 1.5]]
        biased = [[-1.75, 0.5], [4.75, 0.5]]
        functions = {"none": lambda v: v, "rectifier": lambda v: max(v, 0), "leaky-rectifier": lambda v: v if v >= 0 else 0.01 * v,
                     "sigmoid": lambda v: 1 / (1 + math.exp(-v)), "mirrored-sigmoid": lambda v: 1 / (1 + math.exp(v))}
        for word, function in functions.items():
            for layer, sums in (f"w.npy,{word}", plain), (f"w.npy,b.npy,{word}", biased):
                self.net("x.npy", "--layer", layer, "-o", "y.npy")
                for got, row in zip(read_npy(self.get("y.npy")), sums):
                    for a, b in zip(got, row):
                        self.assertAlmostEqual(a, function(b), delta=1e-6)
        self.assertEqual(self.net("x.npy", "--layer", "w.npy,b.npy", "--classes"), "1\n0\n")
        self.assertRegex(self.net("x.npy", "--layer", "w.npy", "--time"), r"\A\d+\.\d{4} ms\n\Z")

    def test_files_that_are_no_float_matrices_are_told_apart(self):
        self.put("w.npy", npy("(2, 3)", [0] * 6))
        zeros = [0] * 6
        for data, words in (
                (b"", "is not a .npy file"), (b"\x93NUMPY\x01", "is not a .npy file"), (b"P6 1 1 255 abc", "is not a .npy file"),
                (npy("(1, 3)", zeros, "<f8"), "'<f8', not 32-bit floats"), (npy("(1, 3)", zeros[:3], ">f4"), "not 32-bit floats"),
                (npy("(1, 3)", zeros[:3]).replace(b"<f4", b"foo"), "not 32-bit floats"),
                (npy("(1, 3)", zeros[:3]).replace(b"descr", b"desk."), "damaged header"),
                (npy("(1, 3)", zeros[:3]).replace(b"fortran", b"basical"), "damaged header"),
                (npy("(1, 3)", zeros[:3], order=True), "Fortran order"), (npy("(1, 1, 3)", zeros[:3]), "1 x 1 x 3, not a matrix"),
                (npy("()", [0]), "not a matrix"), (npy("(0, 3)", []), "holds no values"), (npy("(-1, 3)", zeros[:3]), "no shape"),
                (npy("(2, 3)", zeros[:5]), "ends too early"), (npy("(1, 3)", zeros[:3])[:40], "ends too early"),
                (npy("(2147483647, 500000000)", zeros[:3]), "ends too early"), (npy("(1, 3)", zeros[:4]), "goes on behind"),
                (npy("(99999999999, 3)", zeros[:3]), "too large (99999999999 x 3)")):
            self.put("x.npy", data)
            self.no_net(1, "x.npy", words, "x.npy", "--layer", "w.npy", "-o", "y.npy")
        self.no_net(1, "none.npy", "no such file", "none.npy", "--layer", "w.npy", "-o", "y.npy")

    def test_shapes_that_do_not_fit_and_wrong_options(self):
        self.put("x.npy", npy("(1, 3)", [0] * 3))
        self.put("w.npy", npy("(2, 3)", [0] * 6))
        self.put("v.npy", npy("(3, 2)", [0] * 6))
        self.put("b.npy", npy("(3,)", [0] * 3))
        self.no_net(1, "v.npy", "rows of 2 weights, but x.npy gives 3", "x.npy", "--layer", "v.npy", "-o", "y.npy")
        self.no_net(1, "w.npy", "but w.npy gives 2", "x.npy", "--layer", "w.npy", "--layer", "w.npy", "-o", "y.npy")
        self.no_net(1, "b.npy", "3 values for the 2 neurons", "x.npy", "--layer", "w.npy,b.npy", "-o", "y.npy")
        self.no_net(1, "b.npy", "3 classes for 1 samples", "x.npy", "--layer", "w.npy", "--labels", "b.npy")
        self.no_net(2, "--layer", "'tanh' is no activation", "x.npy", "--layer", "w.npy,tanh", "-o", "y.npy")
        for layer in "relu", "w.npy,b.npy,b.npy", "w.npy,softmax,b.npy", "w.npy,softmax,none", ",w.npy":
            self.no_net(2, "--layer", "is not a layer", "x.npy", "--layer", layer, "-o", "y.npy")
        self.no_net(2, "-o", "does not end in .npy", "x.npy", "--layer", "w.npy", "-o", "y.txt")
        self.no_net(2, "-o", "nothing is to be written", "x.npy", "--layer", "w.npy")


driver.main()
