# SPDX-License-Identifier: MIT
"""Two gateways with the same rule. What one takes back when it ends, the other says again before anybody believes it;
when both end, nothing of them is left.

            ___[ first gateway  ]___
    link a /                        \\ link b
           \\___[ second gateway ]___/
"""

import signal
import time

import pytest
from testbed import Network, addresses_on, dns, rule, stays_true, wait_until

TYPE = "_ipp._tcp.local"
INSTANCES = [f"Printer {number}" for number in range(20)]
BELIEVED_AFTER = 1.0  # seconds (RFC 6762 section 10.1)


class Pair:
    """Two daemons beside each other that have forwarded everything."""

    def __init__(self, scene):
        self.net = scene.network("a", "b")
        second = scene.keep(Network.new_gateway("second gateway", (self.net["a"], self.net["b"])))
        self.ear = scene.ear(self.net["b"])
        self.addresses = [addresses_on(gateway, "b") for gateway in (self.net.gateway, second)]
        self.daemons = [scene.daemon(self.net.gateway, rule("_ipp._tcp", "a", "b")),
                        scene.daemon(second, rule("_ipp._tcp", "a", "b"), name="second")]
        for daemon in self.daemons:
            daemon.start()
        for daemon in self.daemons:
            daemon.wait_until_running()
        self.device = scene.device(self.net["a"])
        for instance in INSTANCES:
            self.device.publish(instance)
        for addresses in self.addresses:
            wait_until(lambda: self.listed(addresses) == set(INSTANCES), 10,
                       lambda: f"all of {addresses}: {self.listed(addresses)}")
        stays_true(lambda: self.listed(self.all_addresses) == set(INSTANCES), 2.5,
                   "one has renamed the other's services")

    @property
    def all_addresses(self):
        return self.addresses[0] + self.addresses[1]

    def listed(self, addresses):
        """The instances that a listener knows from these senders."""
        return {dns.text(data).split(".")[0] for name, kind, data in self.ear.held(addresses)
                if (name, kind) == (TYPE, dns.PTR)}

    def end(self, which):
        self.daemons[which].send(signal.SIGTERM)

    def leftovers(self):
        return self.ear.cached(self.all_addresses)


def saved_after(ear, said_by, goodbye, record):
    """How long after its goodbye the record was said again; None: never."""
    again = ear.heard(dns.text(record.name), record.kind, sources=said_by, since=goodbye.time, data=record.data)
    times = [packet.time - goodbye.time for packet, said in again if said.ttl > 0]
    return times[0] if times else None


@pytest.mark.parametrize("first", [0, 1], ids=["one", "the other"])
def test_when_one_ends_nothing_is_missing_for_a_moment(scene, first):
    pair = Pair(scene)
    ended = time.monotonic()
    pair.end(first)
    pair.daemons[first].wait_for_exit()
    wait_until(lambda: pair.listed(pair.all_addresses) == set(INSTANCES), 1.5, lambda: pair.listed(pair.all_addresses))
    goodbyes = [(packet, record) for packet, record in pair.ear.records(pair.addresses[first], since=ended)
                if record.ttl == 0]
    kinds = {record.kind for _, record in goodbyes}
    assert {dns.PTR, dns.SRV, dns.TXT, dns.A, dns.AAAA} <= kinds, kinds
    for goodbye, record in goodbyes:
        after = saved_after(pair.ear, pair.addresses[1 - first], goodbye, record)
        assert after is not None and after < BELIEVED_AFTER, f"{record} was said again after {after} s"
    pair.end(1 - first)
    pair.daemons[1 - first].wait_for_exit()
    stays_true(lambda: not pair.leftovers(), 1.5, pair.leftovers)


@pytest.mark.parametrize("apart", [0.0, 0.1, 0.5, 1.5])
def test_when_both_end_nothing_is_left(scene, apart):
    pair = Pair(scene)
    pair.end(0)
    stays_true(lambda: pair.listed(pair.addresses[1]) == set(INSTANCES), apart, "what the second one lists")
    pair.end(1)
    for daemon in pair.daemons:
        daemon.wait_for_exit()
    stays_true(lambda: not pair.leftovers(), 1.5, pair.leftovers)
