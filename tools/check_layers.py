#!/usr/bin/env python3
"""Checks that every product source file includes only from its own part or
from parts below it in the layer order (docs/DESIGN.md, "Layer order").

    tools/check_layers.py [ROOT]

ROOT is the source tree (default: the one this script is in). Prints one line
per wrong include, "FILE:LINE: PART includes HEADER (PART2): why", and exits 1
when there is any; exits 0 and prints a one-line summary otherwise.
"""

import os
import re
import sys

# (path prefix in the tree, part, rank). The longest matching prefix names a
# file's part. A part may include its own files and any part of a lower rank;
# parts of the same rank are independent of each other.
PARTS = [
    ("src/common/", "common", 0),
    ("src/events/", "events", 1),
    ("resources/", "resources", 2),
    ("src/color/", "color", 3),
    ("src/library/", "library", 4),
    ("src/pen/", "pen", 4),
    ("src/telemetry/", "telemetry", 4),
    ("src/bridge/", "bridge", 4),
    ("src/app/", "panel", 5),
    ("src/tools/", "tools", 6),
    ("src/app/cli/", "cli", 7),
    ("src/app/desktop/", "desktop", 7),
    ("src/app/main.cpp", "main", 8),
]

# Edges between parts of the same rank that the design keeps on purpose.
# The bridge counts pushes into the usage records it shares with the sender;
# the records are all it takes from telemetry (the sender, in turn, sees the
# bridge only through ApplicationUsageCounters, declared next to the records).
ALLOWED = {
    ("bridge", "telemetry/UsageRecords.h"),
}

# How a quoted include names a file: the first folder of the include path.
INCLUDE_ROOTS = {
    "common": "src/common/",
    "events": "src/events/",
    "color": "src/color/",
    "library": "src/library/",
    "pen": "src/pen/",
    "telemetry": "src/telemetry/",
    "bridge": "src/bridge/",
    "app": "src/app/",
    "tools": "src/tools/",
    "resources": "resources/",
}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')
SOURCE_SUFFIXES = (".h", ".hpp", ".cpp", ".in")


def part_of(path):
    best = None
    for prefix, name, rank in PARTS:
        if path == prefix or path.startswith(prefix):
            if best is None or len(prefix) > len(best[0]):
                best = (prefix, name, rank)
    return best


def check(root):
    problems = []
    files = 0
    for top in ("src", "resources"):
        for folder, _, names in os.walk(os.path.join(root, top)):
            for name in sorted(names):
                if not name.endswith(SOURCE_SUFFIXES):
                    continue
                full = os.path.join(folder, name)
                path = os.path.relpath(full, root).replace(os.sep, "/")
                own = part_of(path)
                if own is None:
                    problems.append(f"{path}:1: belongs to no part of the layer order")
                    continue
                files += 1
                with open(full, encoding="utf-8", errors="replace") as f:
                    for number, line in enumerate(f, 1):
                        m = INCLUDE.match(line)
                        if not m:
                            continue
                        header = m.group(1)
                        problem = judge(own, header)
                        if problem:
                            problems.append(f"{path}:{number}: {problem}")
    return files, problems


def judge(own, header):
    _, own_name, own_rank = own
    if "/" not in header:
        return None  # generated in the same folder (moc output)
    first = header.split("/", 1)[0]
    if first == "tests":
        return f"{own_name} includes {header}: product code never includes test code"
    root = INCLUDE_ROOTS.get(first)
    if root is None:
        return f"{own_name} includes {header}: a folder outside the layer order"
    target = part_of(root + header.split("/", 1)[1])
    if target is None:
        return f"{own_name} includes {header}: a file outside the layer order"
    _, target_name, target_rank = target
    if target_name == own_name or (own_name, header) in ALLOWED:
        return None
    if target_rank < own_rank:
        return None
    if target_rank == own_rank:
        return (f"{own_name} includes {header} ({target_name}): "
                f"parts of the same layer are independent")
    return f"{own_name} includes {header} ({target_name}): {target_name} is above {own_name}"


def main(argv):
    root = argv[1] if len(argv) > 1 else os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    files, problems = check(root)
    for p in problems:
        print(p)
    if problems:
        print(f"layer order: {len(problems)} wrong include(s) in {files} files")
        return 1
    if files == 0:
        print(f"layer order: no source files under {root}")
        return 1
    print(f"layer order: {files} files, every include from its own part or one below")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
