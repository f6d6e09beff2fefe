# SPDX-License-Identifier: MIT
"""A service on link a changes, or its host falls silent.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----[ client ]
"""

import pytest
from testbed import dns, rule, stays_true, wait_until

VENDOR_ENTRY = b"\rvender=Zenmor"
HOST = "printer.local"
ADDRESS_TTL = 2         # seconds; that of real devices is 120, which a test would have to wait for
WITHOUT_AN_ANSWER = 10  # seconds (RFC 6762 section 10.4)


def withdrawn(ear, sources, since):
    return [record for _, record in ear.records(sources, since) if record.ttl == 0]


def probes(ear, sources, since):
    """Queries that claim something (RFC 6762 section 8.1)."""
    return [packet.message for packet in ear.sent_by(*sources, since=since)
            if not packet.message.is_response and packet.message.authorities]


def forwarded(record):
    """What is said on link b of a record that was said on link a."""
    return VENDOR_ENTRY + record.data if record.kind == dns.TXT else record.data


@pytest.mark.parametrize("kind, subtypes", [("_ipp._tcp", []), ("_universal._ipp._tcp", ["_universal"])],
                         ids=["type", "subtype"])
def test_each_change_of_txt_data_and_port_is_an_update_on_the_other_link(scene, net, ear, kind, subtypes):
    ear_a = scene.ear(net["a"])
    scene.daemon(net.gateway, rule(kind, "a", "b")).start_and_wait()
    gateway = net.gateway_addresses("b")
    device = scene.device(net["a"])
    service = device.publish("Printer", txt=["n=0"], subtypes=subtypes)
    client = scene.browser(net["b"])
    client.sees("Printer")
    for record_type in (dns.A, dns.AAAA):
        ear.wait_for(HOST, record_type, within=2, sources=gateway)
    # a subtype's PTR record is there before it has been probed for
    ear.wait_for(service.name, dns.SRV, within=2, sources=gateway)
    established = ear.packets[-1].time

    def is_whole():
        return "Printer" in client.names and not withdrawn(ear, gateway, established) and not probes(ear, gateway,
                                                                                                     established)

    def story():
        return (f"{client.events}, goodbyes {withdrawn(ear, gateway, established)}, probes "
                f"{probes(ear, gateway, established)}")
    for change in ({"txt": ["n=1"]}, {"txt": ["n=2", "x" * 100]}, {"txt": []}, {"port": 1001}, {"port": 1002},
                   {"port": 1003, "txt": ["n=3"]}):
        for record in device.change(service, **change):
            said = ear_a.wait_for(record.name, record.kind, within=1, data=record.data)[0].time
            seen = ear.wait_for(record.name, record.kind, within=3, data=forwarded(record), sources=gateway)[0].time
            assert seen - said < 0.3, f"{change}: {story()}"
        stays_true(is_whole, 0.4, story)
    stays_true(is_whole, 1.2, story)  # the second announcement is a second after the first
    assert "removed" not in [what for _, what, _ in client.events], client.events
    found = client.details("Printer")
    assert (found.port, found.text) == (1003, VENDOR_ENTRY + dns.txt_data(["n=3"]))
    held = {(kind, data) for name, kind, data in ear.cached(gateway) if kind in (dns.SRV, dns.TXT)}
    assert held == {(dns.SRV, service.srv.data), (dns.TXT, found.text)}


def test_a_service_goes_when_its_hosts_addresses_have_run_out_and_nobody_answers_for_it(scene, net, ear):
    """Silent says nothing any more; Shy answers for its service and not for its addresses; Awake answers for
    everything."""
    ear_a = scene.ear(net["a"])
    scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
    devices = {name: scene.device(net["a"], host=name.lower(), addresses=["10.1.0.2", "fd00:1::2"],
                                  address_ttl=ADDRESS_TTL)
               for name in ("Silent", "Shy", "Awake")}
    services = {name: device.publish(name) for name, device in devices.items()}
    for service in services.values():
        ear.wait_for(service.name, dns.SRV, within=5)
    for name in ("Silent", "Shy"):
        devices[name].addresses = []
    devices["Silent"].services = []
    said = ear_a.heard("silent.local", dns.AAAA)[-1][0].time
    gateway = net.gateway_addresses("b")
    silent = services["Silent"]
    gone = ear.wait_for(silent.type, dns.PTR, within=ADDRESS_TTL + WITHOUT_AN_ANSWER + 3, ttl=0,
                        data=silent.name)[0].time
    asked = [packet for packet in ear_a.sent_by(*net.gateway_addresses("a"), since=said + ADDRESS_TTL)
             if packet.time < gone and dns.Question(silent.type, dns.PTR) in packet.message.questions]
    assert asked, "withdrawn without a question"
    print(f"withdrawn {gone - said:.3f} s after its last word, {gone - asked[0].time:.3f} s after the question")
    assert ADDRESS_TTL < gone - said < ADDRESS_TTL + WITHOUT_AN_ANSWER + 2
    wait_until(lambda: not [name for name, *_ in ear.held(gateway) if name.startswith("silent")], 1,
               lambda: ear.held(gateway))
    client = scene.browser(net["b"])
    wait_until(lambda: sorted(client.names) == ["Awake", "Shy"], 2, lambda: client.names)

    def others_stay():
        return not [record for _, record in ear.heard(silent.type, dns.PTR, ttl=0) if record.data != silent.name]
    stays_true(others_stay, 1, lambda: ear.heard(silent.type, dns.PTR, ttl=0))
