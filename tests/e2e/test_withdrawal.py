# SPDX-License-Identifier: MIT
"""What link b and link c hold when a service on link a, its host, or the daemon goes.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----[ client ]
                               c
                               |
                            link c
"""

import pytest
from testbed import dns, rule, stays_true, wait_until


@pytest.fixture
def daemon(scene, net):
    return scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()


@pytest.mark.usefixtures("daemon")
def test_a_goodbye_is_passed_on_after_its_second(scene, net, ear):
    ear_a = scene.ear(net["a"])
    device = scene.device(net["a"])
    service = device.publish("Printer")
    ear.wait_for(service.name, dns.SRV, within=5)
    ear.wait_for("printer.local", dns.A, within=2)
    device.withdraw(service)
    gateway = net.gateway_addresses("b")
    said = ear_a.wait_for(service.type, dns.PTR, within=1, ttl=0, data=service.name)[0].time
    passed_on = ear.wait_for(service.type, dns.PTR, within=3, ttl=0, data=service.name, sources=gateway)[0].time
    wait_until(lambda: ear.held(gateway) == [], 2, lambda: f"a goodbye to everything: {ear.held(gateway)}")
    assert 0.98 <= passed_on - said <= 1.25  # somebody may yet say it again within the second (RFC 6762 section 10.1)


@pytest.mark.usefixtures("daemon")
def test_a_client_loses_it(scene, net):
    printer = scene.printer(net["a"])
    client = scene.browser(net["b"])
    client.sees("Office Printer")
    printer.goodbye()
    client.loses("Office Printer", within=3)


@pytest.mark.usefixtures("daemon")
def test_a_service_that_comes_back_is_forwarded_again(scene, net):
    device = scene.device(net["a"])
    client = scene.browser(net["b"])
    for port in (1000, 1001):
        service = device.publish("Printer", port=port)
        assert client.sees("Printer").port == port
        device.withdraw(service)
        client.loses("Printer")


@pytest.mark.usefixtures("daemon")
def test_one_of_two_services_of_a_host_goes(scene, net, ear):
    device = scene.device(net["a"])
    first, second = device.publish("First", port=1), device.publish("Second", port=2)
    for service in (first, second):
        ear.wait_for(service.name, dns.SRV, within=5)
    gateway = net.gateway_addresses("b")
    device.withdraw(first)
    gone = ear.wait_for(first.type, dns.PTR, within=3, ttl=0, data=first.name, sources=gateway)[0].time
    assert ear.heard(second.type, dns.PTR, ttl=0, data=second.name) == []
    stays_true(lambda: not ear.heard("printer.local", dns.A, ttl=0), 1.2,
               "the address of the one that stays was withdrawn")
    assert ear.heard("printer.local", dns.AAAA, ttl=0) == []
    client = scene.browser(net["b"])
    found = client.sees("Second")
    assert sorted(found.parsed_addresses()) == net["a"].addresses()
    assert "First" not in client.names
    device.withdraw(second)
    ear.wait_for("printer.local", dns.A, within=3, ttl=0, sources=gateway, since=gone)
    wait_until(lambda: ear.held(gateway) == [], 2, lambda: f"a goodbye to everything: {ear.held(gateway)}")


def test_one_service_on_two_links_goes_from_both(scene):
    net = scene.network("a", "b", "c")
    ears = {name: scene.ear(net[name]) for name in "bc"}
    scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b"), rule("_ipp._tcp", "a", "c")).start_and_wait()
    device = scene.device(net["a"])
    service = device.publish("Printer")
    for name, ear in ears.items():
        ear.wait_for(service.name, dns.SRV, within=5)
        ear.wait_for("printer.local", dns.AAAA, within=2)
    device.withdraw(service)
    for name, ear in ears.items():
        gateway = net.gateway_addresses(name)
        ear.wait_for(service.type, dns.PTR, within=3, ttl=0, data=service.name, sources=gateway)
        wait_until(lambda: ear.held(gateway) == [], 2, lambda: f"link {name}: {ear.held(gateway)}")


def test_sigterm_leaves_nothing_on_the_link(scene, net, ear, daemon):
    device = scene.device(net["a"])
    for port in range(1, 6):
        device.publish(f"Printer {port}", port=port)
    for port in range(1, 6):
        ear.wait_for(f"Printer {port}._ipp._tcp.local", dns.SRV, within=5)
    client = scene.browser(net["b"])
    wait_until(lambda: len(client.names) == 5, 3, "all five")
    assert daemon.stop(within=2) == 10
    assert daemon.status_code == 10
    gateway = net.gateway_addresses("b")
    wait_until(lambda: client.names == [] and ear.held(gateway) == [], 2,
               lambda: f"nothing on link b: {client.names} {ear.held(gateway)}")


@pytest.mark.usefixtures("daemon")
def test_a_service_that_goes_at_once_leaves_nothing(scene, net, ear):
    device = scene.device(net["a"])
    fleeting = device.publish("Fleeting", port=1)
    ear_b_time = ear.packets[-1].time if ear.packets else 0.0
    device.withdraw(fleeting)
    stays = device.publish("Stays", port=2)
    ear.wait_for(stays.name, dns.SRV, within=5)
    gateway = net.gateway_addresses("b")
    wait_until(lambda: not any(name.startswith("fleeting") for name, *_ in ear.held(gateway, ear_b_time)), 4,
               "Fleeting's goodbye")
    stays_true(lambda: not any(name.startswith("fleeting") for name, *_ in ear.held(gateway, ear_b_time)), 1,
               "Fleeting is back")
