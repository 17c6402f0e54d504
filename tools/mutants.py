#!/usr/bin/env python3
"""Small wrong changes of the sources, one at a time, each built and run against the tests that it concerns: the tests are as good as
the changes that they notice. Works in a copy of the last commit below build/; the checkout stays as it is.

usage: mutants.py [N] [--seed S] [--shared] [--only PREFIX]

The number of a change and the seed make it, so a run that was broken off goes on where it was. --shared: headers that all kernels
include too, each of which builds every kernel again. --only: sources whose path begins so.
"""
import argparse
import hashlib
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build/mutants"
TREE = WORK / "tree"
WHOLE, BUILD = TREE / "build/release", TREE / "build/mutant"
KERNELS, OPERATIONS = "amodules/tarn/src/kernels/", "amodules/tarn/src/ipp/"
SHARED = tuple(KERNELS + folder for folder in ("base/", "plane/", "simd/"))
TARGETS = ["kernel_tests", "operation_tests", "host_tests", "fuzz", "tarn-ipp", "tarn-c"]
LIBRARIES = ("tarn-ipp.so", "tarn-c.so", "libKa.so", "libLumo.so")

# What is looked for, and what takes its place.
SWAPS = [(r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "), (r" == ", " != "), (r" != ", " == "),
         (r" \+ ", " - "), (r" - ", " + "), (r" \* ", " + "), (r" / ", " * "), (r" % ", " / "), (r" && ", " || "), (r" \|\| ", " && "),
         (r" & ", " | "), (r" \| ", " & "), (r" << ", " >> "), (r" >> ", " << "), (r" \+= ", " -= "), (r" -= ", " += "),
         (r"(?<=[=(,?:] )-(?=\w)", ""), (r"(?<=\()-(?=\w)", ""), (r"\btrue\b", "false"), (r"\bfalse\b", "true"),
         (r"\bmin\(", "max("), (r"\bmax\(", "min("), (r"(?<=[(&|] )!(?=\w)", ""), (r"(?<=\()!(?=\w)", "")]
NUMBER = re.compile(r"(?<![\w.'\"])\d+(?![\w.'])")
# An assignment or a call that stands alone.
STATEMENT = re.compile(r"^\s+(?!return|using|static|const|else|if|for|case|break|continue|goto|auto|template)[\w.\[\]>*-]+( [-+*/|&^]?= .*|\(.*\));$")
LEFT_ALONE = re.compile(r"^\s*(#|//|\*|/\*|static_assert|template|namespace|using|\})|\\$|TARN_ERROR|QUEL_HOST_ERROR|__builtin_expect")


def run(*words, **options):
    return subprocess.run([str(w) for w in words], capture_output=True, text=True, errors="replace", **options)


def changes_of(line):
    """All (text, column, replaced, by) of a line."""
    if LEFT_ALONE.search(line):
        return []
    code = re.sub(r'"(\\.|[^"\\])*"', lambda m: "_" * len(m[0]), line.split("//")[0])
    found = [(m.start(), m[0], by) for pattern, by in SWAPS for m in re.finditer(pattern, code)]
    found += [(m.start(), m[0], str(int(m[0]) + 1)) for m in NUMBER.finditer(code)]
    if STATEMENT.match(line):
        body = line.strip()
        found.append((line.index(body), body, ";"))
    return found


def sites(paths):
    for path in paths:
        for number, line in enumerate((TREE / path).read_text().splitlines(), 1):
            for column, old, new in changes_of(line):
                yield path, number, column, old, new


def prepare(shared):
    head = run("git", "rev-parse", "HEAD", cwd=ROOT).stdout.strip()
    if not (TREE / ".git").exists():
        run("git", "worktree", "prune", cwd=ROOT)
        run("git", "worktree", "add", "--detach", TREE, head, cwd=ROOT, check=True)
    run("git", "checkout", "--force", "--detach", head, cwd=TREE, check=True)
    # Changed kernels are built for the lowest level and the highest of this machine, and tried there; the others stay. What all
    # kernels share has tests of its own for every level.
    levels = ["sse2", "avx512" if " avx512bw" in pathlib.Path("/proc/cpuinfo").read_text() else "avx2"]
    run("cmake", "--preset", "release", "-DTARN_TESTS=ON", cwd=TREE, check=True)
    if not build(WHOLE, "tarn-ipp"):
        sys.exit("mutants: the commit itself can't be built")
    of_others = [] if shared else [f"-DTARN_KERNELS_OF={WHOLE}", "-DTARN_LEVELS_BUILT=" + ";".join(levels)]
    run("cmake", "--preset", "release", "-B", BUILD, "-DTARN_TESTS=ON", *of_others, cwd=TREE, check=True)
    os.environ["TARN_LEVELS"] = "ends"
    return head


def build(folder=BUILD, *targets):
    return run("cmake", "--build", folder, "--target", *(targets or TARGETS)).returncode == 0


def code_of():
    return [hashlib.sha256((BUILD / "lib" / name).read_bytes()).hexdigest() for name in LIBRARIES]


def tests_for(path):
    """Commands, quick ones first, that are to notice a change of this file."""
    program = BUILD / "bin"
    fuzz = (program / "fuzz", BUILD / "lib/tarn-ipp.so", "--seed", "1", "--calls", "8000")
    operations = (program / "operation_tests", "--gtest_fail_fast")
    if path.startswith(SHARED):
        return [(program / "simd_tests",), fuzz, operations, (program / "kernel_tests", "--gtest_fail_fast")]
    if path.startswith(KERNELS):
        family = path[len(KERNELS):].split("/")[0]
        of_family = f"kernels.{family}:*/{family}*:{family}*:*streamed*{family}*:elementwise_values*"
        return [(program / "kernel_tests", "--gtest_fail_fast", "--gtest_filter=" + of_family), fuzz, operations]
    return [(program / "host_tests",), fuzz, operations] if path.startswith("host/") else [fuzz, operations]


def fails(command, limit):
    """How it fails, or nothing."""
    name = pathlib.Path(command[0]).name
    try:
        return "" if run(*command, timeout=limit).returncode == 0 else name
    except subprocess.TimeoutExpired:
        return name + " (no end)"


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("count", nargs="?", type=int, default=200)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--shared", action="store_true")
    parser.add_argument("--only", default="")
    options = parser.parse_args()

    if options.shared:
        TARGETS.append("simd_tests")
    head = prepare(options.shared)
    files = run("git", "ls-files", "amodules/tarn/src", "host", cwd=TREE).stdout.split()
    files = [f for f in files if f.endswith((".cpp", ".h")) and f.startswith(options.only or ("amodules", "host"))
             and (options.shared or not f.startswith(SHARED))]
    all_sites = list(sites(files))
    if not all_sites:
        sys.exit("mutants: nothing to change there")
    print(f"{len(all_sites)} places to change in {len(files)} files", flush=True)
    log = WORK / f"{options.seed}{'-shared' if options.shared else ''}{options.only.replace('/', '-')}.jsonl"
    done = [json.loads(line) for line in log.read_text().splitlines()] if log.exists() else []
    done = {r["number"]: r for r in done if r["commit"] == head}
    with open(log, "w") as file:
        file.writelines(json.dumps(r) + "\n" for r in done.values())
    if not build():
        sys.exit("mutants: the commit itself can't be built")
    original = code_of()
    limits = {}  # seconds, of the tests that have passed without a change

    number = 0
    while sum(r["result"] in ("noticed", "SURVIVED") for r in done.values()) < options.count:
        number += 1
        if number in done:
            continue
        path, line, column, old, new = random.Random(f"{options.seed} {number}").choice(all_sites)
        tests = tests_for(path)
        for command in tests:
            if command in limits:
                continue
            began = time.monotonic()
            if not build() or fails(command, 3600):
                sys.exit(f"mutants: {command} fails without any change")
            limits[command] = 60 + 5 * (time.monotonic() - began)
        source = TREE / path
        text = source.read_text()
        lines = text.split("\n")
        lines[line - 1] = lines[line - 1][:column] + new + lines[line - 1][column + len(old):]
        began = time.monotonic()
        try:
            source.write_text("\n".join(lines))
            if not build():
                result, by = "not built", ""
            elif code_of() == original:
                result, by = "same code", ""
            else:
                by = next((how for how in (fails(command, limits[command]) for command in tests) if how), "")
                result = "noticed" if by else "SURVIVED"
        finally:
            source.write_text(text)
        done[number] = {"number": number, "commit": head, "file": path, "line": line, "change": [old, new], "result": result,
                        "by": by, "text": lines[line - 1].strip()}
        with open(log, "a") as file:
            file.write(json.dumps(done[number]) + "\n")
        took = time.monotonic() - began
        print(f"{number:4} {result:9} {path}:{line}: '{old.strip()}' -> '{new.strip()}'  {by or ''}  ({took:.0f} s)", flush=True)

    count = lambda result: sum(r["result"] == result for r in done.values())
    print(f"\nseed {options.seed}, commit {head[:9]}: {count('noticed')} changes noticed, {count('SURVIVED')} survived; "
          f"{count('same code')} made no other code, {count('not built')} could not be built")
    for r in sorted(done.values(), key=lambda r: (r["file"], r["line"])):
        if r["result"] == "SURVIVED":
            print(f"{r['file']}:{r['line']}: '{r['change'][0].strip()}' -> '{r['change'][1].strip()}': {r['text']}")


main()
