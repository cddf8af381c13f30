#!/usr/bin/env python3
"""Writes the ten battery drawings images/10.svg ... images/100.svg.

One outline, one terminal cap and a fill bar whose length is the level; the
bar turns amber at 30 % and below and red at 10 %. Run it again after changing
the look; the SVG files are the committed sources.
"""
import pathlib

HERE = pathlib.Path(__file__).resolve().parent.parent / "images"
TEMPLATE = """<svg xmlns="http://www.w3.org/2000/svg" width="40" height="20" viewBox="0 0 40 20">
  <title>battery {level} %</title>
  <rect x="1.5" y="3.5" width="33" height="13" rx="2.5" fill="none" stroke="#D9D9C6" stroke-width="1.5"/>
  <rect x="35.5" y="7.5" width="2.5" height="5" rx="1" fill="#D9D9C6"/>
  <rect x="3.5" y="5.5" width="{width:g}" height="9" rx="1" fill="{colour}"/>
</svg>
"""

for level in range(10, 101, 10):
    colour = "#E0604C" if level <= 10 else "#E8B64C" if level <= 30 else "#7CC86B"
    (HERE / f"{level}.svg").write_text(TEMPLATE.format(level=level, width=29 * level / 100, colour=colour))
