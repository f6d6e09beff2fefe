# SPDX-License-Identifier: MIT
"""An ear on a link: every multicast DNS packet on it, whoever sent it."""

import ipaddress
import socket
import struct
import threading
import time
from dataclasses import dataclass

from . import dns
from .closing import Closing
from .sockets import PORT
from .waiting import wait_until

_ETH_P_ALL = 3
_ETH_P_IP, _ETH_P_IPV6 = 0x0800, 0x86DD
_SO_TIMESTAMPNS = 35


@dataclass
class Packet:
    time: float          # of time.monotonic()
    source: str
    destination: str
    hop_limit: int
    size: int            # of the IP packet
    data: bytes          # the UDP payload
    message: object      # dns.Message, or None when it is none


class Ear(Closing):
    """Listens from its making on."""

    def __init__(self, link):
        self.link = link
        self.packets = []
        with link.ns.entered():
            self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM | socket.SOCK_CLOEXEC,
                                         socket.htons(_ETH_P_ALL))
            self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUFFORCE if hasattr(socket, "SO_RCVBUFFORCE")
                                    else 33, 1 << 24)
            self._socket.setsockopt(socket.SOL_SOCKET, _SO_TIMESTAMPNS, 1)
            self._socket.bind((link.interface, _ETH_P_ALL))
        self._socket.settimeout(0.1)
        self._closed = False
        self._thread = threading.Thread(target=self._listen, daemon=True)
        self._thread.start()

    def _listen(self):
        while not self._closed:
            try:
                data, ancillary, _, address = self._socket.recvmsg(65536, 64)
            except TimeoutError:
                continue
            except OSError:
                return
            packet = _read_packet(data, address[1])
            if packet:
                packet.time = _arrival(ancillary)
                self.packets.append(packet)

    # --- looking at what was heard

    def sent_by(self, *sources, since=0.0):
        """The packets from these addresses."""
        return [packet for packet in list(self.packets) if packet.source in sources and packet.time >= since]

    def records(self, sources=None, since=0.0):
        """(packet, record) of every answer and additional record in responses (of these sources)."""
        return [(packet, record) for packet in list(self.packets)
                if packet.message and packet.message.is_response and packet.time >= since
                and (sources is None or packet.source in sources) for record in packet.message.records]

    def heard(self, name, kind, sources=None, since=0.0, ttl=None, data=None):
        """The (packet, record) of that name and type; `ttl` and `data` narrow it."""
        name = dns.labels(name)
        return [(packet, record) for packet, record in self.records(sources, since)
                if record.kind == kind and dns.same_name(record.name, name) and ttl in (None, record.ttl)
                and data in (None, record.data)]

    def wait_for(self, name, kind, within, **narrow):
        """The first (packet, record) as `heard` finds it."""
        return wait_until(lambda: self.heard(name, kind, **narrow), within,
                          lambda: f"on link {self.link.name}: {dns.TYPE_NAMES.get(kind, kind)} of {name} {narrow}")[0]

    def held(self, sources, since=0.0):
        """The records that a listener still holds from these senders: announced, and no goodbye since. Negative answers
        (NSEC) do not count. As (name, kind, data), names as texts in lower case."""
        last = {}
        for _, record in self.records(sources, since):
            if record.kind != dns.NSEC:
                last[dns.text(record.name).lower(), record.kind, record.data] = record.ttl
        return [key for key, ttl in last.items() if ttl > 0]

    def cached(self, sources, since=0.0):
        """As `held`, but of a listener that also goes by the cache-flush bit: a record that was heard more than a
        second ago makes room for others of its name and type (RFC 6762 section 10.2)."""
        heard = {}
        for packet, record in self.records(sources, since):
            key = dns.text(record.name).lower(), record.kind, record.data
            if record.flush:
                for other in [other for other, time in heard.items() if other[:2] == key[:2]
                              and packet.time - time > 1]:
                    del heard[other]
            if record.ttl > 0 and record.kind != dns.NSEC:
                heard[key] = packet.time
            else:
                heard.pop(key, None)
        return list(heard)

    def story(self):
        """What was heard, for a person."""
        return f"--- link {self.link.name}\n" + "\n".join(
            f"{packet.time:.3f} {packet.source} {_summary(packet.message)}" for packet in self.packets[-200:])

    def close(self):
        self._closed = True
        self._thread.join()
        self._socket.close()


def _arrival(ancillary):
    """The kernel's time of arrival, on the monotonic clock."""
    for level, kind, data in ancillary:
        if level == socket.SOL_SOCKET and kind == _SO_TIMESTAMPNS:
            seconds, nanoseconds = struct.unpack("qq", data)
            return _monotonic_minus_wall_clock() + (seconds + nanoseconds / 1e9)
    return time.monotonic()


def _monotonic_minus_wall_clock():
    """Measured until nothing else has run between the looks at the two clocks."""
    while True:
        before, wall, after = time.monotonic(), time.time(), time.monotonic()
        if after - before < 0.001:
            return before - wall


def _read_packet(data, protocol):
    if protocol == _ETH_P_IP and len(data) > 28 and data[9] == socket.IPPROTO_UDP:
        header = (data[0] & 15) * 4
        source, destination, hops = ipaddress.ip_address(data[12:16]), ipaddress.ip_address(data[16:20]), data[8]
    elif protocol == _ETH_P_IPV6 and len(data) > 48 and data[6] == socket.IPPROTO_UDP:
        header = 40
        source, destination, hops = ipaddress.ip_address(data[8:24]), ipaddress.ip_address(data[24:40]), data[7]
    else:
        return None
    if PORT not in struct.unpack_from("!HH", data, header):
        return None
    payload = data[header + 8:]
    try:
        message = dns.decode(payload)
    except ValueError:
        message = None
    return Packet(0.0, str(source), str(destination), hops, len(data), payload, message)


def _summary(message):
    if message is None:
        return "(no DNS message)"
    questions = [f"{dns.text(question.name)} {dns.TYPE_NAMES.get(question.kind, question.kind)}?"
                 for question in message.questions]
    return "; ".join(questions + [repr(record)
                                  for record in message.answers + message.authorities + message.additionals])
