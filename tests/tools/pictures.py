"""PNG and TIFF files made and read with nothing but the standard library, so that the program's own libraries are not
their own witness. A picture is (width, height, channels, rows of plain numbers)."""
import random
import struct
import zlib

PNG_COLOUR = {1: 0, 2: 4, 3: 2, 4: 6}  # channels -> colour type
TIFF_SAMPLES = {"u8": (8, 1, "B"), "u16": (16, 1, "H"), "s16": (16, 2, "h"), "s32": (32, 2, "i"), "u32": (32, 1, "I"),
                "f32": (32, 3, "f")}  # name -> bits, sample format, struct code


def noise(width, height, channels, low, high, seed=1):
    """Rows of random whole numbers, both ends of the range among them."""
    r = random.Random(seed)
    rows = [[r.randint(low, high) for _ in range(width * channels)] for _ in range(height)]
    rows[0][0], rows[-1][-1] = low, high
    return rows


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png_header(width, height, bits, colour, interlace=0):
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, bits, colour, 0, 0, interlace))


def png(width, height, channels, rows, bits=8):
    code = "B" if bits == 8 else "H"
    data = b"".join(b"\0" + struct.pack(f">{len(row)}{code}", *row) for row in rows)
    return png_header(width, height, bits, PNG_COLOUR[channels]) + chunk(b"IDAT", zlib.compress(data)) + chunk(b"IEND", b"")


def read_png(data):
    """-> (width, height, channels, bits, rows)"""
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    at, packed = 8, b""
    while at < len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + size]
        if kind == b"IHDR":
            width, height, bits, colour, _, _, interlace = struct.unpack(">IIBBBBB", body)
        if kind == b"IDAT":
            packed += body
        at += size + 12
    assert interlace == 0
    channels = {v: k for k, v in PNG_COLOUR.items()}[colour]
    step = channels * bits // 8
    raw, stride = zlib.decompress(packed), width * step
    before, rows = bytearray(stride), []
    for y in range(height):
        kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        if kind == 2:
            line = bytearray((a + b) & 255 for a, b in zip(line, before))
        elif kind:
            for i in range(stride):
                left, up, corner = (line[i - step], before[i], before[i - step]) if i >= step else (0, before[i], 0)
                guess = left + up - corner
                near = min((abs(guess - v), n) for n, v in enumerate((left, up, corner)))[1]
                line[i] = (line[i] + (left, None, (left + up) // 2, (left, up, corner)[near])[kind - 1]) & 255
        rows.append(list(struct.unpack(f">{stride * 8 // bits}{'B' if bits == 8 else 'H'}", line)))
        before = line
    return width, height, channels, bits, rows


def tiff(width, height, channels, rows, sample="u8", order="<", tile=None, planar=False, photometric=None, extra=2, bits=None):
    """An uncompressed TIFF: one strip (a plane each when planar), or square tiles of this size."""
    sample_bits, sample_format, code = TIFF_SAMPLES[sample]
    grey = channels <= 2
    planes = [[row[c::channels] for row in rows] for c in range(channels)] if planar else [rows]
    per_pixel = 1 if planar else channels
    blocks = []
    for plane in planes:
        if not tile:
            blocks.append(b"".join(struct.pack(f"{order}{len(row)}{code}", *row) for row in plane))
            continue
        for top in range(0, height, tile):
            for left in range(0, width, tile):
                block = b""
                for y in range(top, top + tile):
                    line = plane[y][left * per_pixel:(left + tile) * per_pixel] if y < height else []
                    line = line + [0] * (tile * per_pixel - len(line))
                    block += struct.pack(f"{order}{len(line)}{code}", *line)
                blocks.append(block)
    at, offsets = 8, []
    for block in blocks:
        offsets.append(at)
        at += len(block)
    at += at % 2
    tags = {256: [4, width], 257: [4, height], 258: [3] + [bits or sample_bits] * channels, 259: [3, 1],
            262: [3, photometric if photometric is not None else 1 if grey else 2], 277: [3, channels],
            284: [3, 2 if planar else 1], 339: [3] + [sample_format] * channels}
    if tile:
        tags.update({322: [3, tile], 323: [3, tile], 324: [4] + offsets, 325: [4] + [len(b) for b in blocks]})
    else:
        tags.update({273: [4] + offsets, 278: [4, height], 279: [4] + [len(b) for b in blocks]})
    if channels in (2, 4):
        tags[338] = [3, extra]
    body, directory, after = b"", struct.pack(order + "H", len(tags)), at + 2 + 12 * len(tags) + 4
    for tag in sorted(tags):
        kind, *values = tags[tag]
        packed = struct.pack(f"{order}{len(values)}{'H' if kind == 3 else 'I'}", *values)
        if len(packed) > 4:
            place, body = struct.pack(order + "I", after + len(body)), body + packed
        else:
            place = packed.ljust(4, b"\0")
        directory += struct.pack(order + "HHI", tag, kind, len(values)) + place
    head = (b"II*\0" if order == "<" else b"MM\0*") + struct.pack(order + "I", at)
    return (head + b"".join(blocks)).ljust(at, b"\0") + directory + bytes(4) + body


def tiff_pages(*pages):
    """A little-endian TIFF of several pictures, each (tags, data): tags are number -> (type, values), data one strip."""
    out = bytearray(b"II*\0" + bytes(4))
    link = 4  # where the next directory's place belongs
    for tags, data in pages:
        tags = {**tags, 273: (4, [len(out)]), 279: (4, [len(data)])}
        out += data + bytes(len(data) % 2)
        places = {}
        for tag, (kind, values) in tags.items():
            packed = struct.pack(f"<{len(values)}{'.BBHI'[kind]}", *values)
            places[tag] = (packed if len(packed) <= 4 else struct.pack("<I", len(out))).ljust(4, b"\0")
            out += packed + bytes(len(packed) % 2) if len(packed) > 4 else b""
        struct.pack_into("<I", out, link, len(out))
        out += struct.pack("<H", len(tags))
        for tag, place in sorted(places.items()):
            out += struct.pack("<HHI", tag, tags[tag][0], len(tags[tag][1])) + place
        link = len(out)
        out += bytes(4)
    return bytes(out)


def read_tiff(data):
    """An uncompressed little-endian TIFF of strips -> (tags, rows)"""
    assert data[:4] == b"II*\0"
    at = struct.unpack("<I", data[4:8])[0]
    tags = {}
    for i in range(struct.unpack("<H", data[at:at + 2])[0]):
        tag, kind, count, place = struct.unpack("<HHII", data[at + 2 + 12 * i:at + 14 + 12 * i])
        if kind not in (3, 4):
            continue
        size = 2 if kind == 3 else 4
        start = place if count * size > 4 else at + 10 + 12 * i
        tags[tag] = struct.unpack(f"<{count}{'H' if kind == 3 else 'I'}", data[start:start + count * size])
    raw = b"".join(data[o:o + n] for o, n in zip(tags[273], tags[279]))
    code = {(b, f): c for b, f, c in TIFF_SAMPLES.values()}[tags[258][0], tags[339][0]]
    values = struct.unpack(f"<{len(raw) * 8 // tags[258][0]}{code}", raw)
    line = tags[256][0] * tags[277][0]
    return tags, [list(values[y * line:(y + 1) * line]) for y in range(tags[257][0])]
