# SPDX-License-Identifier: MIT
"""The vocabulary of a crowded link, beside that of the end-to-end tests.

    Crowd     thousands of devices on a link, each with one service (../air/announcer.cpp)
    Clients   phones and laptops that browse there and ask again (../air/clients.cpp)
    Watcher   which services of a link could be used, and what the gateway's packets weigh (../air/observer.cpp)
    Asker     how long the questions of a link wait for their answers (../air/asker.cpp)
    Forger    a host that says what is not so (../air/forger.cpp)
    Wire      a wire that loses frames (../air/wire.cpp)

Each is a program of its own, on the far side of a pipe. Times are seconds of the real-time clock, by which the kernel
stamps the packets.
"""

import json

from .daemon import build_directory
from .dialogue import Dialogue
from .waiting import wait_until


class _Program(Dialogue):
    """One of the programs in ../air."""

    def __init__(self, name, link, *arguments):
        path = build_directory() / "air" / name
        super().__init__(name, link.ns.command(str(path), "--interface", link.interface, *map(str, arguments)))


class Crowd(_Program):
    """`kinds`: the devices' service types in turn. `addresses`: 4, 6 or 46, which families each host has one of. `txt`:
    bytes of TXT data. `rescue`: they say again what somebody else takes back. `hosts`: so many that they share in turn;
    0: each has its own."""

    def __init__(self, link, kinds=("_ipp._tcp",), addresses=46, txt=64, rescue=False, hosts=0):
        super().__init__("air-announcer", link, "--types", ",".join(kinds), "--link", link.number, "--addresses",
                         addresses, "--txt", txt, "--rescue", int(rescue), "--hosts", hosts)

    def announce(self, first, count, seconds=0.0):
        """Devices first .. first + count - 1 announce themselves within `seconds`. Returns when the first and the last
        of them had done so for the first time; the second announcement, a second later, goes by itself."""
        return self._wave("announce", first, count, seconds)

    def withdraw(self, first, count, seconds=0.0, only=0):
        """They say goodbye; `only`: 4 or 6, over that protocol alone."""
        return self._wave("withdraw", first, count, seconds, only)

    def change(self, first, count, seconds=0.0):
        """Each announces new TXT data, with the time of that in it."""
        return self._wave("change", first, count, seconds)

    def move(self, first, count, seconds=0.0):
        """Each host announces another IPv6 address in place of its own, with the time of that in it."""
        return self._wave("move", first, count, seconds)

    def vanish(self, first, count):
        """They fall silent."""
        self.ask("vanish", first, count, within=5)

    def _wave(self, word, first, count, seconds, *more):
        begin, end = self.ask(word, first, count, seconds, *more, within=seconds + 30).split()[-2:]
        return float(begin), float(end)


class Clients(_Program):
    """`resolve`: they ask for SRV, TXT and addresses of what they find, too."""

    def __init__(self, link, kinds, clients=1, picks=1, sessions=1, seed=1, resolve=False):
        super().__init__("air-clients", link, "--types", ",".join(kinds), "--clients", clients, "--picks", picks,
                         "--sessions", sessions, "--seed", seed, "--resolve", int(resolve))

    def go(self, seconds):
        """Starts their sessions and returns at once."""
        self.tell("go", seconds)

    def wait(self, within):
        """Waits until the sessions are over; the number of queries asked."""
        return self.outcome(within)[0]

    def outcome(self, within):
        """Waits likewise; (queries asked, services resolved, each client's counted, when the last of these was, 0 for
        never)."""
        _, queries, resolved, last = self.answer(within).split()
        return int(queries), int(resolved), float(last)


class Watcher(_Program):
    """`grace`: seconds in which another host may say again what was taken back; any record that a service needs counts
    then."""

    def __init__(self, link, gateway_addresses, grace=0.0):
        super().__init__("air-observer", link, "--from", ",".join(gateway_addresses), "--grace", int(grace * 1000))
        self.link = link

    def figures(self, word):
        return json.loads(self.ask(word, within=30))

    @property
    def there(self):
        """How many services could be used now."""
        return self.figures("count")["there"]

    @property
    def listed(self):
        """How many have a PTR record now."""
        return self.figures("count")["listed"]

    @property
    def services(self):
        """{instance name: (when it could be used first, when it went last)}, 0 for not yet."""
        return {name: tuple(times) for name, times in self.figures("services").items()}

    def is_there(self, name):
        """Whether the instance of that name could be used now."""
        seen, gone = self.figures(f"service {name}")
        return seen > gone

    @property
    def absences(self):
        """{instance name: (how often it was gone and came back, for how long at most, for how long all together)}."""
        return {name: tuple(figures) for name, figures in self.figures("absences").items()}

    @property
    def lags(self):
        """{"txt": [seconds, ...], "address": [...]}: how long after its change each new datum was first seen."""
        return self.figures("lags")

    @property
    def traffic(self):
        return self.figures("traffic")

    def reset(self):
        self.figures("reset")

    def sees(self, count, within):
        wait_until(lambda: self.there >= count, within,
                   lambda: f"{count} services on link {self.link.name}: {self.figures('count')}")

    def loses_all(self, within):
        wait_until(lambda: self.listed == 0, within,
                   lambda: f"no service on link {self.link.name}: {self.figures('count')}")


class Asker(_Program):
    def __init__(self, link, kind, gateway_addresses):
        super().__init__("air-asker", link, "--type", kind, "--from", ",".join(gateway_addresses))

    def go(self, first, count, interval):
        """Asks for one of these devices every `interval` seconds from now on."""
        self.tell("go", first, count, round(interval * 1000))

    def stop(self):
        """{"asked": N, "unanswered": N, "waits": [seconds, ...]} of the questions since `go`."""
        return json.loads(self.ask("stop", within=30))


class Forger(_Program):
    """Each call returns (packets sent, begin, end)."""

    def __init__(self, link, kind):
        super().__init__("air-forger", link, "--type", kind)

    def goodbyes(self, first, count):
        """Goodbyes of devices that are not this host's, in as few packets as it takes."""
        return self._send(30, "goodbyes", first, count)

    def invent(self, first, count, seconds):
        """Services that do not exist, evenly spread over that time."""
        return self._send(seconds + 60, "invent", first, count, seconds)

    def flood(self, seconds):
        """Packets full of random names, as fast as they can be sent."""
        return self._send(seconds + 30, "flood", seconds)

    def _send(self, within, *words):
        _, packets, begin, end = self.ask(*words, within=within).split()
        return int(packets), float(begin), float(end)


class Wire(_Program):
    """Carries frames between `link.interface` and the interface `other` of the same namespace, and loses `loss` of
    100."""

    def __init__(self, link, other, loss, seed=1):
        super().__init__("air-wire", link, "--to", other, "--loss", loss, "--seed", seed)

    @property
    def counts(self):
        """(frames carried, frames lost)."""
        words = self.ask("count", within=5).split()
        return int(words[1]), int(words[3])
