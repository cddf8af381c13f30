#!/usr/bin/env python3
"""Reads an Adobe Swatch Exchange file as Tintwell writes it, strictly,
without Tintwell's code: big-endian "ASEF", version 1.0, a block count, then
exactly that many colour blocks (type 0x0001; length; UTF-16BE name with its
NUL and its length in UTF-16 units; model "RGB "; three float32 from 0 to 1,
each a whole number of 255ths; colour type 2) and nothing after them. Prints
{"swatches": [[name, r, g, b], ...]} as JSON, or a reason on standard error
and exit status 1.

    read_ase.py FILE
"""
import json
import struct
import sys


def fail(why):
    print("read_ase: " + why, file=sys.stderr)
    sys.exit(1)


def main():
    with open(sys.argv[1], "rb") as f:
        data = f.read()
    if len(data) < 12 or data[:4] != b"ASEF":
        fail("no ASEF header")
    major, minor, count = struct.unpack(">HHI", data[4:12])
    if (major, minor) != (1, 0):
        fail("version %d.%d" % (major, minor))
    pos = 12
    swatches = []
    for block in range(count):
        if pos + 6 > len(data):
            fail("block %d: header past the end" % block)
        kind, length = struct.unpack(">HI", data[pos:pos + 6])
        pos += 6
        body = data[pos:pos + length]
        if len(body) != length:
            fail("block %d: body past the end" % block)
        pos += length
        if kind != 0x0001:
            fail("block %d: type 0x%04x" % (block, kind))
        (units,) = struct.unpack(">H", body[:2])
        name_end = 2 + 2 * units
        raw = body[2:name_end]
        if units < 1 or raw[-2:] != b"\0\0":
            fail("block %d: name without its NUL" % block)
        name = raw[:-2].decode("utf-16-be")
        model = body[name_end:name_end + 4]
        if model != b"RGB ":
            fail("block %d: model %r" % (block, model))
        rest = body[name_end + 4:]
        if len(rest) != 14:
            fail("block %d: %d bytes after the model, not 14" % (block, len(rest)))
        r, g, b, colour_type = struct.unpack(">fffH", rest)
        if colour_type != 2:
            fail("block %d: colour type %d" % (block, colour_type))
        channels = []
        for value in (r, g, b):
            if not 0.0 <= value <= 1.0:
                fail("block %d: value %r outside 0..1" % (block, value))
            scaled = value * 255.0
            if abs(scaled - round(scaled)) > 1e-3:
                fail("block %d: value %r is not a whole 255th" % (block, value))
            channels.append(int(round(scaled)))
        swatches.append([name] + channels)
    if pos != len(data):
        fail("%d bytes after the last block" % (len(data) - pos))
    print(json.dumps({"swatches": swatches}))


main()
