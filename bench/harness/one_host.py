# SPDX-License-Identifier: MIT
"""Very many services of one host, such as a print server that announces each of its queues, against as many hosts; and
while a host of link b has that host's name, so that the daemon announces it there under another one."""

from .field import (ASKED_KIND, BURST_SECONDS, KIND, Field, Meter, pace, pace_targets, pace_text, seen_times,
                    sleep_until, wait_up_to)
from .results import SUBJECT_TITLES, text_of
from .subjects import SUBJECTS as ALL

NAME = "one-host"
SUBJECTS = ("mdnsproxy", "reflector")
FOUR_TIMES_MAX = 1.3        # times: processor time for each of 1900 services over that for each of 475
_HOST_EACH, _ONE_HOST, _NAME_TAKEN = "a host each", "one host", "one host, its name taken on b"
_WAYS = {_HOST_EACH: "many hosts", _ONE_HOST: "one host", _NAME_TAKEN: "name taken"}    # and what the chart says
_GONE_WITHIN = 30


def measure(settings):
    figures = {}
    most = settings.count(1900, 400)
    for way in _WAYS:
        for count in (most // 4, most):
            for name in settings.subjects(SUBJECTS):
                settings.say(f"  {count} services, {way}, {name}")
                run = _run(ALL[name], count, way, settings.seconds(15, 8))
                figures.setdefault(way, {}).setdefault(name, {})[str(count)] = run
    return figures


def _run(subject, count, way, window):
    with Field("a", "b") as field:
        process = field.subject(subject, KIND).process
        devices = field.crowd("a", hosts=0 if way == _HOST_EACH else 1)
        watcher = field.watcher("b")
        if way == _NAME_TAKEN:
            field.crowd("b", ASKED_KIND).announce(0, 1)
        meter = Meter(process)
        begin, _ = devices.announce(0, count, BURST_SECONDS)
        sleep_until(begin + window)
        times = seen_times(watcher, begin)
        coming, growth = meter.cpu, meter.growth
        devices.withdraw(0, count, BURST_SECONDS)
        wait_up_to(lambda: watcher.listed == 0, _GONE_WITHIN)
        return {"services": count, "there": len(times), "all_there": times[-1] if len(times) == count else None,
                "cpu_each": coming / count, "cpu_each_going": (meter.cpu - coming) / count,
                "memory_each": growth / count, "left": watcher.listed, "pace": pace(watcher)}


def tables(figures):
    rows = [("services of link a", "how many", "there", "all of them (s)", "CPU for each (ms)",
             "for each when they go (ms)", "KiB each", "left over", "most packets in 1 s, 20 ms")]
    for way, subjects in figures.items():
        for subject, runs in subjects.items():
            rows += [(f"{SUBJECT_TITLES[subject]}, {way}", run["services"], run["there"], text_of(run["all_there"]),
                      text_of(run["cpu_each"] * 1e3), text_of(run["cpu_each_going"] * 1e3),
                      text_of(run["memory_each"] / 1024, "{:.1f}"), run["left"], pace_text(run["pace"]))
                     for run in runs.values()]
    yield rows


def _growth(runs):
    """Processor time for each service where there are four times as many; None when services are missing."""
    few, many = runs.values()
    return many["cpu_each"] / few["cpu_each"] if few["all_there"] and many["all_there"] else None


def targets(figures):
    for way, subjects in figures.items():
        runs = subjects.get("mdnsproxy")
        if runs:
            yield f"{way}: four times the services, CPU for each", _growth(runs), FOUR_TIMES_MAX
            yield f"{way}: left over", max(run["left"] for run in runs.values()), 0
            yield from pace_targets(f"services, {way}", (run["pace"] for run in runs.values()))


def chart(figures):
    def group(key):
        return [(subject, f"{subject}, {_WAYS[way]}", list(runs.values())[-1][key] * 1e3)
                for way, subjects in figures.items() for subject, runs in subjects.items()]
    return ("Very many services of one host",
            "processor time for each service; name taken: a host of link b has the host's name",
            [("when they come", group("cpu_each"), " ms"), ("when they go", group("cpu_each_going"), " ms")])
