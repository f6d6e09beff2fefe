# SPDX-License-Identifier: MIT
"""systemd-resolved on the other side of the link: who finds what of the other, and who gives way where both want one
name."""

import ipaddress
import os
import struct

import pytest

import driver as d
from resolved import Resolved
from testbed import dns, wait_until
from testbed.network import End
from testbed.voice import ask_from_other_port

WEB = ("web", "Gateway Web", "_http._tcp", 80)
OURS, ITS = "10.9.0.2", "10.9.0.1"


@pytest.fixture
def start(link):
    """Starts systemd-resolved with services of its own."""
    started = []

    def make(*services):
        started.append(Resolved(link, *services))
        return started[-1]

    yield make
    for one in started:
        one.close()


def rdata(address):
    return ipaddress.ip_address(address).packed


def register_printer(link, instance="My Printer"):
    """Our service on the far host, with the host's addresses and their names; as good as established when it
    returns."""
    publisher = link.looker()
    for name, address in (("r", "10.9.0.77"), ("r6", "fd09::4d")):
        kind = d.A if name == "r" else d.AAAA
        publisher.record(name, link.far_index, "printer.local.", kind, rdata(address), flags=d.UNIQUE)
    reverse = ipaddress.ip_address("10.9.0.77").reverse_pointer
    publisher.record("rev", link.far_index, reverse, d.PTR, dns.encode_name("printer.local"), flags=d.UNIQUE)
    publisher.register("reg", link.far_index, instance, txt=dns.txt_data(["rp=print"]))
    assert [publisher.wait(name)[0].error for name in ("r", "r6", "rev", "reg")] == [0] * 4
    return publisher


def instances(driver, name):
    """The instances that a browse has reported and not taken back."""
    found = {}
    for reply in driver.of(name):
        found[d.text_of(reply.fields[0])] = d.add_flag(reply)
    return sorted(instance for instance, is_there in found.items() if is_there)


def wait_instances(driver, name, expected):
    wait_until(lambda: instances(driver, name) == sorted(expected), d.DEADLINE, f"{expected}\n{driver.dump()}")


def announcements(air, name, kind):
    """Our responses with that record, those over IPv4."""
    return [packet for packet, _ in air.heard(name, kind, sources=[OURS])]


def questions(air, source, name, kind):
    """The packets from there that ask for it."""
    return [packet for packet in air.sent_by(source) if packet.message and not packet.message.is_response and
            any(question.kind == kind and dns.same_name(question.name, name) for question in packet.message.questions)]


def test_it_finds_a_host_and_a_service_of_ours(link, start):
    resolved = start()
    resolved.listen()
    register_printer(link, "Büro Nr. 2")
    resolved.look_up("flush-caches")  # what was announced is forgotten, so that it has to ask
    assert "10.9.0.77" in resolved.look_up("query", "-4", "printer.local")
    assert "fd09::4d" in resolved.look_up("query", "-6", "printer.local")
    resolved.look_up("flush-caches")
    service = resolved.look_up("service", "Büro Nr. 2", "_ipp._tcp", "local")
    assert "printer.local:631" in service and "rp=print" in service
    assert "10.9.0.77" in service or "fd09::4d" in service  # it is content with the address that comes first
    resolved.look_up("flush-caches")
    assert "Nr\\.\\0322._ipp._tcp.local" in resolved.look_up("query", "--type=PTR", "_ipp._tcp.local")
    assert "_ipp._tcp.local" in resolved.look_up("query", "--type=PTR", "_services._dns-sd._udp.local")
    assert "printer.local" in resolved.look_up("query", "10.9.0.77")


def test_its_host_and_its_service_are_found_by_us_and_known_in_our_questions(link, start):
    resolved = start(("web", "Büro von %H", "_http._tcp", 80))
    resolved.publish()
    looker = link.looker()
    looker.browse("br", link.far_index, "_http._tcp")
    assert d.text_of(looker.wait("br")[0].fields[0]) == "Büro von gateway"
    looker.resolve("rs", link.far_index, "Büro von gateway", "_http._tcp")
    reply = looker.wait("rs")[0]
    assert d.text_of(reply.fields[1]) == "gateway.local." and reply.fields[2] == "80"
    assert bytes.fromhex(reply.fields[3]) == b"\x06path=/"
    looker.query("q", link.far_index, "gateway.local.", d.A)
    looker.query("q6", link.far_index, "gateway.local.", d.AAAA)
    looker.query("rev", link.far_index, ipaddress.ip_address(ITS).reverse_pointer, d.PTR)
    looker.query("types", link.far_index, "_services._dns-sd._udp.local.", d.PTR)
    assert looker.wait("q")[0].fields[3] == rdata(ITS).hex()
    its_ipv6 = {rdata(address).hex() for address in resolved.air.near if ":" in address}
    assert {reply.fields[3] for reply in looker.wait("q6", 2)} == its_ipv6
    assert bytes.fromhex(looker.wait("rev")[0].fields[3]) == dns.encode_name("gateway.local")
    assert bytes.fromhex(looker.wait("types")[0].fields[3]) == dns.encode_name("_http._tcp.local")

    def known():
        asked = questions(resolved.air, OURS, "_http._tcp.local", dns.PTR)
        return [record for packet in asked for record in packet.message.answers]

    record = wait_until(known, d.DEADLINE, "a further question that tells what we know")[0]
    assert dns.text(record.data[:1]) == "Büro von gateway"
    assert dns.HOST_TTL / 2 < record.ttl <= dns.HOST_TTL and not record.flush


