#!/usr/bin/env python3
"""Reads the CSS palette Tintwell writes, strictly, without Tintwell's code:
a "/* title */" line, ":root {", one "  --slug: #rrggbb;" line per swatch
(slug: lower-case letters and digits in runs joined by single '-'; no slug
twice), "}". Prints {"title": ..., "properties": [[slug, "#rrggbb"], ...]} as
JSON, or a reason on standard error and exit status 1.

    read_css.py FILE
"""
import json
import re
import sys

TITLE = re.compile(r"^/\* (.*) \*/$")
PROPERTY = re.compile(r"^  --([a-z0-9]+(?:-[a-z0-9]+)*): (#[0-9a-f]{6});$")


def fail(why):
    print("read_css: " + why, file=sys.stderr)
    sys.exit(1)


def main():
    with open(sys.argv[1], "rb") as f:
        data = f.read()
    if not data.endswith(b"\n"):
        fail("the file does not end with a line feed")
    lines = data.decode("utf-8").split("\n")[:-1]
    if len(lines) < 3:
        fail("fewer than three lines")
    title = TITLE.match(lines[0])
    if not title or "*/" in title.group(1):
        fail("first line %r" % lines[0])
    if lines[1] != ":root {" or lines[-1] != "}":
        fail("no :root rule")
    properties = []
    seen = set()
    for number, line in enumerate(lines[2:-1], start=3):
        m = PROPERTY.match(line)
        if not m:
            fail("line %d: %r" % (number, line))
        if m.group(1) in seen:
            fail("line %d: --%s twice" % (number, m.group(1)))
        seen.add(m.group(1))
        properties.append([m.group(1), m.group(2)])
    print(json.dumps({"title": title.group(1), "properties": properties}))


main()
