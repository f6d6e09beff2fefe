# SPDX-License-Identifier: MIT
"""The charts of a run: visibility.svg, cost.svg, day.svg, and one of bars for each scenario that has a module of its
own."""

from .results import SUBJECT_TITLES, memory_each, middle
from .svg import FAINT, GRID, INK, Drawing, number, round_steps

# Distinguishable without colour vision too (Okabe and Ito).
COLOURS = {"mdnsproxy": "#0072B2", "reflector": "#D55E00", "reflector-filtered": "#E69F00", "floor": "#8C8C8C"}
_LABEL = 150  # width of the column of names beside bars


def draw_all(results, directory, modules=()):
    """Draws what the results have; the files."""
    written = []
    if results.get("scale"):
        written += [_visibility(results["scale"], directory / "visibility.svg"),
                    _cost(results["scale"], directory / "cost.svg")]
    if results.get("day"):
        written.append(_day(results["day"], directory / "day.svg"))
    for module in modules:
        chart = module.chart(results[module.NAME]) if module.NAME in results else None
        if chart and chart[2]:
            written.append(bar_chart(directory / f"{module.NAME}.svg", *chart))
    return written


# --- Visibility over time

def _visibility(scale, path):
    panel, bottom, left = 400, 320, 70
    legend = 22 * max(map(len, scale.values()))
    drawing = Drawing(left + len(scale) * (panel + left) - 30, bottom + 60 + legend)
    drawing.text(left, 30, "Services usable on link b after so many seconds", 17, weight="bold")
    drawing.text(left, 50, "all of them announced on link a within 0.9 s; nobody asks on link b", 12, colour=FAINT)
    for number_of_panel, (count, subjects) in enumerate(scale.items()):
        _curves(drawing, left + number_of_panel * (panel + left), panel, bottom, int(count), subjects)
    drawing.save(path)
    return path


def _curves(drawing, left, width, bottom, count, subjects):
    top = 88
    curves = {subject: _typical(runs)["times"] for subject, runs in subjects.items()}
    ticks = round_steps(max([times[-1] for times in curves.values() if times], default=1) * 1.05)
    def x_of(seconds):
        return left + width * seconds / ticks[-1]
    def y_of(services):
        return bottom - (bottom - top) * services / (count * 1.05)
    for step in range(5):
        services = count * step // 4
        drawing.line(left, y_of(services), left + width, y_of(services))
        drawing.text(left - 8, y_of(services) + 4, f"{services}", 12, "end", FAINT)
    for tick in ticks:
        drawing.text(x_of(tick), bottom + 18, number(tick), 12, "middle", FAINT)
    drawing.text(left + width, bottom + 38, "seconds", 12, "end", FAINT)
    for subject, times in reversed(curves.items()):
        points = [(x_of(0), y_of(0))]
        for index, at in enumerate(times):
            points += [(x_of(at), y_of(index)), (x_of(at), y_of(index + 1))]
        drawing.path(points + [(x_of(ticks[-1]), y_of(len(times)))], COLOURS[subject])
    drawing.text(left, bottom + 38, f"{count} services, of which became usable:", 12, colour=FAINT)
    _legend(drawing, left, bottom + 62, {subject: f"{SUBJECT_TITLES[subject]}: {len(times)}"
                                         for subject, times in curves.items()})


def _typical(runs):
    """The round whose number of visible services is the median one."""
    return sorted(runs, key=lambda run: run["there"])[len(runs) // 2]


def _legend(drawing, left, top, titles):
    for row, (subject, title) in enumerate(titles.items()):
        drawing.bar(left, top + 22 * row - 8, 14, 8, COLOURS[subject])
        drawing.text(left + 22, top + 22 * row, title, 12)


# --- Bars

def bar_chart(path, title, explanation, groups):
    """A chart of groups of bars, two beside each other; a group is (title, values as `bars` takes them, unit)."""
    column, y = 460, 92
    rows = [groups[at:at + 2] for at in range(0, len(groups), 2)]
    height = y + sum(22 * max(len(values) for _, values, _ in row) + 48 for row in rows) - 20
    drawing = Drawing(2 * column + 60, height)
    drawing.text(30, 32, title, 17, weight="bold")
    drawing.text(30, 52, explanation, 12, colour=FAINT)
    for row in rows:
        y = max([bars(drawing, 30 + column * number, y, column, group, values, unit)
                 for number, (group, values, unit) in enumerate(row)])
    drawing.save(path)
    return path


def bars(drawing, left, top, width, title, values, unit=""):
    """One group of horizontal bars; a value is (subject, label, figure or None). Returns the y below it."""
    drawing.text(left, top, title, 13, weight="bold")
    largest = max((figure for _, _, figure in values if figure is not None), default=1) or 1
    room = width - _LABEL - 70
    for row, (subject, label, figure) in enumerate(values):
        y = top + 14 + row * 22
        drawing.text(left + _LABEL - 8, y + 12, label, 12, "end", INK)
        if figure is None:
            drawing.text(left + _LABEL, y + 12, "never", 12, colour=FAINT)
            continue
        drawing.bar(left + _LABEL, y, room * figure / largest, 16, COLOURS[subject])
        drawing.text(left + _LABEL + room * figure / largest + 7, y + 12, number(figure) + unit, 12)
    below = top + 14 + len(values) * 22
    drawing.line(left + _LABEL, top + 10, left + _LABEL, below, GRID)
    return below + 34


def _cost(scale, path):
    column = 460
    rows = sum(len(subjects) for subjects in scale.values())
    drawing = Drawing(2 * column + 60, 72 + 22 * rows + 48 * len(scale))
    drawing.text(30, 32, "What so many services at once cost", 17, weight="bold")
    drawing.text(30, 52, "from the first announcement to 40 s later; memory: growth to the peak, divided by their "
                         "number", 12,
                 colour=FAINT)
    y = 92
    for count, subjects in scale.items():
        cpu = [(subject, SUBJECT_TITLES[subject], middle(runs, "cpu")) for subject, runs in subjects.items()]
        memory = [(subject, SUBJECT_TITLES[subject], memory_each(runs)) for subject, runs in subjects.items()]
        bars(drawing, 30, y, column, f"{count} services: processor time", cpu, " s")
        y = bars(drawing, 30 + column, y, column, f"{count} services: memory for each", memory, " KiB")
    drawing.save(path)
    return path


def _day(day, path):
    column = 460
    drawing = Drawing(2 * column + 60, 72 + 2 * (22 * len(day) + 48))
    drawing.text(30, 32, "A working day in small", 17, weight="bold")
    drawing.text(30, 52, "30 services of 10 types on link a, 2 of the types wanted on link b; 10 clients on each "
                         "link browse and ask "
                 "again. What the gateway sends:", 12, colour=FAINT)
    y = 92
    for link, key in (("b", "traffic"), ("a", "traffic_on_a")):
        packets = [(subject, SUBJECT_TITLES[subject], middle(runs, key, "packets")) for subject, runs in day.items()]
        sizes = [(subject, SUBJECT_TITLES[subject], middle(runs, key, "bytes") / 1e3) for subject, runs in day.items()]
        bars(drawing, 30, y, column, f"packets on link {link}", packets)
        y = bars(drawing, 30 + column, y, column, f"kilobytes on link {link}", sizes, " kB")
    drawing.save(path)
    return path
