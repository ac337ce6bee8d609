#!/usr/bin/env python3
"""Makes a picture and a table of what soak.py noted.

usage: report.py SOAK.CSV PICTURE.SVG
"""

import csv
import sys

WIDTH, LEFT, RIGHT, TOP = 900, 150, 20, 30
HEIGHT, GAP = 90, 26
BIN = 10
INK, FAINT = "#24292f", "#d0d7de"

# title, unit, divisor, the columns with their colours
PANELS = (
    ("descriptors, threads", "", 1, (("descriptors", "#0969da"), ("threads", "#bf3989"))),
    ("memory of its own", "MB", 1024, (("own", "#1a7f37"),)),
    ("memory shared (feeds)", "MB", 1024, (("shared", "#9a6700"),)),
    ("devices, their files in /tmp", "", 1, (("devices", "#8250df"), ("temporary", "#0969da"))),
    ("processor time", "% of a core", 1, (("cpu", "#cf222e"),)),
    ("heartbeat late by", "ms", 1, (("late", "#cf222e"),)),
    ("load of the machine", "", 1, (("load", "#57606a"),)),
)


def bins(rows, column, divisor):
    """(least, mean, most) of each ten seconds."""
    values = [float(row[column]) / divisor for row in rows]
    parts = [values[at:at + BIN] for at in range(0, len(values), BIN)]
    return [(min(part), sum(part) / len(part), max(part)) for part in parts]


def nice(most):
    """The least round number that holds `most`."""
    step = 1
    while True:
        for factor in (1, 2, 3, 4, 5, 6, 8):
            if factor * step >= most:
                return factor * step
        step *= 10


def panel(rows, top, title, unit, divisor, columns):
    series = [(colour, name, bins(rows, name, divisor)) for name, colour in columns]
    most = nice(max(high for _, _, points in series for _, _, high in points) or 1)
    across = (WIDTH - LEFT - RIGHT) / len(series[0][2])

    def place(index, value):
        return f"{LEFT + (index + 0.5) * across:.1f},{top + HEIGHT * (1 - value / most):.1f}"
    shapes = [f'<rect x="{LEFT}" y="{top}" width="{WIDTH - LEFT - RIGHT}" height="{HEIGHT}"'
              f' fill="none" stroke="{FAINT}"/>',
              f'<text x="{LEFT - 8}" y="{top + 10}" text-anchor="end">{most} {unit}</text>',
              f'<text x="{LEFT - 8}" y="{top + HEIGHT}" text-anchor="end">0</text>',
              f'<text x="{LEFT}" y="{top - 6}" font-weight="bold">{title}</text>']
    for number, (colour, name, points) in enumerate(series):
        high = [place(index, most_of) for index, (_, _, most_of) in enumerate(points)]
        low = [place(index, least) for index, (least, _, _) in enumerate(points)]
        mean = [place(index, middle) for index, (_, middle, _) in enumerate(points)]
        shapes.append(f'<polygon points="{" ".join(high + low[::-1])}" fill="{colour}"'
                      ' fill-opacity="0.25"/>')
        shapes.append(f'<polyline points="{" ".join(mean)}" fill="none" stroke="{colour}"/>')
        if len(series) > 1:
            shapes.append(f'<text x="{LEFT + 220 + 110 * number}" y="{top - 6}" fill="{colour}">'
                          f'{name}</text>')
    return "\n".join(shapes)


def picture(rows):
    height = TOP + len(PANELS) * (HEIGHT + GAP) + 20
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}"'
             f' font-family="sans-serif" font-size="12" fill="{INK}">',
             f'<rect width="{WIDTH}" height="{height}" fill="white"/>']
    for number, (title, unit, divisor, columns) in enumerate(PANELS):
        parts.append(panel(rows, TOP + number * (HEIGHT + GAP), title, unit, divisor, columns))
    minutes = len(rows) / 60
    for minute in range(0, int(minutes) + 1, 10):
        x = LEFT + (WIDTH - LEFT - RIGHT) * minute / minutes
        parts.append(f'<text x="{x:.0f}" y="{height - 14}" text-anchor="middle">{minute} min</text>')
    return "\n".join(parts) + "\n</svg>\n"


def table(rows):
    """Means and greatest values of each ten minutes."""
    yield ("| minutes | descriptors | threads | own memory, MB | shared, MB | files in /tmp | "
           "processor, % | late, ms | load |")
    yield "|---|---|---|---|---|---|---|---|---|"
    for begin in range(0, len(rows), 600):
        part = rows[begin:begin + 600]

        def both(column, divisor=1):
            values = [float(row[column]) / divisor for row in part]
            return f"{sum(values) / len(values):.1f}, {max(values):.0f}"
        cells = (both("descriptors"), both("threads"), both("own", 1024), both("shared", 1024),
                 both("temporary"), both("cpu"), both("late"), both("load"))
        yield f"| {begin // 60}–{(begin + len(part)) // 60} | " + " | ".join(cells) + " |"


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    with open(sys.argv[1], newline="", encoding="ascii") as file:
        rows = list(csv.DictReader(file))
    with open(sys.argv[2], "w", encoding="utf-8") as file:
        file.write(picture(rows))
    print("\n".join(table(rows)))


if __name__ == "__main__":
    main()
