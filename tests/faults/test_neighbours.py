# SPDX-License-Identifier: MIT
"""More than one gateway, and names that are taken. What a gateway puts on a link is counted from the moment when the
service came to the moment when nobody has said anything for a while."""

import pytest
from testbed import Client, Network, addresses_on, dns, rule, wait_until
from testbed.waiting import wait_for_silence

PTR_NAME = "_ipp._tcp.local"
PRINTER = "Office Printer._ipp._tcp.local"


class Counter:
    """What gateways say on a link: packets, and the instances that they announce."""

    def __init__(self, scene, link, *gateways):
        self.link = link
        self.ear = scene.ear(link)
        self.sources = [address for gateway in gateways for address in addresses_on(gateway, link.name)]

    @property
    def packets(self):
        return self.ear.sent_by(*self.sources)

    @property
    def instances(self):
        return {dns.text(record.data) for _, record in self.ear.heard(PTR_NAME, dns.PTR, sources=self.sources)
                if record.ttl}


def falls_silent(counters, quiet=2.5, within=20):
    """Announcements are a second or two apart; a loop or a quarrel over a name is never silent."""
    wait_for_silence(lambda: max((counter.packets[-1].time for counter in counters if counter.packets), default=0.0),
                     quiet, within, lambda: f"silence; {[len(counter.packets) for counter in counters]} packets so far")


def start_all(*daemons):
    for daemon in daemons:
        daemon.start()
    for daemon in daemons:
        daemon.wait_until_running()


def test_two_side_by_side_in_the_same_direction(scene):
    r"""
            ___[ first gateway  ]___
    link A /                        \ link B
           \___[ second gateway ]___/
    """
    network = scene.network("a", "b")
    second = scene.keep(Network.new_gateway("second gateway", (network["a"], network["b"])))
    daemons = [scene.daemon(namespace, rule("_ipp._tcp", "a", "b"), name=name)
               for namespace, name in ((network.gateway, "first"), (second, "second"))]
    start_all(*daemons)
    counter = Counter(scene, network["b"], network.gateway, second)
    scene.device(network["a"]).publish("Office Printer")
    wait_until(lambda: counter.instances, 10, "the printer on link B")
    falls_silent([counter])
    assert counter.instances == {PRINTER}, "somebody was renamed"
    # Two gateways, each with three probes and four announcements of two sets of records over two protocols.
    assert len(counter.packets) <= 80
    assert daemons[0].stop() == 10
    client = scene.keep(Client(network["b"], counter.ear, second))
    assert client.finds(PRINTER, within=10) == (0, 0, 631, dns.labels("printer.local"))
    falls_silent([counter])
    assert len(counter.packets) <= 120
    assert daemons[1].stop() == 10


@pytest.mark.parametrize("bidirectional", [False, True], ids=["one way each", "both ways each"])
def test_two_side_by_side_in_opposite_directions(scene, bidirectional):
    r"""
            ___[ first gateway:  A to B ]___
    link A /                                \ link B
           \___[ second gateway: B to A ]___/
    """
    network = scene.network("a", "b")
    second = scene.keep(Network.new_gateway("second gateway", (network["a"], network["b"])))
    daemons = [scene.daemon(network.gateway, rule("_ipp._tcp", "a", "b", bidirectional), name="first"),
               scene.daemon(second, rule("_ipp._tcp", "b", "a", bidirectional), name="second")]
    start_all(*daemons)
    on_a, on_b = (Counter(scene, network[name], network.gateway, second) for name in "ab")
    device = scene.device(network["a"])
    service = device.publish("Office Printer")
    wait_until(lambda: on_b.instances, 10, "the printer on link B")
    falls_silent([on_a, on_b])
    assert on_b.instances == {PRINTER}, "somebody was renamed"
    assert not on_a.instances, "it came back"
    assert len(on_b.packets) <= 80 and len(on_a.packets) <= 40
    device.withdraw(service)
    client = scene.keep(Client(network["b"], on_b.ear, network.gateway))
    client.gateway = tuple(on_b.sources)
    wait_until(lambda: not client.held(), 5, lambda: f"goodbyes; link B still holds {client.held()}")


def test_a_ring_of_three(scene):
    """
    link A ---[ first: A to B ]--- link B ---[ second: B to C ]--- link C ---[ third: C to A ]--- link A
    """
    network = scene.network("a", "b", "c")
    gateways = [scene.keep(Network.new_gateway(f"{one} to {other}", (network[one], network[other]), host))
                for host, (one, other) in enumerate((("a", "b"), ("b", "c"), ("c", "a")), start=4)]
    daemons = [scene.daemon(gateways[number], rule("_ipp._tcp", one, other), name=f"{one} to {other}")
               for number, (one, other) in enumerate((("a", "b"), ("b", "c"), ("c", "a")))]
    start_all(*daemons)
    counters = {name: Counter(scene, network[name], *(gateways[at] for at in each))
                for name, each in (("a", (0, 2)), ("b", (0, 1)), ("c", (1, 2)))}
    scene.device(network["a"]).publish("Office Printer")
    wait_until(lambda: counters["b"].instances, 10, "the printer on link B")
    falls_silent(counters.values())
    assert counters["b"].instances == {PRINTER}, "somebody was renamed"
    assert not counters["c"].instances, "a forwarded service was forwarded"
    assert not counters["a"].instances, "it came back"
    assert len(counters["b"].packets) <= 40
    assert all(len(counters[name].packets) <= 20 for name in "ac")


class SameName:
    """A printer on link A and another of the same name on link B, which also has a browser."""

    def __init__(self, scene):
        self.network = scene.network("a", "b")
        self.daemon = scene.daemon(self.network.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
        self.counter = Counter(scene, self.network["b"], self.network.gateway)
        self.client = scene.keep(Client(self.network["b"], self.counter.ear, self.network.gateway))
        self.browser = scene.browser(self.network["b"])

    def neither_is_lost(self):
        """The one of link B has its own name, the other the next; each has its own host, and both stay."""
        renamed = ("Office Printer (2)", "_ipp", "_tcp", "local")
        assert self.client.finds(renamed, within=10) == (0, 0, 631, dns.labels("printer.local"))
        falls_silent([self.counter])
        assert sorted(self.browser.names) == ["Office Printer", "Office Printer (2)"]
        assert self.browser.details("Office Printer").port == 99
        assert self.daemon.daemon_status is None

    def ends_clean(self):
        assert self.daemon.stop() == 10
        wait_until(lambda: not self.client.held(), 2, lambda: f"goodbyes; link B still holds {self.client.held()}")


def test_a_service_on_the_destination_has_the_name_already(scene):
    same = SameName(scene)
    scene.device(same.network["b"], host="local-printer").publish("Office Printer", port=99)
    scene.device(same.network["a"]).publish("Office Printer")
    same.neither_is_lost()
    same.ends_clean()


def test_a_service_on_the_destination_takes_the_name_later(scene):
    same = SameName(scene)
    scene.device(same.network["a"]).publish("Office Printer")
    same.client.finds(PRINTER, within=10)
    scene.device(same.network["b"], host="local-printer").publish("Office Printer", port=99)
    same.neither_is_lost()
    same.ends_clean()
