# SPDX-License-Identifier: MIT
"""Just enough SVG for clean charts: no dependency, and the files stay small and readable."""

from xml.sax.saxutils import escape

FONT = "font-family='DejaVu Sans, Helvetica, Arial, sans-serif'"
INK, FAINT, GRID = "#222222", "#666666", "#e4e4e4"


class Drawing:
    def __init__(self, width, height):
        self.width, self.height = width, height
        self.parts = []

    def text(self, x, y, text, size=13, anchor="start", colour=INK, weight="normal"):
        self.parts.append(f"<text x='{x:.1f}' y='{y:.1f}' font-size='{size}' text-anchor='{anchor}' fill='{colour}' "
                          f"font-weight='{weight}'>{escape(text)}</text>")

    def line(self, x1, y1, x2, y2, colour=GRID, width=1.0):
        self.parts.append(f"<line x1='{x1:.1f}' y1='{y1:.1f}' x2='{x2:.1f}' y2='{y2:.1f}' stroke='{colour}' "
                          f"stroke-width='{width}'/>")

    def bar(self, x, y, width, height, colour):
        self.parts.append(f"<rect x='{x:.1f}' y='{y:.1f}' width='{max(width, 0.8):.1f}' height='{height:.1f}' rx='1.5' "
                          f"fill='{colour}'/>")

    def path(self, points, colour, width=2.2):
        steps = " ".join(f"{'L' if index else 'M'}{x:.1f} {y:.1f}" for index, (x, y) in enumerate(points))
        self.parts.append(f"<path d='{steps}' fill='none' stroke='{colour}' stroke-width='{width}' "
                          f"stroke-linejoin='round'/>")

    def dot(self, x, y, colour, radius=4.0):
        self.parts.append(f"<circle cx='{x:.1f}' cy='{y:.1f}' r='{radius}' fill='{colour}'/>")

    def save(self, path):
        path.write_text(f"<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 {self.width} {self.height}' "
                        f"width='{self.width}' "
                        f"height='{self.height}' {FONT}>\n<rect width='100%' height='100%' fill='white'/>\n"
                        + "\n".join(self.parts) + "\n</svg>\n", encoding="utf-8")


def round_steps(top, wanted=4):
    """Round numbers from 0 up to the first one that is not below `top`."""
    if top <= 0:
        return [0, 1]
    magnitude = 10.0
    while magnitude > top:
        magnitude /= 10
    while magnitude * 10 <= top:
        magnitude *= 10
    step = min((magnitude * factor for factor in (0.1, 0.2, 0.25, 0.5, 1, 2, 2.5, 5)
                if top / (magnitude * factor) <= wanted + 0.5),
               default=top)
    steps = [0.0]
    while steps[-1] < top:
        steps.append(steps[-1] + step)
    return steps


def number(value):
    """A figure for a label, with as many digits as say something."""
    if value >= 100 or value == int(value):
        return f"{value:,.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}".rstrip("0").rstrip(".")
