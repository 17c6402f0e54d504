"""Pipes, and many pictures by one command line: names, failures, lost workers, taking up an interrupted job."""
import os
import pty
import re
import signal
import subprocess
import time

import driver
from driver import TARN
from pictures import noise, png, read_png, read_tiff


class Batch(driver.ProgramTest):
    def pictures(self, count, folder="in"):
        os.makedirs(self.path(folder), exist_ok=True)
        rows = {f"{i}.png": noise(9, 6, 3, 0, 255, i) for i in range(count)}
        for name, values in rows.items():
            self.put(f"{folder}/{name}", png(9, 6, 3, values))
        return rows

    def test_pipes_carry_every_format_and_nothing_else(self):
        rows = noise(40, 30, 3, 0, 255)
        picture = png(40, 30, 3, rows)
        as_tiff = self.piped(picture, "copy", "-", "-o", "-", "--format", "tiff", "--compression", "none", "--time")
        self.assertEqual(read_tiff(as_tiff.stdout)[1], rows)
        self.assertRegex(as_tiff.stderr, rb"\A\d+\.\d{4} ms\n\Z")
        self.assertEqual(read_png(self.piped(as_tiff.stdout, "copy", "-", "-o", "-", "--format", "png").stdout)[4], rows)
        self.assertEqual(self.piped(picture, "copy", "-", "-o", "-", "--format", "jpeg").stdout[:3], b"\xff\xd8\xff")
        self.assertIn(b"<svg", self.piped(picture, "contour-find", "-", "-o", "-", "--format", "svg").stdout)
        self.put("in.png", picture)
        self.tarn("copy", "in.png", "-o", "odd.name", "--format", "png")
        self.assertEqual(read_png(self.get("odd.name"))[4], rows)
        for data, words, *arguments in ((picture, b"--format: is missing", "copy", "-", "-o", "-"),
                                        (picture, b"holds one input", "and", "-", "-", "-o", "-", "--format", "png"),
                                        (picture[:99], b"standard input: is a damaged or incomplete PNG", "copy", "-", "-o", "-", "--format", "png")):
            done = self.piped(data, *arguments)
            self.assertEqual((done.stdout, done.returncode > 0, words in done.stderr), (b"", True, True), done.stderr)
        with open("/dev/full", "w") as full:
            done = subprocess.run([TARN, "copy", "in.png", "-o", "-", "--format", "png"], cwd=self.folder, stdout=full, stderr=subprocess.PIPE)
        self.assertEqual((done.returncode, b"standard output: can't be written" in done.stderr), (1, True))

    def test_a_folder_and_files_become_a_folder(self):
        rows = self.pictures(5)
        self.put("in/notes.txt", b"no picture")
        self.put("in/.hidden.png", b"none either")
        self.put("more.png", self.get("in/0.png"))
        for jobs in 1, 3:
            self.tarn("not", "in", "more.png", "--out-dir", f"out{jobs}", "--name", "{number}_{stem}-n.{ext}", "-j", jobs)
            wanted = {f"{i + 1}_{name[:-4]}-n.png": values for i, (name, values) in enumerate([*rows.items(), ("more.png", rows["0.png"])])}
            self.assertEqual(sorted(os.listdir(self.path(f"out{jobs}"))), sorted(wanted))
            for name, values in wanted.items():
                self.assertEqual(read_png(self.get(f"out{jobs}/{name}"))[4], [[255 - v for v in row] for row in values])
        self.tarn("copy", "in", "--out-dir", "tiffs", "--format", "tiff")
        self.assertEqual(sorted(os.listdir(self.path("tiffs"))), [name[:-3] + "tiff" for name in rows])
        printed = self.tarn("threshold", "in/0.png", "in/1.png", "--out-dir", "bw", "--method", "otsu")
        self.assertRegex(printed, r"\Ain/0.png: threshold +\d+\nin/1.png: threshold +\d+\n\Z")

    def test_steps_hand_pictures_on_as_files_would(self):
        self.put("in.png", png(40, 30, 3, noise(40, 30, 3, 0, 65535), 16))
        self.put("mask.png", png(20, 15, 1, noise(20, 15, 1, 0, 255)))
        steps = ["scale-resize", "in.png", "--size", "20x15"], ["morph", "--operation", "open", "--element", "rect", "--size", "3x3"], \
            ["add-c", "--constants", "-3000"], ["convert-scale", "--depth", "u8", "--scale", "0.0038911"], ["cmp-c", "--comparison", "less", "--constants", "90"]
        file = []
        for i, (command, *options) in enumerate(steps):
            self.tarn(command, *file, *options, "-o", f"{i}.tif")
            file = [f"{i}.tif"]
        joined = sum((["--then", *step] for step in steps), [])[1:]
        self.tarn(*joined, "-o", "out.tif")
        self.assertEqual(self.get("out.tif"), self.get("4.tif"))
        self.tarn(*joined, "--then", "and", "mask.png", "-o", "masked.png")
        self.tarn("and", "4.tif", "mask.png", "-o", "wanted.png")
        self.assertEqual(self.get("masked.png"), self.get("wanted.png"))
        self.assertEqual(self.tarn(*joined, "--then", "mean"), self.tarn("mean", "4.tif"))
        rows = self.pictures(3)
        self.put("in/bad.png", b"not a picture")
        shrunk = ["scale-resize", "in", "--size", "4x4", "--then", "not"]
        done = self.run_tarn(*shrunk, "--then", "not", "--out-dir", "out", "-j", 2)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"\Atarn: in/bad.png: step 1 \(scale-resize\): in/bad.png: is not a PNG")
        self.tarn("scale-resize", *(f"in/{name}" for name in rows), "--size", "4x4", "--out-dir", "wanted")
        for name in rows:
            self.assertEqual(self.get(f"out/{name}"), self.get(f"wanted/{name}"))
        for step, words, *arguments in (
                ("step 2", "stands beside no command", "not", "in.png", "--then"),
                ("step 1 (not)", "-o: is given, but another step follows", "not", "in.png", "-o", "a.png", "--then", "not", "-o", "b.png"),
                ("step 2 (filter)", "--kind: is missing", "not", "in.png", "--then", "filter", "-o", "b.png"),
                ("step 2 (info)", "takes no picture", "not", "in.png", "--then", "info"),
                ("step 1 (mean)", "makes no picture", "mean", "in.png", "--then", "not", "-o", "b.png"),
                ("step 2 (not)", "in.png: is too much", "not", "in.png", "--then", "not", "in.png", "-o", "b.png"),
                ("step 2 (copy)", "--page: is of a file", "not", "in.png", "--then", "copy", "--page", "2", "-o", "b.png"),
                ("step 2 (not)", "unknown extension .x", "not", "missing.png", "--then", "not", "-o", "b.x"),
                ("--out-dir", "makes one picture of several", "and", "in.png", "in.png", "--then", "not", "--out-dir", "b"),
                ("--out-dir", "is missing", "not", "in.png", "mask.png", "--then", "not", "-o", "b.png")):
            self.refused(2, step, words, *arguments)

    def test_failed_pictures_are_told_at_the_end_and_a_second_run_takes_up_the_rest(self):
        rows = self.pictures(6)
        self.put("in/1.png", b"not a picture")
        self.put("in/4.png", self.get("in/3.png")[:90])
        command = ["copy", "in", "--out-dir", "out", "-j", "2", "--resume"]
        done = self.run_tarn(*command)
        lines = done.stderr.splitlines()
        self.assertEqual((done.returncode, [line[:16] for line in lines]), (1, ["tarn: in/1.png: ", "tarn: in/4.png: ", "tarn: 2 of 6 pic"]), lines)
        self.assertEqual(sorted(os.listdir(self.path("out"))), ["0.png", "2.png", "3.png", "5.png"])
        self.put("in/1.png", png(9, 6, 3, rows["1.png"]))
        os.utime(self.path("in/5.png"), (time.time() + 60, time.time() + 60))  # changed after it was done
        before = {name: os.stat(self.path("out/" + name)).st_ino for name in os.listdir(self.path("out"))}
        self.assertIn("1 of 3 pictures", self.run_tarn(*command).stderr)
        after = {name: os.stat(self.path("out/" + name)).st_ino for name in os.listdir(self.path("out"))}
        self.assertEqual({name for name in after if after[name] != before.get(name)}, {"1.png", "5.png"})

    def test_a_killed_worker_costs_its_picture_alone(self):
        self.pictures(3)
        os.mkfifo(self.path("stuck.png"))
        run = subprocess.Popen([TARN, "copy", "stuck.png", "in", "--out-dir", "out", "-j", "1"], cwd=self.folder, stderr=subprocess.PIPE, text=True)
        found, until = None, time.time() + 30
        while not found and time.time() < until:
            names = os.listdir(self.path("out")) if os.path.isdir(self.path("out")) else []
            found = next((re.match(r"\.tarn-(\d+)-", name) for name in names), None)
        os.kill(int(found[1]), signal.SIGKILL)
        errors = run.communicate(timeout=60)[1]
        self.assertEqual(run.returncode, 1)
        self.assertIn("tarn: stuck.png: its worker was ended by signal 9\ntarn: 1 of 4 pictures", errors)
        self.assertEqual(sorted(os.listdir(self.path("out"))), ["0.png", "1.png", "2.png"])

    def test_a_bar_on_the_terminal_and_nowhere_else(self):
        self.pictures(4)
        end, terminal = pty.openpty()
        run = subprocess.Popen([TARN, "copy", "in", "--out-dir", "out"], cwd=self.folder, stderr=terminal)
        self.assertEqual(run.wait(60), 0)
        os.close(terminal)
        shown = ""
        try:
            while piece := os.read(end, 1 << 16):  # in pieces, as the terminal hands them on
                shown += piece.decode()
        except OSError:
            pass  # how a terminal's end is told
        os.close(end)
        self.assertRegex(shown, r"\A\rtarn: \[ +\] 0/4, 0/s\x1b\[K")
        self.assertTrue(shown.endswith("\r\x1b[K"), shown)

    def test_jobs_that_cannot_be(self):
        self.pictures(2)
        os.mkdir(self.path("empty"))
        self.put("in/0.jpg", b"")
        two = ("copy", "in/0.png", "in/1.png")
        for status, subject, words, *arguments in (
                (2, "--out-dir", "is missing, and 2 pictures are given", *two, "-o", "o.png"),
                (2, "--output", "can't go with --out-dir", *two, "--out-dir", "out", "-o", "o.png"),
                (2, "--name", "goes with --out-dir", "copy", "in/0.png", "-o", "o.png", "--name", "x"),
                (2, "--name", "'{size}' is not known; use {stem}, {ext}, {page} and {number}", *two, "--out-dir", "out", "--name", "{size}.png"),
                (2, "--name", "makes no file name", *two, "--out-dir", "out", "--name", "a/{stem}.png"),
                (2, "in/1.png", "and in/0.png would both become out/a.png", *two, "--out-dir", "out", "--name", "a.png"),
                (2, "in/0.jpg", "would be overwritten by its own result", "copy", "in", "--out-dir", "in"),
                (2, "--jobs", "from 0 to 1024", *two, "--out-dir", "out", "-j", "many"),
                (2, "-", "has no name", "copy", "-", "--out-dir", "out"),
                (1, "empty", "holds no files named .png, .jpg", "copy", "empty", "--out-dir", "out"),
                (1, "none/out", "can't be made", *two, "--out-dir", "none/out")):
            with self.subTest(arguments=arguments):
                self.refused(status, subject, words, *arguments)
        done = self.run_tarn("scale-resize", "in/0.png", "in/1.png", "--out-dir", "out", "--size", "0x2")  # wrong for all: told once
        self.assertEqual((done.returncode, done.stderr.count("\n"), done.stderr[:12]), (2, 1, "tarn: --size"))


driver.main()