def test_what_it_withdraws_is_reported_gone_and_what_it_keeps_is_there(link, start):
    resolved = start(WEB)
    resolved.publish()
    looker = link.looker()
    looker.browse("br", link.far_index, "_http._tcp")
    resolved.register("passing", "Passing Web", "_http._tcp", 8080)
    wait_instances(looker, "br", ["Gateway Web", "Passing Web"])

    def announced():  # before that there is no goodbye
        return resolved.air.heard("Passing Web._http._tcp.local", dns.SRV, sources=resolved.air.near)

    wait_until(lambda: len({":" in packet.source for packet, _ in announced()}) == 2, d.DEADLINE,
               "its announcement over both protocols")
    resolved.unregister("passing")  # it says goodbye to everything, and announces what is left
    goodbye, _ = resolved.air.wait_for("_http._tcp.local", dns.PTR, d.DEADLINE, sources=[ITS], ttl=0)
    resolved.air.wait_for("_http._tcp.local", dns.PTR, d.DEADLINE, sources=[ITS], since=goodbye.time, ttl=dns.HOST_TTL)
    wait_instances(looker, "br", ["Gateway Web"])


def test_what_we_change_and_withdraw_is_changed_and_given_up_by_its_cache(link, start):
    resolved = start()
    resolved.listen()
    publisher = register_printer(link)
    instance = "My\\032Printer._ipp._tcp.local"
    wait_until(lambda: "rp=print" in resolved.has_cached(instance, "TXT"), d.DEADLINE, "our TXT record in its cache")
    publisher.update("reg", dns.txt_data(["rp=scan"]))
    wait_until(lambda: "rp=scan" in resolved.has_cached(instance, "TXT"), d.DEADLINE, "the change in its cache")
    assert "rp=print" not in resolved.has_cached(instance, "TXT")  # the cache-flush bit has done that
    ours = [("printer.local", "A"), ("printer.local", "AAAA"), (instance, "SRV"), (instance, "TXT"),
            ("_ipp._tcp.local", "PTR")]
    assert all(resolved.has_cached(*record) for record in ours)
    publisher.end()
    wait_until(lambda: not any(resolved.has_cached(*record) for record in ours), d.DEADLINE,
               "our records to leave its cache")


def test_it_takes_other_names_than_the_host_and_the_service_that_we_have(link, start):
    publisher, looker = link.looker(), link.looker()
    publisher.record("r", link.far_index, "gateway.local.", d.A, rdata(OURS), flags=d.UNIQUE)
    publisher.register("reg", link.far_index, "Gateway Web", "_http._tcp", host="gateway.local.", port=99)
    publisher.wait("reg")
    resolved = start(WEB)
    looker.browse("br", link.far_index, "_http._tcp")
    resolved.publish()
    looker.wait("br", 2)
    assert "Gateway Web" in instances(looker, "br") and len(instances(looker, "br")) == 2
    its_name, = set(instances(looker, "br")) - {"Gateway Web"}
    looker.resolve("ours", link.far_index, "Gateway Web", "_http._tcp")
    looker.resolve("its", link.far_index, its_name, "_http._tcp")
    assert (d.text_of(looker.wait("ours")[0].fields[1]), looker.of("ours")[0].fields[2]) == ("gateway.local.", "99")
    its_host = d.text_of(looker.wait("its")[0].fields[1])
    assert its_host != "gateway.local." and looker.of("its")[0].fields[2] == "80"
    looker.query("a", link.far_index, its_host, d.A)
    assert looker.wait("a")[0].fields[3] == rdata(ITS).hex()
    assert len(publisher.of("reg")) == len(publisher.of("r")) == 1, "ours have been ours all the time"
    assert OURS in resolved.look_up("query", "gateway.local")


def test_names_that_it_has_are_not_taken_from_it(link, start):
    resolved = start(WEB)
    resolved.publish()
    looker, publisher = link.looker(), link.looker()
    looker.browse("br", link.far_index, "_http._tcp")
    looker.resolve("rs", link.far_index, "Gateway Web", "_http._tcp")
    looker.query("a", link.far_index, "gateway.local.", d.A)
    publisher.record("r", link.far_index, "gateway.local.", d.A, rdata("10.9.0.99"), flags=d.UNIQUE)
    publisher.register("reg", link.far_index, "Gateway Web", "_http._tcp", host="ours.local.", port=99)
    assert publisher.wait("r")[0].error == d.NAME_CONFLICT
    assert d.text_of(publisher.wait("reg")[0].fields[0]) == "Gateway Web (2)"
    wait_instances(looker, "br", ["Gateway Web", "Gateway Web (2)"])
    assert {reply.fields[3] for reply in looker.wait("a")} == {rdata(ITS).hex()}
    assert {(d.text_of(reply.fields[1]), reply.fields[2]) for reply in looker.wait("rs")} == {("gateway.local.", "80")}


