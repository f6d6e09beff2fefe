# SPDX-License-Identifier: MIT
"""Every packet that the gateway puts on link b while it forwards one printer, from its first to its last.

      link a               gateway                link b
    [ device ]----- a [ mdnsproxy ] b -----( ear )
"""

import pytest
from testbed import dns, rule, wait_until
from testbed.scene import Scene

TYPE, NAME, HOST = "_ipp._tcp.local", "Printer._ipp._tcp.local", "printer.local"
HOST_TTL, OTHER_TTL = 120, 4500  # RFC 6762 section 10


@pytest.fixture(scope="module")
def heard():
    """(packets of the gateway on link b, its addresses there) of one run: start, a printer, its goodbye, stop."""
    scene = Scene()
    try:
        net = scene.network("a", "b")
        ear = scene.ear(net["b"])
        daemon = scene.daemon(net.gateway, rule("_ipp._tcp", "a", "b")).start_and_wait()
        device = scene.device(net["a"])
        service = device.publish("Printer", txt=["rp=ipp/print"])
        gateway = net.gateway_addresses("b")
        # Announced twice, a second apart (RFC 6762 section 8.3): by then everything has been said.
        wait_until(lambda: len(ear.heard(NAME, dns.SRV, sources=gateway)) >= 4, 6, "both announcements")
        device.withdraw(service)
        ear.wait_for(TYPE, dns.PTR, within=3, ttl=0, sources=gateway)
        daemon.stop()
        wait_until(lambda: not ear.held(gateway), 2, lambda: f"nothing left: {ear.held(gateway)}")
        yield ear.sent_by(*gateway), ear.sent_by(*net["b"].addresses())
    finally:
        scene.close()


def records(packets):
    return [(packet, record) for packet in packets if packet.message.is_response for record in packet.message.records]


def test_every_packet_is_a_sound_multicast_dns_message(heard):
    packets, _ = heard
    assert packets
    assert all(packet.message is not None for packet in packets)
    assert {packet.hop_limit for packet in packets} == {255}
    assert {packet.destination for packet in packets} == {"224.0.0.251", "ff02::fb"}
    assert all(packet.message.flags == (dns.RESPONSE if packet.message.is_response else 0) for packet in packets)
    assert max(packet.size for packet in packets) <= 1500


def test_nothing_of_the_gateways_own_is_published(heard):
    packets, _ = heard
    names = {dns.text(record.name) for _, record in records(packets)}
    assert names - {TYPE, NAME, HOST, "_services._dns-sd._udp.local"} == set()


def test_every_record_has_the_ttl_of_its_type_or_is_a_goodbye(heard):
    packets, _ = heard
    expected = {dns.PTR: OTHER_TTL, dns.TXT: OTHER_TTL, dns.SRV: HOST_TTL, dns.A: HOST_TTL, dns.AAAA: HOST_TTL}
    wrong = [record for _, record in records(packets) if record.kind in expected
             and record.ttl not in (0, expected[record.kind])]
    assert wrong == []


def test_unique_records_flush_caches_and_shared_ones_do_not(heard):
    packets, _ = heard
    flushing = {(record.kind, record.flush) for _, record in records(packets) if record.ttl > 0
                and record.kind != dns.NSEC}
    # The addresses are shared: another gateway may announce the very same ones.
    assert flushing == {(dns.PTR, False), (dns.SRV, True), (dns.TXT, True), (dns.A, False), (dns.AAAA, False)}


def test_the_name_is_probed_for_before_it_is_announced(heard):
    packets, _ = heard
    probes = [packet.time for packet in packets if not packet.message.is_response
              and any(dns.text(question.name) == NAME and question.kind == dns.ANY
                      for question in packet.message.questions)
              and packet.message.authorities]
    first = min(packet.time for packet, record in records(packets) if record.kind == dns.SRV and record.ttl > 0)
    assert len([time for time in probes if time < first]) >= 3
    assert first - probes[0] >= 0.7, "three probes, 250 ms apart (RFC 6762 section 8.1)"


def test_the_vendor_entry_stands_first_in_the_txt_record(heard):
    packets, _ = heard
    data = {record.data for _, record in records(packets) if record.kind == dns.TXT}
    assert data == {b"\rvender=Zenmor" + dns.txt_data(["rp=ipp/print"])}


def test_addresses_are_there_when_the_service_is(heard):
    packets, _ = heard
    announced = {kind: min(packet.time for packet, record in records(packets) if record.kind == kind) for kind in
                 (dns.A, dns.AAAA, dns.PTR)}
    assert max(announced[dns.A], announced[dns.AAAA]) <= announced[dns.PTR]


def test_everything_announced_gets_its_goodbye(heard):
    packets, _ = heard
    said = {(record.name, record.kind) for _, record in records(packets) if record.ttl > 0 and record.kind != dns.NSEC}
    goodbyes = {(record.name, record.kind) for _, record in records(packets) if record.ttl == 0}
    assert said - goodbyes == set()


def test_the_gateway_stays_calm(heard):
    """One service costs three probes, two or three announcements of two groups of records and a goodbye; IPv4 and IPv6
    apart."""
    packets, _ = heard
    multicasts = [packet for packet in packets if packet.destination == "224.0.0.251"]
    assert len(multicasts) <= 16, [packet.message for packet in multicasts]
    assert not any(question.kind == dns.PTR and dns.text(question.name) == TYPE for packet in packets
                   for question in packet.message.questions), "what is browsed on link a is not asked for on link b"
