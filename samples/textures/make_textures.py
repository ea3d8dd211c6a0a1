#!/usr/bin/env python3
"""Writes the demo's four 64 x 64 cube textures, one per file format that the
plug-in loads through D3DX: crate.bmp, bricks.tga, checker.png, tiles.dds (with
its full chain of mip levels). Drawn here from simple rules; run it again to
remake them:  python3 samples/textures/make_textures.py"""
import os
import struct
import zlib

SIZE = 64
HERE = os.path.dirname(os.path.abspath(__file__))


def crate(x, y):
    border = x < 4 or y < 4 or x >= SIZE - 4 or y >= SIZE - 4
    diagonal = abs(x - y) < 3 or abs(x + y - SIZE + 1) < 3
    if border or diagonal:
        return (110, 70, 30)
    plank = (y // 8) % 2
    grain = 12 if (x * 7 + y * 3) % 11 < 2 else 0
    return (190 - 20 * plank - grain, 140 - 15 * plank - grain, 70 - grain)


def bricks(x, y):
    row = y // 8
    shift = 8 if row % 2 else 0
    mortar = y % 8 == 0 or (x + shift) % 16 == 0
    if mortar:
        return (200, 200, 190)
    tone = ((x + shift) // 16 * 37 + row * 53) % 40
    return (150 + tone, 50 + tone // 2, 40)


def checker(x, y):
    return (235, 235, 235) if (x // 8 + y // 8) % 2 == 0 else (40, 90, 200)


def tiles(x, y):
    cx, cy = x % 16 - 7.5, y % 16 - 7.5
    if x % 16 == 0 or y % 16 == 0:
        return (30, 30, 30)
    if cx * cx + cy * cy < 25:
        return (240, 200, 40)
    return (40, 160, 90)


def pixels(rule, size=SIZE):
    return [[rule(x * SIZE // size, y * SIZE // size) for x in range(size)] for y in range(size)]


def write_bmp(path, rows):
    data = b"".join(bytes(c for p in row for c in (p[2], p[1], p[0])) for row in reversed(rows))
    header = struct.pack("<2sIHHI", b"BM", 54 + len(data), 0, 0, 54)
    info = struct.pack("<IiiHHIIiiII", 40, SIZE, SIZE, 1, 24, 0, len(data), 2835, 2835, 0, 0)
    with open(path, "wb") as f:
        f.write(header + info + data)


def write_tga(path, rows):
    header = struct.pack("<BBBHHBHHHHBB", 0, 0, 2, 0, 0, 0, 0, 0, SIZE, SIZE, 32, 0x28)
    data = b"".join(bytes(c for p in row for c in (p[2], p[1], p[0], 255)) for row in rows)
    with open(path, "wb") as f:
        f.write(header + data)


def write_png(path, rows):
    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
    raw = b"".join(b"\0" + bytes(c for p in row for c in p) for row in rows)
    png = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", SIZE, SIZE, 8, 2, 0, 0, 0))
    png += chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")
    with open(path, "wb") as f:
        f.write(png)


def write_dds(path, rule):
    levels = SIZE.bit_length()
    header = struct.pack("<4sIIIIIII", b"DDS ", 124, 0x2100F, SIZE, SIZE, SIZE * 4, 0, levels)
    header += b"\0" * 44
    header += struct.pack("<IIIIIIII", 32, 0x41, 0, 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000)
    header += struct.pack("<IIIII", 0x401008, 0, 0, 0, 0)
    data = b""
    size = SIZE
    while size >= 1:
        data += b"".join(bytes(c for p in row for c in (p[2], p[1], p[0], 255)) for row in pixels(rule, size))
        size //= 2
    with open(path, "wb") as f:
        f.write(header + data)


if __name__ == "__main__":
    write_bmp(os.path.join(HERE, "crate.bmp"), pixels(crate))
    write_tga(os.path.join(HERE, "bricks.tga"), pixels(bricks))
    write_png(os.path.join(HERE, "checker.png"), pixels(checker))
    write_dds(os.path.join(HERE, "tiles.dds"), tiles)
