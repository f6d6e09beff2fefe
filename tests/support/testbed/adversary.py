# SPDX-License-Identifier: MIT
"""Somebody on a link who says what no honest host would. Everything is bounded: a flood is a list of packets of known
length, sent at a stated pace, and ends."""

import itertools
import random
import struct
import threading
import time

from . import dns
from .dns import HEADER
from .dns import raw_record as record
from .dns import raw_response as response
from .network import Host
from .voice import Voice

KIND = "_ipp._tcp.local"
_HOST_NUMBER = 66


class Adversary:
    """Sends from a host of its own on a link, over IPv4 and IPv6 in turn. `sent` counts packets."""

    def __init__(self, link):
        self.link = Host(link, _HOST_NUMBER)
        self.addresses = link.addresses(_HOST_NUMBER)
        self.sent = 0
        self._voice = Voice(self.link)
        self._stopped = threading.Event()
        self._thread = None

    def send(self, packet):
        opened, group = self._voice.sockets[self.sent % len(self._voice.sockets)]
        opened.sendto(packet, group)
        self.sent += 1

    def say(self, packet):
        """Sends it over both protocols."""
        self._voice.send(packet)

    def flood(self, packets, per_second):
        """Sends them all, at that pace or slower, and returns when it is done."""
        started = time.monotonic()
        for number, packet in enumerate(packets):
            ahead = number / per_second - (time.monotonic() - started)
            if ahead > 0.005 and self._stopped.wait(ahead):
                return
            if self._stopped.is_set():
                return
            self.send(packet)

    def start_flood(self, packets, per_second):
        self._thread = threading.Thread(target=self.flood, args=(packets, per_second), daemon=True)
        self._thread.start()

    @property
    def is_flooding(self):
        return self._thread is not None and self._thread.is_alive()

    def close(self):
        self._stopped.set()
        if self._thread:
            self._thread.join()
        self._voice.close()
        self.link.close()


# --- What it sends ----------------------------------------------------------------------------------------------------


def instance(number):
    return dns.labels((f"Invented {number}", *KIND.split(".")))


def host(number):
    return dns.labels((f"invented-{number}", "local"))


def announcement(name, target, port=631, txt=b"\x09txtvers=1", addresses=(), ttl=dns.OTHER_TTL):
    """PTR, SRV, TXT and addresses of one service, as an honest host would announce it."""
    records = [dns.Record(dns.labels(KIND), dns.PTR, dns.labels(name), ttl),
               dns.Record(dns.labels(name), dns.SRV, (0, 0, port, dns.labels(target)), min(ttl, dns.HOST_TTL), True),
               dns.Record(dns.labels(name), dns.TXT, txt, ttl, True)]
    return dns.response(*records, *addresses_of(target, *addresses, ttl=min(ttl, dns.HOST_TTL)))


def addresses_of(target, *addresses, ttl=dns.HOST_TTL, flush=True):
    return [dns.Record(dns.labels(target), dns.AAAA if ":" in address else dns.A, address, ttl, flush)
            for address in addresses]


def invented_instances(count, per_host=1):
    """Instances that look right in every way."""
    for number in range(count):
        of_host = number // per_host
        yield announcement(instance(number), host(of_host),
                           addresses=(f"10.1.{of_host // 250 % 250 + 1}.{of_host % 250 + 1}",))


def truncated():
    """A good announcement, cut at every length; and with record counts that it does not hold."""
    whole = announcement(instance(0), host(0), addresses=("10.1.0.9", "fd00:1::9"))
    for length in range(len(whole)):
        yield whole[:length]
    for counts in ((0, 0xFFFF, 0, 0), (0xFFFF, 4, 0xFFFF, 0xFFFF), (4, 0, 0, 0), (0, 1, 0, 3)):
        yield HEADER.pack(0, dns.RESPONSE, *counts) + whole[HEADER.size:]


def compression_loops():
    """Pointers to themselves, to each other, forward, past the end, and a chain of a thousand."""
    start = HEADER.size
    kind = dns.encode_name(KIND)
    for target in (start, start + 1, 0, start + 40, 0x3FFF):
        pointer = struct.pack("!H", 0xC000 | target)
        yield response(record(pointer, dns.PTR, pointer))
        yield response(record(kind, dns.PTR, b"\x01a" + pointer))
        yield response(record(kind, dns.PTR, b"\x01a" + struct.pack("!H", 0xC000 | (start + len(kind) + 10))))
        yield response(record(b"\x01a" + pointer, dns.SRV, b"\0" * 6 + pointer))
    chain = b"".join(struct.pack("!H", 0xC000 | (start + len(kind) + 10 + 2 * at)) for at in range(1, 1000))
    yield response(record(kind, dns.PTR, chain + b"\x01a\0"))
    for bits in (0x40, 0x80):
        yield response(record(bytes([bits | 5]) + b"hello\0", dns.PTR, bytes([bits | 1]) + b"a\0"))


