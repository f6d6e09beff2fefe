# SPDX-License-Identifier: MIT
"""A service on link a, seen and used from link b.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----[ client ]
     10.1.0.2                                10.2.0.2
     fd00:1::2                               fd00:2::2
"""

import socket
import threading

import pytest
from testbed import dns, rule, services_list, stays_true, wait_until

VENDOR_ENTRY = b"\rvender=Zenmor"
NAMES = ["Office Printer", "a.b.c", "back\\slash", "dots. and \\ blanks", "Drücker im Büro \N{HOT BEVERAGE}",
         "\\065\\.", "x" * 63]


def serve_once(link, port, text):
    """A TCP server on the link's host that says the text to its first client."""
    with link.ns.entered():
        server = socket.create_server(("::", port), family=socket.AF_INET6, dualstack_ipv6=True) if link.ipv6 else (
            socket.create_server(("", port)))

    def serve():
        with server, server.accept()[0] as connection:
            connection.sendall(text.encode())
    threading.Thread(target=serve, daemon=True).start()


def reach(link, address, port):
    with link.ns.entered():
        connection = socket.create_connection((address, port), timeout=3)
    with connection:
        return connection.recv(1000).decode()


def test_a_printer_is_found_resolved_and_reached_by_name(scene):
    net = scene.network("a", "b")
    scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    scene.printer(net["a"], "Office Printer", port=6310, txt={"rp": "ipp/print"}, host="office-printer")
    client = scene.browser(net["b"])
    found = client.sees("Office Printer")
    assert (found.server, found.port) == ("office-printer.local.", 6310)
    assert found.text == VENDOR_ENTRY + b"\x0crp=ipp/print"
    assert sorted(found.parsed_addresses()) == ["10.1.0.2", "fd00:1::2"]
    assert client.resolve("office-printer.local.") == ["10.1.0.2", "fd00:1::2"]
    for address in client.resolve("office-printer.local."):
        serve_once(net["a"], 6310, f"reached at {address}")
        assert reach(net["b"], address, 6310) == f"reached at {address}"
        wait_until(lambda: not net["a"].ns.run("ss -Hltn sport = :6310"), 2, "the server's end")


def test_a_printer_that_was_there_before_the_daemon(scene):
    net = scene.network("a", "b")
    scene.printer(net["a"])
    client = scene.browser(net["b"])
    scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    assert client.sees("Office Printer").parsed_addresses()[0] == "10.1.0.2"


@pytest.mark.parametrize("only, address", [("ipv4_only", "10.1.0.2"), ("ipv6_only", "fd00:1::2")])
def test_a_host_with_one_address_family(scene, only, address):
    net = scene.network("a", "b", **{only: ("a",)})
    ear = scene.ear(net["b"])
    scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    scene.printer(net["a"], host="single")
    found = scene.browser(net["b"]).sees("Office Printer")
    assert found.parsed_addresses() == [address]
    other = dns.AAAA if ":" not in address else dns.A
    assert ear.heard("single.local", other) == []


def test_instance_names_arrive_byte_for_byte(scene):
    net = scene.network("a", "b")
    ear = scene.ear(net["b"])
    scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    device = scene.device(net["a"])
    for port, name in enumerate(NAMES, start=1000):
        device.publish(name, port=port, txt=[f"n={port}"])
    kind = dns.labels("_ipp._tcp.local")
    for port, name in enumerate(NAMES, start=1000):
        full = (name.encode(), *kind)
        ear.wait_for(full, dns.SRV, within=6, data=(0, 0, port, dns.labels("printer.local")))
        ear.wait_for(kind, dns.PTR, within=2, data=full)
        ear.wait_for(full, dns.TXT, within=2, data=VENDOR_ENTRY + dns.txt_data([f"n={port}"]))


def test_only_the_types_of_the_rule_are_forwarded(scene):
    net = scene.network("a", "b")
    ear = scene.ear(net["b"])
    services = services_list(Media=["_airplay._tcp", "_raop._tcp"], Printing=["_ipp._tcp"])
    scene.daemon(net.gateway, rule("Media", "a", "b", literal=False), services=services).start_and_wait()
    device = scene.device(net["a"], host="television")
    device.publish("Printer", "_ipp._tcp")
    device.publish("Screen", "_airplay._tcp")
    device.publish("Speaker", "_raop._tcp")
    ear.wait_for("Screen._airplay._tcp.local", dns.SRV, within=5)
    ear.wait_for("Speaker._raop._tcp.local", dns.SRV, within=5)
    assert ear.heard("Printer._ipp._tcp.local", dns.SRV) == []
    assert ear.heard("_ipp._tcp.local", dns.PTR) == []


def test_a_subtype_rule_is_found_by_a_browse_for_the_subtype(scene):
    net = scene.network("a", "b")
    ear = scene.ear(net["b"])
    scene.daemon(net.gateway, rule("_universal._ipp._tcp", "a", "b")).start_and_wait()
    device = scene.device(net["a"])
    device.publish("With subtype", port=1, subtypes=["_universal"])
    device.publish("Without", port=2)
    name = "_universal._sub._ipp._tcp.local"
    ear.wait_for(name, dns.PTR, within=5, data=dns.labels("With subtype._ipp._tcp.local"))
    # A client that asks is answered as well, with this one alone.
    client = scene.device(net["b"], host="client")
    asked = ear.packets[-1].time
    client.send(dns.Message(questions=[dns.Question(dns.labels(name), dns.PTR)]))
    ear.wait_for(name, dns.PTR, within=3, sources=net.gateway_addresses("b"), since=asked)
    assert {record.data[0] for _, record in ear.heard(name, dns.PTR)} == {b"With subtype"}
    assert ear.heard("Without._ipp._tcp.local", dns.SRV) == []


def test_both_directions_forward_nothing_twice(scene):
    net = scene.network("a", "b")
    ears = {name: scene.ear(net[name]) for name in "ab"}
    scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b", bidirectional=True)).start_and_wait()
    scene.device(net["a"], host="host-a").publish("From a")
    ears["b"].wait_for("From a._ipp._tcp.local", dns.SRV, within=5)
    scene.device(net["b"], host="host-b").publish("From b")
    ears["a"].wait_for("From b._ipp._tcp.local", dns.SRV, within=5)

    def nothing_came_back():
        return not any(ears[name].heard(f"From {name}._ipp._tcp.local", kind, sources=gateway[name])
                       for name in "ab" for kind in (dns.SRV, dns.TXT, dns.PTR))
    gateway = {name: net.gateway_addresses(name) for name in "ab"}
    stays_true(nothing_came_back, 2, "a service came back to the link it is on")
    for name, other in ("ab", "ba"):
        names = {record.data[0] for _, record in ears[other].heard("_ipp._tcp.local", dns.PTR, sources=gateway[other])}
        assert names == {f"From {name}".encode()}, "neither a copy nor a renamed one"


def test_a_service_that_carries_the_vendor_entry_is_not_forwarded(scene):
    net = scene.network("a", "b")
    ear = scene.ear(net["b"])
    scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    device = scene.device(net["a"])
    device.publish("Forwarded by another gateway", txt=["x=1", VENDOR_ENTRY[1:]])
    device.publish("Genuine", port=2)
    ear.wait_for("Genuine._ipp._tcp.local", dns.SRV, within=5)
    stays_true(lambda: not ear.heard("Forwarded by another gateway._ipp._tcp.local", dns.SRV), 1, "it is forwarded")
