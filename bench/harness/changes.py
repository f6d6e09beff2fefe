# SPDX-License-Identifier: MIT
"""What is announced changes: the TXT data of many services, one after another, and the addresses of many hosts, each of
them every second. The lag is that from the announcement of the change on link a to the first packet that says it on
link b."""

import time

from testbed import let_pass

from .field import (BURST_SECONDS, KIND, Field, Meter, pace, pace_targets, pace_text, settled, sleep_until, summary)
from .results import SUBJECT_TITLES, text_of
from .subjects import SUBJECTS as ALL

NAME = "changes"
SUBJECTS = ("mdnsproxy", "reflector")
TXT_LAG_MAX = 0.3           # seconds
_RATE = 100                 # TXT changes in a second
_HOSTS, _HOSTS_QUICK = 200, 40
_AFTERWARDS = 5             # seconds in which what is late may still come


def measure(settings):
    figures = {"txt": {}, "address": {}}
    count = settings.count(2000, 200)
    hosts, seconds = (_HOSTS_QUICK, 4) if settings.quick else (_HOSTS, 20)
    for name in settings.subjects(SUBJECTS):
        settings.say(f"  TXT data of {count} services, {name}")
        figures["txt"][name] = _run(ALL[name], 46, count, "txt",
                                    lambda devices: devices.change(0, count, count / _RATE)) | {
            "changes": count}
        settings.say(f"  addresses of {hosts} hosts, {name}")
        figures["address"][name] = _run(ALL[name], 6, hosts, "address",
                                        lambda devices: _move(devices, hosts, seconds)) | {
            "changes": hosts * seconds}
    return figures


def _move(devices, hosts, seconds):
    for _ in range(seconds):
        begin = time.time()
        devices.move(0, hosts, BURST_SECONDS)
        sleep_until(begin + 1)


def _run(subject, addresses, count, what, act):
    """Only IPv6 addresses have room for the moment of their change: their hosts have no others."""
    with Field("a", "b") as field:
        process = field.subject(subject, KIND).process
        devices, watcher = field.crowd("a", addresses=addresses), field.watcher("b")
        devices.announce(0, count, BURST_SECONDS)
        settled(subject, watcher, count)
        there, meter = watcher.there, Meter(process)
        act(devices)
        let_pass(_AFTERWARDS)
        return {"services": count, "there": there, "lag": summary(watcher.lags[what]), "cpu": meter.cpu,
                "growth": meter.growth, "pace": pace(watcher)}


def tables(figures):
    titles = {"txt": f"TXT data, {_RATE} changes a second", "address": "addresses, each host's every second"}
    for what, subjects in figures.items():
        if not subjects:
            continue
        yield [(titles[what], "changes", "of them seen on b", "lag, median (s)", "90 % (s)", "longest (s)",
                "CPU for each change (ms)", "memory grown (MB)", "most packets in 1 s, 20 ms")] + [
            (SUBJECT_TITLES[subject], run["changes"], run["lag"]["count"], text_of(run["lag"]["median"], "{:.4f}"),
             text_of(run["lag"]["most"], "{:.4f}"), text_of(run["lag"]["longest"], "{:.4f}"),
             text_of(run["cpu"] / run["changes"] * 1e3), text_of(run["growth"] / 1e6), pace_text(run["pace"]))
            for subject, run in subjects.items()]


def targets(figures):
    run = figures["txt"].get("mdnsproxy")
    if run:
        complete = run["lag"]["count"] == run["changes"]
        yield "TXT change on link b, 90 % of them, seconds", run["lag"]["most"] if complete else None, TXT_LAG_MAX
    yield from pace_targets("changes", (subjects["mdnsproxy"]["pace"] for subjects in figures.values()
                                        if "mdnsproxy" in subjects))


def chart(figures):
    groups = []
    for what, title in (("txt", "TXT data: lag"), ("address", "addresses: lag")):
        values = [(subject, f"{subject}, {word}", run["lag"][key]) for subject, run in figures[what].items()
                  for key, word in (("median", "median"), ("most", "90 %"), ("longest", "longest"))]
        groups.append((title, values, " s"))
    return "What is announced changes", "from the change on link a to the first packet that says it on link b", groups
