# SPDX-License-Identifier: MIT
"""Two gateways side by side, with the same rules between the same two links. One of them ends, then the other does."""

import re
import statistics

from testbed import let_pass

from .field import (BURST_SECONDS, GOODBYE_GRACE, KIND, Field, Meter, pace, pace_targets, pace_text, samples,
                    seen_times, sleep_until)
from .results import middle, text_of
from .subjects import Mdnsproxy

NAME = "two-gateways"
SUBJECTS = ("mdnsproxy",)   # two reflectors would repeat each other's packets without end
OVER_ALONE_MAX = 1.3        # times: processor time
_RENAMED = re.compile(r" \(\d+\)$")


def measure(settings):
    if not settings.subjects(SUBJECTS):
        return {}
    count, window = settings.count(1000, 100), settings.seconds(40, 15)
    figures = {"count": count, "alone": [], "together": []}
    for number in range(settings.rounds):
        settings.say(f"  {count} services, alone")
        figures["alone"].append(_alone(count, window))
        settings.say(f"  {count} services, two gateways")
        figures["together"].append(_together(count, window, number % 2))
    return figures


def _alone(count, window):
    with Field("a", "b") as field:
        process = field.subject(Mdnsproxy, KIND).process
        devices, watcher = field.crowd("a"), field.watcher("b")
        meter = Meter(process)
        begin, _ = devices.announce(0, count, BURST_SECONDS)
        sleep_until(begin + window)
        return {"cpu": meter.cpu, "there": watcher.there, "pace": pace(watcher)}


def _together(count, window, first_to_end):
    with Field("a", "b") as field:
        gateways = [field.network.gateway, field.second_gateway("a", "b")]
        daemons = [field.subject(Mdnsproxy, KIND, gateway=gateway) for gateway in gateways]
        devices = field.crowd("a")
        both = field.watcher("b", *gateways, grace=GOODBYE_GRACE)
        each = [field.watcher("b", gateway) for gateway in gateways]
        meters = [Meter(daemon.process) for daemon in daemons]
        begin, _ = devices.announce(0, count, BURST_SECONDS)
        sleep_until(begin + window)
        times = seen_times(both, begin)
        figures = {"cpu": [meter.cpu for meter in meters], "there": both.there,
                   "all_there": times[-1] if len(times) >= count else None,
                   "there_of_each": [watcher.there for watcher in each], "absences_before": len(both.absences)}
        figures |= _ends(daemons[first_to_end].daemon, both, count, figures["absences_before"])
        daemons[1 - first_to_end].daemon.stop()
        let_pass(GOODBYE_GRACE + 3)
        return figures | {"left": both.listed, "renamed": sum(1 for name in both.services if _RENAMED.search(name)),
                          "pace": [pace(watcher) for watcher in each]}


def _ends(daemon, watcher, count, absences_before):
    """One of them ends; what is missing on link b, and for how long."""
    daemon.stop()
    # A service that is missing now comes back within the second in which the gateway that stays may ask and answer, or
    # not at all.
    worst = max(samples(lambda: count - watcher.there, 10, 0.05))
    absences = watcher.absences
    return {"missing_at_worst": worst, "missing_for_good": count - watcher.there,
            "missing_for_a_while": len(absences) - absences_before,
            "longest_absence": max((longest for _, longest, _ in absences.values()), default=0.0)}


def _cpu_of_each(figures):
    return [statistics.median(run["cpu"][number] for run in figures["together"]) for number in (0, 1)]


def over_alone(figures):
    """Processor time of the busier of two over that of one alone."""
    return max(_cpu_of_each(figures)) / middle(figures["alone"], "cpu")


def tables(figures):
    if not figures:
        return
    alone, together = figures["alone"], figures["together"]
    yield [(f"{figures['count']} services", "there", "CPU (s)", "most packets in 1 s, 20 ms"),
           ("alone", text_of(middle(alone, "there"), "{:.0f}"), text_of(middle(alone, "cpu")),
            pace_text(alone[-1]["pace"])),
           ("two gateways", text_of(middle(together, "there"), "{:.0f}"),
            " / ".join(map(text_of, _cpu_of_each(figures))),
            pace_text(*together[-1]["pace"]))]
    yield [("one ends, then the other", "renamed", "missing at worst", "missing for a while", "longest (s)",
            "missing for good", "left when both have ended")] + [
        (f"round {number}", run["renamed"], run["missing_at_worst"], run["missing_for_a_while"],
         text_of(run["longest_absence"]), run["missing_for_good"], run["left"])
         for number, run in enumerate(together, start=1)]


def targets(figures):
    if figures:
        runs = figures["together"]
        complete = all(run["there"] == figures["count"] for run in figures["alone"] + runs)
        yield "two gateways, CPU of the busier over alone", over_alone(figures) if complete else None, OVER_ALONE_MAX
        yield "two gateways, services renamed", max(run["renamed"] for run in runs), 0
        yield "two gateways, missing when one ends", max(run["missing_at_worst"] for run in runs), 0
        yield "two gateways, left when both have ended", max(run["left"] for run in runs), 0
        yield from pace_targets("two gateways", (each for run in runs for each in run["pace"]))


def chart(figures):
    if not figures:
        return None
    bars = [("mdnsproxy", "alone", middle(figures["alone"], "cpu"))]
    bars += [("mdnsproxy", f"gateway {number} of two", cpu)
             for number, cpu in enumerate(_cpu_of_each(figures), start=1)]
    return "Two gateways side by side", f"{figures['count']} services on link a", [("processor time", bars, " s")]
