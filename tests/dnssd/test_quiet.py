# SPDX-License-Identifier: MIT
"""Who has heard it need not ask: queries for unique records that are silent while what was received last is fresh.

Here the library looks up on the near host, and a stranger on the far one announces.
"""

import time

import pytest

import driver as d
from testbed import dns, stays_true, wait_until

HOST = dns.labels("host.local")
INSTANCE = (b"Device", b"_ipp", b"_tcp", b"local")


def address(last, ttl=120):
    return dns.Record(HOST, dns.A, f"10.9.0.{last}", ttl, True)


def text(data):
    return dns.Record(INSTANCE, dns.TXT, data, 4500, True)


def service(ttl=120):
    return [dns.Record(dns.labels("_ipp._tcp.local"), dns.PTR, INSTANCE, 4500),
            dns.Record(INSTANCE, dns.SRV, (0, 0, 631, HOST), 120, True), text(b"\x03a=b"), address(7, ttl)]


@pytest.fixture(name="place")
def make_place(link):
    class Place:
        air, near = link.air(), link.publisher()
        index = link.near_index

        def questions(self, name, kind, since=0.0):
            """Packets of the near host that ask for it."""
            return [packet for packet in self.air.sent_by(*self.air.near, since=since)
                    if packet.message and not packet.message.is_response
                    and any(question.kind == kind and dns.same_name(question.name, dns.labels(name))
                            for question in packet.message.questions)]

        def told(self, name):
            return [bytes.fromhex(reply.fields[3])[-1] for reply in self.near.of(name)]

        def is_told(self, name, *lasts):
            wait_until(lambda: self.told(name) == list(lasts), d.DEADLINE, f"{lasts} told")

        def stays_told(self, name, *lasts, seconds=2.5):
            """By then what was there before the last address is gone (RFC 6762 section 10.2)."""
            stays_true(lambda: self.told(name) == list(lasts), seconds, f"{lasts} told")

    return Place()


def browse_and_wait(place, ttl=120):
    """The browse runs, and the service has been announced and found."""
    place.near.browse("br", place.index, "_ipp._tcp")
    wait_until(lambda: len(place.questions("_ipp._tcp.local", dns.PTR)) >= 2, d.DEADLINE,
               "the browse's question over both protocols")
    place.air.say_first(*service(ttl))
    place.near.wait("br")


def test_what_was_announced_is_not_asked_for(place):
    browse_and_wait(place)
    place.near.query("q", place.index, "host.local.", d.A)
    place.near.resolve("rs", place.index, "Device", "_ipp._tcp")
    place.is_told("q", 7)
    place.near.wait("rs")

    def is_quiet():
        return not (place.questions(HOST, dns.A) or place.questions(INSTANCE, dns.SRV)
                    or place.questions(INSTANCE, dns.TXT))

    stays_true(is_quiet, 4, "nothing is asked for")
    assert len(place.near.of("rs")) == 1 and place.told("q") == [7]


def test_what_was_not_announced_is_asked_for(place):
    place.near.query("q", place.index, "host.local.", d.A)
    wait_until(lambda: len(place.questions(HOST, dns.A)) >= 4, d.DEADLINE, "two questions over both protocols")
    place.air.say(address(7))
    place.is_told("q", 7)


def test_a_change_is_told_at_once_and_each_way(place):
    browse_and_wait(place)
    place.near.query("q", place.index, "host.local.", d.A)
    place.is_told("q", 7)
    for told in ([7, 8], [7, 8, 7], [7, 8, 7, 9]):
        place.stays_told("q", *told[:-1])
        place.air.say(address(told[-1]))
        place.is_told("q", *told)


def test_the_loss_of_the_newer_of_two_addresses_is_followed_by_the_other(place):
    browse_and_wait(place)
    place.near.query("q", place.index, "host.local.", d.A)
    place.is_told("q", 7)
    place.stays_told("q", 7)
    place.air.say(address(7), address(8))
    place.is_told("q", 7, 8)
    place.stays_told("q", 7, 8)
    place.air.say(address(7))
    place.is_told("q", 7, 8, 7)


