#!/usr/bin/env python3
"""Reads a GIMP palette as Tintwell writes it, strictly, without Tintwell's
code: "GIMP Palette", "Name: ...", "Columns: 0", "#", then one
"RRR GGG BBB<TAB>name" line per swatch, each channel right-aligned in three
places. Prints {"name": ..., "swatches": [[name, r, g, b], ...]} as JSON, or
a reason on standard error and exit status 1.

    read_gpl.py FILE
"""
import json
import re
import sys

SWATCH = re.compile(r"^([ \d]{2}\d) ([ \d]{2}\d) ([ \d]{2}\d)\t([^\t\r\n]*)$")


def fail(why):
    print("read_gpl: " + why, file=sys.stderr)
    sys.exit(1)


def main():
    with open(sys.argv[1], "rb") as f:
        data = f.read()
    if not data.endswith(b"\n"):
        fail("the file does not end with a line feed")
    lines = data.decode("utf-8").split("\n")[:-1]
    if len(lines) < 4:
        fail("fewer than four header lines")
    if lines[0] != "GIMP Palette":
        fail("first line %r" % lines[0])
    if not lines[1].startswith("Name: "):
        fail("second line %r" % lines[1])
    if lines[2] != "Columns: 0":
        fail("third line %r" % lines[2])
    if lines[3] != "#":
        fail("fourth line %r" % lines[3])
    swatches = []
    for number, line in enumerate(lines[4:], start=5):
        m = SWATCH.match(line)
        if not m:
            fail("line %d is not a swatch: %r" % (number, line))
        channels = [int(m.group(i).strip()) for i in (1, 2, 3)]
        if any(c > 255 for c in channels):
            fail("line %d: channel above 255" % number)
        swatches.append([m.group(4)] + channels)
    print(json.dumps({"name": lines[1][len("Name: "):], "swatches": swatches}))


main()
