#!/usr/bin/env python3
"""Draws the figures of docs/benchmarks.md from the tables in that page.

Usage: bench/plot.py [--check]

The page is the only source, so a figure cannot show other numbers than the text, and the same page
gives the same bytes. With --check nothing is written; the status is 1 where a figure is not what
its table gives.
"""
import math
import os
import sys
from xml.sax.saxutils import escape

DOCS = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, "docs")
# Told apart by people who see colours otherwise, too (Okabe and Ito, "Color Universal Design",
# 2008).
COLOURS = ("#0072b2", "#d55e00", "#009e73", "#cc79a7", "#56b4e9", "#e69f00")
SOLID, DASHED = "", "7 4"
AIMS = {SOLID: "2 4", DASHED: "9 3 2 3"}
WIDTH, HEIGHT = 760, 400
LEFT, RIGHT, TOP, BOTTOM = 70, 510, 50, 345  # of the axes; the legend is right of them


def tables(page):
    """Each table as a list of rows of cells, by the first cell of its head."""
    found, rows = {}, []
    for line in page.splitlines() + [""]:
        if line.startswith("|"):
            rows.append([cell.strip() for cell in line.strip("|").split("|")])
        elif rows:
            found[rows[0][0]] = [rows[0]] + rows[2:]
            rows = []
    return found


def numbers(cell):
    """Those in a cell: "1,234, 0.5" is two, what stands in brackets is none."""
    words = cell.split("(")[0].replace(", ", " ").replace(",", "").split()
    return [float(word) for word in words if word[0].isdigit()]


class Axis:
    """Places of values between `begin` and `end` on the page."""

    def __init__(self, title, ticks, begin, end, is_log):
        self.title, self.ticks = title, ticks
        self._scale = math.log if is_log else float
        self._begin, self._end = begin, end

    def __call__(self, value):
        low, high = self._scale(self.ticks[0]), self._scale(self.ticks[-1])
        share = (self._scale(value) - low) / (high - low)
        return f"{self._begin + share * (self._end - self._begin):.1f}"


class Figure:
    def __init__(self, title, x, y):
        """`x` and `y` are the title of an axis, its ticks and whether it is logarithmic."""
        self._x = Axis(*x[:2], LEFT, RIGHT, x[2])
        self._y = Axis(*y[:2], BOTTOM, TOP, y[2])
        self._lines = [
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
            f'width="{WIDTH}" height="{HEIGHT}" font-family="sans-serif" font-size="13">',
            f"<title>{escape(title)}</title>",
            '<rect width="100%" height="100%" fill="#ffffff"/>']
        self._text(LEFT, 28, title, 'font-size="15" font-weight="bold"')
        self._nr_series = 0
        self._axes()

    def _text(self, x, y, text, attributes=""):
        self._lines.append(f'<text x="{x}" y="{y}" fill="#222222" {attributes}>'
                           f"{escape(text)}</text>")

    def _line(self, x1, y1, x2, y2, attributes):
        self._lines.append(f'<line x1="{x1}" y1="{y1}" x2="{x2}" y2="{y2}" {attributes}/>')

    def _axes(self):
        grid = 'stroke="#dddddd"'
        for tick in self._x.ticks:
            self._line(self._x(tick), TOP, self._x(tick), BOTTOM, grid)
            self._text(self._x(tick), BOTTOM + 18, f"{tick:,}", 'text-anchor="middle"')
        for tick in self._y.ticks:
            self._line(LEFT, self._y(tick), RIGHT, self._y(tick), grid)
            self._text(LEFT - 8, float(self._y(tick)) + 4, f"{tick:,}", 'text-anchor="end"')
        middle = (TOP + BOTTOM) // 2
        self._text((LEFT + RIGHT) // 2, BOTTOM + 40, self._x.title, 'text-anchor="middle"')
        self._text(18, middle, self._y.title,
                   f'text-anchor="middle" transform="rotate(-90 18 {middle})"')

    def add(self, name, points, colour, dashes=SOLID):
        """A line through points (x, y), and its place in the legend."""
        stroke = f'stroke="{colour}" stroke-width="2" stroke-dasharray="{dashes or "none"}"'
        places = [(self._x(x), self._y(y)) for x, y in points]
        path = " ".join(f"{x},{y}" for x, y in places)
        self._lines.append(f'<polyline points="{path}" fill="none" {stroke}/>')
        if dashes not in AIMS.values():
            self._lines += [f'<circle cx="{x}" cy="{y}" r="3" fill="{colour}"/>'
                            for x, y in places]
        y = TOP + 12 + 22 * self._nr_series
        self._line(RIGHT + 16, y - 4, RIGHT + 46, y - 4, stroke)
        self._text(RIGHT + 54, y, name)
        self._nr_series += 1

    def __str__(self):
        return "\n".join(self._lines) + "\n</svg>\n"


def decades(values):
    """Powers of ten around them."""
    first, last = math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))
    return [10 ** power for power in range(first, last + 1)]


