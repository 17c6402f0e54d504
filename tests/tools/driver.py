"""Runs the built program; every test works in a folder of its own."""
import os
import subprocess
import sys
import tempfile
import unittest

TARN, SAMPLES = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])

with open(TARN, "rb") as program:
    # Sanitizers reserve terabytes of addresses, so a limit on them can't be set.
    code = program.read()
    SANITIZED = any(word in code for word in (b"__asan_init", b"__tsan_init"))


class ProgramTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def put(self, name, data):
        with open(self.path(name), "wb") as file:
            file.write(data)
        return name

    def get(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def run_tarn(self, *arguments, **options):
        return subprocess.run([TARN, *map(str, arguments)], cwd=self.folder, capture_output=True, text=True, timeout=600,
                              **options)

    def piped(self, data, *arguments):
        return subprocess.run([TARN, *arguments], cwd=self.folder, input=data, capture_output=True, timeout=60)

    def tarn(self, *arguments):
        """Runs it and expects success without a word on standard error; returns what it printed."""
        done = self.run_tarn(*arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""), arguments)
        return done.stdout

    def refused(self, status, subject, words, *arguments, **options):
        """Runs it and expects this exit status, one line about subject, and nothing new in the folder."""
        before = {name: os.stat(self.path(name)).st_mtime_ns for name in os.listdir(self.folder)}
        done = self.run_tarn(*arguments, **options)
        self.assertEqual(done.returncode, status, (arguments, done.stderr))
        self.assertEqual(done.stdout, "")
        self.assertRegex(done.stderr, r"\Atarn: [^\n]*: [^\n]+; [^\n]+\n\Z", arguments)
        self.assertTrue(done.stderr.startswith(f"tarn: {subject}: "), done.stderr)
        self.assertIn(words, done.stderr)
        after = {name: os.stat(self.path(name)).st_mtime_ns for name in os.listdir(self.folder)}
        self.assertEqual(after, before, arguments)


def main():
    result = unittest.main(argv=sys.argv[:1], exit=False).result
    sys.exit(0 if result.wasSuccessful() and result.testsRun else 1)