def odd_labels():
    """Labels that no text form shows as they are, and the longest that there may be."""
    yield from (b"a\0b", b"\0", b".", b"\\", b"a.b", b"\\.", b"\\032", b"\xff" * 63, b" ", b"\n", b"%s%n%n", b"\xc3",
                b"x" * 63, b"\\" * 63, b"." * 63, b"\x01" * 63, b"\0" * 63, b"\"", b"<>&", b"local", b"_tcp")


def long_names():
    """Instances of odd labels, hosts of 255 bytes, and names one byte longer."""
    widest = (b"x" * 63, b"y" * 63, b"z" * 63)
    targets = ((*widest, b"w" * 55, b"local"), (*widest, b"w" * 56, b"local"),
               (b"\x01" * 63,) * 3 + (b"\x02" * 55, b"local"))
    for label, target in itertools.product(odd_labels(), targets):
        yield announcement((label, *KIND.split(".")), target, addresses=("10.1.0.9", "fd00:1::9"))
    for label in odd_labels():
        yield announcement((label, *KIND.split(".")), (label, b"local"), addresses=("10.1.0.9", "fd00:1::9"))


def odd_hosts():
    """SRV targets that are no host names of this link, with addresses for them."""
    for number, target in enumerate(("local", "example", "evil.example.com", "9.0.1.10.in-addr.arpa", "a.ip6.arpa",
                                     "_ipp._tcp.local", "a.b.c.d.e.f.g.local", "LOCAL", "x.Local", ())):
        yield announcement((f"Odd host {number}", *KIND.split(".")), target, addresses=("10.1.0.9", "fd00:1::9"))


def odd_txt():
    """TXT data of every size and of none, and with lengths that do not fit."""
    sizes = (0, 1, 2, 255, 256, 1008, 1009, 1010, 1300, 4000, 8000, 8900)
    for number, size in enumerate(sizes):
        txt = b"".join(bytes([min(255, size - at - 1)]) + b"t" * min(255, size - at - 1) for at in range(0, size, 256))
        yield announcement((f"Long text {number}", *KIND.split(".")), host(number), txt=txt, addresses=("10.1.0.9",))
    for number, txt in enumerate((b"\xff", b"\x05abc", b"\0" * 400, b"\x0dvender=Zenmo", b"\x00\x0dvender=Zenmor",
                                  b"\x01" * 301)):
        yield announcement((f"Odd text {number}", *KIND.split(".")), host(number), txt=txt, addresses=("10.1.0.9",))


def odd_lengths():
    """Record data shorter and longer than its type has it."""
    name = dns.encode_name(instance(1))
    at_host = dns.encode_name(host(1))
    for data in (b"", b"\x0a", b"\x0a\x01\x00\x09\x00", b"\0" * 15, b"\0" * 17):
        yield response(record(at_host, dns.A, data), record(at_host, dns.AAAA, data), record(name, dns.SRV, data),
                       record(name, dns.TXT, data), record(dns.encode_name(KIND), dns.PTR, data))
        yield response(record(at_host, dns.A, data, length=0xFFFF))


CNAME, DNAME, OPT, UNKNOWN = 5, 39, 41, 65300


def alias(name, target, ttl=dns.HOST_TTL):
    """`name` is another name of `target`."""
    return record(dns.encode_name(name), CNAME, dns.encode_name(target), ttl)


def aliases(name):
    """`name` is another name of itself; of a second one, which is another name of the first; of the first of a
    thousand, each of which is another name of the next and the last of `name` again: many of them in a packet, and
    one."""
    yield response(alias(name, name))
    yield response(alias(name, name), *(record(dns.encode_name(name), dns.A, b"\x0a\x01\0\x09")
                                        for _ in range(2)))
    other = ("other", *dns.labels(name))
    yield response(alias(name, other), alias(other, name))
    yield response(alias(name, other))
    yield response(alias(other, name))
    row = [dns.labels(name), *(dns.labels((f"row-{number}", "local")) for number in range(1000)), dns.labels(name)]
    links = [alias(one, next_one) for one, next_one in zip(row, row[1:])]
    yield from (response(*links[at:at + 100]) for at in range(0, len(links), 100))
    yield from (response(link) for link in reversed(links))


