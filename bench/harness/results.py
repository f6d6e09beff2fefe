# SPDX-License-Identifier: MIT
"""The figures of a run: what they come to, the table, and the targets that they are held against. The scenarios that
have a module of their own say there what theirs are."""

import statistics

_MEGA = 1e6
_KIBI = 1024

# What the daemon promises (docs/performance.md gives the reasons).
SINGLE_MEDIAN_MAX = 1.3     # seconds from the announcement on link a to visibility on link b
ALL_2000_WITHIN = 15.0      # seconds
CPU_2000_TO_500_MAX = 5.0   # times
MEMORY_EACH_MAX = 20.0      # KiB per instance, everything included

SUBJECT_TITLES = {"mdnsproxy": "mdnsproxy", "reflector": "reflector", "reflector-filtered": "reflector, filtered",
                  "floor": "floor (library alone)"}


def middle(runs, *path):
    """The median over the rounds of the figure found by following `path`; None when a round has none."""
    values = []
    for run in runs:
        for key in path:
            run = run.get(key) if isinstance(run, dict) else None
        if run is None:
            return None
        values.append(run)
    return statistics.median(values)


def memory_each(runs):
    """KiB per instance: what the process grew by at its peak, divided by their number."""
    return statistics.median((run["peak_memory"] - run["memory_idle"]) / run["count"] for run in runs) / _KIBI


def text_of(value, layout="{:.2f}", missing="never"):
    return missing if value is None else layout.format(value)


def single_rows(single):
    yield "one service", "lost", "visible after, median (s)", "max (s)", "gone after, median (s)", "peak memory (MB)"
    for subject, run in single.items():
        yield (SUBJECT_TITLES[subject], str(run["lost"]), text_of(run["appear"]["median"], "{:.4f}"),
               text_of(run["appear"]["max"], "{:.4f}"), text_of(run["vanish"]["median"], "{:.4f}"),
               text_of(run["peak_memory"] / _MEGA))


def scale_rows(count, subjects):
    yield (f"{count} services within a second", "there", "after a client asked", "half of them (s)", "all of them (s)",
           "CPU (s)", "packets on b", "MB on b", "KiB each", "left over when all went", "all gone (s)")
    for subject, runs in subjects.items():
        yield (SUBJECT_TITLES[subject], text_of(middle(runs, "there"), "{:.0f}"),
               text_of(middle(runs, "there_after_asking"), "{:.0f}", "-"), text_of(middle(runs, "half_there")),
               text_of(middle(runs, "all_there")), text_of(middle(runs, "cpu")),
               text_of(middle(runs, "traffic", "packets"), "{:.0f}"),
               text_of(middle(runs, "traffic", "bytes") / _MEGA), text_of(memory_each(runs), "{:.1f}"),
               text_of(middle(runs, "left_over"), "{:.0f}"), text_of(middle(runs, "all_gone")))


def day_rows(subjects):
    yield ("a working day in small", "forwarded", "packets on b", "kB on b", "of it queries", "packets on a", "kB on a",
           "CPU (s)", "peak memory (MB)")
    for subject, runs in subjects.items():
        yield (SUBJECT_TITLES[subject], text_of(middle(runs, "there"), "{:.0f}"),
               text_of(middle(runs, "traffic", "packets"), "{:.0f}"),
               text_of(middle(runs, "traffic", "bytes") / 1e3, "{:.0f}"),
               text_of(middle(runs, "traffic", "queries"), "{:.0f}"),
               text_of(middle(runs, "traffic_on_a", "packets"), "{:.0f}"),
               text_of(middle(runs, "traffic_on_a", "bytes") / 1e3, "{:.0f}"), text_of(middle(runs, "cpu")),
               text_of(middle(runs, "peak_memory") / _MEGA))


def micro_rows(micro):
    yield "per call", "nanoseconds"
    for benchmark in micro:
        if "cpu_time" in benchmark and benchmark.get("run_type") != "aggregate":
            yield benchmark["name"], f"{benchmark['cpu_time']:.0f}"


def targets(results, modules=()):
    """(what, figure, limit, met) of every promise that this run can judge; `modules`: those of scenarios."""
    single = results.get("single", {}).get("mdnsproxy")
    if single:
        yield _target("one service visible, median seconds", single["appear"]["median"], SINGLE_MEDIAN_MAX)
    runs = {count: subjects["mdnsproxy"] for count, subjects in results.get("scale", {}).items()
            if "mdnsproxy" in subjects}
    if "2000" in runs:
        yield _target("2000 services visible, seconds", middle(runs["2000"], "all_there"), ALL_2000_WITHIN)
    # What they cost says nothing while some are missing.
    if "2000" in runs and "500" in runs:
        all_there = middle(runs["2000"], "there") == 2000
        ratio = middle(runs["2000"], "cpu") / middle(runs["500"], "cpu")
        yield _target("memory per instance, KiB", memory_each(runs["2000"]) if all_there else None, MEMORY_EACH_MAX)
        yield _target("CPU for 2000 over CPU for 500", ratio if all_there else None, CPU_2000_TO_500_MAX)
    for module in modules:
        if module.NAME in results:
            yield from (_target(*promise) for promise in module.targets(results[module.NAME]))


def _target(what, figure, limit):
    return what, figure, limit, figure is not None and figure <= limit


def tables(results, modules=()):
    """All tables as one text, in Markdown."""
    parts = []
    if "single" in results:
        parts.append(_markdown(single_rows(results["single"])))
    for count, subjects in results.get("scale", {}).items():
        parts.append(_markdown(scale_rows(count, subjects)))
    if "day" in results:
        parts.append(_markdown(day_rows(results["day"])))
    if "micro" in results:
        parts.append(_markdown(micro_rows(results["micro"])))
    parts += [tables_of(module, results) for module in modules if module.NAME in results]
    judged = [("target", "measured", "limit", "")] + [
        (what, text_of(figure), text_of(limit), "met" if met else "MISSED")
        for what, figure, limit, met in targets(results, modules)]
    return "\n".join(parts + ([_markdown(judged)] if len(judged) > 1 else []))


def tables_of(module, results):
    """The tables of one scenario."""
    return "\n".join(_markdown(rows) for rows in module.tables(results[module.NAME]))


def _markdown(rows):
    rows = [list(map(str, row)) for row in rows]
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    lines = ["| " + " | ".join(cell.ljust(width) if column == 0 else cell.rjust(width)
                               for column, (cell, width) in enumerate(zip(row, widths))) + " |" for row in rows]
    rule = "|" + "|".join("-" * (width + 2) if column == 0 else "-" * (width + 1) + ":"
                          for column, width in enumerate(widths)) + "|"
    return "\n".join([lines[0], rule, *lines[1:]]) + "\n"
