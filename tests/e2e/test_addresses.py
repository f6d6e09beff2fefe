# SPDX-License-Identifier: MIT
"""The addresses of a forwarded service's host.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----[ client ]
"""

import pytest
from testbed import dns, rule, stays_true, wait_until

HOST = "printer.local"


@pytest.fixture
def ear(scene, net):
    ear = scene.ear(net["b"])
    scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    return ear


@pytest.mark.parametrize("kind, old, new", [(dns.A, "10.1.0.2", "10.1.0.77"), (dns.AAAA, "fd00:1::2", "fd00:1::77")],
                         ids=["IPv4", "IPv6"])
def test_a_changed_address_arrives_within_two_seconds(scene, net, ear, kind, old, new):
    device = scene.device(net["a"], addresses=[old])
    service = device.publish("Printer")
    ear.wait_for(service.name, dns.SRV, within=5)
    ear.wait_for(HOST, kind, within=2, data=old)
    ear_a = scene.ear(net["a"])
    device.change_addresses([new])
    changed = ear_a.wait_for(HOST, kind, within=1, data=new)[0].time
    assert ear.wait_for(HOST, kind, within=4, data=new)[0].time - changed < 2
    ear.wait_for(HOST, kind, within=2, data=old, ttl=0)
    gateway = net.gateway_addresses("b")

    def held():
        return [data for name, _, data in ear.held(gateway) if name == HOST]
    wait_until(lambda: held() == [new], 2, lambda: f"only the new address: {held()}")
    client = scene.browser(net["b"])
    assert client.sees("Printer").parsed_addresses() == [new]
    assert ear.heard(service.type, dns.PTR, ttl=0) == [], "the service itself stays"


def test_link_local_addresses_are_never_announced(scene, net, ear):
    device = scene.device(net["a"], addresses=["169.254.7.7", "fe80::7", "10.1.0.2", "fd00:1::2"])
    service = device.publish("Printer")
    ear.wait_for(service.name, dns.SRV, within=5)
    ear.wait_for(HOST, dns.A, within=2, data="10.1.0.2")
    ear.wait_for(HOST, dns.AAAA, within=2, data="fd00:1::2")
    for address in ("169.254.8.8", "fe80::8"):
        device.change_addresses([address, "10.1.0.2", "fd00:1::2"])

    def announced():
        return {record.data for kind in (dns.A, dns.AAAA) for _, record in ear.heard(HOST, kind)}
    stays_true(lambda: announced() == {"10.1.0.2", "fd00:1::2"}, 2, announced)


def test_a_host_with_nothing_but_link_local_addresses_is_not_forwarded(scene, net, ear):
    device = scene.device(net["a"], host="local-only", addresses=["169.254.7.7", "fe80::7"])
    device.publish("Local")
    other = scene.device(net["a"], host="other").publish("Other")
    ear.wait_for(other.name, dns.SRV, within=5)
    stays_true(lambda: not ear.heard("Local._ipp._tcp.local", dns.SRV) and not ear.heard("local-only.local", dns.A), 1,
               "something of it is announced")
    device.change_addresses(["10.1.0.2"])
    ear.wait_for("Local._ipp._tcp.local", dns.SRV, within=5)


def test_a_second_family_that_comes_later_is_added(scene, net, ear):
    device = scene.device(net["a"], addresses=["10.1.0.2"])
    service = device.publish("Printer")
    ear.wait_for(service.name, dns.SRV, within=5)
    device.change_addresses(["10.1.0.2", "fd00:1::2"])
    ear.wait_for(HOST, dns.AAAA, within=3, data="fd00:1::2")
    assert ear.heard(HOST, dns.A, ttl=0) == []
