# SPDX-License-Identifier: MIT
"""Names that other programs announce and find, but cannot read in a question: escaped, they do not fit into 255
characters."""

import time

import pytest

import driver as d
from testbed import dns, stays_true, wait_until

# With "._ipp._tcp.local" behind it, the escaped length is 248, 254, 255, 256, 257, 265 and 268 characters.
NAMES = {248: "é" * 29, 254: "é" * 29 + "x" * 2 + " ", 255: "é" * 29 + "x" * 3 + " ", 256: "é" * 30,
         257: "x" + "é" * 30, 265: "x" + "é" * 31, 268: "プ" * 21}
LONG = NAMES[268]


def instance(name):
    return (name, "_ipp", "_tcp", "local")


def established(link, name, **options):
    """Publishes a service and waits until all that it says of its own accord has been said."""
    air, publisher = link.air(), link.publisher()
    publisher.register("reg", link.near_index, name, **options)
    assert d.text_of(publisher.wait("reg")[0].fields[0]) == name
    wait_until(lambda: min(over_each(air.heard(instance(name), dns.SRV))) >= 2, d.DEADLINE, "both announcements")
    return air, publisher


def over_each(heard):
    """How many of these (packet, ...) came over IPv4, and how many over IPv6."""
    over_ipv6 = sum(":" in packet.source for packet, *_ in heard)
    return len(heard) - over_ipv6, over_ipv6


def asked(air, name, kind, since):
    """The (packet, question) of that name and type."""
    return [(packet, question) for packet in list(air.packets)
            if packet.time >= since and packet.message and not packet.message.is_response
            for question in packet.message.questions if question.kind == kind and dns.same_name(question.name, name)]


@pytest.mark.parametrize("length", NAMES)
def test_a_service_is_resolved_by_who_came_late(link, length):
    air, _ = established(link, NAMES[length])
    late = link.looker()
    began = time.monotonic()
    late.resolve("rs", link.far_index, NAMES[length], "_ipp._tcp")
    late.wait("rs", deadline=5)
    name = instance(NAMES[length])

    def answers():
        return over_each(air.heard(name, dns.SRV, since=began))

    # The first answer, which may be that over IPv6, is enough to resolve it; whoever asks, asks over both.
    wait_until(lambda: sum(answers()), d.DEADLINE, "an answer")
    assert max(answers()) <= max(over_each(asked(air, name, dns.SRV, began))), "two answers to a question"


@pytest.mark.parametrize("length", NAMES)
def test_the_name_of_an_established_service_is_not_taken_from_it(link, length):
    name = NAMES[length]
    _, first = established(link, name)
    second = link.looker()
    second.register("reg", link.far_index, name, host="second.local")
    renamed = d.text_of(second.wait("reg")[0].fields[0])
    assert renamed != name and renamed.endswith(" (2)")
    assert len(first.of("reg")) == 1


def test_two_that_want_the_same_name_at_the_same_time_do_not_both_keep_it(link):
    first, second = link.publisher(), link.looker()
    first.register("reg", link.near_index, LONG, host="first.local")
    second.register("reg", link.far_index, LONG, host="second.local")

    def last(driver):
        return d.text_of(driver.wait("reg")[-1].fields[0]) if driver.of("reg") else None

    wait_until(lambda: last(first) and last(second) and first.of("reg")[-1].fields[0] != second.of("reg")[-1].fields[0],
               d.DEADLINE, "two different names")


def test_the_address_of_a_host_is_found_by_who_came_late(link):
    host = LONG + ".local."
    air, publisher = link.air(), link.publisher()
    publisher.record("r", link.near_index, host, d.A, bytes([10, 9, 0, 7]))
    wait_until(lambda: len(air.said((LONG, "local"), dns.A)) >= 2, d.DEADLINE, "both announcements")
    late = link.looker()
    late.query("q", link.far_index, host, d.A)
    assert late.wait("q", deadline=5)[0].fields[3] == "0a090007"


def test_the_same_is_said_once_a_second_at_most(link):
    air, _ = established(link, LONG)
    began = time.monotonic()

    def is_said_calmly():
        air.ask(instance(LONG), dns.SRV)
        return len(air.said(instance(LONG), dns.SRV, began)) <= 1 + time.monotonic() - began

    stays_true(is_said_calmly, 2, lambda: air.story())
    assert air.said(instance(LONG), dns.SRV, began)


def test_what_is_withdrawn_is_answered_for_no_more(link):
    air, publisher = established(link, LONG)
    publisher.register("other", link.near_index, "Other")
    publisher.wait("other")
    publisher.release("reg")
    wait_until(lambda: air.said(instance(LONG), dns.SRV, ttl=0), d.DEADLINE, "the goodbye")
    released = time.monotonic()
    air.ask(instance(LONG), dns.SRV)
    late = link.looker()
    late.resolve("rs", link.far_index, "Other", "_ipp._tcp")
    late.wait("rs")  # asked for later, and answered
    assert not [record for _, record in air.said(instance(LONG), dns.SRV, released) if record.ttl]
