# SPDX-License-Identifier: MIT
"""One source link and many destination links. The daemon takes 2001 instances, each rule's counted, so that 64 links
can have 31 services each; every number of links gets the same services, to be comparable."""

import time

from .field import BURST_SECONDS, KIND, Field, Meter, pace, pace_targets, pace_text, seen_times, sleep_until
from .results import SUBJECT_TITLES, text_of
from .subjects import SUBJECTS as ALL

NAME = "fan-out"
SUBJECTS = ("mdnsproxy", "reflector")
_SERVICES, _SERVICES_QUICK = 30, 10
_LINKS, _LINKS_QUICK = (1, 8, 32, 64), (1, 8)


def measure(settings):
    figures = {}
    count = settings.count(_SERVICES, _SERVICES_QUICK)
    for links in _LINKS_QUICK if settings.quick else _LINKS:
        for name in settings.subjects(SUBJECTS):
            settings.say(f"  {count} services to {links} links, {name}")
            figures.setdefault(str(links), {})[name] = _run(ALL[name], count, links, settings.seconds(20, 8))
    return figures


def _run(subject, count, links, window):
    names = [f"b{number}" for number in range(1, links + 1)]
    with Field("a", *names) as field:
        started = time.time()
        process = field.subject(subject, KIND, pairs=[("a", name) for name in names]).process
        start_up = time.time() - started
        devices = field.crowd("a")
        watchers = [field.watcher(name) for name in names]
        idle, meter = process.memory, Meter(process)
        begin, _ = devices.announce(0, count, BURST_SECONDS)
        sleep_until(begin + window)
        times = [seen_times(watcher, begin) for watcher in watchers]
        complete = all(len(each) == count for each in times)
        paces = [pace(watcher) for watcher in watchers]
        return {"services": count, "links": links, "start_up": start_up, "there": sum(map(len, times)),
                "all_there": max(each[-1] for each in times) if complete else None, "cpu": meter.cpu,
                "cpu_each": meter.cpu / (count * links), "memory_idle": idle,
                "memory_each": meter.growth / (count * links),
                "pace": max(paces, key=lambda each: each["most_in_second"])}


def tables(figures):
    for subject in dict.fromkeys(name for subjects in figures.values() for name in subjects):
        runs = [subjects[subject] for subjects in figures.values() if subject in subjects]
        rows = [(f"{SUBJECT_TITLES[subject]}: one link to", "services on each", "there, all links", "all of them (s)",
                 "CPU (s)", "CPU for each service and link (ms)", "idle memory (MB)", "KiB for each service and link",
                 "most packets in 1 s, 20 ms")]
        rows += [(f"{run['links']} links", run["services"], run["there"], text_of(run["all_there"]),
                  text_of(run["cpu"]), text_of(run["cpu_each"] * 1e3), text_of(run["memory_idle"] / 1e6),
                  text_of(run["memory_each"] / 1024, "{:.1f}"), pace_text(run["pace"])) for run in runs]
        yield rows


def targets(figures):
    yield from pace_targets("one link to many", (subjects["mdnsproxy"]["pace"] for subjects in figures.values()
                                                 if "mdnsproxy" in subjects))


def chart(figures):
    def group(key, factor):
        return [(subject, f"{subject}, {links}", run[key] * factor) for links, subjects in figures.items()
                for subject, run in subjects.items()]
    return ("One source link, many destination links", "for each service on each link; the number is that of the links",
            [("processor time", group("cpu_each", 1e3), " ms"), ("memory", group("memory_each", 1 / 1024), " KiB")])
