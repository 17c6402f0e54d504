"""The processor level by name, and the comparison of all levels: that it covers every operation and finds a wrong kernel."""
import json
import os
import platform
import shutil
import struct

import driver
from pictures import noise, png

LIBRARY = os.path.join(os.path.dirname(driver.TARN), "../lib")


def place_of(library, symbol):
    """Where in the file the code of this symbol begins (64-bit ELF; code lies in the file as it does in memory)."""
    sections, count = struct.unpack_from("<Q", library, 40)[0], struct.unpack_from("<H", library, 60)[0]
    headers = [struct.unpack_from("<IIQQQQIIQQ", library, sections + 64 * i) for i in range(count)]
    for _, kind, _, _, offset, size, link, *_ in headers:
        if kind != 2:
            continue
        names = headers[link][4]
        for at in range(offset, offset + size, 24):
            name, _, _, section, value, _ = struct.unpack_from("<IBBHQQ", library, at)
            if library[names + name:names + name + len(symbol) + 1] == symbol + b"\0":
                return value - headers[section][3] + headers[section][4]
    raise AssertionError(f"no symbol {symbol}")


class Selfcheck(driver.ProgramTest):
    def test_levels_by_option_and_environment(self):
        names = json.loads(self.tarn("selfcheck", "--json", self.put("in.png", png(40, 30, 1, noise(40, 30, 1, 0, 255)))))["levels"]
        for name in names:
            self.assertEqual(json.loads(self.tarn("info", "--json", "--level", name))["processor_level"], name)
            done = self.run_tarn("info", "--json", env={**os.environ, "TARN_LEVEL": name})
            self.assertEqual(json.loads(done.stdout)["processor_level"], name)
        self.refused(2, "--level", f"no level of this machine; give {names[0]}", "minmax", "in.png", "--level", "z80")
        self.refused(2, "TARN_LEVEL", "no level of this machine", "minmax", "in.png", env={**os.environ, "TARN_LEVEL": "z80"})

    def test_every_command_is_compared(self):
        told = json.loads(self.tarn("selfcheck", "--json"))["commands"]
        help_text = self.tarn("help")
        self.assertGreater(len(told), 30)
        for name, result in told.items():
            self.assertIn(f"\n  {name} ", help_text)
            self.assertGreater(result["compared"], 0, name)
            self.assertEqual(result["different"], [], name)

    def test_a_kernel_that_does_nothing_at_one_level_is_found(self):
        if platform.machine() != "x86_64" or driver.SANITIZED:
            self.skipTest("the kernel is silenced by x86-64 code")
        for name in os.listdir(LIBRARY):
            if name.endswith(".so"):
                shutil.copy(os.path.join(LIBRARY, name), self.folder)
        with open(self.path("tarn-ipp.so"), "r+b") as file:
            library = file.read()
            file.seek(place_of(library, b"_ZN4tarn1k5ssse311add_c_u8_c1EPKvPviNS0_4SizeE"))
            file.write(b"\x31\xc0\xc3")  # returns 0
        done = self.run_tarn("selfcheck", "--json", env={**os.environ, "TARN_MODULE": "./tarn-ipp.so"})
        self.assertEqual(done.returncode, 1)
        told = json.loads(done.stdout)["commands"]
        self.assertEqual([name for name in told if told[name]["different"]], ["add-c"])


driver.main()
