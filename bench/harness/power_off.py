# SPDX-License-Identifier: MIT
"""Devices that fall silent without a word, and devices whose goodbye is heard over one protocol alone. A service cannot
be used any longer when any of its records has been taken back on link b, and is off the list when its PTR record
has."""

import time

from .field import GOODBYE_GRACE, KIND, Field, all_visible, summary, wait_up_to
from .results import SUBJECT_TITLES, text_of
from .subjects import SUBJECTS as ALL

NAME = "power-off"
SUBJECTS = ("mdnsproxy", "reflector")
GONE_WITHIN = 150.0         # seconds: the 120 of a host's records, and some to be sure
_EACH, _EACH_QUICK = 8, 3
_PATIENCE, _GOODBYE_PATIENCE = 200, 10


def measure(settings):
    figures = {}
    count = settings.count(_EACH, _EACH_QUICK)
    for name in settings.subjects(SUBJECTS):
        settings.say(f"  {count} devices lose their power, {name} ({_PATIENCE} s at most)")
        figures[name] = _run(ALL[name], count)
    return figures


def _run(subject, count):
    """Three groups of devices, one after another: goodbyes over IPv4, goodbyes over IPv6, no goodbye."""
    with Field("a", "b") as field:
        field.subject(subject, KIND)
        devices = field.crowd("a")
        watchers = {"unusable": field.watcher("b", grace=GOODBYE_GRACE), "unlisted": field.watcher("b")}
        devices.announce(0, 3 * count)
        all_visible(watchers["unlisted"], 3 * count)
        figures = {"count": count}
        for group, only in enumerate((4, 6)):
            begin, _ = devices.withdraw(group * count, count, only=only)
            wait_up_to(lambda group=group: _all_gone(watchers, group, count), _GOODBYE_PATIENCE, 0.1)
            figures[f"goodbye over IPv{only}"] = _times(watchers, group, count, begin)
        begin = time.time()
        devices.vanish(2 * count, count)
        wait_up_to(lambda: _all_gone(watchers, 2, count), _PATIENCE, 0.1)
        figures["no goodbye"] = _times(watchers, 2, count, begin)
        return figures


def _numbers(group, count):
    return range(group * count, (group + 1) * count)


def _all_gone(watchers, group, count):
    return not any(watcher.is_there(f"Device {number}") for watcher in watchers.values()
                   for number in _numbers(group, count))


def _times(watchers, group, count, begin):
    """Since when they have been gone, for good or until now."""
    times = {}
    for word, watcher in watchers.items():
        services = [watcher.services.get(f"Device {number}", (0, 0)) for number in _numbers(group, count)]
        times[word] = summary([gone - begin for seen, gone in services if gone > seen])
    return times


def _longest(run, word, count):
    """None when one of them is still there."""
    return run[word]["longest"] if run[word]["count"] == count else None


def tables(figures):
    first = next(iter(figures.values()), None)
    if first:
        yield [(f"{first['count']} devices that go", "unusable on b after, median (s)", "longest (s)",
                "off the list, median (s)", "longest (s)")] + [
            (f"{case}: {SUBJECT_TITLES[subject]}", text_of(run["unusable"]["median"]),
             text_of(_longest(run, "unusable", runs["count"])), text_of(run["unlisted"]["median"]),
             text_of(_longest(run, "unlisted", runs["count"])))
            for subject, runs in figures.items() for case, run in runs.items() if case != "count"]


def targets(figures):
    runs = figures.get("mdnsproxy")
    if runs:
        yield "device without power gone, seconds", _longest(runs["no goodbye"], "unlisted", runs["count"]), GONE_WITHIN


def chart(figures):
    groups = [(f"{case}: off the list after",
               [(subject, SUBJECT_TITLES[subject], _longest(runs[case], "unlisted", runs["count"]))
                                               for subject, runs in figures.items()], " s")
              for case in ("no goodbye", "goodbye over IPv4", "goodbye over IPv6")]
    return "Devices that go", "the last of them is off the list of link b", groups
