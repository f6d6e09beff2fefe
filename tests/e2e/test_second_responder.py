# SPDX-License-Identifier: MIT
"""Another multicast DNS responder, avahi-daemon, runs on the gateway as well.

      link a                 gateway                   link b
    [ device ]----- a [ mdnsproxy, avahi-daemon ] b -----[ client ]
"""

import pytest
from testbed import dns, rule, stays_true
from testbed.avahi import Avahi, service_file

@pytest.fixture
def avahi(scene, net):
    name = "Files of the gateway"
    made = scene.keep(Avahi(net.gateway, [service_file(name, _ssh=4711)], server={"host-name": "gateway"}))
    made.start().establishes(name)
    return made


@pytest.mark.usefixtures("avahi")
def test_both_work_and_neither_renames_anything(scene, net, avahi):
    ears = {name: scene.ear(net[name]) for name in "ab"}
    daemon = scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    device = scene.device(net["a"])
    service = device.publish("Printer")
    ears["b"].wait_for(service.name, dns.SRV, within=6)
    ears["b"].wait_for("printer.local", dns.A, within=2)
    client = scene.browser(net["b"])
    assert client.sees("Printer").port == 631
    assert scene.browser(net["b"], "_ssh._tcp").sees("Files of the gateway").port == 4711
    device.withdraw(service)
    client.loses("Printer")
    stays_true(lambda: client.names == [], 1, lambda: client.names)
    assert daemon.stop() == 10
    assert "onflict" not in avahi.said and "withdrawing" not in avahi.said.lower(), avahi.said
    renamed = [record for ear in ears.values() for _, record in ear.records()
               if record.name[0].startswith((b"gateway-2", b"Printer (2)", b"Printer #2", b"Files of the gateway (2)",
                                             b"Files of the gateway #2"))]
    assert renamed == []


def test_its_own_service_keeps_its_name_when_a_rule_forwards_it_to_where_it_is_already(scene, net, avahi):
    """avahi-daemon publishes on both links. What a rule forwards from link a meets the original on link b, and gives
    way."""
    ear = scene.ear(net["b"])
    scene.daemon(net.gateway, rule("_ssh._tcp", "a", "b")).start_and_wait()
    client = scene.browser(net["b"], "_ssh._tcp")
    for name in ("Files of the gateway", "Files of the gateway (2)"):
        assert client.sees(name).port == 4711
    assert "onflict" not in avahi.said
    assert ear.heard("Files of the gateway._ssh._tcp.local", dns.PTR, ttl=0) == []
