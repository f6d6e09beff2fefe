# SPDX-License-Identifier: MIT
"""Floods on link A: the daemon stays up, keeps the genuine service forwarded, keeps its limit, and stays calm on link
B.

    link A                                  gateway        link B
    [ genuine printer ]----+---------------[ mdnsproxy ]---[ client, counting packets ]
    [ adversary       ]----+

How many packets the gateway may put on link B stands with each flood. All of them are counted, over IPv4 and IPv6, from
the flood's first packet to the moment when the gateway has been silent on link B.
"""

import itertools

import pytest
from flooded import GENUINE, Flooded
from testbed import adversary, chosen_seed, wait_until


@pytest.fixture
def flooded(scene):
    return Flooded(scene)


def test_malformed_packets_change_nothing(flooded):
    packets = itertools.chain(adversary.truncated(), adversary.compression_loops(), adversary.odd_lengths(),
                              adversary.noise(chosen_seed(), 1000))
    # Some of the packets that were damaged by chance are well-formed still: fifty instances and whatever became of
    # their names.
    flooded.stands(packets, 500, at_most=1200)
    flooded.ends_clean()


def test_names_and_data_that_no_honest_host_has(flooded):
    packets = itertools.chain(adversary.long_names(), adversary.odd_hosts(), adversary.odd_txt())
    # At most a hundred instances.
    flooded.stands(packets, 200, at_most=400)
    flooded.ends_clean()


def test_a_host_that_changes_its_address_a_hundred_times_a_second(flooded):
    flapping = adversary.host("flaps")
    flooded.adversary.say(adversary.announcement(adversary.instance("flaps"), flapping,
                                                 addresses=("10.1.0.9", "fd00:1::9")))
    # A change is one announcement and one goodbye for each protocol at most, and some of them are told together.
    flooded.stands(adversary.changing_addresses(flapping, 300), 100, at_most=1200)
    flooded.adversary.say(adversary.announcement(adversary.instance("flaps"), flapping, ttl=0))
    wait_until(lambda: not flooded.holds_of("flaps"), 5,
               lambda: f"goodbyes; link B still holds {flooded.holds_of('flaps')}")
    flooded.ends_clean()


def test_others_that_claim_the_genuine_service(flooded):
    # The genuine host defends its service; nothing of it is news for link B.
    flooded.stands(adversary.conflicting_srv(GENUINE, 300), 100, at_most=60)
    flooded.ends_clean()
