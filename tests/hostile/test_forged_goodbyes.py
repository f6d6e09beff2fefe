# SPDX-License-Identifier: MIT
"""Somebody on link B takes back what the gateway has announced there, fifty services in one packet, again and again.

    link A                  gateway            link B
    [ printers ]-----------[ mdnsproxy ]---+---[ client ]
                                           +---[ adversary ]
"""

import time

from testbed import Client, dns, rule, wait_until
from testbed.adversary import Adversary

KIND = "_ipp._tcp.local"
INSTANCES = [dns.labels(f"Printer {number}.{KIND}") for number in range(60)]
FORGED = INSTANCES[:50]
BELIEVED_AFTER = 1.0  # seconds (RFC 6762 section 10.1)


def goodbyes():
    return dns.response(*(dns.Record(dns.labels(KIND), dns.PTR, each, 0) for each in FORGED))


def contradicted(ear, client, forged):
    """How long after the packet at that time each instance was said again; None for never."""
    said = {}
    for packet, record in ear.heard(KIND, dns.PTR, sources=client.gateway, since=forged):
        if record.ttl:
            said.setdefault(record.data, packet.time - forged)
    return [said.get(each) for each in FORGED]


def test_fifty_in_a_packet_are_contradicted_and_nobody_else_has_to_wait(scene):
    network = scene.network("a", "b")
    daemon = scene.daemon(network.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    ear = scene.ear(network["b"])
    client = scene.keep(Client(network["b"], ear, network.gateway))
    device = scene.device(network["a"])
    for name in INSTANCES:
        device.publish(dns.text(name).split(".")[0])
    wait_until(lambda: client.instances() == set(INSTANCES), 10, lambda: f"all services, but {len(client.instances())}")
    adversary = scene.keep(Adversary(network["b"]))
    for turn in range(4):
        since = time.monotonic()
        adversary.say(goodbyes())
        forged = [packet.time for packet in wait_until(lambda: ear.sent_by(*adversary.addresses, since=since), 5,
                                                       "the packet")]
        assert client.finds(dns.text(INSTANCES[50 + turn]), within=2) == (0, 0, 631, dns.labels("printer.local"))
        wait_until(lambda: None not in contradicted(ear, client, forged[0]), 2,
                   lambda: contradicted(ear, client, forged[0]))
        assert max(contradicted(ear, client, forged[0])) < BELIEVED_AFTER, contradicted(ear, client, forged[0])
    device.publish("Newcomer")
    wait_until(lambda: dns.labels(f"Newcomer.{KIND}") in client.instances(), 3, "the new service")
    assert client.instances() == {*INSTANCES, dns.labels(f"Newcomer.{KIND}")}
    assert daemon.stop() == 10
    wait_until(lambda: not client.held(), 5, lambda: f"goodbyes; link B still holds {client.held()}")
