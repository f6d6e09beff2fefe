# SPDX-License-Identifier: MIT
"""What a host on a link says by multicast, byte for byte; and what an ordinary resolver there asks."""

import socket

from . import dns
from .sockets import GROUP4, GROUP6, PORT, open_on


class Voice:
    """Over every protocol that the link has, unless `over` narrows it to one of "IPv4" and "IPv6"."""

    def __init__(self, link):
        self.sockets = open_on(link)  # each with the address that it sends to

    def send(self, data, over=None):
        for opened, group in self.sockets:
            if over in (None, "IPv6" if opened.family == socket.AF_INET6 else "IPv4"):
                opened.sendto(data, group)

    def respond(self, records, over=None):
        """A response with these records."""
        self.send(dns.response(*records), over)

    def ask(self, name, kind, over=None):
        self.send(dns.query(dns.Question(dns.labels(name), kind)), over)

    def close(self):
        for opened, _ in self.sockets:
            opened.close()


def ask_from_other_port(link, question, over="IPv4", within=15):
    """Asks from a port of its own, as a resolver does that knows nothing of multicast DNS. (The answer that comes to
    that port, its sender), both as they came (RFC 6762 section 6.7)."""
    index = link.ns.index(link.interface)
    with link.ns.entered():
        asking = socket.socket(socket.AF_INET6 if over == "IPv6" else socket.AF_INET,
                               socket.SOCK_DGRAM | socket.SOCK_CLOEXEC)
    with asking:
        asking.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, link.interface.encode())
        asking.settimeout(within)
        asking.sendto(question, (GROUP6, PORT, 0, index) if over == "IPv6" else (GROUP4, PORT))
        return asking.recvfrom(65536)
