# SPDX-License-Identifier: MIT
"""Packets that mean harm, and tools that find it."""

import random
import re
import socket

import pytest

import driver as d
from testbed import Voice, dns, wait_until
from testbed.dns import raw_response
from testbed.network import End


def send(link, packets):
    """Sends packets from the near host's port 5353, over IPv4."""
    near = Voice(End(link.near, "eth0"))
    for packet in packets:
        near.send(packet, "IPv4")
    near.close()


def record(name, rrtype, rdata, rrclass=1):
    return dns.raw_record(dns.encode_name(name), rrtype, rdata, ttl=120, klass=rrclass)


def hostile_packets(seed):
    chance = random.Random(seed)
    pointer = dns.encode_name("_ipp._tcp.local")
    yield b""
    yield b"\0" * 11
    yield dns.HEADER.pack(0, dns.RESPONSE, 0, 0xFFFF, 0xFFFF, 0xFFFF)
    pointer_to_itself = b"\xc0\x0c"
    yield raw_response(dns.raw_record(pointer_to_itself, dns.PTR, pointer_to_itself, 120, dns.CLASS_IN))
    yield raw_response(record("_ipp._tcp.local", 12, b"\x3fshort"))
    yield raw_response(record("_ipp._tcp.local", 12, b"\x03a\0b" + pointer))  # a zero byte in a label
    yield raw_response(record("_ipp._tcp.local", 12, b"\0"))
    yield raw_response(record("_ipp._tcp.local", 12, (b"\x3f" + b"x" * 63) * 3 + b"\x3e" + b"y" * 62 + b"\0"))
    yield raw_response(record("_ipp._tcp.local", 16, b"\xff" * 8000))
    yield raw_response(record("_ipp._tcp.local", 33, b"\0\0"))
    yield raw_response(*[record("_ipp._tcp.local", 12, b"\x01" + bytes([65 + i % 26]) + pointer) for i in range(100)])
    good = raw_response(record("_ipp._tcp.local", 12, b"\x07Hostile" + pointer), record("h.local", 1, b"abcd"))
    for _ in range(300):
        damaged = bytearray(good)
        for _ in range(chance.randrange(1, 6)):
            damaged[chance.randrange(len(damaged))] = chance.randrange(256)
        yield bytes(damaged[:chance.randrange(1, len(damaged) + 1)])


@pytest.mark.parametrize("seed", [1, 20261120])
def test_malformed_packets_do_no_harm(link, seed):
    print("seed", seed)
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    looker.resolve("rs", link.far_index, "Hostile", "_ipp._tcp")
    looker.query("any", link.far_index, "h.local.", 255)
    looker.register("mine", link.far_index, "Mine", host="mine.local")
    looker.wait("mine")
    send(link, list(hostile_packets(seed)))
    publisher.register("reg", link.near_index, "Genuine")
    wait_until(lambda: any(d.text_of(reply.fields[0]) == "Genuine" for reply in looker.of("br")
                           if "f" * 6 not in reply.fields[0]), d.DEADLINE, "the genuine service")
    assert looker.end() == 0


def test_a_flood_of_invented_instances_leaves_the_genuine_ones_alone(link):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "Genuine")
    looker.wait("br")
    pointer = dns.encode_name("_ipp._tcp.local")
    flood = [raw_response(*[record("_ipp._tcp.local", 12, bytes([9]) + f"{i:04d}{j:05d}".encode() + pointer)
                            for j in range(30)])
             for i in range(300)]
    send(link, flood)
    looker.resolve("rs", link.far_index, "Genuine", "_ipp._tcp")
    looker.wait("rs", deadline=40)
    looker.release("br")
    publisher.end()
    assert looker.end(deadline=40) == 0


def test_an_address_that_changes_all_the_time_is_followed(link):
    looker = link.looker()
    looker.query("q", link.far_index, "h.local.", d.A)
    packets = [raw_response(record("h.local", 1, socket.inet_aton(f"10.9.1.{i % 250 + 1}"), rrclass=0x8001))
               for i in range(500)]
    send(link, packets)
    wait_until(lambda: looker.of("q") and looker.of("q")[-1].fields[3] == "0a0901fa", d.DEADLINE, "the last address")


VALGRIND = ["valgrind", "-q", "--error-exitcode=99", "--leak-check=full", "--show-leak-kinds=definite,indirect",
            "--errors-for-leak-kinds=definite,indirect"]


def test_a_whole_life_without_a_wrong_access_or_a_leak(link):
    """Everything once: nothing is read or written that is not there, and nothing is left behind. Valgrind says so, or
    the sanitizers of a build that has them, beside which valgrind cannot work."""
    looker = link.looker()
    publisher = link.publisher(connect=False, prefix=[] if d.is_sanitized() else VALGRIND)
    publisher.send("connect", "c")
    wait_until(lambda: not publisher.answers.empty(), 60, "valgrind to have started")
    publisher.answers.get()
    looker.browse("br", link.far_index, "_ipp._tcp")
    looker.register("theirs", link.far_index, "My Printer", host="theirs.local")
    looker.wait("theirs")
    publisher.browse("br", link.near_index, "_ipp._tcp")
    publisher.resolve("rs", link.near_index, "My Printer", "_ipp._tcp")
    publisher.wait("rs", deadline=60)
    publisher.record("r", link.near_index, "printer.local.", d.A, bytes([10, 9, 0, 7]))
    publisher.record("u", link.near_index, "unique.local.", d.AAAA, bytes(15) + b"\1", flags=d.UNIQUE)
    publisher.query("q", link.near_index, "printer.local.", d.A)
    publisher.register("reg", link.near_index, "My Printer", regtype="_ipp._tcp,_universal")
    publisher.wait("reg", deadline=60)
    publisher.update("reg", b"\x01z")
    publisher.wait("u", deadline=60)
    for last in (8, 7, 9):
        publisher.update("r", bytes([10, 9, 0, last]))
    publisher.wait("q", deadline=60)
    send(link, list(hostile_packets(3)))
    publisher.register("waiting", link.near_index, "Not yet established", host="w.local")
    assert publisher.end(deadline=90) == 0, publisher.dump()
    assert not [line for line in publisher.errors if re.match(r"==\d+== (Invalid|Conditional|Use of)", line)]
