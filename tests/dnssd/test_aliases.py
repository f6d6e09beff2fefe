# SPDX-License-Identifier: MIT
"""Aliases (CNAME records) that lead nowhere, round in a circle or far: whoever looks a host up lives on, and finds its
address."""

import pytest

import driver as d
from testbed import dns, wait_until

CNAME = 5
HOST = "h.local"
ADDRESS = "10.9.0.77"
ROW = 3000


def alias(name, target, ttl=120):
    return dns.Record(dns.labels(name), CNAME, dns.encode_name(target), ttl, True)


def row(names):
    return [alias(name, target) for name, target in zip(names, names[1:])]


def in_packets(records, each=30):
    return [records[at:at + each] for at in range(0, len(records), each)]


LONG_ROW = [HOST, *(f"row{number}.local" for number in range(ROW))]
PACKETS = {
    "itself": [[alias(HOST, HOST)]],
    "itself in other letters": [[alias("H.LOCAL", HOST)], [alias(HOST, "H.Local")]],
    "each other": [[alias(HOST, "other.local"), alias("other.local", HOST)]],
    "each other, told one by one": [[alias("other.local", HOST)], [alias(HOST, "other.local")]],
    "a row": in_packets(row(LONG_ROW)),
    "a row, from its end on": in_packets(row(LONG_ROW)[::-1]),
    "a row that comes back": in_packets(row([*LONG_ROW, HOST])[::-1]),
    "many at once": [[alias(HOST, f"other{number}.local") for number in range(30)]],
}


@pytest.fixture
def air(link):
    opened = link.air()
    opened.say_first()
    return opened


def looks_up(link, air):
    """The near host looks for the service of `HOST`, for its addresses and for everything that there is of it."""
    looker = link.publisher()
    looker.browse("br", link.near_index, "_ipp._tcp")
    looker.resolve("rs", link.near_index, "Printer", "_ipp._tcp")
    looker.query("a", link.near_index, f"{HOST}.", d.A)
    looker.query("aaaa", link.near_index, f"{HOST}.", d.AAAA)
    looker.query("any", link.near_index, f"{HOST}.", 255)
    wait_until(lambda: any(dns.same_name(question.name, HOST) and question.kind == dns.A
                           for packet in air.sent_by(*air.near) if packet.message
                           for question in packet.message.questions), d.DEADLINE, "a question for the address")
    return looker


def finds(looker, air):
    """Whoever lives on hears what is said next."""
    service = dns.labels("Printer._ipp._tcp.local")
    air.say(dns.Record(dns.labels("_ipp._tcp.local"), dns.PTR, service),
            dns.Record(service, dns.SRV, (0, 0, 631, dns.labels(HOST)), dns.HOST_TTL, True),
            dns.Record(service, dns.TXT, b"\x03a=1", dns.OTHER_TTL, True),
            dns.Record(dns.labels(HOST), dns.A, ADDRESS, dns.HOST_TTL, True))
    looker.wait("br")
    looker.wait("rs")
    wait_until(lambda: any(reply.fields[3] == bytes(map(int, ADDRESS.split("."))).hex() for reply in looker.of("a")),
               d.DEADLINE, "the address")


@pytest.mark.parametrize("packets", PACKETS.values(), ids=PACKETS.keys())
def test_a_host_that_is_said_to_be_another(link, air, packets):
    looker = looks_up(link, air)
    for records in packets:
        air.say(*records)
    finds(looker, air)
    assert looker.end() == 0


@pytest.mark.parametrize("packets", PACKETS.values(), ids=PACKETS.keys())
def test_a_host_that_was_said_to_be_another_before_anybody_asked(link, air, packets):
    looker = link.publisher()
    looker.browse("listens", link.near_index, "_ipp._tcp")
    for records in packets:
        air.say(*records)
    air.say(dns.Record(dns.labels("_ipp._tcp.local"), dns.PTR, dns.labels("First._ipp._tcp.local")))
    looker.wait("listens")
    looker.query("a", link.near_index, f"{HOST}.", d.A)
    looker.resolve("rs", link.near_index, "Printer", "_ipp._tcp")
    looker.browse("br", link.near_index, "_ipp._tcp")
    finds(looker, air)
    assert looker.end() == 0


def test_an_alias_beside_a_service(link, air):
    """The pointer in the same packet counts, and what else is said of the service is asked for."""
    looker = link.publisher()
    looker.browse("br", link.near_index, "_ipp._tcp")
    service = dns.labels("Printer._ipp._tcp.local")
    srv = dns.Record(service, dns.SRV, (0, 0, 631, dns.labels(HOST)), dns.HOST_TTL, True)
    txt = dns.Record(service, dns.TXT, b"\x03a=1", dns.OTHER_TTL, True)
    air.say(dns.Record(dns.labels("_ipp._tcp.local"), dns.PTR, service), srv, txt, alias("alias.local", HOST))
    looker.wait("br")
    looker.resolve("rs", link.near_index, "Printer", "_ipp._tcp")
    wait_until(lambda: looker.of("rs") or any(question.kind in (dns.SRV, dns.ANY)
                                              and dns.same_name(question.name, service)
                                              for packet in air.sent_by(*air.near) if packet.message
                                              for question in packet.message.questions), d.DEADLINE,
               "a question, unless it is known")
    air.say(srv, txt)
    looker.wait("rs")
    assert looker.end() == 0


@pytest.mark.parametrize("kind", (CNAME, 39, 41, 47, 65300), ids=("CNAME", "DNAME", "OPT", "NSEC", "unknown"))
def test_records_of_types_that_nobody_asks_for(link, air, kind):
    looker = looks_up(link, air)
    host = dns.encode_name(HOST)
    for owner in (host, b"\0"):
        for data in (b"", b"\0", host, host[:-1], host[:3], b"\x3f", b"\xc0", b"\xc0\x0c", b"\xff\xff",
                     host + b"\0\4\x40\0\0\x08", host + b"\0\xff\1", bytes(range(256)), b"\0" * 8000):
            for length in (len(data), len(data) + 1, max(len(data) - 1, 0), 0xFFFF):
                record = dns.raw_record(owner, kind, data, ttl=120, length=length)
                air.send(dns.HEADER.pack(0, dns.RESPONSE, 0, 1, 0, 1) + record + record)
    finds(looker, air)
    assert looker.end() == 0
