# SPDX-License-Identifier: MIT
"""Who is measured, each on the gateway of a network of its own with the links a and b:

    mdnsproxy           this daemon with its library, one rule per forwarded type from a to b
    reflector           Debian's avahi-daemon with enable-reflector=yes, its settings otherwise as the package has them
    reflector-filtered  the same with reflect-filters naming the forwarded types: the most that a reflector can be told
    floor               the bare library (register_floor.cpp), which registers on b what the others would have to find

A subject has `process`, and announce/withdraw for the floor alone, which takes the place of the devices on link a. The
first two can be set up otherwise: `pairs` says from which links to which others is forwarded (a reflector repeats on
all of them), `gateway` on which of the network's gateways. The daemon keeps a state file with `state_file`.
"""

import pathlib

from testbed import Daemon, rule, rules_list
from testbed.avahi import PROGRAM as AVAHI_DAEMON
from testbed.avahi import Avahi
from testbed.daemon import build_directory
from testbed.dialogue import Dialogue
from testbed.figures import Figures

# Debian's avahi-daemon.conf as the package installs it, beside what avahi.py has of it already.
_PACKAGED = {"server": {"ratelimit-interval-usec": 1000000, "ratelimit-burst": 1000},
             "wide-area": {"enable-wide-area": "yes"}, "rlimits": {}}


class Mdnsproxy:
    name = "mdnsproxy"

    def __init__(self, network, kinds, pairs=(("a", "b"),), both_ways=False, gateway=None, state_file=False):
        rules = [rule(kind, source, target, bidirectional=both_ways) for kind in kinds for source, target in pairs]
        self.daemon = Daemon(gateway or network.gateway, rules_list(*rules), state_file=state_file)
        self.daemon.start_and_wait(within=30 + len(rules))
        self.process = Figures(self.daemon.box.find("mdnsproxy"))

    def logs(self):
        return self.daemon.logs()

    def close(self):
        self.daemon.close()


class Reflector(Avahi):
    name = "reflector"
    filters = False

    def __init__(self, network, kinds, pairs=(), both_ways=True, gateway=None):  # pylint: disable=unused-argument
        filters = {"reflect-filters": ",".join(f"{kind}.local" for kind in kinds)} if self.filters else {}
        super().__init__(gateway or network.gateway, reflector={"enable-reflector": "yes", **filters}, **_PACKAGED)
        self.start(within=30)
        self.process = Figures(self.box.find("avahi-daemon"))


class ReflectorFiltered(Reflector):
    name = "reflector-filtered"
    filters = True


class Floor(Dialogue):
    name = "floor"

    def __init__(self, network, kinds):
        path = build_directory() / "bench" / "register_floor"
        super().__init__(self.name, network.gateway.command(str(path), "b", *kinds))
        self.process = Figures(self.pid)  # nsenter has become the program

    def announce(self, first, count, seconds=0.0):  # pylint: disable=unused-argument
        return self._command("register", first, count)

    def withdraw(self, first, count, seconds=0.0):  # pylint: disable=unused-argument
        return self._command("release", first, count)

    def _command(self, word, first, count):
        begin, end = self.ask(word, first, count, within=60).split()[-2:]
        return float(begin), float(end)

    def logs(self):
        return ""


SUBJECTS = {subject.name: subject for subject in (Mdnsproxy, Reflector, ReflectorFiltered, Floor)}


def has_reflector():
    return pathlib.Path(AVAHI_DAEMON).exists()
