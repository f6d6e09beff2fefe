# SPDX-License-Identifier: MIT
"""A host on link A that says of its own name what leads nowhere or round in a circle, and records of types that nobody
asks for.

    link A                                  gateway        link B
    [ genuine printer ]----+---------------[ mdnsproxy ]---[ client, counting packets ]
    [ adversary       ]----+
"""

import pytest
from flooded import Flooded
from testbed import adversary, dns, wait_until
from testbed.device import Service

HOST = ("h", "local")


@pytest.fixture
def flooded(scene):
    return Flooded(scene)


def asks_for_address(scene, flooded):
    """The adversary announces a printer without an address, for which the gateway asks. Returns when it has asked."""
    ear = scene.ear(flooded.adversary.link)
    flooded.adversary.say(adversary.announcement(adversary.instance("alias"), HOST))
    wait_until(lambda: any(dns.same_name(question.name, HOST) and question.kind in (dns.A, dns.AAAA, dns.ANY)
                           for packet in ear.packets if packet.message and not packet.message.is_response
                           for question in packet.message.questions), 10, "a question for the host's address")


def forwards_another(flooded):
    flooded.device.publish("Another", port=6311)
    assert flooded.client.finds("Another._ipp._tcp.local", within=8) == (0, 0, 6311, dns.labels("genuine-host.local"))
    flooded.is_up()


def stands(flooded, packets):
    # Of the adversary's there is one service at most, whose address may change with each packet.
    flooded.stands(packets, 200, at_most=1200)
    forwards_another(flooded)
    flooded.ends_clean()


def test_a_printer_whose_host_is_another_name_of_itself(scene, flooded):
    asks_for_address(scene, flooded)
    flooded.adversary.say(dns.raw_response(adversary.alias(HOST, HOST)))
    forwards_another(flooded)
    flooded.ends_clean()


def test_a_printer_that_says_so_in_its_announcement(flooded):
    service = adversary.announcement(adversary.instance("alias"), HOST)
    counts = list(dns.HEADER.unpack_from(service))
    counts[3] += 1
    flooded.adversary.say(dns.HEADER.pack(*counts) + service[dns.HEADER.size:] + adversary.alias(HOST,
                                                                                                             HOST))
    forwards_another(flooded)
    flooded.ends_clean()


def test_names_that_lead_to_each_other(scene, flooded):
    asks_for_address(scene, flooded)
    stands(flooded, adversary.aliases(HOST))


def test_aliases_where_a_reader_might_pass_over_them(scene, flooded):
    asks_for_address(scene, flooded)
    stands(flooded, adversary.hidden_aliases(HOST))


def test_records_of_types_that_nobody_asks_for(scene, flooded):
    asks_for_address(scene, flooded)
    stands(flooded, adversary.odd_types(HOST))


def test_a_printer_whose_host_has_another_name_is_forwarded(flooded):
    """What is said beside an alias counts."""
    device = flooded.device
    service = Service(device.host, "With Alias", "_ipp._tcp", 6312, (), ())
    device.services.append(service)
    alias = dns.Record(dns.labels("alias.local"), adversary.CNAME, dns.encode_name(device.host), dns.HOST_TTL, True)
    device.say([*service.records, *device.address_records(), alias])
    assert flooded.client.finds("With Alias._ipp._tcp.local", within=8) == (0, 0, 6312, device.host)
    flooded.ends_clean()
