#!/usr/bin/env python3
"""Checks what the module's shared library exports (one symbol) and needs (the host libraries, libc, libm), and that the host's
libraries export every function and object that a header declares.

usage: library_surface.py MODULE FOLDER... -- LIBRARY...   (folders of headers; the host's libraries)
"""
import pathlib
import re
import subprocess
import sys

ALLOWED = {"libKa.so", "libLumo.so", "libc.so", "libm.so", "ld-linux-x86-64.so"}


def exports_of(path):
    nm = subprocess.run(["nm", "-D", "--defined-only", path], check=True, capture_output=True, text=True).stdout
    return [line.split()[-1] for line in nm.splitlines()]


def main():
    path, *rest = sys.argv[1:]
    folders, libraries = rest[:rest.index("--")], rest[rest.index("--") + 1:]
    headers = [header for folder in folders for header in pathlib.Path(folder).rglob("*.h") if header.name != "test.h"]
    declaration = re.compile(r"^(?:extern )?KA_API\b[^;]*?(\w+)(?:\[\w*\])?[(;]", re.M)
    declared = {name for header in headers for name in declaration.findall(header.read_text())}
    missing = declared - {name for library in libraries for name in exports_of(library)}
    exported = exports_of(path)
    elf = subprocess.run(["readelf", "-d", path], check=True, capture_output=True, text=True).stdout
    needed = set(re.findall(r"NEEDED.*\[(.*)\]", elf))
    ok = exported == ["_G_quel_module"] and {re.sub(r"[.0-9]*$", "", name) for name in needed} <= ALLOWED and len(declared) >= 60 and not missing
    print(len(declared), "names declared, not exported:", *sorted(missing))
    print("exports", *exported)
    print("needs", *sorted(needed))
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
