# SPDX-License-Identifier: MIT
"""Interfaces: one protocol only, down and up again, gone; and no privileges."""

import socket
import time

import pytest

import driver as d
from testbed import dns, wait_until
from testbed.network import wire


@pytest.mark.parametrize("protocols", [{"ipv6": None}, {"ipv4": None}], ids=["IPv4 only", "IPv6 only"])
def test_one_protocol_is_enough(own_link, protocols):
    link = own_link(**protocols)
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    publisher.record("r", link.near_index, "printer.local.", d.A, bytes([10, 9, 0, 7]))
    looker.wait("br")
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    looker.query("q", link.far_index, "printer.local.", d.A)
    looker.wait("rs")
    looker.wait("q")
    publisher.end()
    assert not d.add_flag(looker.wait("br", 2)[1])


def test_the_port_of_one_protocol_may_be_taken(link):
    """By a program that shares it with nobody."""
    with link.far.entered():
        ipv4, ipv6 = (socket.socket(family, socket.SOCK_DGRAM) for family in (socket.AF_INET, socket.AF_INET6))
    ipv6.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
    with ipv4:
        ipv4.bind(("", 5353))
        looker, publisher = link.looker(), link.publisher()
        with ipv6:
            ipv6.bind(("", 5353))
            assert looker.browse("none", link.far_index, "_ipp._tcp") == d.NOT_RUNNING
        assert looker.browse("br", link.far_index, "_ipp._tcp") == 0
        publisher.register("reg", link.near_index, "My Printer")
        looker.wait("br")


def test_services_are_announced_again_when_the_link_comes_back(own_link):
    link = own_link()
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    publisher.record("r", link.near_index, "printer.local.", d.A, bytes([10, 9, 0, 7]))
    looker.wait("br")
    looker.query("q", link.far_index, "printer.local.", d.A)
    looker.wait("q")
    for host in (link.near, link.far):
        host.run("ip link set eth0 down")
    looker.wait("br", 2)
    for host in (link.far, link.near):
        host.run(f"ip addr replace 10.9.0.{1 if host is link.near else 2}/24 dev eth0")
        host.run("ip link set eth0 up")
    looker.wait("br", 3, deadline=20)
    looker.resolve("rs", link.far_index, "My Printer", "_ipp._tcp")
    looker.wait("rs")
    assert [d.add_flag(reply) for reply in looker.of("br")] == [True, False, True]
    assert len(publisher.of("reg")) == 1  # the name is the same: nothing to say


def test_what_is_withdrawn_while_it_is_probed_for_anew_gets_its_goodbye(own_link):
    link = own_link()
    air, publisher = link.air(), link.publisher()
    publisher.register("reg", link.near_index, "My Printer")
    name = ("My Printer", "_ipp", "_tcp", "local")
    wait_until(lambda: len(air.said(name, dns.SRV)) >= 2, d.DEADLINE, "both announcements")
    link.near.run("ip link set eth0 down")
    again = time.monotonic()
    link.near.run("ip link set eth0 up")
    wait_until(lambda: air.probes(name, again), d.DEADLINE, "a probe")
    publisher.release("reg")
    wait_until(lambda: air.said(name, dns.SRV, again, ttl=0) and air.said(name, dns.TXT, again, ttl=0), d.DEADLINE,
               "the goodbye")


def test_what_was_registered_while_the_link_was_down_is_announced_when_it_comes_up(own_link):
    link = own_link()
    link.near.run("ip link set eth0 down")
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    publisher.record("r", link.near_index, "printer.local.", d.A, bytes([10, 9, 0, 7]))
    publisher.wait("reg")
    link.near.run("ip link set eth0 up")
    looker.wait("br", deadline=20)
    looker.query("q", link.far_index, "printer.local.", d.A)
    looker.wait("q")


def test_an_interface_may_vanish(own_link):
    link = own_link()
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    looker.wait("br")
    link.near.run("ip link del eth0")  # takes the other end with it
    looker.wait("br", 2)
    assert not d.add_flag(looker.of("br")[1])
    assert publisher.register("late", link.near_index, "Late") == 0  # its server is still there, and talks to nobody
    publisher.release("reg")
    assert publisher.end() == 0 and looker.end() == 0


def test_no_operation_starts_on_an_interface_that_has_vanished(own_link):
    link = own_link()
    publisher = link.publisher()
    link.near.run("ip link del eth0")
    assert publisher.browse("br", link.near_index, "_ipp._tcp") == d.BAD_INTERFACE


def test_interfaces_do_not_hear_each_other(own_link):
    """near is on two links; what is published on one is not seen on the other."""
    link = own_link()
    third = link.host("third")
    wire(link.near, "eth1", third, "eth0", ipv4="10.8.0", ipv6="fd08::")
    publisher, looker, other = link.publisher(), link.looker(), link.driver(third)
    other.browse("br", third.index("eth0"), "_ipp._tcp")
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.browse("br0", link.near.index("eth0"), "_ipp._tcp")
    publisher.browse("br1", link.near.index("eth1"), "_ipp._tcp")
    looker.register("reg", link.far_index, "Far")
    other.register("reg", third.index("eth0"), "Third", host="third.local")
    assert d.text_of(publisher.wait("br0")[0].fields[0]) == "Far"
    assert d.text_of(publisher.wait("br1")[0].fields[0]) == "Third"
    publisher.register("here", link.near.index("eth1"), "Here")
    publisher.register("there", link.near.index("eth0"), "Here")
    other.wait("br", 2)
    looker.wait("br", 2)
    publisher.release("here")
    other.wait("br", 3)
    assert len(looker.of("br")) == 2  # withdrawn from one link, and from no other
    assert [d.text_of(reply.fields[0]) for reply in looker.of("br")].count("Third") == 0


def test_no_privilege_is_needed(own_link):
    link = own_link()
    unprivileged = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--bounding-set=-all",
                    "--inh-caps=-all"]
    looker, publisher = link.looker(prefix=unprivileged), link.publisher(prefix=unprivileged)
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "My Printer")
    looker.wait("br")


def test_an_idle_server_lingers_and_the_last_connection_ends_it(link):
    looker = link.looker()
    looker.browse("br", link.far_index, "_ipp._tcp")

    def bound():
        return looker.host.run("ss -Hlunp").count("dns_sd_driver")

    assert bound() >= 2
    looker.release("br")
    time_before = time.monotonic()
    assert bound() >= 2 and time.monotonic() - time_before < 5
    looker.release("c")
    assert bound() == 0
