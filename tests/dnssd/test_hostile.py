# SPDX-License-Identifier: MIT
"""Packets that mean harm, and tools that find it."""

import random
import re
import socket
import struct
import subprocess
import textwrap

import pytest

import driver as d

SENDER = """
    import socket, sys
    sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sender.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    sender.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
    sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 255)
    sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton("10.9.0.1"))
    sender.bind(("", 5353))
    for line in sys.stdin:
        sender.sendto(bytes.fromhex(line), ("224.0.0.251", 5353))
    print("sent", flush=True)
"""


def send(link, packets):
    """Sends packets from the near host's port 5353, and returns when all have been sent."""
    done = subprocess.run(["ip", "netns", "exec", link.near.name, "/usr/bin/python3", "-c", textwrap.dedent(SENDER)],
                          input="".join(packet.hex() + "\n" for packet in packets), text=True, stdout=subprocess.PIPE,
                          check=True)
    assert done.stdout == "sent\n"


def response(*records):
    return struct.pack(">6H", 0, 0x8400, 0, len(records), 0, 0) + b"".join(records)


def record(name, rrtype, rdata, ttl=120, rrclass=1):
    return d.rdata_name(name) + struct.pack(">HHIH", rrtype, rrclass, ttl, len(rdata)) + rdata


def hostile_packets(seed):
    chance = random.Random(seed)
    pointer = d.rdata_name("_ipp._tcp.local")
    yield b""
    yield b"\0" * 11
    yield struct.pack(">6H", 0, 0x8400, 0, 0xFFFF, 0xFFFF, 0xFFFF)
    yield response(b"\xc0\x0c" + struct.pack(">HHIH", 12, 1, 120, 2) + b"\xc0\x0c")  # a name that points at itself
    yield response(record("_ipp._tcp.local", 12, b"\x3fshort"))
    yield response(record("_ipp._tcp.local", 12, b"\x03a\0b" + pointer))  # a zero byte in a label
    yield response(record("_ipp._tcp.local", 12, b"\0"))
    yield response(record("_ipp._tcp.local", 12, (b"\x3f" + b"x" * 63) * 3 + b"\x3e" + b"y" * 62 + b"\0"))
    yield response(record("_ipp._tcp.local", 16, b"\xff" * 8000))
    yield response(record("_ipp._tcp.local", 33, b"\0\0"))
    yield response(*[record("_ipp._tcp.local", 12, b"\x01" + bytes([65 + i % 26]) + pointer) for i in range(100)])
    good = response(record("_ipp._tcp.local", 12, b"\x07Hostile" + pointer), record("h.local", 1, b"abcd"))
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
    d.wait_for(lambda: any(d.text_of(reply.fields[0]) == "Genuine" for reply in looker.of("br")
                           if "f" * 6 not in reply.fields[0]), "the genuine service")
    assert looker.end() == 0


def test_a_flood_of_invented_instances_leaves_the_genuine_ones_alone(link):
    looker, publisher = link.looker(), link.publisher()
    looker.browse("br", link.far_index, "_ipp._tcp")
    publisher.register("reg", link.near_index, "Genuine")
    looker.wait("br")
    pointer = d.rdata_name("_ipp._tcp.local")
    flood = [response(*[record("_ipp._tcp.local", 12, bytes([9]) + f"{i:04d}{j:05d}".encode() + pointer)
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
    packets = [response(record("h.local", 1, socket.inet_aton(f"10.9.1.{i % 250 + 1}"), rrclass=0x8001))
               for i in range(500)]
    send(link, packets)
    d.wait_for(lambda: looker.of("q") and looker.of("q")[-1].fields[3] == "0a0901fa", "the last address")


VALGRIND = ["valgrind", "-q", "--error-exitcode=99", "--leak-check=full", "--show-leak-kinds=definite,indirect",
            "--errors-for-leak-kinds=definite,indirect"]


def test_a_whole_life_without_a_wrong_access_or_a_leak(link):
    """Everything once: nothing is read or written that is not there, and nothing is left behind. Valgrind says so, or
    the sanitizers of a build that has them, beside which valgrind cannot work."""
    looker = link.looker()
    publisher = link.publisher(connect=False, prefix=[] if d.is_sanitized() else VALGRIND)
    publisher.send("connect", "c")
    d.wait_for(lambda: not publisher.answers.empty(), "valgrind to have started", 60)
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
