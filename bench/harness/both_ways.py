# SPDX-License-Identifier: MIT
"""Rules in both directions: as many services on link b as on link a, all of them forwarded to the other, against the
same number on link a alone. The daemon takes 2001 instances, among which its own announcements on the other link count
until it has seen by their TXT data what they are: 900 on each side leave room for those."""

from .field import BURST_SECONDS, KIND, Field, Meter, at_once, pace, pace_targets, pace_text, seen_times, sleep_until
from .results import SUBJECT_TITLES, middle, text_of
from .subjects import SUBJECTS as ALL

NAME = "both-ways"
SUBJECTS = ("mdnsproxy", "reflector")
OVER_ONE_WAY_MAX = 1.2      # times: processor time for each service
_OTHER_SIDE = 20000         # the first device on link b
_WAYS = ("one way", "both ways")


def measure(settings):
    figures = {}
    window = settings.seconds(40, 15)
    for _ in range(settings.rounds):
        for count in dict.fromkeys((settings.count(500, 100), settings.count(900, 100))):
            for name in settings.subjects(SUBJECTS):
                settings.say(f"  {count} on each side, {name}")
                runs = figures.setdefault(str(count), {}).setdefault(name, {way: [] for way in _WAYS})
                for way in _WAYS:
                    runs[way].append(_run(ALL[name], count, way == "both ways", window))
    return figures


def _run(subject, count, both, window):
    with Field("a", "b") as field:
        process = field.subject(subject, KIND, both_ways=both).process
        crowds = [(field.crowd("a"), 0)] + ([(field.crowd("b"), _OTHER_SIDE)] if both else [])
        watchers = [field.watcher(link) for link in ("ba" if both else "b")]
        meter = Meter(process)
        waves = at_once(*(lambda crowd=crowd, first=first: crowd.announce(first, count, BURST_SECONDS)
                          for crowd, first in crowds))
        begin = min(wave[0] for wave in waves)
        sleep_until(begin + window)
        times = [seen_times(watcher, begin) for watcher in watchers]
        complete = all(len(each) == count for each in times)
        services = count * len(crowds)
        return {"services": services, "there": sum(map(len, times)),
                "all_there": max(each[-1] for each in times) if complete else None, "cpu": meter.cpu,
                "cpu_each": meter.cpu / services, "memory_each": meter.growth / services,
                "pace": [pace(watcher) for watcher in watchers]}


def over_one_way(runs):
    """Processor time for each service with both ways over that with one; None when services are missing."""
    if any(run["all_there"] is None for each in runs.values() for run in each):
        return None
    return middle(runs["both ways"], "cpu_each") / middle(runs["one way"], "cpu_each")


def tables(figures):
    for count, subjects in figures.items():
        rows = [(f"{count} services on each side", "there", "all of them (s)", "CPU (s)", "CPU for each (ms)",
                 "KiB each", "most packets in 1 s, 20 ms")]
        for subject, runs in subjects.items():
            for way, each in runs.items():
                rows.append((f"{SUBJECT_TITLES[subject]}, {way}", text_of(middle(each, "there"), "{:.0f}"),
                             text_of(middle(each, "all_there")), text_of(middle(each, "cpu")),
                             text_of(middle(each, "cpu_each") * 1e3),
                             text_of(middle(each, "memory_each") / 1024, "{:.1f}"), pace_text(*each[-1]["pace"])))
        yield rows


def targets(figures):
    for count, subjects in figures.items():
        runs = subjects.get("mdnsproxy")
        if runs:
            yield f"both ways over one way, CPU for each of {count}", over_one_way(runs), OVER_ONE_WAY_MAX
            yield from pace_targets(f"both ways, {count}",
                                    (each for way in runs.values() for run in way for each in run["pace"]))


def chart(figures):
    groups = []
    for count, subjects in figures.items():
        rows = [(subject, f"{subject}, {way}", each) for subject, runs in subjects.items()
                for way, each in runs.items()]
        groups += [(f"{count} on each side: processor time for each",
                    [(subject, label, middle(each, "cpu_each") * 1e3) for subject, label, each in rows], " ms"),
                   (f"{count} on each side: until all are there",
                    [(subject, label, middle(each, "all_there")) for subject, label, each in rows], " s")]
    return "Rules in both directions", "one way: services on link a alone; both ways: as many on link b", groups
