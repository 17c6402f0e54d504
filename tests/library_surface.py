#!/usr/bin/env python3
"""Checks what the module's shared library exports (one symbol) and needs (the host libraries, libc, libm).

usage: library_surface.py FILE
"""
import re
import subprocess
import sys

ALLOWED = {"libKa.so", "libLumo.so", "libc.so.6", "libm.so.6", "ld-linux-x86-64.so.2"}


def main():
    path = sys.argv[1]
    nm = subprocess.run(["nm", "-D", "--defined-only", path], check=True, capture_output=True, text=True).stdout
    exported = [line.split()[-1] for line in nm.splitlines()]
    elf = subprocess.run(["readelf", "-d", path], check=True, capture_output=True, text=True).stdout
    needed = set(re.findall(r"NEEDED.*\[(.*)\]", elf))
    ok = exported == ["_G_quel_module"] and needed <= ALLOWED
    print("exports", *exported)
    print("needs", *sorted(needed))
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
