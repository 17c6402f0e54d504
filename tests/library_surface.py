#!/usr/bin/env python3
"""Checks what the module's shared library exports (one symbol), needs (the host libraries, libc, libm) and may change of its own
data (its records, the level), and that the host's libraries export every function and object that a header declares.

usage: library_surface.py MODULE FOLDER... -- LIBRARY...   (folders of headers; the host's libraries)
"""
import pathlib
import re
import subprocess
import sys

ALLOWED = {"libKa.so", "libLumo.so", "libc.so", "libm.so", "ld-linux-x86-64.so"}

# Nothing else could be a state that calls share.
CHANGES = {"active_level", "active_sublevel", "stream_bytes", "interface_cell", "interface_record", "module_descriptor",
           "registration"}


def changing_data_of(path):
    lines = subprocess.run(["nm", "-C", "--format=sysv", path], check=True, capture_output=True, text=True).stdout.splitlines()
    rows = [[field.strip() for field in line.split("|")] for line in lines if line.count("|") >= 6]
    names = {row[0].split("::")[-1] for row in rows if row[3] == "OBJECT" and row[-1] in (".data", ".bss", ".tdata", ".tbss")}
    return {name for name in names if name != "completed.0" and not name.startswith("__")}  # the linker's and start files' own


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
    changing = changing_data_of(path)
    ok = changing <= CHANGES and {"active_level", "interface_cell"} <= changing
    ok = ok and exported == ["_G_quel_module"] and {re.sub(r"[.0-9]*$", "", name) for name in needed} <= ALLOWED
    ok = ok and len(declared) >= 60 and not missing
    print(len(declared), "names declared, not exported:", *sorted(missing))
    print("exports", *exported)
    print("needs", *sorted(needed))
    print("may change", *sorted(changing))
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
