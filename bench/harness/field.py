# SPDX-License-Identifier: MIT
"""The ground of the scenarios that have a module of their own: any links, any subject on them, and whoever else is
wanted there.

A scenario's module has
    NAME                    how it is called on the command line and in the results
    SUBJECTS                who can be measured at it
    measure(settings)       does it; returns plain figures, {subject: ...} or what else its other functions read
    tables(figures)         yields lists of rows, the first row of each its heading
    targets(figures)        yields (what, figure, limit): what the daemon promises
    chart(figures)          (title, explanation, groups) as charts.bar_chart takes them, or None
"""

import concurrent.futures
import contextlib
import dataclasses
import statistics
import time
import typing

from testbed import Network, addresses_on, let_pass, let_pass_until, wait_until
from testbed.crowd import Asker, Clients, Crowd, Forger, Watcher, Wire
from testbed.network import Host

KIND = "_ipp._tcp"
# of the services that questions wait for: nobody else asks for them, and nobody forges them
ASKED_KIND = "_http._tcp"
ASKED_FIRST, ASKED_COUNT = 30000, 100
# seconds between two questions; two for the same service are far enough apart to be answered
ASKED_INTERVAL = 0.025
BURST_SECONDS = 0.9             # in which any number of devices announces itself
TXT_BYTES = 64
GOODBYE_GRACE = 1.0             # RFC 6762 section 10.1
_PATIENCE = 90                  # seconds until all services must be there before a scenario goes on

SECOND_MAX, MOMENT_MAX = 1000, 32   # packets of the gateway on a link in any second, and in any 20 ms


@dataclasses.dataclass
class Settings:
    quick: bool
    rounds: int
    seed: int
    services: typing.Optional[int]          # in place of a scenario's own number
    subjects: typing.Callable               # names of subjects -> those that are wanted
    say: typing.Callable

    def count(self, full, quick):
        """How many services a scenario is to have that has `full`, or `quick` for a try."""
        return self.services or (quick if self.quick else full)

    def seconds(self, full, quick):
        return quick if self.quick else full


class Field:
    """Everything that is made here is closed in the opposite order, at the end of the `with`."""

    def __init__(self, *links):
        self._stack = contextlib.ExitStack()
        self.network = self.keep(Network(*links))
        self._hosts = 0

    def keep(self, thing):
        self._stack.callback(thing.close)
        return thing

    def __getitem__(self, link):
        return self.network[link]

    def subject(self, subject, *kinds, **how):
        return self.keep(subject(self.network, kinds or (KIND,), **how))

    def second_gateway(self, *links):
        """Another gateway beside the first, host `.3` of these links."""
        return self.keep(self.network.new_gateway("second gateway", [self.network[link] for link in links]))

    def crowd(self, link, *kinds, host=None, **how):
        return self.keep(Crowd(host or self.network[link], kinds or (KIND,), txt=TXT_BYTES, **how))

    def watcher(self, link, *gateways, grace=0.0):
        return self.keep(Watcher(self.network[link], self.addresses(link, *gateways), grace))

    def addresses(self, link, *gateways):
        return [address for gateway in gateways or (self.network.gateway,) for address in addresses_on(gateway, link)]

    def asker(self, link="b"):
        """On a host of its own: what else its host asks, and says that it knows, would make it wait."""
        return self.keep(Asker(self.host(link), ASKED_KIND, self.addresses(link)))

    def client(self, link, seed=1):
        """A client that browses and resolves, on a host of its own."""
        return self.keep(Clients(self.host(link), (KIND,), seed=seed, resolve=True))

    def host(self, link):
        """A further host there."""
        self._hosts += 1
        return self.keep(Host(self.network[link], 60 + self._hosts))

    def forger(self, link):
        return self.keep(Forger(self.host(link), KIND))

    def lossy_wire(self, link, loss, seed):
        """Puts a wire that loses frames between the link and the gateway; before anything is started there."""
        here = self.keep(Host(_Outlet(self.network[link]), 1))  # in place of the gateway's port
        here.ns.run(f"ip link add far type veth peer name {link} netns {self.network.gateway.path}")
        here.ns.run("ip link set dev far up")
        self.network.gateway.run(f"ip link set dev {link} up")
        self.network[link].give_addresses(self.network.gateway, link, 1)
        return self.keep(Wire(here, "far", loss, seed))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._stack.close()


