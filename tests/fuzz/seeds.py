"""Writes what the fuzzers of the readers begin with: seeds.py FOLDER TARN DEV. Pictures of every sample type, layout and
compression, arrays, and the command lines that the help gives as examples."""
import os
import re
import struct
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "tools"))
import pictures  # noqa: E402

folder, tarn = sys.argv[1], os.path.abspath(sys.argv[2])


def put(kind, name, data):
    os.makedirs(os.path.join(folder, kind), exist_ok=True)
    path = os.path.join(folder, kind, name)
    with open(path, "wb") as file:
        file.write(data)
    return path


def run(*words):
    return subprocess.run([tarn, *words], capture_output=True, text=True)


rows = {c: pictures.noise(9, 6, c, 0, 255) for c in (1, 2, 3, 4)}
for channels, picture in rows.items():
    for bits in (8, 16):
        put("picture", f"{channels}-{bits}.png", pictures.png(9, 6, channels, picture, bits))
    for sample in pictures.TIFF_SAMPLES:
        for order in "<>":
            for tile in (None, 16):
                for planar in (False, True):
                    name = f"{channels}-{sample}-{'be' if order == '>' else 'le'}-{tile}-{planar}.tif"
                    path = put("picture", name, pictures.tiff(9, 6, channels, picture, sample, order, tile, planar))
        for compression in ("lzw", "deflate"):  # the program's own, of the last
            run("copy", path, "-o", path[:-4] + f"-{compression}.tif", "--compression", compression)
for photometric in (0, 3):
    put("picture", f"photometric-{photometric}.tif", pictures.tiff(9, 6, 1, rows[1], photometric=photometric))
for channels in (1, 3):
    source = os.path.join(folder, "picture", f"{channels}-8.png")
    for quality in ("40", "95"):
        run("copy", source, "-o", source[:-4] + f"-{quality}.jpg", "--quality", quality)

for version in (1, 2, 3):
    for kind, size in (("|u1", 1), ("<i2", 2), ("<i4", 4), ("<f4", 4), (">f4", 4), ("<f8", 8)):
        for shape in ((), (6,), (2, 3), (1, 1, 2, 3)):
            for fortran in (False, True):
                head = f"{{'descr': '{kind}', 'fortran_order': {fortran}, 'shape': {shape}, }}\n".encode()
                length = struct.pack("<H" if version == 1 else "<I", len(head))
                values = bytes(size * (6 if shape else 1))
                put("array", f"{version}{kind[1:]}{kind[0] == '>'}{len(shape)}{fortran}.npy",
                    b"\x93NUMPY" + bytes((version, 0)) + length + head + values)

words = set()
names = re.findall(r"^  ([a-z][a-z0-9-]+)  ", run("--help").stdout, re.M)
for name in names:
    text = run("help", name).stdout
    example = text.rsplit("Example:", 1)[-1].split()[1:]
    put("command_line", name, "".join(word + "\n" for word in example).encode())
    words.update([name], example, re.findall(r"--[a-z-]+", text))
if not words:
    sys.exit("seeds.py: the program's help names no commands")
put(".", "words", "".join(f'"{word}"\n' for word in sorted(words) if word.isascii() and '"' not in word and '\\' not in word).encode())
