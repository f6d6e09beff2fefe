# SPDX-License-Identifier: MIT
"""Questions that very many services answer. Here the library publishes on the near host, and a stranger on the far one
asks."""

import time

import pytest

import driver as d
from testbed import dns, stays_true, wait_until
from testbed.voice import ask_from_other_port

COUNT = 210  # services: more than two hundred answers go without additional records
TYPE = dns.labels("_ipp._tcp.local")


def name(number):
    return f"Device {number}"


def pointer_to(number, ttl=4500):
    return dns.Record(TYPE, dns.PTR, dns.labels((name(number), "_ipp", "_tcp", "local")), ttl)


@pytest.fixture(name="crowd")
def make_crowd(link):
    class Crowd:
        air, near = link.air(), link.publisher()
        far = link.far

        def listed(self, since):
            """The names that the near host's pointers say, over IPv4."""
            return sorted(record.data[0].decode() for _, record in self.air.said(TYPE, dns.PTR, since=since)
                          if record.ttl > 0)

        def lists(self, names, since):
            wait_until(lambda: self.listed(since) == sorted(names), d.DEADLINE, lambda: f"{len(names)} names")

        def ask(self, *questions, known=(), flags=0):
            """Over IPv4; returns when."""
            now = time.monotonic()
            message = dns.Message(flags=flags,
                                  questions=[dns.Question(dns.labels(asked), kind) for asked, kind in questions],
                                  answers=list(known))
            self.air.send(dns.encode(message), "IPv4")
            return now

        def lists_no_more(self, names, since):
            stays_true(lambda: self.listed(since) == sorted(names), 0.5, "these and no others are listed")

    crowd = Crowd()
    for number in range(COUNT):
        assert crowd.near.register(f"s{number}", link.near_index, name(number)) == 0
    wait_until(lambda: len(crowd.listed(0)) == 2 * COUNT, 30, lambda: f"{len(crowd.listed(0))} announcements")
    # Nothing is said again within a second (RFC 6762 section 6).
    stays_true(lambda: len(crowd.listed(0)) == 2 * COUNT, 1.1, "all is announced")
    return crowd


ALL = [name(number) for number in range(COUNT)]


def test_all_are_named_once_and_nothing_else_is_said(crowd):
    asked = crowd.ask(("_ipp._tcp.local", dns.PTR))
    crowd.lists(ALL, asked)
    crowd.lists_no_more(ALL, asked)
    kinds = {record.kind for packet, record in crowd.air.records(crowd.air.near, since=asked)}
    assert kinds == {dns.PTR}


def test_what_the_asker_knows_is_left_out(crowd):
    asked = crowd.ask(("_ipp._tcp.local", dns.PTR), flags=0x0200, known=[pointer_to(number) for number in range(10)])
    crowd.ask(known=[pointer_to(number) for number in range(10, 20)])
    crowd.lists(ALL[20:], asked)
    crowd.lists_no_more(ALL[20:], asked)


def test_what_the_asker_is_about_to_forget_is_said(crowd):
    asked = crowd.ask(("_ipp._tcp.local", dns.PTR), known=[pointer_to(number, 2000) for number in range(10)])
    crowd.lists(ALL, asked)


def test_other_questions_of_the_packet_are_answered_too(crowd):
    instance = (name(7), "_ipp", "_tcp", "local")
    asked = crowd.ask(("_ipp._tcp.local", dns.PTR), (instance, dns.SRV))
    crowd.lists(ALL, asked)
    wait_until(lambda: crowd.air.said(dns.labels(instance), dns.SRV, since=asked), d.DEADLINE, "the other answer")


def test_a_question_for_one_of_them_is_answered_as_ever(crowd):
    instance = dns.labels((name(7), "_ipp", "_tcp", "local"))
    asked = crowd.ask((instance, dns.SRV))
    wait_until(lambda: crowd.air.said(instance, dns.SRV, since=asked), d.DEADLINE, "the answer")
    assert crowd.listed(asked) == []


def test_what_was_withdrawn_is_not_named(crowd):
    for number in range(5):
        assert crowd.near.release(f"s{number}") == 0
    asked = crowd.ask(("_ipp._tcp.local", dns.PTR))
    crowd.lists(ALL[5:], asked)
    crowd.lists_no_more(ALL[5:], asked)


def test_another_program_on_the_machine_finds_all(crowd, link):
    other = link.publisher()
    other.browse("br", link.near_index, "_ipp._tcp")
    other.wait("br", COUNT)
    assert sorted(d.text_of(reply.fields[0]) for reply in other.of("br")) == sorted(ALL)


def test_who_looks_up_itself_finds_all(crowd, link):
    crowd.near.browse("br", link.near_index, "_ipp._tcp")
    crowd.near.wait("br", COUNT)
    assert sorted(d.text_of(reply.fields[0]) for reply in crowd.near.of("br")) == sorted(ALL)


def test_an_asker_without_a_port_of_multicast_dns_is_answered_directly(crowd):
    answer = dns.decode(ask_from_other_port(crowd.air.link, dns.query(dns.Question(TYPE, dns.PTR)))[0])
    pointers = [record for record in answer.answers if record.kind == dns.PTR]
    assert pointers
    assert {record.data[0].decode() for record in pointers} <= set(ALL)
