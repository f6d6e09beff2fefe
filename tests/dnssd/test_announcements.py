# SPDX-License-Identifier: MIT
"""What is on the wire when something is announced, changed and withdrawn: no more than has to be, and nothing less."""

import time

import pytest

import driver as d
from testbed import dns, let_pass_until, stays_true, wait_until
from testbed.waiting import wait_for_silence

HOST = "printer.local."
INSTANCE = ("My Printer", "_ipp", "_tcp", "local")


def v4(last):
    return bytes([10, 9, 0, last])


def address(last):
    return f"10.9.0.{last}"


def quiet(air, name, kind, seconds):
    """Until nothing has been said of a record for that long."""
    wait_for_silence(lambda: max((packet.time for packet, _ in air.said(name, kind)), default=None), seconds,
                     d.DEADLINE, f"{seconds} s of silence about {name}")


def addresses(air, live=True, since=0.0):
    return [record.data for _, record in air.said(HOST, dns.A, since) if bool(record.ttl) == live]


def test_each_record_of_a_service_is_announced_twice_and_withdrawn_once(link):
    air, publisher = link.air(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer")
    publisher.record("r", link.near_index, HOST, d.A, v4(7))
    publisher.wait("reg")
    records = [(INSTANCE, dns.SRV), (INSTANCE, dns.TXT), ("_ipp._tcp.local", dns.PTR), (HOST, dns.A),
               ("_services._dns-sd._udp.local", dns.PTR)]
    wait_until(lambda: all(len(air.said(*record)) >= 2 for record in records), d.DEADLINE, "two announcements of each")
    quiet(air, INSTANCE, dns.SRV, 2.5)
    assert [len(air.said(*record)) for record in records] == [2] * len(records)
    times = [packet.time for packet, _ in air.said(INSTANCE, dns.SRV)]
    assert times[1] - times[0] >= 0.99
    assert all(record.flush == (record.kind in (dns.SRV, dns.TXT)) for each in records for _, record in air.said(*each))
    publisher.release("c")
    wait_until(lambda: all(air.said(*record, ttl=0) for record in records), d.DEADLINE, "goodbyes")
    quiet(air, INSTANCE, dns.SRV, 1.5)
    assert [len(air.said(*record, ttl=0)) for record in records] == [1] * len(records)
    assert not air.held(air.near)


def test_what_is_superseded_before_its_announcement_is_never_announced(link):
    air, publisher = link.air(), link.publisher()
    publisher.record("r", link.near_index, HOST, d.A, v4(7))
    wait_until(lambda: len(addresses(air)) >= 2, d.DEADLINE, "the first address")
    publisher.do("serve", "no")  # nothing falls due
    for last in (8, 9, 10, 11):
        assert publisher.update("r", v4(last)) == 0
    publisher.do("serve", "yes")
    wait_until(lambda: addresses(air).count(address(11)) == 2, d.DEADLINE, "the last address")
    quiet(air, HOST, dns.A, 1.5)
    assert addresses(air) == [address(7)] * 2 + [address(11)] * 2
    assert address(7) in addresses(air, live=False) and address(11) not in addresses(air, live=False)


def test_the_old_data_is_not_withdrawn_before_the_new_is_announced(link):
    air, publisher = link.air(), link.publisher()
    publisher.record("r", link.near_index, HOST, d.A, v4(7))
    wait_until(lambda: len(addresses(air)) >= 2, d.DEADLINE, "the first address")
    assert publisher.update("r", v4(8)) == 0
    wait_until(lambda: address(7) in addresses(air, live=False), d.DEADLINE, "the goodbye")
    new = air.said(HOST, dns.A, data=address(8))[0][0]
    old = air.said(HOST, dns.A, data=address(7), ttl=0)[0][0]
    assert new.time <= old.time < new.time + 0.5


def test_what_is_superseded_and_comes_back_is_announced(link):
    air, publisher = link.air(), link.publisher()
    publisher.record("r", link.near_index, HOST, d.A, v4(7))
    wait_until(lambda: len(addresses(air)) >= 2, d.DEADLINE, "the first address")
    publisher.do("serve", "no")
    for last in (8, 9, 8):
        assert publisher.update("r", v4(last)) == 0
    publisher.do("serve", "yes")
    wait_until(lambda: addresses(air).count(address(8)) == 2, d.DEADLINE, "the second address")
    quiet(air, HOST, dns.A, 1.5)
    assert address(9) not in addresses(air) and address(8) not in addresses(air, live=False)
    assert address(7) in addresses(air, live=False)
    publisher.release("c")
    wait_until(lambda: not air.held(air.near), d.DEADLINE, "goodbyes")


def test_one_that_changes_all_the_time_is_announced_meanwhile(link):
    air, publisher = link.air(), link.publisher()
    publisher.record("r", link.near_index, HOST, d.A, v4(7))
    wait_until(lambda: len(addresses(air)) >= 2, d.DEADLINE, "the first address")
    end = time.monotonic() + 0.5
    changes = 0
    while time.monotonic() < end:
        changes += 1
        publisher.update("r", v4(8 + changes % 200))
    last = address(8 + changes % 200)
    meanwhile = [record.data for packet, record in air.said(HOST, dns.A) if record.ttl and packet.time < end]
    assert len(set(meanwhile)) > 2, f"nothing of {changes} changes"
    wait_until(lambda: addresses(air)[-1] == last, d.DEADLINE, "the last of them")
    quiet(air, HOST, dns.A, 1.5)
    assert [held[2] for held in air.held(air.near)] == [last, last][:len(air.held(air.near))] and air.held(air.near)


@pytest.mark.parametrize("kind", ["record", "service", "all"])
def test_an_answer_that_was_due_when_it_was_withdrawn_does_not_bring_it_back(link, kind):
    air, publisher = link.air(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer")
    publisher.record("r", link.near_index, HOST, d.A, v4(7))
    publisher.wait("reg")
    wait_until(lambda: len(air.said(INSTANCE, dns.SRV)) >= 2 and len(addresses(air)) >= 2, d.DEADLINE,
               "both announcements")
    quiet(air, HOST, dns.A, 1.2)  # said less than a second ago, it would not be answered with
    air.ask("_ipp._tcp.local", dns.PTR)
    air.ask(HOST, dns.A)
    air.ask("_services._dns-sd._udp.local", dns.PTR)
    publisher.do("socket", "c")
    withdrawn = time.monotonic()
    if kind != "all":
        publisher.remove("r")
    if kind == "service":
        publisher.release("reg")
    if kind == "all":
        publisher.release("c")
    let_pass_until(withdrawn + 0.3)  # an answer that was under way has come

    def held():
        return [name for name, _, _ in air.held(air.near) if kind != "record" or name == HOST.rstrip(".")]

    wait_until(lambda: not held(), 3, "nothing of it to be left")


def test_what_is_published_again_at_once_stays_whoever_has_asked(link):
    air, publisher = link.air(), link.publisher()
    publisher.record("r", link.near_index, HOST, d.A, v4(7))
    wait_until(lambda: len(addresses(air)) >= 2, d.DEADLINE, "both announcements")
    air.ask(HOST, dns.A)
    publisher.remove("r")
    again = time.monotonic()
    publisher.record("again", link.near_index, HOST, d.A, v4(7))
    wait_until(lambda: len(addresses(air, since=again)) >= 2, d.DEADLINE, "both announcements")
    stays_true(lambda: [key[2] for key in air.held(air.near)] == [address(7)], again + 1.5 - time.monotonic(),
               "it is held")


def test_what_comes_back_and_goes_again_gets_a_goodbye_each_time(link):
    air, publisher = link.air(), link.publisher()
    for goodbyes in (1, 2, 3):
        announced = len(addresses(air))
        publisher.record("r", link.near_index, HOST, d.A, v4(7))
        wait_until(lambda: len(addresses(air)) > announced, d.DEADLINE, "an announcement")
        publisher.remove("r")
        wait_until(lambda: len(addresses(air, live=False)) >= goodbyes, d.DEADLINE, f"{goodbyes} goodbyes")
    quiet(air, HOST, dns.A, 1.5)
    assert len(addresses(air, live=False)) == 3
    assert not air.held(air.near)


def test_what_another_host_has_just_said_is_not_said_again(link):
    # RFC 6762 section 7.4.
    air, publisher = link.air(), link.publisher()
    kinds = "_services._dns-sd._udp.local"
    publisher.register("reg", link.near_index, "My Printer")
    wait_until(lambda: len(air.said(kinds, dns.PTR)) >= 2, d.DEADLINE, "both announcements")
    quiet(air, kinds, dns.PTR, 1.2)
    asked = time.monotonic()
    air.ask(kinds, dns.PTR)
    air.say(dns.Record(dns.labels(kinds), dns.PTR, dns.labels("_ipp._tcp.local"), 4500))
    stays_true(lambda: not air.said(kinds, dns.PTR, asked), 1.2, "nothing is said")
    air.ask(kinds, dns.PTR)
    wait_until(lambda: air.said(kinds, dns.PTR, asked), d.DEADLINE, "the answer that nobody else gave")
