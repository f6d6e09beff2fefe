# SPDX-License-Identifier: MIT
"""What the state file costs: the same burst with a daemon that keeps one and with one that has no place for it, in
turn. The least of many rounds counts, since whatever else the machine does only adds to it."""

from .field import BURST_SECONDS, KIND, Field, Meter, sleep_until
from .results import text_of
from .subjects import SUBJECTS as ALL

NAME = "state-file"
SUBJECTS = ("mdnsproxy",)
OVER_WITHOUT_MAX = 1.03
_PAIRS_PER_ROUND = 3


def measure(settings):
    count = settings.count(2000, 200)
    figures = {"services": count, "with": [], "without": []}
    if settings.subjects(SUBJECTS):
        for number in range(settings.seconds(_PAIRS_PER_ROUND * settings.rounds, 1)):
            for case in ("with", "without") if number % 2 else ("without", "with"):
                settings.say(f"  pair {number + 1}: {case} a state file")
                figures[case].append(_run(count, case == "with"))
    return figures


def _run(count, has_state_file):
    with Field("a", "b") as field:
        process = field.subject(ALL["mdnsproxy"], KIND, state_file=has_state_file).process
        devices = field.crowd("a")
        watcher = field.watcher("b")
        meter = Meter(process)
        begin, _ = devices.announce(0, count, BURST_SECONDS)
        watcher.sees(count, within=30)
        sleep_until(begin + 8)
        return meter.cpu


def tables(figures):
    yield [(f"burst of {figures['services']}", "CPU, least (s)", "CPU, all (s)")] + [
        (f"{case} a state file", text_of(min(figures[case], default=None), "{:.3f}"),
         ", ".join(f"{cpu:.3f}" for cpu in sorted(figures[case])))
        for case in ("with", "without")]


def targets(figures):
    if figures["with"]:
        ratio = min(figures["with"]) / min(figures["without"])
        yield "state file: processor time over that without", ratio, OVER_WITHOUT_MAX


def chart(figures):
    del figures