class _Outlet:
    """A link whose port for the gateway is free again, for a namespace without any address of its own."""

    def __init__(self, link):
        self.link, self.name, self.number, self.ipv4, self.ipv6 = link, link.name, link.number, False, False

    def attach(self, namespace, interface, host):
        namespace.set("net/ipv6/conf/default/disable_ipv6", 1)
        self.link.ns.run(f"ip link del port{host}")
        self.link.ns.run(f"ip link add port{host} type veth peer name {interface} netns {namespace.path}")
        self.link.ns.run(f"ip link set dev port{host} master {self.link.interface} up")
        namespace.run(f"ip link set dev {interface} up")


class Meter:
    """What a process uses from the making of this on."""

    def __init__(self, process):
        self._process = process
        process.forget_peak()
        self._cpu, self._memory = process.cpu, process.memory

    @property
    def cpu(self):
        return self._process.cpu - self._cpu

    @property
    def growth(self):
        """Bytes by which the resident set has grown at its most."""
        return self._process.peak_memory - self._memory


# --- Waiting

def wait_up_to(condition, seconds, interval=0.01):
    """True as soon as the condition is; False when it never was."""
    with contextlib.suppress(AssertionError):
        return bool(wait_until(condition, seconds, interval=interval))
    return False


def sleep_until(moment):
    let_pass_until(moment, time.time)


def all_visible(watcher, count):
    """Waits for them, and until the second announcements are over; fails when they never come."""
    watcher.sees(count, within=_PATIENCE)
    let_pass(2.5)


def settled(subject, watcher, count):
    """The same for any subject: a reflector may have lost some of them for good, and gets five seconds."""
    if subject.name == "mdnsproxy":
        all_visible(watcher, count)
    else:
        let_pass(5)


def samples(look, seconds, interval):
    """What `look` returns, looked at so often and so long."""
    end = time.time() + seconds
    while time.time() < end:
        yield look()
        let_pass(interval)


def at_once(*calls):
    """Makes the calls in threads of their own; their results."""
    with concurrent.futures.ThreadPoolExecutor(len(calls)) as pool:
        return [future.result() for future in [pool.submit(call) for call in calls]]


# --- Figures

def summary(values):
    """Median, ninth decile, longest and number of these."""
    ordered = sorted(values)
    if not ordered:
        return {"count": 0, "median": None, "most": None, "longest": None}
    return {"count": len(ordered), "median": statistics.median(ordered), "most": ordered[(9 * len(ordered) - 1) // 10],
            "longest": ordered[-1]}


def waits(report):
    """The same of an asker's report."""
    return summary(report["waits"]) | {"unanswered": report["unanswered"]}


def pace(watcher):
    """How close together the gateway's packets came."""
    gateway = watcher.traffic["gateway"]
    return {"packets": gateway["packets"], "most_in_second": gateway["most_in_second"],
            "most_in_20ms": gateway["most_in_20ms"]}


def seen_times(watcher, begin):
    """When each service was there first, in seconds after `begin`, in order."""
    return sorted(seen - begin for seen, _ in watcher.services.values() if seen)


def pace_targets(name, paces):
    """The promise of the pace, judged by the worst of these."""
    paces = list(paces)
    if paces:
        yield f"{name}: packets in a second", max(each["most_in_second"] for each in paces), SECOND_MAX
        yield f"{name}: packets in 20 ms", max(each["most_in_20ms"] for each in paces), MOMENT_MAX


def pace_text(*paces):
    return " / ".join(f"{each['most_in_second']}, {each['most_in_20ms']}" for each in paces)
