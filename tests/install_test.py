#!/usr/bin/env python3
"""Installs the build into a folder, moves that elsewhere, and uses it as a stranger would: each header alone, the example by
pkg-config and by find_package, the program.

usage: install_test.py CMAKE BUILD EXAMPLE CC CXX
"""
import os
import pathlib
import shutil
import subprocess
import sys

PROJECT = """cmake_minimum_required(VERSION 3.22)
project(stranger LANGUAGES C)
find_package(tarn 0.1 REQUIRED)
add_executable(scale {example})
target_link_libraries(scale PRIVATE tarn::tarn)
"""
STRICT = ["-Wall", "-Wextra", "-pedantic", "-Werror"]


def run(*command, env=None):
    # Nothing of the caller's: neither other packages nor libraries of the build.
    own = {k: v for k, v in os.environ.items() if k not in ("LD_LIBRARY_PATH", "PKG_CONFIG_PATH", "CPATH")}
    done = subprocess.run([str(c) for c in command], env={**own, **(env or {})}, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT)
    if done.returncode:
        sys.exit(f"{' '.join(map(str, command))}: exit status {done.returncode}\n{done.stdout}")
    return done.stdout


def main():
    cmake, build, example, cc, cxx = sys.argv[1:]
    place = pathlib.Path(build, "tests", "install")
    shutil.rmtree(place, ignore_errors=True)
    run(cmake, "--install", build, "--prefix", place / "first")
    prefix = (place / "first").rename(place / "prefix")

    include = prefix / "include" / "tarn"
    headers = sorted(str(h.relative_to(include)) for h in include.rglob("*.h"))
    for header in headers:
        for compiler, language, standard in ((cc, "c", "c11"), (cxx, "c++", "c++20")):
            alone = place / f"alone.{language}"
            alone.write_text(f'#include "{header}"\nint alone;\n')
            run(compiler, f"-std={standard}", "-x", language, *STRICT, f"-I{include}", "-fsyntax-only", alone)

    packages = {"PKG_CONFIG_PATH": prefix / "lib" / "pkgconfig"}
    flags = run("pkg-config", "--cflags", "--libs", "tarn", env=packages).split()
    run(cc, "-std=c11", *STRICT, example, *flags, f"-Wl,-rpath,{prefix / 'lib'}", "-o", place / "scale")
    by_pkg_config = run(place / "scale")

    (place / "CMakeLists.txt").write_text(PROJECT.format(example=example))
    run(cmake, "-S", place, "-B", place / "build", f"-DCMAKE_PREFIX_PATH={prefix}", f"-DCMAKE_C_COMPILER={cc}")
    run(cmake, "--build", place / "build")
    by_cmake = run(place / "build" / "scale")

    # What is installed has its versions, all addresses fixed before it runs, and nothing that only tests use.
    for file in [prefix / "bin" / "tarn", *(prefix / "lib").rglob("*.so")]:
        about = run("readelf", "-dW", file) + run("nm", "-D", "--defined-only", file)
        if "NOW" not in about or "TEST" in about or file.name in ("libKa.so", "libLumo.so") and f"[{file.name}.0." not in about:
            sys.exit(f"{file}:\n{about}")

    # The module and its host need none of the program's libraries.
    absent = [f"-DCMAKE_DISABLE_FIND_PACKAGE_{name}=ON" for name in ("PNG", "JPEG", "TIFF", "CLI11", "nlohmann_json")]
    run(cmake, "-S", pathlib.Path(example).parents[1], "-B", place / "bare", "-DTARN_PROGRAM=OFF", *absent)

    info = run(prefix / "bin" / "tarn", "info")
    ok = len(headers) >= 8 and by_pkg_config == by_cmake and "pixel (100, 50)" in by_cmake and str(prefix) in info
    print(*headers, by_pkg_config, by_cmake, info, sep="\n")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
