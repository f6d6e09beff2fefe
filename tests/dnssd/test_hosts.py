# SPDX-License-Identifier: MIT
"""A host that is elsewhere gives way to one on the link with the same name, and has its own name again when nobody owns
it."""

import pytest

import driver as d
from testbed import dns, wait_until

OWN, OTHER = "printer.local.", "printer-2.local."
OWNER = "10.9.0.99"
FORWARDED = "10.9.0.7"
FORMER = "10.9.0.8"
PATIENCE = 40  # seconds: the host's own name is taken back ten seconds after its owner has gone


def address(last, ttl=120, flush=False):
    return dns.Record(dns.labels(OWN), dns.A, last, ttl, flush=flush)


def rdata(text):
    return bytes(map(int, text.split(".")))


@pytest.mark.parametrize("first", (FORWARDED, FORMER), ids=("the same from the start", "the same after a change"))
def test_an_address_that_another_gateway_has_for_the_same_host_is_no_owner(link, first):
    air = link.air()
    air.say_first()
    publisher = link.publisher()
    publisher.record("a", link.near_index, OWN, d.A, rdata(first))
    publisher.wait("a")
    air.say(address(OWNER, flush=True))
    wait_until(lambda: air.said(OTHER, dns.A), PATIENCE, "the other name")
    air.say(address(FORWARDED))
    air.say(address(OWNER, ttl=0))
    if first != FORWARDED:
        assert publisher.update("a", rdata(FORWARDED)) == 0
    began = air.said(OTHER, dns.A)[-1][0].time
    wait_until(lambda: [record for _, record in air.said(OWN, dns.A, since=began) if record.data == FORWARDED
                        and record.ttl], PATIENCE, "the host's own name")
    wait_until(lambda: [record for _, record in air.said(OTHER, dns.A, since=began) if record.ttl == 0], PATIENCE,
               "the goodbye")
    assert publisher.end() == 0
