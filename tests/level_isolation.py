#!/usr/bin/env python3
"""Reads the kernel layer's objects and names what would let one processor level's code reach another.

Objects of every level may define only symbols of their own namespace (or local ones), none of them weak, and need nothing
but libc's memory functions and libm; code below a level's machine may hold no wider registers than that machine has.

usage: level_isolation.py OBJECT...   (paths contain kernels_<level> or kernels_runtime)
"""
import re
import subprocess
import sys

LEVELS = ["sse2", "ssse3", "sse42", "avx2", "avx512"]
# Registers and encodings that a level's machine does not have, by a pattern over the disassembly. tzcnt is not among them: it
# is bsf where it is unknown. popcnt comes with no level below avx2: level 2 is chosen without it too.
WIDE = r"%[yz]mm|\sv[a-z]+[0-9a-z]*\s+.*%xmm|%k[0-7]"
V3 = WIDE + r"|\s(popcnt|lzcnt|movbe|andn|bextr|bls[ir]|blsmsk|pdep|pext|mulx|rorx|s[ahl][rl]x)[lq]?\s"
SSE4 = V3 + (r"|\s(crc32|pblend|blend|insertps|extractps|dpp[sd]|round[ps][sd]|ptest|mpsadbw|phminposuw|packusdw|movntdqa|"
             r"p(min|max)(sb|sd|ud|uw)|pmov[sz]x|pmulld|pmuldq|p(ins|ext)r[bdq]|pcmp(eqq|gtq|[ei]str))")
FORBIDDEN = {
    "sse2": SSE4 + r"|\s(p(shufb|align|maddubsw|mulhrsw|h(add|sub)|abs|sign)|h(add|sub)p|addsubp|lddqu|mov(d|sh|sl)dup)",
    "ssse3": SSE4,
    "sse42": V3,
    "avx2": r"%zmm|%k[0-7]|%[xy]mm(1[6-9]|2[0-9]|3[01])",
    "avx512": r"\svp(ermb|ermi2b|ermt2b|multishiftqb|dpbusd|dpwssd|compressb|compressw|expandb|shldv|shrdv)|gf2p8",
    "runtime": V3,
}
LIBRARY = {"memcpy", "memmove", "memset", "memcmp", "memchr", "sin", "cos", "floor", "floorf", "exp", "pow", "lroundf",
           "nearbyint", "nearbyintf", "rint", "rintf", "__stack_chk_fail", "_GLOBAL_OFFSET_TABLE_"}


def level_of(path):
    m = re.search(r"kernels_(\w+?)\.dir", path)
    return m.group(1) if m else None


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def problems(path):
    level = level_of(path)
    if level not in FORBIDDEN:
        yield f"{path}: not an object of a level"
        return
    own = re.compile(rf"tarn::k::{level}::")
    for line in run("nm", "-C", path).splitlines():
        kind, name = line[17:18], line[19:]
        if kind in "WwVvu":
            yield f"{path}: weak symbol {name}"
        elif kind in "TDBRC" and level in LEVELS and not own.search(name):
            yield f"{path}: defines {name} outside of its namespace"
        elif kind == "U" and level in LEVELS and name not in LIBRARY and not name.startswith("tarn::k::"):
            yield f"{path}: needs {name}"
        elif kind == "U" and level in LEVELS and re.match(r"tarn::k::(" + "|".join(set(LEVELS) - {level}) + ")::", name):
            yield f"{path}: calls another level: {name}"
    wide = re.compile(FORBIDDEN[level])
    function = "?"
    for line in run("objdump", "-d", "-C", "--no-show-raw-insn", path).splitlines():
        if line.endswith(">:"):
            function = line.split("<", 1)[1][:-2]
        elif wide.search(line):
            yield f"{path}: {function}: instruction that the level's machine lacks: {line.strip()}"
            break


def main():
    found = [p for path in sys.argv[1:] for p in problems(path)]
    for p in found:
        print(p)
    print(f"{len(sys.argv) - 1} objects read, {len(found)} problems")
    return 1 if found or len(sys.argv) < 2 else 0


if __name__ == "__main__":
    sys.exit(main())
