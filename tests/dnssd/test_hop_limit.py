# SPDX-License-Identifier: MIT
"""Whatever is sent has a TTL or hop limit of 255 (RFC 6762 section 11): a receiver may take anything else for what a
router has forwarded."""

import pytest

import driver as d
from testbed import dns, wait_until
from testbed.sockets import GROUP4, GROUP6
from testbed.voice import ask_from_other_port

INSTANCE = ("My Printer", "_ipp", "_tcp", "local")
GROUPS = {"IPv4": GROUP4, "IPv6": GROUP6}


def sent(air, protocol, wanted):
    """The near host's packets over the protocol that are wanted, once there is one."""
    def packets():
        return [packet for packet in air.sent_by(*air.near) if (":" in packet.source) == (protocol == "IPv6")
                and packet.message
                and wanted(packet)]
    wait_until(packets, d.DEADLINE, f"a packet over {protocol}\n{air.story()}")
    return packets()


def is_multicast(packet):
    return packet.destination in GROUPS.values()


def established(link, air):
    publisher = link.publisher()
    publisher.register("reg", link.near_index, "My Printer")
    publisher.wait("reg")
    for protocol in GROUPS:
        sent(air, protocol, lambda packet: packet.message.is_response and any(
            record.kind == dns.PTR and record.ttl > 0 for record in packet.message.records))
    return publisher


@pytest.mark.parametrize("protocol", list(GROUPS))
def test_probes_announcements_questions_and_goodbyes_have_255(link, protocol):
    air = link.air()
    publisher = established(link, air)
    publisher.browse("br", link.near_index, "_http._tcp")
    questions = sent(air, protocol, lambda packet: any(
        dns.same_name(question.name, "_http._tcp.local") for question in packet.message.questions))
    publisher.release("reg")
    goodbyes = sent(air, protocol, lambda packet: any(record.ttl == 0 for record in packet.message.answers))
    probes = sent(air, protocol, lambda packet: packet.message.authorities)
    announcements = sent(air, protocol, lambda packet: any(record.ttl > 0 for record in packet.message.answers))
    assert {packet.hop_limit for packet in (*probes, *announcements, *questions, *goodbyes)} == {255}
    assert all(is_multicast(packet) for packet in (*probes, *announcements, *questions, *goodbyes))


@pytest.mark.parametrize("protocol", list(GROUPS))
def test_answers_to_the_asker_alone_have_255(link, protocol):
    air = link.air()
    established(link, air)
    air.send(dns.query(dns.Question(dns.labels(INSTANCE), dns.SRV, unicast=True)), protocol)
    replies = sent(air, protocol, lambda packet: not is_multicast(packet))
    assert {packet.hop_limit for packet in replies} == {255}
    assert all(packet.message.is_response for packet in replies)


@pytest.mark.parametrize("protocol", list(GROUPS))
def test_answers_to_ordinary_resolvers_have_255(link, protocol):
    air = link.air()
    established(link, air)
    ask_from_other_port(air.link, dns.query(dns.Question(dns.labels(INSTANCE), dns.SRV)), protocol)
    replies = sent(air, protocol, lambda packet: not is_multicast(packet))
    assert {packet.hop_limit for packet in replies} == {255}
