# SPDX-License-Identifier: MIT
"""A host on link a that says what is not so, beside many genuine services there: goodbyes of others, services that do
not exist, and packets as fast as they can be sent. A client on link b asks for one genuine service after another all
the while, of a type that nothing is forged of; another host on link a announces a new one of the forged type in the
midst of it. The genuine devices say again what others take back, as RFC 6762 section 6.6 has it."""

import concurrent.futures
import time

from testbed import let_pass

from .field import (ASKED_COUNT, ASKED_FIRST, ASKED_INTERVAL, ASKED_KIND, BURST_SECONDS, GOODBYE_GRACE, KIND, Field,
                    Meter, all_visible, pace, pace_targets, pace_text, sleep_until, wait_up_to, waits)
from .results import text_of
from .subjects import SUBJECTS as ALL

NAME = "forgeries"
SUBJECTS = ("mdnsproxy",)
STALL_MAX = 0.050           # seconds beside what an answer takes otherwise
_NEW = 25000                # the new genuine service
_PATIENCE = 30              # seconds for the new service, and for all to be over
_CALM = 0.5                 # seconds over which the gateway must be as busy as before


def _cases(count, seconds):
    """name: what the forger does; each returns what Forger's calls do."""
    def each_second(forger):
        rounds = []
        for _ in range(seconds):
            begin = time.time()
            rounds.append(forger.goodbyes(0, count))
            sleep_until(begin + 1)
        return sum(packets for packets, _, _ in rounds), rounds[0][1], rounds[-1][2]
    return {"50 goodbyes in a packet": lambda forger: forger.goodbyes(0, 50),
            f"{count} goodbyes": lambda forger: forger.goodbyes(0, count),
            f"{count} goodbyes each second": each_second,
            "10000 invented services": lambda forger: forger.invent(0, 10000, seconds),
            "all that the link carries": lambda forger: forger.flood(seconds)}


def measure(settings):
    total = settings.count(2000, 200)
    genuine = max(50, total - ASKED_COUNT)
    figures = {}
    for name in settings.subjects(SUBJECTS):
        for case, act in _cases(genuine, settings.seconds(10, 3)).items():
            settings.say(f"  {total} services, {case}, {name}")
            figures.setdefault(name, {})[case] = _run(ALL[name], genuine, act,
                                                      settings.seconds(5, 3)) | {"services": total}
    return figures


def _run(subject, genuine, act, calm):
    with Field("a", "b") as field:
        process = field.subject(subject, KIND, ASKED_KIND).process
        watcher = field.watcher("b", grace=GOODBYE_GRACE)
        devices, asked = field.crowd("a", rescue=True), field.crowd("a", ASKED_KIND)
        newcomer, forger, asker = field.crowd("a", host=field.host("a")), field.forger("a"), field.asker()
        devices.announce(0, genuine, BURST_SECONDS)
        asked.announce(ASKED_FIRST, ASKED_COUNT, BURST_SECONDS)
        all_visible(watcher, genuine + ASKED_COUNT)
        before = Meter(process)
        asker.go(ASKED_FIRST, ASKED_COUNT, ASKED_INTERVAL)
        let_pass(calm)
        usual, usual_share = waits(asker.stop()), before.cpu / calm
        meter = Meter(process)
        asker.go(ASKED_FIRST, ASKED_COUNT, ASKED_INTERVAL)
        begin = time.time()
        with concurrent.futures.ThreadPoolExecutor(1) as pool:
            attack = pool.submit(act, forger)
            let_pass(0.5)
            announced, _ = newcomer.announce(_NEW, 1)
            packets, first, last = attack.result()
        figures = {"packets": packets, "lasted": last - first} | _aftermath(process, watcher, genuine + ASKED_COUNT,
                                                                            usual_share)
        seen, _ = watcher.figures(f"service Device {_NEW}")
        asked_for, cpu = waits(asker.stop()), meter.cpu - usual_share * (time.time() - begin)
        return figures | {"otherwise": usual, "waits": asked_for, "cpu": max(0.0, cpu), "growth": meter.growth,
                          "new_visible": seen - announced if seen else None, "pace": pace(watcher),
                          **_genuine_absences(watcher)}


def _aftermath(process, watcher, genuine, usual_share):
    """How long after the forger's last packet the gateway is as busy as before, and everything genuine there."""
    ended, calm_since = time.time(), None
    deadline = ended + _PATIENCE
    while time.time() < deadline:
        cpu, begin = process.cpu, time.time()
        let_pass(_CALM)
        busy = (process.cpu - cpu) / (time.time() - begin) > 1.5 * usual_share + 0.02
        if busy or _genuine_there(watcher) < genuine:
            calm_since = None
        elif calm_since is None:
            calm_since = begin
        elif time.time() - calm_since >= 3 * _CALM:
            wait_up_to(lambda: watcher.is_there(f"Device {_NEW}"), max(0.0, deadline - time.time()))
            return {"over_after": calm_since - ended, "genuine_missing": 0}
    return {"over_after": None, "genuine_missing": genuine - _genuine_there(watcher)}


def _genuine_there(watcher):
    return sum(1 for name, (seen, gone) in watcher.services.items()
               if name.startswith("Device ") and name != f"Device {_NEW}" and seen > gone)


def _genuine_absences(watcher):
    absences = [longest for name, (_, longest, _) in watcher.absences.items() if name.startswith("Device ")]
    return {"absent": len(absences), "longest_absence": max(absences, default=0.0)}


def stall(run):
    """The longest wait beside the usual one."""
    return run["waits"]["longest"] - run["otherwise"]["median"]


def tables(figures):
    for cases in figures.values():
        first = next(iter(cases.values()))
        yield [(f"beside {first['services']} services", "forged packets", "within (s)", "longest wait (ms)",
                "otherwise: median, longest (ms)", "unanswered", "new service visible (s)",
                "genuine ones gone meanwhile", "longest (s)", "missing at the end", "memory grown (MB)",
                "CPU beside the usual (s)", "over after (s)", "most packets in 1 s, 20 ms")] + [
            (case, run["packets"], text_of(run["lasted"]), text_of(run["waits"]["longest"] * 1e3, "{:.1f}"),
             f"{run['otherwise']['median'] * 1e3:.1f}, {run['otherwise']['longest'] * 1e3:.1f}",
             run["waits"]["unanswered"], text_of(run["new_visible"]), run["absent"], text_of(run["longest_absence"]),
             run["genuine_missing"], text_of(run["growth"] / 1e6), text_of(run["cpu"]), text_of(run["over_after"]),
             pace_text(run["pace"]))
            for case, run in cases.items()]


def targets(figures):
    cases = figures.get("mdnsproxy", {})
    for case, run in cases.items():
        yield f"{case}: longest stall, seconds", stall(run), STALL_MAX
    yield from pace_targets("forgeries", (run["pace"] for run in cases.values()))


def chart(figures):
    groups = []
    for subject, cases in figures.items():
        waited = [(subject, case, run["waits"]["longest"] * 1e3) for case, run in cases.items()]
        appeared = [(subject, case, run["new_visible"]) for case, run in cases.items()]
        groups += [("longest wait for an answer", waited, " ms"), ("new genuine service visible after", appeared, " s")]
    return "A host that forges", "beside many genuine services on link a; questions are asked on link b", groups
