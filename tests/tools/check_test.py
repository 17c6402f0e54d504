"""What is told of modules that keep their promises, and of those with one fault each (wrong/module.cpp)."""
import json
import os
import shutil
import subprocess

import driver

LIBRARY = os.path.join(os.path.dirname(driver.TARN), "../lib")

# The fault, the promise that it breaks, what is told of it.
WRONG = [
    ("EXPORTS", "exports", "helper"),
    ("NEEDS", "needs", "libpng"),
    ("DESCRIPTOR", "descriptor", '"modules/other", not "modules/wrong"'),
    ("REGISTRATION", "attach", "word 0x48 is 0x60605e70003, not 0x60705e70003"),
    ("ATTACH_ONCE", "attach twice", "1 entries after attaching 2 times"),
    ("ATTACH_CRASHES", "attach", "Segmentation fault), attaching it"),
    ("VERSION", "interface", "word 0x68 is 0x606, not 0x607"),
    ("RESERVED_FUNCTION", "slots", "slot 44 (reserved44) has a function"),
    ("CODES", "slots", "slot 85 (mkstrel) is declared with the codes 0x5e70003ffff0003 and 0x0"),
    ("INIT_ONCE", "init", "init-once again returned -1"),
    ("THREADS", "threads", "from eight threads"),
    ("LEVEL", "copy", "at level 0"),
    ("OUTSIDE", "copy", "wrote outside"),
    ("KEEPS", "copy", "were kept"),
    ("UNCHECKED", "copy", "allocation 1 failing: copy: ended by: Segmentation fault"),
    ("IN_SILENCE", "copy", "neither refused nor done"),
    ("FLOATS", "copy", "left the float unit in another state"),
]


class Check(driver.ProgramTest):
    def check(self, status, module, *arguments):
        done = self.run_tarn("check", "--json", module, *arguments)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return {p["promise"]: p for p in json.loads(done.stdout)["promises"]}

    def test_the_modules_keep_theirs(self):
        for name, operations in (("tarn-ipp.so", 38), ("tarn-c.so", 3)):
            told = self.check(0, os.path.join(LIBRARY, name), "--calls", "4")
            self.assertEqual(len(told), 12 + operations)
            self.assertEqual([p for p in told if not told[p]["kept"]], [])
        text = self.tarn("check", os.path.join(LIBRARY, "tarn-c.so"), "--calls", "4")
        self.assertRegex(text, r"(?m)^kept +threshold_imm +4 calls, \d+ times$")

    def test_levels_without_a_symbol_table_are_unknown(self):
        subprocess.run(["strip", "-o", self.path("wrong.so"), f"{LIBRARY}/wrong/LEVEL.so"], check=True)
        told = self.check(0, "wrong.so")
        self.assertEqual([p for p in told if not told[p]["kept"]], ["levels"])
        self.assertIsNone(told["levels"]["kept"])

    def test_each_wrong_module_is_told_for_what_it_is(self):
        self.check(0, f"{LIBRARY}/wrong/NONE.so")
        for fault, promise, words in WRONG:
            with self.subTest(fault):
                told = self.check(1, f"{LIBRARY}/wrong/{fault}.so")
                broken = [p for p in told if told[p]["kept"] is False]
                self.assertIn(words, told[promise]["text"])
                if fault not in ("ATTACH_CRASHES", "INIT_ONCE"):  # which others find too
                    self.assertEqual(broken, [promise])

    def test_what_is_no_module(self):
        self.put("text.so", b"no library\n")
        told = self.check(1, "text.so")
        self.assertEqual([p for p in told if told[p]["kept"] is False], ["exports", "load", "init"])
        self.refused(1, "nowhere.so", "is no file", "check", "nowhere.so")
        self.refused(1, ".", "is no file", "check", ".")

    def test_numbers_of_calls_that_are_none(self):
        for option, value in (("--calls", "0"), ("--calls", "-1"), ("--seed", "-1"), ("--seed", "one")):
            self.refused(2, option, "not a whole number", "check", os.path.join(LIBRARY, "tarn-c.so"), option, value)

    def test_a_name_that_is_not_utf_8_is_told_in_json(self):
        name = os.fsdecode(b"\xff.so")
        shutil.copy(os.path.join(LIBRARY, "wrong/NONE.so"), self.path(name))
        self.check(0, name, "--calls", "1")


if driver.SANITIZED:
    raise SystemExit(0)  # the sanitizers' own library, handlers and exports are no promise of a module
driver.main()
