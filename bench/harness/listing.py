# SPDX-License-Identifier: MIT
"""Clients on link b that list everything: one, and twenty at the same moment. Each is a host of its own that browses
and then resolves every service that it finds. Another asks for single services of a type of their own all the while."""

import time

from testbed import let_pass

from .field import (ASKED_COUNT, ASKED_FIRST, ASKED_INTERVAL, ASKED_KIND, BURST_SECONDS, KIND, Field, Meter,
                    pace, pace_targets, pace_text, settled, waits)
from .results import SUBJECT_TITLES, text_of
from .subjects import SUBJECTS as ALL

NAME = "listing"
SUBJECTS = ("mdnsproxy", "reflector")
STALL_MAX = 0.050           # seconds beside what an answer takes otherwise
_CLIENTS = (1, 20)


def measure(settings):
    total, seconds = settings.count(2000, 200), settings.seconds(30, 10)
    figures = {}
    for clients in _CLIENTS:
        for name in settings.subjects(SUBJECTS):
            settings.say(f"  {total} services, {clients} clients, {name}")
            figures.setdefault(str(clients), {})[name] = _run(ALL[name], max(50, total - ASKED_COUNT), clients, seconds,
                                                              settings.seed)
    return figures


def _run(subject, count, clients, seconds, seed):
    with Field("a", "b") as field:
        process = field.subject(subject, KIND, ASKED_KIND).process
        watcher, asker = field.watcher("b"), field.asker()
        devices, asked = field.crowd("a"), field.crowd("a", ASKED_KIND)
        devices.announce(0, count, BURST_SECONDS)
        asked.announce(ASKED_FIRST, ASKED_COUNT, BURST_SECONDS)
        settled(subject, watcher, count + ASKED_COUNT)
        crowd = [field.client("b", seed + number) for number in range(clients)]
        for client in crowd:
            client.yield_processor()
        before, meter, begin = watcher.traffic, Meter(process), time.time()
        queries, resolved, last = _list_all(crowd, seconds)
        after = watcher.traffic
        figures = {"services": count, "clients": clients, "queries": queries, "resolved": resolved,
                   "wanted": count * clients, "last_resolved": last - begin if last else None, "cpu": meter.cpu,
                   "growth": meter.growth,
                   "packets": {who: after[who]["packets"] - before[who]["packets"] for who in ("gateway", "others")}}
        # Once more, with the questions of others beside it: their answers would have been counted.
        asker.go(ASKED_FIRST, ASKED_COUNT, ASKED_INTERVAL)
        let_pass(3)
        usual = waits(asker.stop())
        asker.go(ASKED_FIRST, ASKED_COUNT, ASKED_INTERVAL)
        _list_all(crowd, seconds)
        return figures | {"otherwise": usual, "waits": waits(asker.stop()), "pace": pace(watcher)}


def _list_all(crowd, seconds):
    """(queries asked, services resolved, when the last was), of all clients together."""
    for client in crowd:
        client.go(seconds)
    outcomes = [client.outcome(seconds + 60) for client in crowd]
    return sum(each[0] for each in outcomes), sum(each[1] for each in outcomes), max(each[2] for each in outcomes)


def stall(run):
    return run["waits"]["longest"] - run["otherwise"]["median"]


def tables(figures):
    runs = [(subject, run) for subjects in figures.values() for subject, run in subjects.items()]
    if runs:
        yield [(f"clients that list {runs[0][1]['services']} services", "resolved", "after (s)",
                "longest wait of others (ms)", "otherwise: median, longest (ms)", "unanswered", "CPU (s)",
                "packets of the gateway on b", "of the clients", "most in 1 s, 20 ms")] + [
            (f"{run['clients']}: {SUBJECT_TITLES[subject]}", f"{run['resolved']} of {run['wanted']}",
             text_of(run["last_resolved"]), text_of(run["waits"]["longest"] * 1e3, "{:.1f}"),
             f"{run['otherwise']['median'] * 1e3:.1f}, {run['otherwise']['longest'] * 1e3:.1f}",
             run["waits"]["unanswered"], text_of(run["cpu"]), run["packets"]["gateway"], run["packets"]["others"],
             pace_text(run["pace"]))
            for subject, run in runs]


def targets(figures):
    for clients, subjects in figures.items():
        if "mdnsproxy" in subjects:
            yield f"{clients} clients that list all: longest stall, seconds", stall(subjects["mdnsproxy"]), STALL_MAX
    yield from pace_targets("listing", (subjects["mdnsproxy"]["pace"] for subjects in figures.values()
                                        if "mdnsproxy" in subjects))


def chart(figures):
    def group(figure):
        return [(subject, f"{subject}, {clients}", figure(run)) for clients, subjects in figures.items()
                for subject, run in subjects.items()]
    def resolved(run):
        return run["last_resolved"] if run["resolved"] == run["wanted"] else None
    return ("Clients that list everything",
            "one client, and twenty at the same moment; each browses, then resolves all",
            [("longest wait of another client's question", group(lambda run: run["waits"]["longest"] * 1e3), " ms"),
             ("processor time", group(lambda run: run["cpu"]), " s"),
             ("packets of the gateway on link b", group(lambda run: run["packets"]["gateway"]), ""),
             ("until all are resolved", group(resolved), " s")])