def hidden_aliases(name):
    """`name` is another name of itself, in places where a reader might pass over it: behind records that may be read in
    more than one way, in each section, with wrong counts and flags, at the end of the longest message and beyond it, in
    odd classes."""
    loop = alias(name, name)
    itself = dns.encode_name(name)
    forward = struct.pack("!H", 0xC000 | (HEADER.size + 2 + 10 + 4))  # to the owner of the record behind it
    pointer_to_itself = struct.pack("!H", 0xC000 | HEADER.size)
    for owner in (b"\x03a\0b\x05local\0", b"\x01\0\0", forward, pointer_to_itself, b"\xff\xff", b"\x02\xff\xfe\0",
                  b"\0", (b"\x3f" + b"x" * 63) * 4 + b"\0", b"\x01y" * 127 + b"\0", b"\x01y" * 200 + b"\0"):
        yield response(record(owner, dns.A, b"\x0a\x01\0\x09"), loop)
    for kind, data in ((dns.SRV, b"\0" * 6 + itself), (dns.PTR, itself), (dns.TXT, b"\x01t"),
                       (dns.A, b"\x0a\x01\0\x09")):
        for length in (0, len(data) - 1, len(data) + 1, len(data) + len(loop)):
            yield response(record(itself, kind, data, length=length), loop)
    address = record(itself, dns.A, b"\x0a\x01\0\x09")
    question = itself + struct.pack("!HH", dns.A, dns.CLASS_IN)
    for counts, body in (((0, 1, 0, 1), address + loop), ((0, 1, 1, 0), address + loop),
                         ((0, 1, 1, 1), address + address + loop), ((0, 0, 0, 1), loop), ((0, 0, 1, 0), loop),
                         ((1, 1, 0, 0), question + loop), ((1, 0, 0, 1), question + loop), ((0, 0xFFFF, 0, 0), loop),
                         ((0, 1, 0xFFFF, 0xFFFF), loop), ((0xFFFF, 1, 0, 0), loop)):
        yield HEADER.pack(0, dns.RESPONSE, *counts) + body
    for flags in (0x8000, 0x8600, 0x8180, 0xFFFF, 0):
        yield HEADER.pack(0, flags, 0, 1, 0, 0) + loop
    for room in (8999, 9000, 9001, 9040, 9200):
        filling = record(b"\0", UNKNOWN, b"x" * (room - HEADER.size - 11 - len(loop)))
        yield response(filling, loop)
    for class_of in (0x0001, 0x8001, 0x00FF, 0x80FF, 0x0003):
        yield response(record(itself, CNAME, itself, dns.HOST_TTL, class_of))


def odd_types(name):
    """Records of types that nobody asks for: whole, without data, with data cut short, with names that run out of the
    data."""
    itself = dns.encode_name(name)
    whole = {CNAME: itself, DNAME: itself, OPT: b"\0\x04\0\x0e\0\0" + b"\x02\0\0\0\0\x01" * 2 + b"\0" * 4,
             dns.NSEC: itself + b"\0\x04\x40\0\0\x08", UNKNOWN: bytes(range(256)), 0: b"", 0xFFFF: b"\xff"}
    for kind, data in whole.items():
        yield response(record(itself, kind, data))
        yield response(record(b"\0", kind, data))
        yield from (response(record(itself, kind, data[:length])) for length in range(min(len(data), 32)))
        yield response(record(itself, kind, data, length=0xFFFF))
        yield response(record(itself, kind, data), record(itself, kind, data), count=9)
        for run_out in (b"\x3f", b"\x05abc", b"\x01a", b"\x01a\xc0", b"\xc0", b"\xc0\xff", b"\xff\xff", b"\x80\0",
                        itself + b"\0", (b"\x3f" + b"x" * 63) * 4 + b"\0"):
            yield response(record(itself, kind, run_out))
            yield response(record(itself, kind, run_out), record(itself, dns.A, b"\x0a\x01\0\x09"))
    for bits in (b"\0\0", b"\0\x21" + b"\xff" * 33, b"\0\xff\x01", b"\xff\x01\xff\0\x01\xff", b"\0\x20" + b"\xff" * 32):
        yield response(record(itself, dns.NSEC, itself + bits))


def changing_addresses(target, count, odd=True):
    """A host that has another address every time, at times one that nobody has."""
    choices = ["0.0.0.0", "::", "169.254.1.1", "fe80::1", "255.255.255.255", "127.0.0.1", "::1", "224.0.0.251",
               "ff02::fb"]
    for number in range(count):
        ordinary = (f"10.1.{number // 250 % 250 + 1}.{number % 250 + 1}", f"fd00:1::{number + 16:x}")
        strange = choices[number % len(choices)] if odd and number % 3 == 0 else None
        yield dns.response(*addresses_of(target, *((strange,) if strange else ordinary)))


def conflicting_srv(name, count):
    """The same instance on other hosts and ports."""
    for number in range(count):
        srv = dns.Record(dns.labels(name), dns.SRV, (0, 0, number % 65536, dns.labels(host(number))), dns.HOST_TTL,
                         True)
        yield dns.response(srv, *addresses_of(host(number), "10.1.0.66"))


def noise(seed, count):
    """Good announcements with some bytes changed."""
    dice = random.Random(seed)
    for number in range(count):
        packet = bytearray(announcement(instance(number % 50), host(number % 7), addresses=("10.1.0.9", "fd00:1::9")))
        for _ in range(dice.randint(1, 8)):
            packet[dice.randrange(len(packet))] = dice.randrange(256)
        yield bytes(packet[:dice.randint(1, len(packet))] if dice.random() < 0.2 else packet)