def test_of_two_that_probe_at_once_the_later_data_has_the_name(link, start):
    resolved = start(WEB)
    publisher, looker = link.looker(), link.looker()
    resolved.listen()
    wait_until(lambda: questions(resolved.air, ITS, "Gateway Web._http._tcp.local", dns.ANY), d.DEADLINE,
               "its first probe")
    txt = dns.txt_data(["z=longer"])  # is later than its own, and a TXT record is compared before an SRV record
    publisher.register("reg", link.far_index, "Gateway Web", "_http._tcp", host="ours.local.", port=99, txt=txt)
    publisher.wait("reg")
    looker.browse("br", link.far_index, "_http._tcp")
    resolved.wait_announced()
    probed = questions(resolved.air, OURS, "Gateway Web._http._tcp.local", dns.ANY)[0].time
    claimed = [packet.time for packet, record in resolved.air.heard("_http._tcp.local", dns.PTR, sources=[ITS])
               if len(packet.message.answers) > 1 and record.data[0] == b"Gateway Web"]
    # it was too late on a slow machine
    ours = "Gateway Web" if not claimed or probed < claimed[0] else "Gateway Web (2)"
    assert d.text_of(publisher.of("reg")[0].fields[0]) == ours
    wait_until(lambda: len(instances(looker, "br")) == 2, d.DEADLINE, f"both services\n{looker.dump()}")
    its, = set(instances(looker, "br")) - {ours}
    looker.resolve("ours", link.far_index, ours, "_http._tcp")
    looker.resolve("its", link.far_index, its, "_http._tcp")
    assert (looker.wait("ours")[0].fields[2], looker.wait("its")[0].fields[2]) == ("99", "80")


def test_an_answer_that_it_knows_is_not_given_to_it(link, start):
    resolved = start()
    resolved.listen()
    register_printer(link)
    wait_until(lambda: len(announcements(resolved.air, "_ipp._tcp.local", dns.PTR)) == 2, d.DEADLINE,
               "our announcements")
    wait_until(lambda: resolved.has_cached("_ipp._tcp.local", "PTR"), d.DEADLINE, "our pointer in its cache")
    resolved.look_up_meanwhile("query", "--cache=no", "--type=PTR", "_ipp._tcp.local")
    asked = wait_until(lambda: questions(resolved.air, ITS, "_ipp._tcp.local", dns.PTR)[1:], d.DEADLINE,
                       "its question and the next")[-1]
    assert "My Printer" in [dns.text(record.data[:1]) for record in asked.message.answers if record.kind == dns.PTR]
    assert len(announcements(resolved.air, "_ipp._tcp.local", dns.PTR)) == 2, resolved.air.story()
    resolved.look_up("flush-caches")
    assert "My\\032Printer" in resolved.look_up("query", "--type=PTR", "_ipp._tcp.local")


def test_a_record_that_it_announces_with_a_short_life_is_announced_again_by_us(link, start):
    types = "_services._dns-sd._udp.local"
    publisher = link.looker()
    publisher.register("reg", link.far_index, "Ours", "_http._tcp")
    publisher.wait("reg")
    resolved = start(WEB)
    resolved.publish()
    packet, record = resolved.air.wait_for(types, dns.PTR, d.DEADLINE, sources=[ITS])
    assert record.ttl == dns.HOST_TTL < dns.OTHER_TTL / 2
    resolved.air.wait_for(types, dns.PTR, d.DEADLINE, sources=[OURS], since=packet.time, ttl=dns.OTHER_TTL,
                          data=record.data)


def ask_once(asker, name, kind):
    """A one-shot query from a port of its own; the answer, which comes to that port alone."""
    identity = os.urandom(2)
    question = dns.query(dns.Question(dns.labels(name), kind))
    data, source = ask_from_other_port(End(asker, "eth0"), identity + question[2:])
    message = dns.decode(data)
    assert data[:2] == identity and struct.unpack_from("!H", data, 2)[0] & 0x8000
    assert [(item.name, item.kind) for item in message.questions] == [(dns.labels(name), kind)]
    return source, message.answers


def test_one_shot_queries_are_answered_both_ways(link, start):
    resolved = start(WEB)
    resolved.publish()
    register_printer(link)
    source, answers = ask_once(link.near, "printer.local", dns.A)
    assert source == (OURS, 5353) and [(record.data, record.flush) for record in answers] == [("10.9.0.77", False)]
    assert answers[0].ttl <= 10
    source, answers = ask_once(link.far, "gateway.local", dns.A)
    assert source == (ITS, 5353) and [record.data for record in answers] == [ITS]
