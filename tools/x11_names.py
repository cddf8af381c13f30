#!/usr/bin/env python3
"""Writes resources/names/x11.txt from an X11 rgb.txt (Debian: x11-common,
/usr/share/X11/rgb.txt).

    tools/x11_names.py [RGB_TXT] > resources/names/x11.txt

rgb.txt spells most names several ways ("alice blue", "AliceBlue"; "gray50",
"grey50"; "DarkGrey", "DarkGray"), always with the same channels. One spelling
per name is kept, at the place of the first: without blanks, and "gray" rather
than "grey". Two names are the same when they match once blanks are removed,
case is ignored and "grey" reads "gray".
"""

import sys

HEADER = """\
! X11 colour names, one spelling per name.
! From Debian 12's /usr/share/X11/rgb.txt (package x11-common), reduced by
! tools/x11_names.py: spaced variants ("alice blue") and "grey" spellings of a
! "gray" name (grey50, DarkGrey) are left out; the channels are unchanged.
! Copyright 1985, 1989, 1998 The Open Group; the X11 licence terms are in the
! package's copyright file (resources/linux/debian/copyright.in).
! Format: red green blue, a tab, the name. Lines starting with '!' are notes.
"""


def key(name):
    return name.replace(" ", "").lower().replace("grey", "gray")


def preference(name):
    # Lower is better: no blanks first, then the "gray" spelling.
    return (" " in name, "grey" in name.lower())


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else "/usr/share/X11/rgb.txt"
    groups = {}
    order = []
    with open(path, encoding="ascii") as source:
        for line in source:
            if line.startswith("!") or not line.strip():
                continue
            fields = line.split()
            rgb = tuple(int(v) for v in fields[:3])
            name = " ".join(fields[3:])
            k = key(name)
            if k not in groups:
                groups[k] = []
                order.append(k)
            groups[k].append((name, rgb))
    sys.stdout.write(HEADER)
    for k in order:
        variants = groups[k]
        if len({rgb for _, rgb in variants}) != 1:
            sys.exit(f"{path}: the spellings of {k} differ in colour: {variants}")
        name, rgb = min(variants, key=lambda v: preference(v[0]))
        sys.stdout.write(f"{rgb[0]:3d} {rgb[1]:3d} {rgb[2]:3d}\t{name}\n")


if __name__ == "__main__":
    main()