def test_a_resolve_that_goes_on_hears_of_a_change(place):
    browse_and_wait(place)
    place.near.resolve("rs", place.index, "Device", "_ipp._tcp")
    place.near.wait("rs")
    stays_true(lambda: len(place.near.of("rs")) == 1, 2.5, "it is told once")
    place.air.say(text(b"\x03a=c"))
    place.near.wait("rs", 2)
    assert [bytes.fromhex(reply.fields[3]) for reply in place.near.of("rs")] == [b"\x03a=b", b"\x03a=c"]


def test_a_goodbye_ends_the_rest(place):
    browse_and_wait(place)
    place.near.query("q", place.index, "host.local.", d.A)
    place.is_told("q", 7)
    since = time.monotonic()
    place.air.say(address(7, ttl=0))
    wait_until(lambda: place.questions(HOST, dns.A, since), d.DEADLINE, "a question after the goodbye")


def test_a_short_lived_address_is_asked_for_as_ever(place):
    browse_and_wait(place, ttl=10)
    place.near.query("q", place.index, "host.local.", d.A)
    place.is_told("q", 7)
    wait_until(lambda: place.questions(HOST, dns.A), d.DEADLINE, "a question")


def test_an_address_is_asked_for_before_its_lifetime_is_over(place):
    browse_and_wait(place, ttl=60)
    place.near.query("q", place.index, "host.local.", d.A)
    place.is_told("q", 7)
    began = time.monotonic()
    wait_until(lambda: place.questions(HOST, dns.A), 55, "a question")
    assert 35 < time.monotonic() - began < 50


def test_a_name_with_very_many_records_is_told_whole(place):
    place.near.query("q", place.index, "many.local.", d.TXT)
    wait_until(lambda: len(place.questions("many.local", dns.TXT)) >= 2, d.DEADLINE, "the question over both protocols")
    many = dns.labels("many.local")
    for first in range(0, 200, 20):
        place.air.say_first(*[dns.Record(many, dns.TXT, b"\x04n%03d" % number, 4500)
                              for number in range(first, first + 20)])
    replies = place.near.wait("q", 200)
    assert len({reply.fields[3] for reply in replies}) == 200


def announce_addresses(place, *lasts):
    place.air.say_first(*[address(last) for last in lasts])


def test_of_what_is_remembered_the_newest_is_told_last(place):
    browse_and_wait(place)
    place.near.query("known", place.index, "host.local.", d.A)
    announce_addresses(place, 7, 8, 9)
    wait_until(lambda: place.told("known")[-1:] == [9], d.DEADLINE, "the newest address")
    place.near.query("q", place.index, "host.local.", d.A)
    place.is_told("q", 7, 8, 9)


def test_of_very_many_addresses_the_newest_is_told_last_and_the_next_newest_when_it_has_gone(place):
    browse_and_wait(place)
    place.near.query("known", place.index, "host.local.", d.A)
    announce_addresses(place, *range(101, 141))
    wait_until(lambda: place.told("known")[-1:] == [140], d.DEADLINE, "the newest address")
    place.near.query("q", place.index, "host.local.", d.A)
    wait_until(lambda: place.told("q")[-1:] == [140], d.DEADLINE, "the newest address")
    place.air.say(*[address(last, ttl=0) for last in range(125, 141)])
    wait_until(lambda: place.told("q")[-1:] == [124], d.DEADLINE, "the next newest")


def test_what_is_said_over_the_other_protocol_is_not_missed(place):
    place.near.query("q", place.index, "host.local.", d.A)
    wait_until(lambda: len(place.questions(HOST, dns.A)) >= 2, d.DEADLINE, "the question over both protocols")
    wait_until(lambda: not place.air.say(address(7), over="IPv4") and place.told("q"), d.DEADLINE, "the address told")
    place.stays_told("q", 7)
    place.air.say(address(8), over="IPv6")
    place.is_told("q", 7, 8)


def test_what_happens_to_other_interfaces_disturbs_no_rest(place, link):
    browse_and_wait(place)
    place.near.query("q", place.index, "host.local.", d.A)
    place.is_told("q", 7)
    place.stays_told("q", 7, seconds=1)
    since = time.monotonic()
    link.near.run("ip link add other0 type veth peer name other1")
    link.near.run("ip link set other0 up")
    link.near.run("ip link del other0")
    link.near.run("ip addr change fd09::1/64 dev eth0 valid_lft 5000 preferred_lft 4000")
    stays_true(lambda: not place.questions(HOST, dns.A, since), 3, "nothing is asked for")
