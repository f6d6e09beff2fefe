# SPDX-License-Identifier: MIT
"""A link that loses packets: link b, link a, or both. The wire (tests/support/air/wire.cpp) drops frames of both
directions by chance, the same chance for each subject; no module of the kernel is needed. A client on link b browses
and resolves."""

from .field import BURST_SECONDS, KIND, Field, Meter, pace, pace_targets, pace_text, seen_times, wait_up_to
from .results import SUBJECT_TITLES, text_of
from .subjects import SUBJECTS as ALL

NAME = "losses"
SUBJECTS = ("mdnsproxy", "reflector")
_LOSS = 20                  # of a hundred
_CASES = {"none": "", "on b": "b", "on a": "a", "on both": "ab"}


def measure(settings):
    count, patience = settings.count(500, 50), settings.seconds(90, 30)
    figures = {}
    for case, links in _CASES.items():
        for name in settings.subjects(SUBJECTS):
            settings.say(f"  {count} services, losses: {case}, {name}")
            figures.setdefault(case, {})[name] = _run(ALL[name], count, links, patience, settings.seed)
    return figures


def _run(subject, count, links, patience, seed):
    with Field("a", "b") as field:
        wires = [field.lossy_wire(link, _LOSS, seed) for link in links]
        process = field.subject(subject, KIND).process
        devices, watcher = field.crowd("a"), field.watcher("b")
        field.client("b", seed).go(patience)
        meter = Meter(process)
        begin, _ = devices.announce(0, count, BURST_SECONDS)
        wait_up_to(lambda: watcher.there >= count, patience)
        times = seen_times(watcher, begin)
        return {"services": count, "there": len(times), "half_there": times[count // 2 - 1] if len(times) >= count // 2
                else None, "most_there": times[count * 9 // 10 - 1] if len(times) >= count * 9 // 10 else None,
                "all_there": times[count - 1] if len(times) >= count else None, "cpu": meter.cpu, "pace": pace(watcher),
                "frames": [wire.counts for wire in wires]}


def tables(figures):
    first = next((run for subjects in figures.values() for run in subjects.values()), None)
    if first:
        yield [(f"{first['services']} services; {_LOSS} % of the packets lost", "there", "half of them (s)", "90 % (s)",
                "all of them (s)", "packets of the gateway on b", "most in 1 s, 20 ms")] + [
            (f"{case}: {SUBJECT_TITLES[subject]}", run["there"], text_of(run["half_there"]), text_of(run["most_there"]),
             text_of(run["all_there"]), run["pace"]["packets"], pace_text(run["pace"]))
            for case, subjects in figures.items() for subject, run in subjects.items()]


def targets(figures):
    yield from pace_targets("losses", (subjects["mdnsproxy"]["pace"] for subjects in figures.values()
                                       if "mdnsproxy" in subjects))


def chart(figures):
    groups = [(f"losses {case}: until all are there",
               [(subject, SUBJECT_TITLES[subject], run["all_there"]) for subject, run in subjects.items()], " s")
              for case, subjects in figures.items()]
    return f"A link that loses {_LOSS} % of its packets", "a client on link b browses and resolves", groups
