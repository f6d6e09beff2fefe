# SPDX-License-Identifier: MIT
"""A stranger claims what is ours (RFC 6762 section 9): we ask whether he means it, and give way if he does."""

import time

import pytest

import driver as d
from testbed import dns, wait_until
from testbed.waiting import Meanwhile

INSTANCE = ("My Printer", "_ipp", "_tcp", "local")
HOST = "printer.local."


def v4(last):
    return bytes([10, 9, 0, last])


def strangers_service():
    return (dns.Record(dns.labels(INSTANCE), dns.SRV, (0, 0, 99, dns.labels("stranger.local")), 120, flush=True),
            dns.Record(dns.labels(INSTANCE), dns.TXT, b"\x09stranger!", 4500, flush=True))


def strangers_address(last=99):
    return (dns.Record(dns.labels(HOST), dns.A, f"10.9.0.{last}", 120, flush=True),)


class Stranger:
    """Claims a name, and answers each probe for it with his claim again."""

    def __init__(self, air, name, claim):
        self.air, self.name, self.claim = air, name, claim
        self.answered = 0

    def __enter__(self):
        self.began = time.monotonic()
        self.air.say(*self.claim)
        self.claims = Meanwhile(self._insist)
        return self

    def _insist(self):
        probes = len(self.air.probes(self.name, self.began))
        if probes > self.answered:
            self.answered = probes
            self.air.say(*self.claim)

    def __exit__(self, *_):
        self.claims.close()


def registered(driver, name, count=1):
    reply = driver.wait(name, count)[count - 1]
    assert reply.error == 0
    return d.text_of(reply.fields[0])


def announced_twice(air, name, kind, since=0.0):
    wait_until(lambda: len(air.said(name, kind, since, ttl=120)) >= 2, d.DEADLINE, "both announcements")
    return time.monotonic()


def test_a_service_whose_name_is_taken_gets_the_next_one(link):
    air, publisher = link.air(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer")
    assert registered(publisher, "reg") == "My Printer"
    lost = announced_twice(air, INSTANCE, dns.SRV)
    with Stranger(air, INSTANCE, strangers_service()):
        assert registered(publisher, "reg", 2) == "My Printer (2)"
    assert air.probes(INSTANCE, lost)
    pointers = [record for _, record in air.said("_ipp._tcp.local", dns.PTR, lost)
                if record.data == dns.labels(INSTANCE)]
    assert not [record for record in pointers if record.ttl == 0], "the goodbye of what is the stranger's by now"
    assert not air.said(INSTANCE, dns.SRV, lost, ttl=0)


def test_a_claim_that_nobody_upholds_costs_nobody_the_name(link):
    air, publisher = link.air(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer")
    claimed = announced_twice(air, INSTANCE, dns.SRV)
    air.say(*strangers_service())
    wait_until(lambda: len(air.probes(INSTANCE, claimed)) >= 3, d.DEADLINE, "three probes")
    announced_twice(air, INSTANCE, dns.SRV, claimed)  # over what the stranger has left in everybody's memory
    assert len(publisher.of("reg")) == 1
    publisher.release("reg")
    wait_until(lambda: air.said(INSTANCE, dns.SRV, claimed, ttl=0), d.DEADLINE, "the goodbye")


def test_without_renaming_the_loss_of_an_established_name_is_reported(link):
    air, publisher = link.air(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer", flags=d.SHARE | d.NO_AUTO_RENAME)
    registered(publisher, "reg")
    announced_twice(air, INSTANCE, dns.SRV)
    assert publisher.update("reg", b"\x01a") == 0
    with Stranger(air, INSTANCE, strangers_service()):
        assert publisher.wait("reg", 2)[1].error == d.NAME_CONFLICT
    assert publisher.update("reg", b"\x01b") == d.BAD_STATE
    publisher.release("reg")


@pytest.mark.parametrize("updated", [False, True], ids=["as registered", "as updated"])
def test_the_loss_of_a_unique_record_is_reported(link, updated):
    air, publisher = link.air(), link.publisher()
    publisher.record("r", link.near_index, HOST, d.A, v4(7), flags=d.UNIQUE)
    assert publisher.wait("r")[0].error == 0
    if updated:
        assert publisher.update("r", v4(8)) == 0
    wait_until(lambda: len(air.said(HOST, dns.A, data="10.9.0.8" if updated else "10.9.0.7", ttl=120)) >= 2, d.DEADLINE,
               "announcements")
    with Stranger(air, HOST, strangers_address()):
        assert publisher.wait("r", 2)[1].error == d.NAME_CONFLICT
    assert publisher.remove("r") == 0


def test_an_update_is_no_claim_of_a_stranger(link):
    """Neither the goodbye of the old data nor the announcement of the new makes us doubt our own record."""
    air, publisher = link.air(), link.publisher()
    publisher.record("r", link.near_index, HOST, d.A, v4(7), flags=d.UNIQUE)
    publisher.wait("r")
    publisher.register("reg", link.near_index, "My Printer")
    updated = announced_twice(air, INSTANCE, dns.SRV)
    for last in (8, 9):
        assert publisher.update("r", v4(last)) == 0
        assert publisher.update("reg", bytes([1, last])) == 0
        wait_until(lambda last=last: len(air.said(HOST, dns.A, updated, data=f"10.9.0.{last}", ttl=120)) >= 2,
                   d.DEADLINE, "announcements")
    assert not air.probes(HOST, updated) and not air.probes(INSTANCE, updated)
    assert len(publisher.of("r")) == len(publisher.of("reg")) == 1


def test_a_shared_record_is_anybodys(link):
    air, publisher = link.air(), link.publisher()
    publisher.record("r", link.near_index, HOST, d.A, v4(7), flags=d.SHARED)
    announced_twice(air, HOST, dns.A)
    air.say(*strangers_address())
    claimed = time.monotonic()
    publisher.record("unique", link.near_index, "other.local.", d.A, v4(8), flags=d.UNIQUE)
    publisher.wait("unique")  # probes for it take as long as those for the other would
    assert not air.probes(HOST, claimed) and len(publisher.of("r")) == 1