def batches_of(head):
    return [int(numbers(cell)[0]) for cell in head[1:]]


def share_of_bound(found):
    head, *rows = found["fastest call in ms, share of the bound"]
    batches = batches_of(head)
    figure = Figure("Speed of a search as a share of the machine's bound",
                    ("queries in a call", batches, True),
                    ("share", [0, 0.2, 0.4, 0.6, 0.8, 1], False))
    colours = iter(COLOURS)
    for name, *cells in rows:
        is_aim = name.startswith("aim")
        dashes = DASHED if "int8" in name else SOLID
        figure.add(name, [(batch, numbers(cell)[-1]) for batch, cell in zip(batches, cells)],
                   "#777777" if is_aim else next(colours), AIMS[dashes] if is_aim else dashes)
    return figure


def growth_by_rows(found):
    (_, _, *batches), *rows = found["fastest call in ms"]
    lines, name = {}, None
    for kind, nr_rows, *cells in rows:
        name = kind.split(" ")[0] or name
        for batch, cell in zip(batches, cells):
            lines.setdefault((name, batch), []).append((numbers(nr_rows)[0], numbers(cell)[0]))
    points = sum(lines.values(), [])
    figure = Figure("Time of a search by the number of rows, 128 elements each",
                    ("rows", decades([x for x, _ in points]), True),
                    ("ms", decades([y for _, y in points]), True))
    for (name, batch), points in lines.items():
        many = "query" if numbers(batch) == [1] else "queries"
        figure.add(f"{name}, {int(numbers(batch)[0])} {many}", points,
                   COLOURS[batches.index(batch)], SOLID if name == "float32" else DASHED)
    return figure


def peers(found):
    lines = {}
    for kind in ("float32", "8-bit"):
        head, *rows = found[kind + ", ms"]
        batches = batches_of(head)
        for name, *cells in rows:
            lines[name, kind] = [(batch, numbers(cell)[0] / batch)
                                 for batch, cell in zip(batches, cells)]
    figure = Figure("Exact search beside other libraries, one thread",
                    ("queries in a call", batches, True),
                    ("ms a query", decades([y for line in lines.values() for _, y in line]), True))
    names = list(dict.fromkeys(name for name, _ in lines))
    for (name, kind), points in lines.items():
        figure.add(f"{name}, {kind}", points, COLOURS[names.index(name)],
                   SOLID if kind == "float32" else DASHED)
    return figure


FIGURES = {"share-of-bound.svg": share_of_bound, "growth-by-rows.svg": growth_by_rows,
           "peers.svg": peers}


def main(arguments):
    with open(os.path.join(DOCS, "benchmarks.md"), encoding="utf-8") as page:
        found = tables(page.read())
    status = 0
    for name, draw in FIGURES.items():
        path, drawn = os.path.join(DOCS, name), str(draw(found))
        if arguments != ["--check"]:
            with open(path, "w", encoding="utf-8") as file:
                file.write(drawn)
            continue
        with open(path, encoding="utf-8") as file:
            if file.read() != drawn:
                print(f"{path} is not what the tables give; bench/plot.py draws it anew")
                status = 1
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
